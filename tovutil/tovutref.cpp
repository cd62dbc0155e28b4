// The out-of-line half of reference counting.
#include <tovutil/tovutref.h>

#include <tovutil/toverrfl.h>

#include <ostream>

TovUtRefBase::~TovUtRefBase() = default;

void TovUtRefBase::referenced() {}

void TovUtRefBase::unreferenced() { delete this; }

void TovUtRefUtils::raiseError(const void *, char) {
    tovCheck("tovutil/tovutref", 25, "Internal error: 0", TOV_CODE(TOVRC_INTERNAL_ERROR));
}

void TovUtRefUtils::trace(std::ostream &os, const void *ref, const void *ptr, std::int32_t count) {
    os << "TovUtRef("
       << "ref"
       << "(" << ref << ") "
       << "ptr"
       << "(" << ptr << ") "
       << "count"
       << "(" << count << ") "
       << ")";
}
