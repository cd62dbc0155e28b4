/// The parts of a locale name of the platform: language[_COUNTRY][.codeset][@modifier].
#pragma once

#include <array>
#include <string_view>

namespace zpt {

/// A short text of ASCII with a NUL behind it. What is too long to be a language, a country or a code set
/// counts as absent.
template <std::size_t Size>
class ShortText {
public:
    ShortText() = default;
    explicit ShortText(std::string_view text) {
        if (text.size() < Size)
            text.copy(m_text.data(), text.size());
    }
    const char *c_str() const { return m_text.data(); }
    std::string_view view() const { return m_text.data(); }

private:
    std::array<char, Size> m_text{};
};

struct LocaleName {
    ShortText<12> language; ///< empty for "C" and "POSIX"
    ShortText<12> country;
    ShortText<64> codeset; ///< empty when none is named
};

/// The modifier says nothing that matters here and is dropped.
LocaleName parseLocaleName(std::string_view name);

/// What LC_ALL, LC_CTYPE and LANG name now, the first that is set and not empty; else empty.
std::string_view localeFromEnvironment();

} // namespace zpt
