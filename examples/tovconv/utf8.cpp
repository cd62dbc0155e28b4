#include "utf8.h"

#include <array>
#include <cstdint>
#include <cstring>

namespace {

// One kind of lead byte: how long its sequences are, and what may come second. All later bytes are 80..BF.
struct Form {
    unsigned char firstLead;
    unsigned char lastLead;
    unsigned char length; // 0: never begins a character
    unsigned char secondLow;
    unsigned char secondHigh;
};

constexpr Form c_forms[] = {
    {0x00, 0x7F, 1, 0x00, 0x00}, {0x80, 0xC1, 0, 0x00, 0x00}, {0xC2, 0xDF, 2, 0x80, 0xBF},
    {0xE0, 0xE0, 3, 0xA0, 0xBF}, {0xE1, 0xEC, 3, 0x80, 0xBF}, {0xED, 0xED, 3, 0x80, 0x9F},
    {0xEE, 0xEF, 3, 0x80, 0xBF}, {0xF0, 0xF0, 4, 0x90, 0xBF}, {0xF1, 0xF3, 4, 0x80, 0xBF},
    {0xF4, 0xF4, 4, 0x80, 0x8F}, {0xF5, 0xFF, 0, 0x00, 0x00},
};

constexpr std::array<Form, 256> c_formOfLead = [] {
    std::array<Form, 256> forms{};
    for (const Form &form : c_forms)
        for (std::size_t lead = form.firstLead; lead <= form.lastLead; ++lead)
            forms[lead] = form;
    return forms;
}();

unsigned char byteAt(std::string_view bytes, std::size_t at) { return static_cast<unsigned char>(bytes[at]); }

bool follows(const Form &form, std::size_t position, unsigned char byte) {
    return position == 1 ? byte >= form.secondLow && byte <= form.secondHigh : (byte & 0xC0) == 0x80;
}

struct Sequence {
    bool wellFormed;
    std::size_t length; // with the byte that shows a fault
};

Sequence firstSequence(std::string_view bytes) {
    const Form &form = c_formOfLead[byteAt(bytes, 0)];
    if (form.length == 0)
        return {false, 1};
    for (std::size_t i = 1; i < form.length; ++i) {
        if (i == bytes.size())
            return {false, i};
        if (!follows(form, i, byteAt(bytes, i)))
            return {false, i + 1};
    }
    return {true, form.length};
}

// The end of the ASCII run that begins at `at`.
std::size_t skipAscii(std::string_view bytes, std::size_t at) {
    for (std::uint64_t word; bytes.size() - at >= sizeof word; at += sizeof word) {
        std::memcpy(&word, bytes.data() + at, sizeof word);
        if (word & 0x8080808080808080U)
            break;
    }
    while (at < bytes.size() && byteAt(bytes, at) < 0x80)
        ++at;
    return at;
}

} // namespace

std::size_t wellFormedUtf8(std::string_view bytes) {
    std::size_t at = 0;
    while ((at = skipAscii(bytes, at)) < bytes.size()) {
        const Sequence sequence = firstSequence(bytes.substr(at));
        if (!sequence.wellFormed)
            break;
        at += sequence.length;
    }
    return at;
}

std::size_t illFormedUtf8(std::string_view bytes) { return firstSequence(bytes).length; }

std::size_t utf8BytesOfUnits(std::string_view bytes, std::size_t unitCount) {
    std::size_t at = 0;
    for (std::size_t units = 0; units < unitCount;) {
        const std::size_t length = c_formOfLead[byteAt(bytes, at)].length;
        units += length == 4 ? 2 : 1;
        at += length;
    }
    return at;
}
