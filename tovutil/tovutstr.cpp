// The string class but for its search: making, assigning, numbers, edits.
#include <tovutil/tovutstr.h>

#include <services/cx.h>
#include <services/lng1.h>
#include <tovutil/tovmodule.h>
#include <tovutil/tovsize.h>
#include <tovutil/tovuterr.h>
#include <tovutil/tovutil.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <functional>
#include <string>

namespace {

constexpr const char *s_file = "tovutil/tovutstr";

} // namespace

// Making strings ------------------------------------------------------------------------------------

namespace {

unsigned toldLength(const TovUChar *text, unsigned length) {
    if (length != TovUniString::npos)
        return length;
    return tovdetail::stringLength(std::char_traits<TovUChar>::length(text), s_file, __LINE__);
}

// Converts `length` bytes to the text's place, fills the rest of `room` units, and gives the text's end.
TovUChar *convertTo(TovUChar *text, unsigned room, const char *bytes, std::int32_t length) {
    const std::int32_t converted =
        CXStringToUnicode(text, length, LNG1_PrivateFunction_GetProcessLocale(), bytes, length, 0);
    TovUChar *end = text + std::max(converted, 0);
    std::fill(end, text + room, TovUChar(0));
    return end;
}

} // namespace

TovUniString::TovUniString(const TovUChar *text, unsigned length, TovUniStringImpl *impl)
    : m_begin(const_cast<TovUChar *>(text)), m_end(m_begin + length), m_impl(impl) {}

TovUniString::TovUniString(std::u16string_view text) : TovUniString() {
    TovUniStringImpl::setHeapImpl(this, tovdetail::stringLength(text.size(), s_file, __LINE__), text.data(),
                                  text.data() + text.size(), nullptr);
}

TovUniString TovUniString::fromStatic(const TovUChar *text, unsigned length, bool nullTerminated) {
    return TovUniString(text, toldLength(text, length),
                        TovUniStringImpl::getStaticImpl(nullTerminated ? NullTerminated : 0));
}

TovUniString TovUniString::fromLocal(const TovUChar *text, unsigned length, int flags) {
    return TovUniString(text, toldLength(text, length), TovUniStringImpl::getLocalImpl(flags));
}

TovUniString TovUniString::fromHeap(const TovUChar *text, unsigned length, TovFastHeap *heap) {
    TovUniString string;
    length = toldLength(text, length);
    TovUniStringImpl::setHeapImpl(&string, length, text, text + length, heap);
    return string;
}

TovUniString TovUniString::fromBytes(const char *bytes, unsigned length, TovFastHeap *heap) {
    TovUniString string;
    string.init(
        bytes, length != npos ? length : tovdetail::stringLength(std::strlen(bytes), s_file, __LINE__), heap);
    return string;
}

void TovUniString::init(const char *bytes, unsigned length, TovFastHeap *heap) {
    const std::int32_t byteCount = tovdetail::length32(length, s_file, __LINE__);
    assert(m_impl == TovUniStringImpl::getEmptyImpl());
    m_impl = TovUniStringImpl::getHeapImpl(length + 1, heap);
    m_begin = m_end = m_impl->str(this);
    m_end = convertTo(m_begin, capacity(), bytes, byteCount);
}

void TovUniString::initStatic(const char *bytes, unsigned length) {
    const std::int32_t byteCount = tovdetail::length32(length, s_file, __LINE__);
    assert(m_impl == TovUniStringImpl::getEmptyImpl());
    auto *impl = new (length + 1) TovUniStringStaticHeapImpl(length + 1);
    m_impl = impl;
    m_begin = impl->text();
    m_end = convertTo(m_begin, length + 1, bytes, byteCount);
}

// Assignment ----------------------------------------------------------------------------------------

// A string of initStatic() ends its block when it takes another text, so one that views the same block is
// taken without its representation.
bool TovUniString::becomeViewOfOwnBlock(const TovUniString &view) {
    const TovUniStringImpl &impl = *m_impl;
    if (&typeid(impl) != &typeid(TovUniStringStaticHeapImpl))
        return false;
    auto *block = static_cast<TovUniStringStaticHeapImpl *>(m_impl);
    if (!block->holds(view.m_begin))
        return false;
    m_begin = view.m_begin;
    m_end = view.m_end;
    block->getNullTerminatedImpl(view.capacity() > view.length());
    return true;
}

TovUniString &TovUniString::operator=(const TovUniString &other) {
    if (this != &other && !becomeViewOfOwnBlock(other))
        other.copyTo(*this, nullptr);
    return *this;
}

