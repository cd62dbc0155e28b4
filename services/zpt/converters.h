/// The open ICU converters of a thread, at most 16, the least used one closed for a new one.
///
/// They stop at what can't be converted and never substitute; nor do they drop the invisible characters
/// that ICU's own stopping callback passes over.
///
/// Ownership  A converter belongs to its thread and is closed when the thread ends.
/// Errors     std::bad_alloc; null when ICU can't open the page.
#pragma once

#include <services/zpt/codepage.h>

#include <unicode/ucnv.h>

namespace zpt {

struct ThreadConverter {
    const CodePage *page;
    UConverter *icu;
    std::size_t converted; ///< bytes and units that went through, for whom it concerns
};

/// Valid until the thread asks for a converter again.
ThreadConverter *converterFor(const CodePage &page);

/// What ICU says of the page; maxBytes is 0 when ICU can't open it.
PageFacts pageFacts(const CodePage &page);

} // namespace zpt
