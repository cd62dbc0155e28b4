// The registry of code pages. It is read from ICU's alias table at the first question that UTF-8 alone
// can't answer, then published whole and never changed.
#include <services/zpt/codepage.h>

#include <services/zpt/iculock.h>
#include <services/zptlist.h>
#include <tovutil/tovexport.h>

#include <unicode/ucnv.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <vector>

namespace zpt {

constinit const CodePage c_utf8Page{c_utf8Id, "UTF-8", "UTF-8", c_utf8Facts, nullptr, nullptr};

namespace {

constexpr std::int32_t c_firstMadeId = 100000; // above every CCSID, which has 16 bits
constexpr std::uint32_t c_madeIds = 900000;
constexpr std::size_t c_longestName = 31; // callers have 32 bytes with the NUL

char upper(char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; }

bool before(std::string_view a, std::string_view b) {
    return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(),
                                        [](char x, char y) { return upper(x) < upper(y); });
}

struct Alias {
    std::string_view name;
    const CodePage *page;
};

struct Registry {
    std::unique_ptr<CodePage[]> storage;
    std::vector<Alias> aliases;          // ascending by name without regard to case
    std::vector<const CodePage *> pages; // ascending by id

    const CodePage *find(std::string_view name) const;
    const CodePage *find(std::int32_t id) const;
};

const CodePage *Registry::find(std::string_view name) const {
    const auto at = std::lower_bound(aliases.begin(), aliases.end(), name,
                                     [](const Alias &a, std::string_view b) { return before(a.name, b); });
    return at != aliases.end() && !before(name, at->name) ? at->page : nullptr;
}

const CodePage *Registry::find(std::int32_t id) const {
    const auto at = std::lower_bound(pages.begin(), pages.end(), id,
                                     [](const CodePage *page, std::int32_t b) { return page->id < b; });
    return at != pages.end() && (*at)->id == id ? *at : nullptr;
}

// The digits behind "ibm-", up to the end or to `end`.
std::optional<std::int32_t> ccsidIn(std::string_view name, char end = '\0') {
    constexpr std::string_view prefix = "ibm-";
    if (name.substr(0, prefix.size()) != prefix)
        return std::nullopt;
    std::int32_t value = 0;
    const char *last = name.data() + name.size();
    const auto [stop, error] = std::from_chars(name.data() + prefix.size(), last, value);
    const bool whole = stop == last || (end != '\0' && *stop == end);
    return error == std::errc() && whole ? std::optional(value) : std::nullopt;
}

// What a name means to ICU, and whether it could mean more than one converter.
struct Meaning {
    const char *icuName;
    bool ambiguous;
};

Meaning meaningOf(const char *name) {
    UErrorCode status = U_ZERO_ERROR;
    const char *icuName = ucnv_getAlias(name, 0, &status);
    if (status == U_MEMORY_ALLOCATION_ERROR)
        throw std::bad_alloc();
    return {U_SUCCESS(status) ? icuName : nullptr, status == U_AMBIGUOUS_ALIAS_WARNING};
}

// A converter from a table file carries its CCSID in its name ("ibm-943_P15A-2003"); one that is made by
// rules has it, among CCSIDs of later subsets, as the smallest of its aliases.
class CcsidChoice {
public:
    explicit CcsidChoice(const char *icuName) : m_own(ccsidIn(icuName, '_')) {}

    void offer(std::string_view alias) {
        const auto value = ccsidIn(alias);
        if (value && (m_own ? *value == *m_own : m_chosen == 0 || *value < m_chosen))
            m_chosen = *value;
    }

