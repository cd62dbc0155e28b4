/// How tovconv ends when it can't do its work.
#pragma once

#include <stdexcept>
#include <string>

/// Exit codes, as the help text promises them.
enum class Exit : int {
    Success = 0,
    BadText = 1,
    Usage = 2,
    UnknownCodePage = 3,
    Input = 4,
    DiskFull = 5,
    ClosedPipe = 6,
    Output = 7,
    Limits = 8,
};

/// Stops the job: what the user reads, and the exit code.
class Failure : public std::runtime_error {
public:
    Failure(Exit exitCode, const std::string &message) : std::runtime_error(message), m_exit(exitCode) {}

    Exit exitCode() const { return m_exit; }

private:
    Exit m_exit;
};

/// "NAME: what the system says of `error`".
Failure systemFailure(Exit exitCode, const std::string &name, int error);
