/// Makes the errors that report what is wrong with the input.
#pragma once

#include "ldif.h"

#include <tovutil/tovutil.h>

#include <string>
#include <string_view>

struct Problem {
    Fault fault;
    Place place;
    std::string_view bytes;           ///< what is bad; only its beginning is shown
    std::string_view attribute;       ///< empty if unknown
    std::u16string_view dn;           ///< normalised; of the entry, empty if unknown
    const TovError *reason = nullptr; ///< that it comes from
};

/// Its return code is the fault, its text "FILE:LINE:COLUMN: meaning". The secondary error tells the URL of
/// the entry and shows the bytes; the secondary of that one is the reason.
TovErrorFull errorOf(const std::string &file, const Problem &problem);

/// An error to be the reason of a problem.
TovErrorFull reasonOf(Fault fault, std::string_view text);
