// Whole lines, gathered to go out with one write.
#pragma once

#include <services/hvd/quiet.h>

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace hvd {

/// Gathers the lines of one event. They go out with one write, where the target takes them in one piece;
/// otherwise with several of whole lines, each small enough that no other thread's bytes come between.
/// A line here is a unit that must not be torn, whatever bytes it holds.
///
/// Units      Bytes.
/// Errors     A failed write: the rest is dropped, and error() tells.
/// Cost       Events up to 1 KiB stay on the stack, larger ones take memory from malloc; without memory,
///            they go out in smaller pieces, and no line is longer than that.
class Lines {
public:
    /// `atOnce` is what the target takes in one piece, and `lineLimit` the longest line. A target that
    /// takes no more than a pipe does may have to be waited for.
    Lines(const Quiet &quiet, int descriptor, std::size_t atOnce, std::size_t lineLimit) noexcept
        : m_quiet(quiet), m_descriptor(descriptor), m_atOnce(atOnce), m_lineLimit(lineLimit) {}
    ~Lines();
    Lines(const Lines &) = delete;
    Lines &operator=(const Lines &) = delete;

    /// Whether so many bytes can be put behind the present line.
    bool hasRoom(std::size_t size) noexcept;
    /// Puts the bytes, or nothing if there is no room for all of them.
    void put(std::string_view bytes) noexcept;
    void put(char byte) noexcept { put({&byte, 1}); }
    void putNumber(std::uint64_t value, int base = 10, int digits = 1) noexcept;

    void endLine() noexcept;
    void dropLine() noexcept { m_size = m_lineStart; }
    /// Writes the whole lines. True when all went well, these and earlier ones.
    bool flush() noexcept;
    int error() const noexcept { return m_error; }

private:
    bool grow(std::size_t size) noexcept;

    const Quiet &m_quiet;
    const int m_descriptor;
    const std::size_t m_atOnce;
    const std::size_t m_lineLimit;
    std::size_t m_size = 0;
    std::size_t m_lineStart = 0;
    std::size_t m_capacity = sizeof m_room;
    char *m_bytes = m_room;
    int m_error = 0;
    char m_room[1024]; // threads may have little stack
};

} // namespace hvd
