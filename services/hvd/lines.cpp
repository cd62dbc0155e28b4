#include <services/hvd/lines.h>

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <limits>

namespace hvd {

Lines::~Lines() {
    if (m_bytes != m_room)
        std::free(m_bytes);
}

bool Lines::hasRoom(std::size_t size) noexcept {
    if (m_size - m_lineStart + size > m_lineLimit)
        return false;
    if (m_size + size <= m_capacity || grow(m_size + size))
        return true;
    flush();
    return m_size + size <= m_capacity;
}

bool Lines::grow(std::size_t size) noexcept {
    std::size_t capacity = m_capacity;
    while (capacity < size)
        capacity *= 2;
    if (capacity > 2 * (m_atOnce + m_lineLimit))
        return false;
    const bool own = m_bytes == m_room;
    auto *bytes = static_cast<char *>(std::realloc(own ? nullptr : m_bytes, capacity));
    if (!bytes)
        return false;
    if (own)
        std::memcpy(bytes, m_room, m_size);
    m_bytes = bytes;
    m_capacity = capacity;
    return true;
}

void Lines::put(std::string_view bytes) noexcept {
    if (!hasRoom(bytes.size()))
        return;
    bytes.copy(m_bytes + m_size, bytes.size());
    m_size += bytes.size();
}

void Lines::putNumber(std::uint64_t value, int base, int digits) noexcept {
    char text[std::numeric_limits<std::uint64_t>::digits];
    const char *end = std::to_chars(text, text + sizeof text, value, base).ptr;
    for (auto length = end - text; length < digits; ++length)
        put('0');
    put({text, static_cast<std::size_t>(end - text)});
}

// A line that would make the piece too large waits for the next one.
void Lines::endLine() noexcept {
    if (m_size > m_atOnce)
        flush();
    m_lineStart = m_size;
}

bool Lines::flush() noexcept {
    if (m_error == 0)
        m_error = m_quiet.write(m_descriptor, {m_bytes, m_lineStart}, m_atOnce <= PIPE_BUF);
    m_size -= m_lineStart;
    std::memmove(m_bytes, m_bytes + m_lineStart, m_size);
    m_lineStart = 0;
    return m_error == 0;
}

} // namespace hvd
