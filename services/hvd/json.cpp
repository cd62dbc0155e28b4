#include <services/hvd/json.h>

namespace hvd {

namespace {

constexpr std::string_view replacement = "\xEF\xBF\xBD";
constexpr std::string_view ellipsis = "...";
constexpr std::size_t longestEscape = 6; // "\u001F"

/// How UTF-8 characters of more than one byte begin: the first byte, and what the second may be.
struct Form {
    unsigned char firstLow, firstHigh, secondLow, secondHigh;
    std::size_t length;
};

constexpr Form forms[] = {
    {0xC2, 0xDF, 0x80, 0xBF, 2}, {0xE0, 0xE0, 0xA0, 0xBF, 3}, {0xE1, 0xEC, 0x80, 0xBF, 3},
    {0xED, 0xED, 0x80, 0x9F, 3}, {0xEE, 0xEF, 0x80, 0xBF, 3}, {0xF0, 0xF0, 0x90, 0xBF, 4},
    {0xF1, 0xF3, 0x80, 0xBF, 4}, {0xF4, 0xF4, 0x80, 0x8F, 4},
};

unsigned char byteAt(std::string_view bytes, std::size_t at) { return static_cast<unsigned char>(bytes[at]); }

bool within(unsigned char byte, unsigned char low, unsigned char high) { return byte >= low && byte <= high; }

bool hasForm(std::string_view bytes, const Form &form) {
    if (!within(byteAt(bytes, 0), form.firstLow, form.firstHigh) || bytes.size() < form.length ||
        !within(byteAt(bytes, 1), form.secondLow, form.secondHigh))
        return false;
    for (std::size_t at = 2; at < form.length; ++at)
        if (!within(byteAt(bytes, at), 0x80, 0xBF))
            return false;
    return true;
}

// The length of the character that the text begins with; 0 when it is none.
std::size_t characterLength(std::string_view bytes) {
    if (byteAt(bytes, 0) < 0x80)
        return 1;
    for (const Form &form : forms)
        if (hasForm(bytes, form))
            return form.length;
    return 0;
}

void putAscii(Lines &lines, char byte) {
    if (byte == '"' || byte == '\\')
        lines.put('\\');
    if (static_cast<unsigned char>(byte) >= 0x20)
        return lines.put(byte);
    lines.put("\\u");
    lines.putNumber(static_cast<unsigned char>(byte), 16, 4);
}

} // namespace

void putJson(Lines &lines, std::string_view bytes, std::size_t reserve) noexcept {
    while (!bytes.empty()) {
        if (!lines.hasRoom(longestEscape + ellipsis.size() + reserve))
            return lines.put(ellipsis);
        const std::size_t length = characterLength(bytes);
        if (length == 0)
            lines.put(replacement);
        else if (length == 1)
            putAscii(lines, bytes[0]);
        else
            lines.put(bytes.substr(0, length));
        bytes.remove_prefix(length == 0 ? 1 : length);
    }
}

} // namespace hvd
