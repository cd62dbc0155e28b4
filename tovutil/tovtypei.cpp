// Type descriptors: the report of a failed cast, and what anchors the two classes in this library.
#include <tovutil/tovtypei.h>

#include <stdexcept>
#include <string>

TovTypeInfo::~TovTypeInfo() = default;

int TovTypeInfo::before(const TovTypeInfo &) const { return 0; }

namespace {
const char *textOf(const char *name) { return name ? name : ""; }
} // namespace

void TovTypeInfo::badRefCast(const TovTypeInfo &from) const {
    std::string text = "bad reference conversion from type: '";
    text.append(textOf(from.m_name)).append("' to type: '").append(textOf(m_name)).append("'");
    throw std::runtime_error(text);
}

TovRttiBase::~TovRttiBase() = default;

void *TovRttiBase::rttiCast(const TovTypeInfo &target, void *) { return castTo(target, nullptr); }
