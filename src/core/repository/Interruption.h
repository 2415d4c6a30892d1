#pragma once

#include <exception>

namespace dorvane {

// A request to stop the running operation: dorvanectl makes one when it is
// sent SIGINT or SIGTERM. The data layer looks for it before every
// statement it runs, and SQLite while it runs a long one, and throws
// OperationInterrupted; the transaction scopes the exception leaves roll
// back, and the operation's work files go with their guards.
//
// RequestInterruption is async-signal-safe.
void RequestInterruption() noexcept;
bool InterruptionRequested() noexcept;
// Withdraws the request (for a program that goes on after one).
void ClearInterruption() noexcept;

class OperationInterrupted : public std::exception {
public:
    const char* what() const noexcept override { return "Interrupted"; }
};

// Throws OperationInterrupted when an interruption was requested.
void CheckInterruption();

} // namespace dorvane
