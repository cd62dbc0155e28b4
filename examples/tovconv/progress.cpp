#include "progress.h"

#include <algorithm>
#include <cstdio>
#include <string>

#include <unistd.h>

namespace {

using namespace std::chrono_literals;

constexpr std::size_t c_barWidth = 30;

} // namespace

Progress::Progress(std::uint64_t totalBytes, bool wanted)
    : m_wanted(wanted && isatty(STDERR_FILENO) == 1), m_totalBytes(totalBytes), m_due(m_start + 1s) {}

// Leaves an empty line to what comes next.
Progress::~Progress() {
    if (m_shown)
        std::fputs("\r\x1B[K", stderr);
}

void Progress::advance(std::uint64_t bytes) {
    m_bytes += bytes;
    if (!m_wanted)
        return;
    const Clock::time_point now = Clock::now();
    if (now < m_due)
        return;
    m_due = now + 100ms;
    show(std::chrono::duration<double>(now - m_start).count());
}

void Progress::show(double seconds) {
    m_shown = true;
    const double megabytes = static_cast<double>(m_bytes) / 1e6;
    if (m_totalBytes == 0) {
        std::fprintf(stderr, "\r\x1B[K%.1f MB, %.1f MB/s", megabytes, megabytes / seconds);
        return;
    }
    const double part = std::min(1.0, static_cast<double>(m_bytes) / static_cast<double>(m_totalBytes));
    std::string bar(static_cast<std::size_t>(part * c_barWidth), '#');
    bar.resize(c_barWidth, ' ');
    std::fprintf(stderr, "\r\x1B[K[%s] %3.0f%%, %.1f MB/s", bar.c_str(), 100 * part, megabytes / seconds);
}