TovUniString &TovUniString::operator=(TovUniString &&other) noexcept {
    TovUniString taken(std::move(other));
    if (!becomeViewOfOwnBlock(taken))
        taken.swap(*this);
    return *this;
}

// The text ------------------------------------------------------------------------------------------

void TovUniString::resize(unsigned unitCount) {
    m_impl->resize(this, unitCount);
    m_end = m_begin + unitCount;
}

// Numbers from text ---------------------------------------------------------------------------------

namespace {

// Its value in any base; at least 36 for what is no digit.
std::uint32_t digitOf(TovUChar unit) {
    if (unit >= u'0' && unit <= u'9')
        return unit - u'0';
    const std::uint32_t letter = (unit | 0x20U) - u'a';
    return letter < 26 && unit < 0x80 ? letter + 10 : 36;
}

// The base that the text's prefix tells, and steps over it; 0 when there is no number.
int baseOfPrefix(const TovUChar *&from, const TovUChar *end) {
    if (*from != u'0')
        return *from >= u'1' && *from <= u'9' ? 10 : 0;
    if (++from == end)
        return 0;
    if (*from == u'x' || *from == u'X') {
        ++from;
        return 16;
    }
    return *from >= u'0' && *from <= u'8' ? 8 : 0;
}

} // namespace

std::uint32_t TovUniString::toUInt32(TovRc &rc) const noexcept {
    const TovUChar *at = m_begin;
    const std::uint32_t value = scanUInt32(at);
    if (at == m_begin || at != m_end)
        rc.m_rc = 0xFFFFFFFFU;
    else
        rc.reset();
    return value;
}

std::uint32_t TovUniString::strtoul(const TovUChar *&from, int base) const {
    if (base < 0 || base > 36)
        tovCheck(s_file, 1159, "Internal error: base >= 0 && base <= 36", TOV_CODE(TOVRC_INTERNAL_ERROR));
    const TovUChar *at = from;
    skipWs(at);
    if (at < m_end && (*at == u'+' || *at == u'-'))
        ++at;
    if (at >= m_end)
        return 0;
    if (base == 0 && (base = baseOfPrefix(at, m_end)) == 0)
        return 0;
    std::uint32_t value = 0;
    const auto radix = static_cast<std::uint32_t>(base);
    for (; at < m_end; ++at) {
        const std::uint32_t digit = digitOf(*at);
        if (digit >= radix || !takeDigit(value, radix, digit))
            break;
    }
    from = at;
    return value;
}

void TovUniString::skipWs(const TovUChar *&from) const noexcept {
    while (from < m_end && tovIsWhiteSpace(*from))
        ++from;
}

// Edits ---------------------------------------------------------------------------------------------

namespace {

// Makes an edit of several steps; when one of them fails the text is as long as before.
template <class Edit>
void allOrNothing(TovUniString &string, Edit edit) {
    const unsigned length = string.length();
    try {
        edit();
    } catch (...) {
        string.resize(length);
        throw;
    }
}

} // namespace

// Makes the text longer and gives the place of its new units.
TovUChar *TovUniString::extend(unsigned count) {
    if (TovUChar *target = takeRoom(count))
        return target;
    const unsigned former = length();
    allOrNothing(*this, [&] {
        resize(tovdetail::stringLength(std::uint64_t(former) + count, s_file, __LINE__));
        copyOnWrite();
    });
    return m_begin + former;
}

void TovUniString::append(unsigned count, TovUChar unit) { std::fill_n(extend(count), count, unit); }

void TovUniString::appendSlowly(TovUChar unit) {
    const unsigned count = length();
    tovdetail::stringLength(std::uint64_t(count) + 1, s_file, __LINE__);
    if (capacity() == count)
        reserve(static_cast<unsigned>(std::min<std::uint64_t>(std::uint64_t(count) + 10, max_size())));
    copyOnWrite();
    *m_end++ = unit;
}

void TovUniString::append(std::u16string_view text) {
    const unsigned count = tovdetail::stringLength(text.size(), s_file, __LINE__);
    const std::less_equal<> notBehind;
    const bool isOwn = notBehind(m_begin, text.data()) && notBehind(text.data() + text.size(), m_end);
    const std::ptrdiff_t ownAt = isOwn ? text.data() - m_begin : 0;
    TovUChar *target = extend(count);
    std::copy_n(isOwn ? m_begin + ownAt : text.data(), count, target);
}

void TovUniString::insert(unsigned position, unsigned count, TovUChar unit) {
    if (position >= length())
        return append(count, unit);
    const unsigned behind = length() - position;
    TovUChar *gap = extend(count) - behind;
    std::copy_backward(gap, gap + behind, m_end);
    std::fill_n(gap, count, unit);
}

