#pragma once

#include <QString>

#include <vector>

namespace dorvane {

class Connection;

// What an operation is about to change, held against every other operation
// of any program on the same repository until it ends, so that two
// operations on one environment or one version take turns, and a name is
// checked and taken by one of them at a time.
//
// On PostgreSQL: session advisory locks, taken in a fixed order before the
// operation's transaction begins (so that its snapshot sees what the
// previous holder committed) and given back when the object goes, after
// the transaction has ended. A lock another operation holds is waited for
// as long as a row lock (LockWaitMs), then the operation is refused with
// "Environment NAME is in use by another operation; try again when it has
// finished." On SQLite the write transaction's lock on the file already
// lets one writer in at a time: nothing is taken.
class OperationLocks {
public:
    enum class Kind {
        Environment,       // its row, list, users, schedules and layouts
        Version,           // its row and content
        EnvironmentNames,  // the right to check a name free and take it
    };
    struct Target {
        Kind kind;
        qint32 key = 0;
    };

    OperationLocks(Connection& connection, std::vector<Target> targets);
    ~OperationLocks();
    OperationLocks(const OperationLocks&) = delete;
    OperationLocks& operator=(const OperationLocks&) = delete;

private:
    void release() noexcept;

    Connection& m_connection;
    std::vector<Target> m_held;
};

} // namespace dorvane
