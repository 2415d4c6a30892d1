#include "core/repository/Transaction.h"

#include "core/repository/Connection.h"

namespace dorvane {

Transaction::Transaction(Connection& connection, Kind kind)
    : m_connection(connection), m_joined(connection.InTransaction())
{
    if (m_joined)
        return;
    if (kind == Kind::Snapshot)
        connection.BeginReadTrans();
    else
        connection.BeginTrans();
}

Transaction::~Transaction()
{
    if (m_done)
        return;
    if (m_joined) {
        m_connection.MarkRollbackOnly();
        return;
    }
    try {
        if (m_connection.IsOpen() && m_connection.InTransaction())
            m_connection.RollbackTrans();
    } catch (...) {
        // The failure that ended the scope is the one to report; closing
        // the connection ends the transaction in any case.
    }
}

void Transaction::Commit()
{
    if (m_joined) {
        m_done = true;
        return;
    }
    m_connection.CommitTrans();
    m_done = true;
}

void Transaction::Rollback()
{
    if (m_done)
        return;
    m_done = true;
    if (m_joined) {
        m_connection.MarkRollbackOnly();
        return;
    }
    if (m_connection.InTransaction())
        m_connection.RollbackTrans();
}

} // namespace dorvane
