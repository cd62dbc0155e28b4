// A plug-in: telephone numbers as + and 5 to 15 digits, mail addresses with a domain in small letters.
#include "plugin.h"

#include <algorithm>
#include <string_view>

namespace {

bool isDigit(TovUChar unit) { return unit >= u'0' && unit <= u'9'; }

const char *normaliseNumber(TovUniString &value) {
    static constexpr std::u16string_view separators = u" -./()";
    TovUChar *begin = value.writable();
    TovUChar *end = std::remove_if(begin, begin + value.length(),
                                   [](TovUChar unit) { return separators.find(unit) != separators.npos; });
    value.resize(static_cast<unsigned>(end - begin));
    if (value.empty() || value[0] != u'+')
        return "A telephone number begins with + and the code of the country.";
    if (!std::all_of(value.begin() + 1, value.end(), isDigit))
        return "A telephone number has digits behind the +.";
    return value.length() - 1 >= 5 && value.length() - 1 <= 15 ? nullptr
                                                               : "A telephone number has 5 to 15 digits.";
}

const char *normaliseAddress(TovUniString &value) {
    const TovUChar *at = value.find_first(u'@');
    if (at == value.begin() || value.end() - at < 2 || value.find_next(at + 1, u'@') != value.end())
        return "A mail address has one @, and something on both of its sides.";
    const auto domainAt = at - value.begin();
    TovUChar *begin = value.writable();
    std::transform(begin + domainAt, begin + value.length(), begin + domainAt, [](TovUChar unit) {
        return unit >= u'A' && unit <= u'Z' ? static_cast<TovUChar>(unit | 0x20) : unit;
    });
    return nullptr;
}

constexpr DirloadAttribute c_attributes[] = {
    {"telephoneNumber", normaliseNumber},
    {"facsimileTelephoneNumber", normaliseNumber},
    {"mobile", normaliseNumber},
    {"mail", normaliseAddress},
    {nullptr, nullptr},
};

} // namespace

extern "C" [[gnu::visibility("default")]] const DirloadAttribute *dirloadAttributes() { return c_attributes; }
