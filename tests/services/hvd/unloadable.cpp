// A library with a record of its own, to be loaded and unloaded.
#include "traceprobe.h"

namespace {
constinit TRC1_SEQUENCE s_ownSequence = 1;
constinit TRC1_EPB s_record = {
    &hvdtest::s_unit, "unloadable", 10, 1, &s_ownSequence, TRC1_FLAG_FUNCTION, 0, 0, {}};
} // namespace

extern "C" [[gnu::visibility("default")]] std::uint32_t levelOfUnloadable() {
    return hvdtest::levelOf(s_record);
}
