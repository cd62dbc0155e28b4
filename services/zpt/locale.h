/// The locale object behind the opaque pointer.
#pragma once

#include <services/cx.h>
#include <services/zpt/codepage.h>
#include <services/zpt/localename.h>
#include <services/zpt/zptlocale.h>

#include <atomic>

/// Never changes after it was made, but for the last error: like errno, success leaves that alone, so that
/// threads which share a locale do not write to it.
struct CXLocale {
    const zpt::CodePage *page;
    zpt::PageFacts facts;
    zpt::LocaleName name;
    std::atomic<std::int32_t> lastError{zpt::NoError};
};
