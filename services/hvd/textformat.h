// The readable form: one line of time, thread, function, line and text for each event.
#pragma once

#include <services/hvd/quiet.h>
#include <services/hvdctl.h>

namespace hvd {

void writeText(const HvdTraceEvent &event, const Quiet &quiet) noexcept;

} // namespace hvd
