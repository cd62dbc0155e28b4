/// The code pages that ICU offers, under our ids, and the names that lead to them.
///
/// An id is the page's CCSID where "ibm-CCSID" is an alias of just one of ICU's converters, and of this
/// one. UTF-8 has 57352. All others have six digits, made from ICU's name of the converter, so that they
/// do not move when another ICU offers more converters. Names are those of ICU's alias table, exact but
/// for ASCII case.
///
/// Ownership  Pages and texts live as long as the process.
/// Errors     std::bad_alloc; the next call tries again.
/// Threads    Any thread, without a lock once the list has been read.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace zpt {

struct ToUnitsTable;
struct FromUnitsTable;

/// Which characters of a page a flat table can hold.
enum class Flat : std::uint8_t { None, OneByte, TwoBytes };

struct alignas(4) PageFacts { // one word, so that it is read and written at once
    std::uint8_t maxBytes;    ///< longest character with its shift bytes, and enough per unit for any text
    std::uint8_t minBytes;
    bool ebcdic;
    Flat flat;
};

/// One code page. What is mutable is filled in at need, once, and never changes then.
struct CodePage {
    std::int32_t id = 0;
    const char *icuName = "";               ///< opens the converter
    const char *name = "";                  ///< best known, and leads back to this page
    mutable std::atomic<PageFacts> facts{}; ///< maxBytes is 0 before they are known; see pageFacts
    mutable std::atomic<const ToUnitsTable *> toUnits{nullptr};
    mutable std::atomic<const FromUnitsTable *> fromUnits{nullptr};
};

constexpr std::int32_t c_utf8Id = 57352;

/// UTF-8 needs neither ICU nor memory.
constexpr PageFacts c_utf8Facts{4, 1, false, Flat::None};
extern const CodePage c_utf8Page;

/// Null for an unknown id.
const CodePage *findPage(std::int32_t id);

/// Null for an unknown name.
const CodePage *findPage(std::string_view name);

/// By ICU's own loose comparison, which leaves out punctuation, as locale names do ("utf8"). Null for an
/// unknown name.
const CodePage *findPageLoosely(const char *name);

/// The page at `index` of all pages in ascending order of their ids; null behind the last.
const CodePage *pageAt(std::size_t index);

} // namespace zpt
