/// The process-wide table of code pages: resolves a name to a row.
///
/// The table starts with the process locale's code page, the UTF-16 family and UTF-8. Names that only the
/// locale layer knows join it as they are asked for.
///
/// Ownership  Rows belong to the module, never move and never change; they die with TovCpMgr_release.
/// Threads    Any thread.
#pragma once

#include <tovutil/tovexport.h>
#include <tovutil/tovpool.h>
#include <tovutil/tovstring.h>

#include <bit>
#include <cstdint>

/// One row.
struct TOV_EXPORT TovCodePage {
    /// Ids that mean the same whatever the locale layer says; all others are its own and positive.
    enum : std::int32_t {
        Utf16Host = -2,
        Utf16Swapped = -1,
        Utf16Little = std::endian::native == std::endian::little ? Utf16Host : Utf16Swapped,
        Utf16Big = std::endian::native == std::endian::little ? Utf16Swapped : Utf16Host,
        Utf8 = 57352,
    };

    std::int32_t id;
    TovUString name; ///< the upper-case spelling that a request must match
};

/// The row that `cpName` names, without regard to case; null if the name is unknown. A null or empty name
/// gives the row of the process code page. Two spellings of one code page are two rows with the same id.
///
/// Errors     TOVRC_NLS_ERROR for a name that the table does not hold and that has more than 32 bytes in
///            the process locale's encoding. Out of memory: std::bad_alloc or the out-of-memory TovError. The
///            stored error of a table that could not be made; TOVRC_INTERNAL_ERROR after TovCpMgr_release.
/// Cost       A case mapping and a scan of the table; for a name that the table does not hold, a call of
///            the locale layer each time.
TOV_EXPORT const TovCodePage *tovGetCodePage(const TovUChar *cpName);

/// Makes sure that the table is there, unless TovCpMgr_release has ended it.
///
/// Errors     The stored error of a table that could not be made; std::bad_alloc.
TOV_EXPORT void loadCpTable();

/// The module behind the table.
class TOV_EXPORT TovCpMgr {
public:
    static TovPoolCtrl ms_pool;
    static pthread_once_t ms_lock;
};

extern "C" {
TOV_EXPORT void TovCpMgr_init();
TOV_EXPORT void TovCpMgr_release();
}
