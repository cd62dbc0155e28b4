// The Trace Event JSON form: entry and exit are begin and end events, texts are instant events.
//
// A file is one array of events. A begin event whose function an exception has left gets its end event
// as soon as an event of an outer function shows it, at the latest at the end of the thread or of the
// file; so the begin and end events of each thread balance in each file.
#pragma once

#include <services/hvd/lines.h>
#include <services/hvd/quiet.h>
#include <services/hvdctl.h>

#include <string_view>
#include <sys/types.h>

namespace hvd {

constexpr std::string_view chromeHead = "[\n";
constexpr std::string_view chromeTail = "\n]\n";

/// `stack` is where the traced function's stack stands.
void writeChrome(const HvdTraceEvent &event, std::uintptr_t stack, const Quiet &quiet) noexcept;

/// Makes ready for writeChrome; false when the process has no more thread-specific keys.
bool prepareChrome() noexcept;

/// The beginning of a file, or of what a further process adds to one: the name of the process, so that
/// every later event has one before it.
void putChromeHead(Lines &lines, bool continued, pid_t process) noexcept;

/// The end of a file that nobody writes to any more: what is open in it, and the closing bracket.
void putChromeTail(Lines &lines, unsigned slot, pid_t process) noexcept;

} // namespace hvd
