/// How dirload ends when it can't do its work.
#pragma once

#include <cstring>
#include <stdexcept>
#include <string>

/// Exit codes, as the help text promises them.
enum class Exit : int {
    Success = 0,
    Stopped = 1,
    Usage = 2,
    Input = 3,
    Plugin = 4,
    Output = 5,
    Memory = 6,
};

class Failure : public std::runtime_error {
public:
    Failure(Exit exitCode, const std::string &message) : std::runtime_error(message), m_exit(exitCode) {}
    Failure(Exit exitCode, const std::string &what, int error)
        : Failure(exitCode, what + ": " + std::strerror(error)) {}

    Exit exitCode() const { return m_exit; }

private:
    Exit m_exit;
};
