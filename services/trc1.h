/// The trace facility of libhvd: four services and the static records that are shared with it.
///
/// The caller never configures the facility. It tells who traces through its records, reads the
/// level that the facility gives, and hands over finished texts.
///
/// Ownership  Records are static in the caller. The facility keeps no pointer beyond the call.
/// Errors     None. The facility never throws into its caller, and its callers ignore results.
/// Threads    Any thread at any time, without a lock around the calls.
#pragma once

#include <atomic>
#include <cstdint>

/// A text with its length in bytes, as it lies in the unit record.
struct TRC1_TEXT {
    const char *text;
    std::uint32_t length;
};

/// Describes one source file. One static record per source file.
struct TRC1_UNIT {
    std::uint32_t size;        ///< always 180
    std::uint32_t kind;        ///< 0x40000000 or 0x80000000
    TRC1_TEXT sourcePath;      ///< without extension
    TRC1_TEXT buildDate;       ///< "Oct  6 2004", 11 bytes
    TRC1_TEXT buildTime;       ///< "12:34:56", 8 bytes
    TRC1_TEXT revision;        ///< "$Revision: ... $"
    TRC1_TEXT unitName;        ///< "TOVUTIL"
    std::uint32_t reserved[3]; ///< 0
};

/// The sequence word of a source file: begins with 1, so that the first use of each of its records
/// goes through TRC1_Sync, and is advanced by the facility when levels change.
using TRC1_SEQUENCE = std::atomic<std::uint32_t>;

/// What TRC1_EPB::flags says of a record.
enum : std::uint32_t {
    TRC1_FLAG_LOG = 512,       ///< a record of the file's own LOG functions
    TRC1_FLAG_FUNCTION = 2048, ///< a traced function
};

/// The level bits that have a meaning.
enum : std::uint32_t {
    TRC1_DETAIL = 1,
    TRC1_STATE = 16,
    TRC1_FLOW = 64, ///< entry, arguments, result, exit and flow
    TRC1_ERROR = 128,
};

/// Kinds of TRC1_Event.
enum : std::uint32_t {
    TRC1_ENTER = 0,
    TRC1_LEAVE = 2,
};

/// Describes one traced function. A static, writable record; level and sequence belong to the
/// facility after the first TRC1_Sync and are read by the caller without a lock.
struct TRC1_EPB {
    const TRC1_UNIT *unit;
    const char *name;
    std::uint32_t nameLength; ///< in bytes
    std::uint32_t line;       ///< of the function's first trace statement
    TRC1_SEQUENCE *unitSequence;
    std::uint32_t flags;
    std::atomic<std::uint32_t> level;    ///< 0 at first
    std::atomic<std::uint32_t> sequence; ///< 0 at first
    std::uint32_t reserved[2];           ///< 0; the caller never touches them
};

static_assert(sizeof(std::atomic<std::uint32_t>) == sizeof(std::uint32_t),
              "the facility and its callers share plain 32-bit words");

extern "C" {

/// Gives the current level of `record` and makes its level word and sequence current, the sequence
/// last and with release order. To be called whenever the record's sequence differs from the word
/// that `unitSequence` shows. If another thread is doing so at the moment, the record is left to it.
std::uint32_t TRC1_Sync(TRC1_EPB *record);

/// Reports that a function is entered (TRC1_ENTER) or returns (TRC1_LEAVE). An exceptional exit is
/// not reported.
void TRC1_Event(TRC1_EPB *record, std::uint32_t line, std::uint32_t kind);

/// Writes one text. `format` is one of "%s", "+ %s", "%s - ptr(NULL), size(%d)",
/// "+ %s - ptr(NULL), size(%d)", " + %s - ptr(NULL), size(%d)".
[[gnu::format(printf, 3, 4)]] void TRC1_Printf(TRC1_EPB *record, std::uint32_t line, const char *format, ...);

/// Writes one text, with the format "%s" or "+ %s", and `size` bytes of memory at `address`, which
/// is never null.
void TRC1_Dump(TRC1_EPB *record, std::uint32_t line, const void *address, std::uint32_t size,
               const char *format, const char *text);
}
