#include "report.h"

#include "page.h"

#include <tovbuild.h>
#include <tovutil/tovutil.h>

#include <cstdio>

namespace {

enum : std::uint32_t { TOVCONV = 201, ILLEGAL_BYTES = 1, NO_SUCH_CHARACTER = 2 };

std::string hex(const char *format, unsigned value) {
    char text[16];
    std::snprintf(text, sizeof text, format, value);
    return text;
}

std::string hexBytes(std::string_view bytes) {
    std::string text;
    for (const char byte : bytes)
        text += (text.empty() ? "" : " ") + hex("0x%02X", static_cast<unsigned char>(byte));
    return text;
}

// What the user reads first, then the error as every program on the library shows it.
Failure report(const std::string &file, const Place &place, const std::string &what,
               const TovErrorFull &error) {
    return Failure(Exit::BadText, file + ": byte " + std::to_string(place.byte) + ", line " +
                                      std::to_string(place.line) + ", column " +
                                      std::to_string(place.column) + ": can't convert " + what + "\n" +
                                      error.getErrorMessage() + "\n" + error.getLocation());
}

} // namespace

Failure badBytes(const std::string &file, const Place &place, std::string_view bytes, const std::string &page,
                 bool atEnd) {
    const std::string what = hexBytes(bytes);
    const TovString text(
        std::string_view(what + " is no character of " + page + (atEnd ? ", or is cut off by the end" : "")));
    const TovErrorFull error(TOV_CODE(TOVRC_INVALID_MBCHAR), TOV_CODE(TOVCONV), TOV_CODE(ILLEGAL_BYTES), 1,
                             TovError::Error, __LINE__, __func__, TOV_VERSION, __FILE__, TOV_BUILD_DATE, text,
                             nullptr);
    return report(file, place, what, error);
}

Failure badCharacter(const std::string &file, const Place &place, char32_t character,
                     const std::string &page) {
    const std::string what = hex("U+%04X", static_cast<unsigned>(character));
    const TovString text(std::string_view(page + " has no " + what));
    const TovErrorFull error(TOV_CODE(TOVRC_INVALID_WCHAR), TOV_CODE(TOVCONV), TOV_CODE(NO_SUCH_CHARACTER), 1,
                             TovError::Error, __LINE__, __func__, TOV_VERSION, __FILE__, TOV_BUILD_DATE, text,
                             nullptr);
    return report(file, place, what, error);
}

Failure tooLong(const std::string &file, const std::string &page) {
    return Failure(Exit::Limits, file + ": text in " + page +
                                     " can only be converted as a whole, and up to " +
                                     std::to_string(c_mostIndivisible >> 20) + " MiB");
}
