// The hex dump. The text is sized at once, filled with blanks and written in place.
#include <tovutil/tovdump.h>

#include <tovutil/tovsize.h>
#include <tovutil/tovtrcfn.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cctype>
#include <cstring>
#include <ostream>
#include <string_view>
#include <utility>

TOV_TRACE_FILE("tovutil/tovdump");

namespace tovdetail {

void writeDumpOffset(char *target, std::uint32_t offset);

} // namespace tovdetail

namespace {

constexpr std::string_view c_header = "           0 1 2 3  4 5 6 7   8 9 A B  C D E F    0123456789ABCDEF\n"
                                      "          ------------------------------------    ----------------";
static_assert(c_header.size() == 133);

constexpr std::size_t c_lineBytes = 16;
constexpr std::size_t c_lineLength = 68; // with its leading line feed

// Columns of a line, its line feed counted.
constexpr std::size_t c_characterColumn = 51;
constexpr std::uint8_t c_digitColumn[c_lineBytes] = {11, 13, 15, 17, 20, 22, 24, 26,
                                                     30, 32, 34, 36, 39, 41, 43, 45};
constexpr std::size_t c_groupBytes = 4; // whose digits stand without a gap

struct DigitPair {
    char digits[2];
};

constexpr auto c_digitPairs = [] {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::array<DigitPair, 256> pairs{};
    for (std::size_t byte = 0; byte < pairs.size(); ++byte)
        pairs[byte] = {{digits[byte >> 4], digits[byte & 15]}};
    return pairs;
}();

void writeByte(char *target, unsigned byte) {
    std::memcpy(target, c_digitPairs[byte & 255].digits, sizeof(DigitPair));
}

char shown(unsigned char byte) { return std::isprint(byte) ? static_cast<char>(byte) : '.'; }

// Puts `count` values that fill eight bytes together in memory order and writes them at once: a store for
// each would take longer than all else.
template <std::size_t count, class Value>
void writeTogether(char *target, Value value) {
    constexpr std::size_t bits = 64 / count;
    const auto placed = [&](std::size_t i) {
        return std::uint64_t{value(i)}
               << bits * (std::endian::native == std::endian::little ? i : count - 1 - i);
    };
    const std::uint64_t word = [&]<std::size_t... i>(std::index_sequence<i...>) { return (placed(i) | ...); }
    (std::make_index_sequence<count>());
    std::memcpy(target, &word, sizeof word);
}

template <class Show>
void writeWholeLine(char *target, std::uint32_t offset, const unsigned char *bytes, Show show) {
    target[0] = '\n';
    tovdetail::writeDumpOffset(target + 1, offset);
    for (std::size_t first = 0; first < c_lineBytes; first += c_groupBytes)
        writeTogether<c_groupBytes>(target + c_digitColumn[first], [&](std::size_t i) {
            return std::bit_cast<std::uint16_t>(c_digitPairs[bytes[first + i]]);
        });
    for (std::size_t first = 0; first < c_lineBytes; first += 8)
        writeTogether<8>(target + c_characterColumn + first,
                         [&](std::size_t i) { return static_cast<std::uint8_t>(show(bytes[first + i])); });
}

// `show` gives the character of a byte.
template <class Show>
void writeLine(char *target, std::uint32_t offset, const unsigned char *bytes, std::size_t count, Show show) {
    target[0] = '\n';
    tovdetail::writeDumpOffset(target + 1, offset);
    for (std::size_t i = 0; i < count; ++i) {
        writeByte(target + c_digitColumn[i], bytes[i]);
        target[c_characterColumn + i] = show(bytes[i]);
    }
}

// The lines from `offset` on.
template <class Show>
void writeLines(char *target, std::uint32_t offset, const unsigned char *bytes, std::uint32_t length,
                Show show) {
    for (; offset < length; offset += c_lineBytes, target += c_lineLength)
        writeLine(target, offset, bytes + offset, std::min<std::size_t>(c_lineBytes, length - offset), show);
}

// The locale may change between two calls, so the table of its characters belongs to one call.
void writeLinesByTable(char *target, const unsigned char *bytes, std::uint32_t length) {
    std::array<char, 256> characters;
    for (std::size_t byte = 0; byte < characters.size(); ++byte)
        characters[byte] = shown(static_cast<unsigned char>(byte));
    const auto show = [&characters](unsigned char byte) { return characters[byte]; };
    std::uint32_t offset = 0;
    for (; length - offset >= c_lineBytes; offset += c_lineBytes, target += c_lineLength)
        writeWholeLine(target, offset, bytes + offset, show);
    writeLines(target, offset, bytes, length, show);
}

} // namespace

// The eight digits of a line's offset, and the colon.
void tovdetail::writeDumpOffset(char *target, std::uint32_t offset) {
    for (unsigned shift = 32; shift != 0; target += 2)
        writeByte(target, offset >> (shift -= 8));
    *target = ':';
}

void tovDumpHex(TovString &text, const void *memory, std::uint32_t length) {
    TOV_TRACE_ENTER("tovDumpHex");
    const std::size_t size = static_cast<std::size_t>(TOV_LENGTH32(length));
    text.clear();
    text.assign(c_header.size() + (size + c_lineBytes - 1) / c_lineBytes * c_lineLength, ' ');
    c_header.copy(text.data(), c_header.size());
    const auto *bytes = static_cast<const unsigned char *>(memory);
    char *lines = text.data() + c_header.size();
    if (length < 256)
        writeLines(lines, 0, bytes, length, shown);
    else
        writeLinesByTable(lines, bytes, length);
    TOV_TRACE_LEAVE();
}

void tovDumpHex(std::ostream &os, const void *memory, std::uint32_t length) {
    TOV_TRACE_ENTER("tovDumpHex");
    TovString text;
    tovDumpHex(text, memory, length);
    os << text;
    TOV_TRACE_LEAVE();
}
