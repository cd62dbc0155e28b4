/// Flat tables for the one- and two-byte characters of a stateless code page.
///
/// A table holds only what ICU itself gives for the character alone, without waiting for what follows; so
/// it holds no unit that can combine with the next one, and no lead byte of three or four. Where a table has
/// no answer, the run ends there and ICU goes on: bad source, fallbacks that differ, longer characters.
///
/// Ownership  A published table lives as long as the process.
/// Errors     A table that can't be made for want of memory is left out; ICU does the work then.
/// Threads    Any thread. Two that make the same table publish one of the two.
/// Cost       512 calls of ICU for a page of single bytes, some ten thousand for one of double bytes; 1 KiB
///            and 4 to 132 KiB of memory.
#pragma once

#include <services/zpt/converters.h>
#include <services/zpt/icurun.h>

namespace zpt {

struct ToUnitsTable;
struct FromUnitsTable;

/// Makes what is missing of the page's two tables.
void makeTables(const CodePage &page, Flat flat, UConverter *icu) noexcept;

/// Converts up to the end of source or room, or up to what the table does not hold.
Progress convertFlat(const ToUnitsTable &table, const char *source, std::size_t count, char16_t *target,
                     std::size_t room) noexcept;
Progress convertFlat(const FromUnitsTable &table, const char16_t *source, std::size_t count, char *target,
                     std::size_t room) noexcept;

} // namespace zpt
