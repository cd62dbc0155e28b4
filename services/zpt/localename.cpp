#include <services/zpt/localename.h>

#include <cstdlib>

namespace zpt {

namespace {

// Takes what stands behind the first `mark` off the text and gives it; empty when there is no mark.
std::string_view takeBehind(std::string_view &text, char mark) {
    const std::size_t at = text.find(mark);
    if (at == std::string_view::npos)
        return {};
    const std::string_view behind = text.substr(at + 1);
    text = text.substr(0, at);
    return behind;
}

} // namespace

LocaleName parseLocaleName(std::string_view name) {
    takeBehind(name, '@');
    const std::string_view codeset = takeBehind(name, '.');
    const std::string_view country = takeBehind(name, '_');
    if (name == "C" || name == "POSIX")
        name = {};
    return {ShortText<12>(name), ShortText<12>(country), ShortText<64>(codeset)};
}

std::string_view localeFromEnvironment() {
    for (const char *variable : {"LC_ALL", "LC_CTYPE", "LANG"})
        if (const char *value = std::getenv(variable); value && *value)
            return value;
    return {};
}

} // namespace zpt
