#include <services/hvd/lines.h>
#include <services/hvd/output.h>
#include <services/hvd/textformat.h>

#include <algorithm>
#include <chrono>
#include <climits>
#include <unistd.h>

namespace hvd {

namespace {

constexpr std::size_t lineLimit = PIPE_BUF;
constexpr std::size_t nameLimit = 512;
constexpr std::size_t longestEscape = 8; // "\xc2\x9b"
constexpr std::size_t nameReserve = 128; // what the name leaves of a line: a row of memory, or some text
constexpr std::size_t bytesPerRow = 16;
constexpr std::size_t bytesPerGroup = 4;

bool isControl(unsigned char byte) { return byte < 0x20 || byte == 0x7F; }

void putHex(Lines &lines, unsigned char byte) { lines.putNumber(byte, 16, 2); }

void putEscape(Lines &lines, unsigned char byte) {
    constexpr std::string_view letters = "\nn\tt\rr\\\\";
    for (std::size_t at = 0; at < letters.size(); at += 2)
        if (static_cast<unsigned char>(letters[at]) == byte) {
            lines.put('\\');
            lines.put(letters[at + 1]);
            return;
        }
    lines.put("\\x");
    putHex(lines, byte);
}

// Puts the first character, and takes it from the text. Terminals take U+0080 to U+009F for control
// characters, too.
void putCharacter(Lines &lines, std::string_view &text) {
    const auto byte = static_cast<unsigned char>(text[0]);
    const auto next = static_cast<unsigned char>(text.size() > 1 ? text[1] : 0);
    text.remove_prefix(1);
    if (byte == 0xC2 && next >= 0x80 && next <= 0x9F) {
        text.remove_prefix(1);
        putEscape(lines, byte);
        putEscape(lines, next);
    } else if (isControl(byte) || byte == '\\') {
        putEscape(lines, byte);
    } else {
        lines.put(static_cast<char>(byte));
    }
}

/// The lines of one event, each of which begins with what they have in common.
class TextWriter {
public:
    TextWriter(const HvdTraceEvent &event, Lines &lines) : m_event(event), m_lines(lines) { begin(); }

    // A text that doesn't fit a line goes on in the next one.
    void put(std::string_view text) {
        while (!text.empty()) {
            if (!m_lines.hasRoom(longestEscape + 1)) {
                nextLine();
                m_lines.put("+ ");
            }
            putCharacter(m_lines, text);
        }
    }

    void putMemory(const unsigned char *bytes, std::size_t size) {
        for (std::size_t offset = 0; offset < size; offset += bytesPerRow) {
            nextLine();
            putRow(offset, bytes + offset, std::min(bytesPerRow, size - offset));
        }
    }

    void end() {
        m_lines.put('\n');
        m_lines.endLine();
    }

private:
    void nextLine() {
        end();
        begin();
    }

    // Of the day and the time of day in UTC: the C library's own conversion takes a lock.
    void putTime() {
        using namespace std::chrono;
        const auto days = floor<std::chrono::days>(m_time);
        const year_month_day date(days);
        const hh_mm_ss time(floor<microseconds>(m_time - days));
        const struct {
            std::uint64_t value;
            int digits;
            char before;
        } fields[] = {{static_cast<std::uint64_t>(static_cast<int>(date.year())), 4, '\0'},
                      {static_cast<unsigned>(date.month()), 2, '-'},
                      {static_cast<unsigned>(date.day()), 2, '-'},
                      {static_cast<std::uint64_t>(time.hours().count()), 2, 'T'},
                      {static_cast<std::uint64_t>(time.minutes().count()), 2, ':'},
                      {static_cast<std::uint64_t>(time.seconds().count()), 2, ':'},
                      {static_cast<std::uint64_t>(time.subseconds().count()), 6, '.'}};
        for (const auto &field : fields) {
            if (field.before)
                m_lines.put(field.before);
            m_lines.putNumber(field.value, 10, field.digits);
        }
        m_lines.put('Z');
    }

    void begin() {
        putTime();
        m_lines.put(' ');
        m_lines.putNumber(m_thread);
        m_lines.put(' ');
        std::string_view name(m_event.record->name,
                              std::min<std::size_t>(m_event.record->nameLength, nameLimit));
        while (!name.empty() && m_lines.hasRoom(nameReserve))
            putCharacter(m_lines, name);
        m_lines.put(' ');
        m_lines.putNumber(m_event.line);
        m_lines.put(' ');
    }

    void putRow(std::size_t offset, const unsigned char *row, std::size_t size) {
        m_lines.putNumber(offset, 16, 8);
        m_lines.put(": ");
        for (std::size_t at = 0; at < bytesPerRow; ++at) {
            if (at < size)
                putHex(m_lines, row[at]);
            else
                m_lines.put("  ");
            if (at % bytesPerGroup == bytesPerGroup - 1)
                m_lines.put(' ');
        }
        m_lines.put(' ');
        for (std::size_t at = 0; at < size; ++at)
            m_lines.put(row[at] < 0x80 && !isControl(row[at]) ? static_cast<char>(row[at]) : '.');
    }

    const HvdTraceEvent &m_event;
    Lines &m_lines;
    const std::chrono::system_clock::time_point m_time = std::chrono::system_clock::now();
    const std::uint64_t m_thread = static_cast<std::uint64_t>(gettid());
};

} // namespace

void writeText(const HvdTraceEvent &event, const Quiet &quiet) noexcept {
    const Output output(quiet);
    if (!output)
        return;
    Lines lines(quiet, output.descriptor(), output.atOnce(), lineLimit);
    TextWriter writer(event, lines);
    if (event.text)
        writer.put(event.text);
    else
        writer.put(event.kind == HvdTraceEvent::Enter ? "Entry" : "Exit");
    if (event.kind == HvdTraceEvent::Dump)
        writer.putMemory(static_cast<const unsigned char *>(event.address), event.size);
    writer.end();
    if (!lines.flush())
        output.failed(lines.error());
}

} // namespace hvd
