#pragma once

namespace dorvane {

class Connection;

// One transaction on a connection for the length of a scope: begun when the
// scope starts, committed by Commit, rolled back when the scope ends
// without it - also when an exception leaves the scope, so that a failure,
// an interruption or an early return leaves the database as it was.
//
// A scope that starts inside a transaction the connection has open already
// takes part in that one: its Commit leaves the commit to the outer scope,
// and its end without Commit makes the outer transaction roll back (its
// Commit then fails). So an operation that is one transaction on its own
// (deleting a version) is one part of a larger one (deleting an
// application) without a second code path.
class Transaction {
public:
    enum class Kind {
        Write,     // writes; on SQLite it takes the write lock at once
        Snapshot,  // only reads, and sees one state of the database throughout
    };

    explicit Transaction(Connection& connection, Kind kind = Kind::Write);
    ~Transaction();
    Transaction(const Transaction&) = delete;
    Transaction& operator=(const Transaction&) = delete;

    // Throws DbError; the transaction is then rolled back when the scope ends.
    void Commit();
    // Rolls back now and says so when that fails (the end of the scope
    // rolls back quietly: closing the connection ends it anyway).
    void Rollback();

    bool Joined() const { return m_joined; }

private:
    Connection& m_connection;
    bool m_joined;
    bool m_done = false;
};

} // namespace dorvane
