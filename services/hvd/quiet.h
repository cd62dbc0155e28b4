// What keeps the facility out of sight of the thread that it reports on.
#pragma once

#include <cerrno>
#include <csignal>
#include <string_view>

namespace hvd {

/// Restores errno.
class KeepErrno {
public:
    KeepErrno() = default;
    ~KeepErrno() { errno = m_errno; }
    KeepErrno(const KeepErrno &) = delete;
    KeepErrno &operator=(const KeepErrno &) = delete;

private:
    const int m_errno = errno;
};

/// While it lives, the thread runs no signal handler, which could itself trace in the middle of an
/// event, but for while it waits for a reader; and no cancellation unwinds through the caller.
///
/// Cost       Two system calls.
class Quiet {
public:
    Quiet() noexcept;
    ~Quiet();
    Quiet(const Quiet &) = delete;
    Quiet &operator=(const Quiet &) = delete;

    /// Writes all of `bytes`; gives 0 or an error number. What would come as a signal (a broken pipe,
    /// the limit of file sizes) is a result like any other.
    /// With `mayWait` it lets the caller's signals through until the target takes something.
    int write(int descriptor, std::string_view bytes, bool mayWait) const noexcept;

private:
    void waitForRoom(int descriptor) const noexcept;
    void takeBack(int signal) const noexcept;

    const KeepErrno m_errno;
    int m_cancelState = 0;
    sigset_t m_mask{};
    sigset_t m_pending{}; // of the signals that the thread itself blocks
};

/// Writes one line to standard error: "libhvd: ", then the formatted text, cut to 1 KiB.
[[gnu::format(printf, 1, 2)]] void report(const char *format, ...) noexcept;

} // namespace hvd
