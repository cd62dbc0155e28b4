/// Control of our trace facility: levels at run time, and a sink in place of the output file.
///
/// Not part of what the library relies on; tests and programs use it. The environment variables of
/// the facility (HVD_TRACE, HVD_TRACE_FILE, HVD_TRACE_FORMAT) are told in docs/tracing.md.
#pragma once

#include <services/trc1.h>

#include <cstdint>

/// One event, as a sink sees it. All pointers are valid during the call only.
struct HvdTraceEvent {
    enum Kind : std::uint32_t { Enter, Leave, Text, Dump };
    Kind kind;
    const TRC1_EPB *record;
    std::uint32_t line;
    const char *format;  ///< as the caller gave it; null for Enter and Leave
    const char *text;    ///< the formatted text; null for Enter and Leave
    const void *address; ///< of the dumped memory; null but for Dump
    std::uint32_t size;  ///< of the dumped memory in bytes; 0 but for Dump
};

/// Receives events. It must not throw; it may be called from several threads at once.
using HvdTraceSink = void (*)(void *context, const HvdTraceEvent &event);

extern "C" {

/// Sets the levels from a text of the form of HVD_TRACE ("*=error,TovNls::*=all"), in place of what
/// stood before; null or empty turns tracing off. Every record syncs again at its next use.
///
/// Errors     Gives false when the text is malformed, and reports the place on standard error; its
///            good entries hold all the same.
/// Cost       Every distinct text is kept for the life of the process, because another thread may still
///            read it, and is found again by a search through all of them: meant for few distinct
///            texts. The same text again takes nothing.
/// Threads    Any thread; calls at the same time are ordered, the last one holds. It asks the dynamic
///            loader which libraries are still there, and so must wait in a forked child for ever if
///            another thread of the parent was inside the loader at the fork.
bool hvdTraceSetLevels(const char *levels);

/// Sends all events to `sink` instead of the output that the environment names; null goes back.
/// `context` is handed to the sink unchanged. An event under way in another thread may still reach
/// the former sink after the call has returned.
///
/// Errors     Without memory, the former sink stays.
/// Cost       Every distinct pair of sink and context is kept for the life of the process, and is found
///            again by a search through all of them: meant for few. The same pair again takes nothing.
void hvdTraceSetSink(HvdTraceSink sink, void *context);
}
