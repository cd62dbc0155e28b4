// Reads levels straight from their text: nothing is built, so nothing can run out of memory, and a
// record is looked up only when it syncs.
#include <services/hvd/levels.h>
#include <services/hvd/quiet.h>

#include <charconv>
#include <cstddef>

namespace hvd {

namespace {

constexpr std::string_view blanks = " \t\r\n";
constexpr int mostReports = 10;

struct LevelName {
    std::string_view name;
    std::uint32_t bits;
};

constexpr LevelName levelNames[] = {
    {"flow", TRC1_FLOW},
    {"state", TRC1_STATE},
    {"detail", TRC1_DETAIL},
    {"error", TRC1_ERROR},
    {"all", TRC1_FLOW | TRC1_STATE | TRC1_DETAIL | TRC1_ERROR},
};

struct Entry {
    std::string_view text;
    std::string_view pattern;
    std::uint32_t bits = 0;
    const char *fault = nullptr;
};

std::string_view trimmed(std::string_view text) {
    const std::size_t begin = text.find_first_not_of(blanks);
    if (begin == std::string_view::npos)
        return text.substr(text.size());
    return text.substr(begin, text.find_last_not_of(blanks) + 1 - begin);
}

template <class Use>
void forEachPart(std::string_view text, char separator, Use use) {
    for (;;) {
        const std::size_t end = text.find(separator);
        use(trimmed(text.substr(0, end)));
        if (end == std::string_view::npos)
            return;
        text.remove_prefix(end + 1);
    }
}

bool addLevel(std::string_view word, std::uint32_t &bits) {
    for (const LevelName &level : levelNames)
        if (level.name == word) {
            bits |= level.bits;
            return true;
        }
    std::uint32_t number = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), number);
    bits |= number;
    return error == std::errc() && end == word.data() + word.size();
}

Entry readEntry(std::string_view text) {
    Entry entry;
    entry.text = text;
    const std::size_t equals = text.rfind('='); // the last one, because of "operator=="
    if (equals == std::string_view::npos) {
        entry.fault = text.empty() ? "an empty entry" : "no '=' in";
        return entry;
    }
    entry.pattern = trimmed(text.substr(0, equals));
    if (entry.pattern.empty())
        entry.fault = "no pattern in";
    forEachPart(text.substr(equals + 1), '+', [&](std::string_view word) {
        if (!addLevel(word, entry.bits))
            entry.fault = "unknown level in";
    });
    return entry;
}

template <class Use>
void forEachEntry(std::string_view levels, Use use) {
    if (trimmed(levels).empty())
        return;
    forEachPart(levels, ',', [&](std::string_view text) { use(readEntry(text)); });
}

std::string_view view(const TRC1_TEXT &text) { return {text.text, text.text ? text.length : 0}; }

bool matchesRecord(std::string_view pattern, const TRC1_EPB &record) {
    return globMatches(pattern, {record.name, record.nameLength}) ||
           (record.unit && (globMatches(pattern, view(record.unit->sourcePath)) ||
                            globMatches(pattern, view(record.unit->unitName))));
}

} // namespace

// A star that fails is tried again one byte further; only the last star has to be remembered.
bool globMatches(std::string_view pattern, std::string_view text) noexcept {
    std::size_t at = 0;
    std::size_t in = 0;
    std::size_t star = std::string_view::npos;
    std::size_t starIn = 0;
    while (in < text.size()) {
        if (at < pattern.size() && pattern[at] == '*') {
            star = at++;
            starIn = in;
        } else if (at < pattern.size() && (pattern[at] == '?' || pattern[at] == text[in])) {
            ++at;
            ++in;
        } else if (star != std::string_view::npos) {
            at = star + 1;
            in = ++starIn;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', at) == std::string_view::npos;
}

std::uint32_t levelsFor(std::string_view levels, const TRC1_EPB &record) noexcept {
    std::uint32_t bits = 0;
    forEachEntry(levels, [&](const Entry &entry) {
        if (!entry.fault && matchesRecord(entry.pattern, record))
            bits = entry.bits;
    });
    return bits;
}

bool checkLevels(std::string_view levels, const char *source) noexcept {
    int number = 0;
    int faults = 0;
    forEachEntry(levels, [&](const Entry &entry) {
        ++number;
        if (!entry.fault || ++faults > mostReports)
            return;
        report("%s: entry %d, offset %td: %s \"%.*s\"; it is left out", source, number,
               entry.text.data() - levels.data(), entry.fault, static_cast<int>(entry.text.size()),
               entry.text.data());
    });
    if (faults > mostReports)
        report("%s: %d more malformed entries are left out", source, faults - mostReports);
    return faults == 0;
}

} // namespace hvd