    std::int32_t chosen() const { return m_chosen; } // 0: none

private:
    std::optional<std::int32_t> m_own;
    std::int32_t m_chosen = 0;
};

// Files all aliases that ICU takes for this page; gives its CCSID, or 0.
std::int32_t fileAliases(Registry &registry, const CodePage &page) {
    UErrorCode status = U_ZERO_ERROR;
    const std::uint16_t count = ucnv_countAliases(page.icuName, &status);
    CcsidChoice ccsid(page.icuName);
    for (std::uint16_t i = 0; i < count; ++i) {
        const char *alias = ucnv_getAlias(page.icuName, i, &status);
        const Meaning meaning = meaningOf(alias);
        if (!meaning.icuName || std::strcmp(meaning.icuName, page.icuName) != 0)
            continue;
        registry.aliases.push_back({alias, &page});
        if (!meaning.ambiguous)
            ccsid.offer(alias);
    }
    return ccsid.chosen();
}

std::uint32_t hashOf(const char *text) {
    std::uint32_t hash = 2166136261U; // FNV-1a
    for (; *text; ++text)
        hash = (hash ^ static_cast<unsigned char>(*text)) * 16777619U;
    return hash;
}

// Two names with one hash: the one that comes later in ICU's list takes the next free id.
std::int32_t madeId(const Registry &registry, const char *icuName) {
    const auto taken = [&](std::int32_t id) {
        return std::any_of(registry.pages.begin(), registry.pages.end(),
                           [id](const CodePage *page) { return page->id == id; });
    };
    std::uint32_t offset = hashOf(icuName) % c_madeIds;
    while (taken(c_firstMadeId + static_cast<std::int32_t>(offset)))
        offset = (offset + 1) % c_madeIds;
    return c_firstMadeId + static_cast<std::int32_t>(offset);
}

// Compound text is left out: ICU's converter for it keeps the state of one text for the next.
bool isOffered(const char *icuName) { return std::strcmp(icuName, "x11-compound-text") != 0; }

void addPages(Registry &registry, std::int32_t count) {
    for (std::int32_t i = 0; i < count; ++i) {
        const char *icuName = ucnv_getAvailableName(i);
        if (std::strcmp(icuName, c_utf8Page.icuName) == 0) {
            fileAliases(registry, c_utf8Page);
            registry.pages.push_back(&c_utf8Page);
        } else if (isOffered(icuName)) {
            CodePage &page = registry.storage[static_cast<std::size_t>(i)];
            page.icuName = icuName;
            const std::int32_t ccsid = fileAliases(registry, page);
            page.id = ccsid != 0 ? ccsid : madeId(registry, icuName);
            registry.pages.push_back(&page);
        }
    }
}

const char *bestName(const Registry &registry, const CodePage &page) {
    for (const char *standard : {"MIME", "IANA", "WINDOWS", "IBM"}) {
        UErrorCode status = U_ZERO_ERROR;
        const char *name = ucnv_getStandardName(page.icuName, standard, &status);
        if (U_SUCCESS(status) && name && std::strlen(name) <= c_longestName && registry.find(name) == &page)
            return name;
    }
    return page.icuName;
}

std::unique_ptr<const Registry> readRegistry() {
    const std::int32_t count = ucnv_countAvailable();
    if (count == 0)
        throw std::bad_alloc(); // ICU has no other reason to offer nothing
    auto registry = std::make_unique<Registry>();
    registry->storage = std::make_unique<CodePage[]>(static_cast<std::size_t>(count));
    addPages(*registry, count);
    std::sort(registry->aliases.begin(), registry->aliases.end(),
              [](const Alias &a, const Alias &b) { return before(a.name, b.name); });
    for (std::int32_t i = 0; i < count; ++i) {
        CodePage &page = registry->storage[static_cast<std::size_t>(i)];
        page.name = bestName(*registry, page);
    }
    std::sort(registry->pages.begin(), registry->pages.end(),
              [](const CodePage *a, const CodePage *b) { return a->id < b->id; });
    return registry;
}

constinit std::atomic<const Registry *> s_registry{nullptr};

const Registry &registry() {
    if (const Registry *known = s_registry.load(std::memory_order_acquire))
        return *known;
    const IcuLock lock;
    if (const Registry *known = s_registry.load(std::memory_order_relaxed))
        return *known;
    const Registry *read = readRegistry().release();
    s_registry.store(read, std::memory_order_release);
    return *read;
}

} // namespace

const CodePage *findPage(std::int32_t id) { return id == c_utf8Id ? &c_utf8Page : registry().find(id); }

const CodePage *findPage(std::string_view name) { return registry().find(name); }

const CodePage *findPageLoosely(const char *name) {
    const Registry &pages = registry();
    const IcuLock lock;
    const char *icuName = meaningOf(name).icuName;
    return icuName ? pages.find(icuName) : nullptr;
}

const CodePage *pageAt(std::size_t index) {
    const auto &pages = registry().pages;
    return index < pages.size() ? pages[index] : nullptr;
}

} // namespace zpt

namespace {

const zpt::CodePage *listed(std::size_t index) noexcept {
    try {
        return zpt::pageAt(index);
    } catch (const std::bad_alloc &) {
        return nullptr;
    }
}

} // namespace

extern "C" {

TOV_EXPORT std::size_t ZPT_CodepageCount(void) {
    try {
        return zpt::registry().pages.size();
    } catch (const std::bad_alloc &) {
        return 0;
    }
}

TOV_EXPORT std::int32_t ZPT_CodepageIdAt(std::size_t index) {
    const zpt::CodePage *page = listed(index);
    return page ? page->id : 0;
}

TOV_EXPORT const char *ZPT_CodepageNameAt(std::size_t index) {
    const zpt::CodePage *page = listed(index);
    return page ? page->name : "";
}
}
