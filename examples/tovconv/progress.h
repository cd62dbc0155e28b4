/// A progress bar on standard error, for jobs that take longer than a second.
#pragma once

#include <chrono>
#include <cstdint>

class Progress {
public:
    /// `totalBytes` 0 means that the total isn't known: the bytes so far are shown and no bar. Without
    /// `wanted`, or where standard error is no terminal, nothing is shown at all.
    Progress(std::uint64_t totalBytes, bool wanted);
    ~Progress();
    Progress(const Progress &) = delete;
    Progress &operator=(const Progress &) = delete;

    void advance(std::uint64_t bytes);

private:
    using Clock = std::chrono::steady_clock;
    void show(double seconds);

    bool m_wanted;
    bool m_shown = false;
    std::uint64_t m_totalBytes;
    std::uint64_t m_bytes = 0;
    Clock::time_point m_start = Clock::now();
    Clock::time_point m_due;
};
