/// The reports of what can't be converted.
#pragma once

#include "failure.h"
#include "place.h"

#include <string>
#include <string_view>

/// Bytes of the source that are no character of its code page, as far as they go: `atEnd` tells that the text
/// ends with them.
Failure badBytes(const std::string &file, const Place &place, std::string_view bytes, const std::string &page,
                 bool atEnd);

/// A character of the source that the target's code page does not have.
Failure badCharacter(const std::string &file, const Place &place, char32_t character,
                     const std::string &page);

/// A text of an indivisible code page that is longer than such a text may be.
Failure tooLong(const std::string &file, const std::string &page);
