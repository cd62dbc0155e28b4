/// The codes that CXGetError and LNG1_GetLocale give.
#pragma once

#include <cstdint>

namespace zpt {

enum Error : std::int32_t {
    NoError = 0,
    BadOption = 2,
    NoMemory = 20,
    BadCodePage = 30,
    BadType = 35,
    BufferTooSmall = 40,
    NotConvertible = 50, ///< outside the table of messages: "operation failed"
};

} // namespace zpt
