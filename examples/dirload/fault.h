/// What can be wrong with the input.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

/// The numbers are the return codes of the errors that report a fault, counted on from c_firstFault.
enum class Fault : std::uint32_t {
    BadVersion = 41001,
    MissingDn,
    MissingSeparator,
    StrayContinuation,
    MissingColon,
    BadAttribute,
    UrlValue,
    BadBase64,
    UnsafeByte,
    LineTooLong,
    ChangeRecord,
    BadUtf8,
    BadDn,
    BadValue,
};

struct FaultText {
    const char *name;
    const char *meaning;
};

constexpr auto c_firstFault = static_cast<std::uint32_t>(Fault::BadVersion);
constexpr std::array<FaultText, 14> c_faults{{
    {"BAD_VERSION", "the version is not 1"},
    {"MISSING_DN", "the record does not begin with its DN"},
    {"MISSING_SEPARATOR", "a DN in the middle of a record"},
    {"STRAY_CONTINUATION", "there is no line that this one could continue"},
    {"MISSING_COLON", "the line has no colon"},
    {"BAD_ATTRIBUTE", "no attribute can have this name or option"},
    {"URL_VALUE", "values are not fetched from URLs"},
    {"BAD_BASE64", "the value is not base64"},
    {"UNSAFE_BYTE", "a NUL or CR that is not in base64"},
    {"LINE_TOO_LONG", "the line is too long"},
    {"CHANGE_RECORD", "changes are not loaded"},
    {"BAD_UTF8", "the value is not UTF-8"},
    {"BAD_DN", "this is no distinguished name"},
    {"BAD_VALUE", "the plug-in refuses the value"},
}};

constexpr std::size_t indexOf(Fault fault) { return static_cast<std::uint32_t>(fault) - c_firstFault; }
static_assert(indexOf(Fault::BadValue) + 1 == c_faults.size());
