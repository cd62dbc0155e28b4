// Any units as numbers, held against a model that reads each digit in a wide integer; and numbers that go to
// text and back.
#include <tovutil/tovuterr.h>
#include <tovutil/tovutstr.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

namespace {

struct Number {
    std::uint32_t value;
    std::size_t end; // behind what was used
    friend bool operator==(const Number &, const Number &) = default;
};

void require(bool holds) {
    if (!holds)
        std::abort();
}

std::size_t behindSpace(std::u16string_view text, std::size_t at) {
    return std::min(text.find_first_not_of(u" \t\n\r", at), text.size());
}

Number digits(std::u16string_view text, std::size_t at, unsigned base) {
    constexpr std::u16string_view lower = u"0123456789abcdefghijklmnopqrstuvwxyz";
    constexpr std::u16string_view upper = u"0123456789ABCDEFGHIJKLMNOPQRSTUVWXYZ";
    std::uint64_t value = 0;
    for (; at < text.size(); ++at) {
        const std::size_t digit = std::min(lower.find(text[at]), upper.find(text[at]));
        const std::uint64_t wrapped = (value * base + digit) % (std::uint64_t{1} << 32);
        if (digit >= base || wrapped < value)
            break;
        value = wrapped;
    }
    return {static_cast<std::uint32_t>(value), at};
}

Number inAnyBase(std::u16string_view text, std::size_t from, unsigned base) {
    const Number none{0, from};
    std::size_t at = behindSpace(text, from);
    if (at < text.size() && (text[at] == u'+' || text[at] == u'-'))
        ++at;
    if (at == text.size())
        return none;
    if (base != 0)
        return digits(text, at, base);
    if (text[at] != u'0')
        return text[at] >= u'1' && text[at] <= u'9' ? digits(text, at, 10) : none;
    if (++at == text.size())
        return none;
    if ((text[at] | 0x20) == u'x')
        return digits(text, at + 1, 16);
    return text[at] >= u'0' && text[at] <= u'8' ? digits(text, at, 8) : none;
}

template <class Read>
Number readFrom(const TovUniString &string, std::size_t from, Read read) {
    const TovUChar *at = string.begin() + from;
    const std::uint32_t value = read(at);
    return {value, static_cast<std::size_t>(at - string.begin())};
}

void readNumbers(const TovUniString &string, std::size_t from, int base) {
    const std::u16string_view text = string.view();
    const auto radix = static_cast<unsigned>(base);
    require(readFrom(string, from, [&](auto &at) { return string.strtoul(at, base); }) ==
            inAnyBase(text, from, radix));
    require(readFrom(string, from, [&](auto &at) { return string.scanUInt32(at); }) ==
            digits(text, from, 10));
    const Number whole = digits(text, 0, 10);
    TovRc rc;
    rc.setMsg(7, "kept");
    require(string.toUInt32(rc) == whole.value);
    const bool good = whole.end != 0 && whole.end == text.size();
    require(rc.getRc() == (good ? 0 : 0xFFFFFFFFU) && std::strcmp(rc.getMsg(), good ? "" : "kept") == 0);
}

std::u16string inDecimal(std::int64_t value, std::size_t width) {
    std::string text = std::to_string(value);
    const std::size_t sign = value < 0;
    if (text.size() < width)
        text.insert(sign, width - text.size(), '0');
    return {text.begin(), text.end()};
}

void writeNumbers(std::uint32_t value, unsigned width) {
    TovUniString string(u"7");
    string.appendUInt32(value, width);
    require(string == u'7' + inDecimal(value, width));
    require(readFrom(string, 1, [&](auto &at) { return string.scanUInt32(at); }) ==
            Number{value, string.length()});
    TovUniString withSign;
    const auto negative = static_cast<std::int32_t>(value);
    withSign.appendInt32(negative, width);
    require(withSign == inDecimal(negative, width));
    const std::uint32_t magnitude = negative < 0 ? 0 - value : value;
    require(readFrom(withSign, 0, [&](auto &at) { return withSign.strtoul(at, 10); }) ==
            Number{magnitude, withSign.length()});
}

} // namespace

// Base, place and width in a byte each, then units in one byte, or in two where the base's byte says so; the
// first four bytes of them are also the value to write.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
    if (size < 3)
        return 0;
    const std::uint8_t *bytes = data + 3;
    const std::size_t unitSize = data[0] >= 128 ? 2 : 1, count = (size - 3) / unitSize;
    const auto units = std::make_unique<TovUChar[]>(count); // exactly that, so that a sanitizer sees its end
    for (std::size_t i = 0; i < count; ++i)
        std::memcpy(&units[i], bytes + i * unitSize, unitSize);
    const auto string = TovUniString::fromStatic(units.get(), static_cast<unsigned>(count));
    readNumbers(string, data[1] % (count + 1), data[0] % 128 % 37);
    std::uint32_t value = 0;
    std::memcpy(&value, bytes, std::min(sizeof value, size - 3));
    writeNumbers(value, data[2] % 40U);
    return 0;
}
