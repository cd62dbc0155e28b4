#include "problem.h"

#include <tovbuild.h>
#include <tovutil/tovdump.h>
#include <tovutil/tovldapu.h>
#include <tovutil/tovutf8.h>

#include <algorithm>

namespace {

enum : std::uint32_t { DIRLOAD = 202, DIRLOAD_DETAILS = 41100 };

constexpr std::size_t c_mostDumped = 64;
constexpr std::size_t c_mostUnitsOfDn = 200;
constexpr std::size_t c_longestName = 64;

// The prefix has the slash that a full path begins with.
TovString urlOf(const std::string &file, std::u16string_view dn) {
    return TovLdapUtil::makeUrl(TovString(file.begin() + file.starts_with('/'), file.end()), "", "",
                                tovToLdapString(TovUString(dn.substr(0, c_mostUnitsOfDn))));
}

TovString detailsOf(const std::string &file, const Problem &problem) {
    const std::string_view name = problem.attribute.substr(0, c_longestName);
    TovString text(name.substr(0, name.find('\0'))); // for a message ends at its first NUL
    if (!problem.dn.empty())
        text += (text.empty() ? "" : " of ") + urlOf(file, problem.dn);
    TovString dump;
    tovDumpHex(dump, problem.bytes.data(),
               static_cast<std::uint32_t>(std::min(problem.bytes.size(), c_mostDumped)));
    return text + "\n" + dump;
}

TovErrorFull makeError(std::uint32_t code, const char *name, const TovString &text,
                       const TovError *secondary) {
    return TovErrorFull(code, name, TOV_CODE(DIRLOAD), 0, "", 0, TovError::Error, __LINE__, __func__,
                        TOV_VERSION, __FILE__, TOV_BUILD_DATE, text, secondary);
}

TovErrorFull makeError(Fault fault, const TovString &text, const TovError *secondary) {
    return makeError(static_cast<std::uint32_t>(fault), c_faults[indexOf(fault)].name, text, secondary);
}

} // namespace

TovErrorFull errorOf(const std::string &file, const Problem &problem) {
    const TovErrorFull details =
        makeError(TOV_CODE(DIRLOAD_DETAILS), detailsOf(file, problem), problem.reason);
    const std::string text = file + ":" + std::to_string(problem.place.line) + ":" +
                             std::to_string(problem.place.column) + ": " +
                             c_faults[indexOf(problem.fault)].meaning;
    return makeError(problem.fault, TovString(text), &details);
}

TovErrorFull reasonOf(Fault fault, std::string_view text) {
    return makeError(fault, TovString(text), nullptr);
}