TovUniString TovUniString::trimSpaces() const {
    const unsigned first = find_first_not_of(u' ', 0);
    const unsigned last = find_last_not_of(u' ', npos);
    return first == npos ? TovUniString() : substr(first, last - first + 1);
}

TovUniString TovUniString::trimWs() const {
    const TovUChar *first = m_begin;
    skipWs(first);
    const TovUChar *last = m_end;
    while (last > first && tovIsWhiteSpace(last[-1]))
        --last;
    return between(first, last);
}

TovUniString TovUniString::stripPads(Justify justify, TovUChar pad) const {
    if (empty() || justify == JustifyNone)
        return *this;
    const TovUChar *first = justify == JustifyLeft ? m_begin : skip(m_begin, pad);
    const TovUChar *last = m_end;
    while (justify != JustifyRight && last > first && last[-1] == pad)
        --last;
    return between(first, last);
}

TovUniString TovUniString::between(const TovUChar *first, const TovUChar *last) const {
    if (first == last)
        return TovUniString();
    return substr(static_cast<unsigned>(first - m_begin), static_cast<unsigned>(last - first));
}

// Numbers to text -----------------------------------------------------------------------------------

namespace {

// "00" to "99", so that one division gives two digits.
constexpr auto s_digitPairs = [] {
    std::array<std::array<TovUChar, 2>, 100> pairs{};
    for (unsigned i = 0; i < pairs.size(); ++i)
        pairs[i] = {static_cast<TovUChar>(u'0' + i / 10), static_cast<TovUChar>(u'0' + i % 10)};
    return pairs;
}();

constexpr std::uint32_t s_powersOf10[] = {1,      10,      100,      1000,      10000,
                                          100000, 1000000, 10000000, 100000000, 1000000000};

// 1233 / 4096 is slightly more than log10(2), so the estimate is right or one too small.
unsigned countDigits(std::uint32_t value) {
    const auto estimate = static_cast<unsigned>(std::bit_width(value | 1)) * 1233 >> 12;
    return estimate + (value >= s_powersOf10[estimate] || value == 0 ? 1 : 0);
}

void writeDigits(TovUChar *end, std::uint32_t value) {
    for (; value >= 100; value /= 100) {
        end -= 2;
        std::copy_n(s_digitPairs[value % 100].data(), 2, end);
    }
    if (value >= 10)
        std::copy_n(s_digitPairs[value].data(), 2, end - 2);
    else
        end[-1] = static_cast<TovUChar>(u'0' + value);
}

} // namespace

void TovUniString::appendUInt32(std::uint32_t value, unsigned width) {
    const unsigned digits = countDigits(value);
    const unsigned zeros = std::max(digits, width) - digits;
    if (TovUChar *target = takeRoom(zeros + digits))
        std::fill_n(target, zeros, u'0');
    else
        extendForNumber(zeros, digits);
    writeDigits(m_end, value);
}

// In two steps, because the capacity that is told afterwards is that of two.
void TovUniString::extendForNumber(unsigned zeros, unsigned digits) {
    tovdetail::stringLength(std::uint64_t(length()) + zeros + digits, s_file, __LINE__);
    allOrNothing(*this, [&] {
        if (zeros > 0)
            append(zeros, u'0');
        extend(digits);
    });
}

void TovUniString::appendInt32(std::int32_t value, unsigned width) {
    const auto magnitude = static_cast<std::uint32_t>(value);
    if (value >= 0)
        return appendUInt32(magnitude, width);
    tovdetail::stringLength(std::uint64_t(length()) + width, s_file, __LINE__);
    allOrNothing(*this, [&] {
        append(u'-');
        appendUInt32(0 - magnitude, width > 0 ? width - 1 : 0);
    });
}

// The module ----------------------------------------------------------------------------------------

constinit TovPoolCtrl TovUtStr::ms_pool = {};
constinit pthread_once_t TovUtStr::ms_lock = PTHREAD_ONCE_INIT;

namespace {

struct EmptyString {
    const TovUniString string = TovUniString::fromStatic(u"", 0, true);
};

} // namespace

void TovUtStr_init() { tovdetail::initModule<EmptyString>(TovUtStr::ms_pool, TovUtStr_release); }

void TovUtStr_release() { tovdetail::releaseModule<EmptyString>(TovUtStr::ms_pool); }

const TovUniString &TovUniString::emptyString() {
    return static_cast<EmptyString *>(TovUtStr::ms_pool.get(TovUtStr::ms_lock, TovUtStr_init))->string;
}
