/// TovUniString: a string of 16-bit code units that begins as a view of a literal or of a caller's buffer,
/// and takes memory only when something must change.
///
/// Ownership  A string made by fromStatic() or fromLocal() views a text that belongs to somebody else and
///            must outlive the string. Any other text is the library's own: copies and substrings share it,
///            and the first write to a shared text makes a copy. No string's text ever changes through
///            another.
/// Units      Positions, counts, lengths and capacities are code units of UTF-16 in host byte order.
///            Surrogate pairs are not validated. Units compare as unsigned numbers. The unit behind the last
///            is not part of the text and need not exist, but after c_str().
/// Range      At most max_size() units, and one more where a text grows into its terminator's place.
/// Errors     Exhausted memory raises std::bad_alloc, or, for a text above TovFastHeap::c_maxSmall bytes, the
///            out-of-memory TovError. More than max_size() units raise TOVRC_INTERNAL_ERROR, "Internal error:
///            length <= max_size()". After an error the string holds the text that it held before.
/// Threads    A string belongs to one thread at a time. Strings that share a buffer do so together, even for
///            copying, because the buffer's count is a plain number: hand a thread its own text by unshare().
///            Texts of fromStatic() may be used by all threads at once.
/// Cost       Three pointers. Reading is on the text itself, without a virtual call. A copy and a substring
///            cost one add, not a copy of the text, except where a fast heap, setCopyOnShare() or a local
///            buffer asks for one. docs/strings.md tells it operation by operation.
#pragma once

#include <tovutil/tovexport.h>
#include <tovutil/tovpool.h>
#include <tovutil/tovstring.h>
#include <tovutil/tovutsti.h>

#include <algorithm>
#include <cassert>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <functional>
#include <iterator>
#include <string_view>
#include <typeinfo>
#include <utility>

class TovRc;

class TOV_EXPORT TovUniString {
public:
    using value_type = TovUChar;
    using size_type = unsigned;
    using difference_type = std::ptrdiff_t;
    using const_pointer = const TovUChar *;
    using const_reference = const TovUChar &;
    using const_iterator = const TovUChar *;
    using iterator = const_iterator;

    /// Nothing found; as a position the very end, as a length up to the terminator.
    static constexpr std::uint32_t npos = 0xFFFFFFFFU;

    /// Flags of fromLocal().
    enum : int {
        LocalNoCopy = 1,   ///< copies of the string view the same buffer instead of having their own text
        NullTerminated = 2 ///< a 0 stands behind the text
    };

    /// On which side of a text the units lie that fill its field.
    enum Justify { JustifyLeft = 0, JustifyCenter = 1, JustifyRight = 2, JustifyNone = 3 };

    // Making strings ----------------------------------------------------------------------------------

    /// An empty string. Takes no memory but at the first use in the process.
    TovUniString() { TovUniStringImpl::setEmptyImpl(this); }

    /// A string with a copy of `text`.
    explicit TovUniString(std::u16string_view text);

    /// A copy. The text of a string that lives on a fast heap is copied to the global memory.
    TovUniString(const TovUniString &other) : TovUniString(other, nullptr) {}

    /// A copy for a fast heap, on which it then lives if it has a text of its own: the text is shared if it
    /// lies there already.
    TovUniString(const TovUtRef<TovFastHeap> &heap, const TovUniString &other)
        : TovUniString(other, heap.get()) {}

    /// Takes the text as it is, with its heap; `other` is empty afterwards.
    TovUniString(TovUniString &&other) noexcept
        : m_begin(other.m_begin), m_end(other.m_end), m_impl(other.m_impl) {
        TovUniStringImpl::setEmptyImpl(&other);
    }

    ~TovUniString() {
        if (TovUniStringHeapImpl *buffer = heapImpl())
            buffer->delRef();
        else
            m_impl->delRef();
    }

    /// As the constructors. A string of initStatic() that is assigned a view of its block keeps it.
    TovUniString &operator=(const TovUniString &other);
    TovUniString &operator=(TovUniString &&other) noexcept;

    /// Views a text that outlives all strings, such as a literal. `length` npos means up to the terminator;
    /// `nullTerminated` tells that a 0 stands behind the text, so that c_str() need not copy it.
    static TovUniString fromStatic(const TovUChar *text, unsigned length, bool nullTerminated = false);

    /// Views a text in a caller's buffer, which must not change while the string views it. Copies of the
    /// string get a text of their own, but with LocalNoCopy. `length` as above.
    static TovUniString fromLocal(const TovUChar *text, unsigned length, int flags = 0);

    /// Copies a text to a fast heap, or to the global memory. `length` npos means up to the terminator.
    static TovUniString fromHeap(const TovUChar *text, unsigned length, TovFastHeap *heap = nullptr);

    /// Converts `length` bytes from the process locale's encoding; npos means up to the NUL. A text that
    /// can't be converted is cut in front of its first character that can't.
    static TovUniString fromBytes(const char *bytes, unsigned length, TovFastHeap *heap = nullptr);

    /// Fill a default-constructed string from bytes, as fromBytes() does; `length` is below npos. A string of
    /// initStatic() has a block of its own that its copies view without keeping it: it is for strings that
    /// live as long as the process.
    void init(const char *bytes, unsigned length, TovFastHeap *heap);
    void initStatic(const char *bytes, unsigned length);

    /// The empty string of the process.
    static const TovUniString &emptyString();

    void swap(TovUniString &other) noexcept {
        std::swap(m_begin, other.m_begin);
        std::swap(m_end, other.m_end);
        std::swap(m_impl, other.m_impl);
    }
    friend void swap(TovUniString &left, TovUniString &right) noexcept { left.swap(right); }

    // The text and its owner --------------------------------------------------------------------------

    const_iterator begin() const noexcept { return m_begin; }
    const_iterator end() const noexcept { return m_end; }
    const TovUChar *data() const noexcept { return m_begin; }
    unsigned length() const noexcept { return static_cast<unsigned>(m_end - m_begin); }
    unsigned size() const noexcept { return length(); }
    bool empty() const noexcept { return m_begin == m_end; }
    static constexpr unsigned max_size() noexcept { return npos - 2; } // a terminator, and npos is no length

    /// The unit at a position below length(). Not checked.
    const TovUChar &operator[](unsigned position) const {
        assert(position < length());
        return m_begin[position];
    }

    /// A view, valid until the string changes or ends.
    std::u16string_view view() const noexcept { return {m_begin, length()}; }
    operator std::u16string_view() const noexcept { return view(); }

    /// The text with a 0 behind it, valid until the string changes or ends. Copies a text that it may not
    /// write the 0 to; a text that ends in front of a 0 anyway stays.
    const TovUChar *c_str() { return m_impl->c_str(this); }

    /// Whether a write would copy the text first: because another string shares it, or because it is not the
    /// library's own.
    bool isShared() const { return m_impl->isShared(); }

    /// Makes sure that the text is this string's alone and may be written.
    void copyOnWrite() { m_impl->copyOnWrite(this); }

    /// Makes the string independent of other strings and of a caller's buffer. A static text stays.
    void unshare() { m_impl->unshare(this); }

    /// Whether copies of this string share its text, as they do at first except in local strings.
    void setCopyOnShare(bool copyOnShare) { m_impl->setCopyOnShare(this, copyOnShare); }

    /// The units that the text may have, a terminator included, before it moves to a new place.
    unsigned capacity() const { return m_impl->capacity(this); }

    /// Makes sure of a capacity of `unitCount`.
    void reserve(unsigned unitCount) { m_impl->reserve(this, unitCount); }

    /// Cuts the text, or makes it longer by units of no particular value.
    void resize(unsigned unitCount);

    /// Makes the string empty; a buffer of its own stays for use.
    void erase() { m_impl->erase(this); }

    /// The text for writing, valid until the string changes, is copied or ends.
    TovUChar *writable() {
        copyOnWrite();
        return m_begin;
    }

    /// What governs the text; see tovutsti.h.
    const TovUniStringImpl &impl() const { return *m_impl; }

    /// At most `count` units from `position` on; empty behind the end. Shares the text as a copy does.
    TovUniString substr(unsigned position, unsigned count = npos) const {
        if (position > length()) [[unlikely]]
            return TovUniString();
        TovUniString part(*this); // never a LocalCopy, whose representation alone cuts in another way
        part.m_begin += position;
        part.m_end = part.m_begin + std::min(count, length() - position);
        return part;
    }

    // Search: the result is a place in this string's text ------------------------------------------------
    //
    // `from` is such a place, too; at or behind the end it is the result. Nothing found gives end().

    /// The first unit that differs from `unit`.
    const TovUChar *skip(const TovUChar *from, TovUChar unit) const noexcept;

    /// The first unit that equals `unit`, in the whole text or from a place on.
    const TovUChar *find_first(TovUChar unit) const noexcept;
    const TovUChar *find_next(const TovUChar *from, TovUChar unit) const noexcept;

    /// The first unit that equals one of several.
    const TovUChar *find_any(const TovUChar *from, const TovUChar *set, unsigned setLength) const noexcept;
    const TovUChar *find_any(const TovUChar *from, TovUChar a, TovUChar b) const noexcept;
    const TovUChar *find_any(const TovUChar *from, TovUChar a, TovUChar b, TovUChar c) const noexcept;

    // Search: the result is a position, or npos -----------------------------------------------------------

    /// The first complete occurrence of a pattern at or behind `position`.
    ///
    /// `pattern` ends in front of its first 0, or after `patternLength` units. Its first unit is always
    /// looked for: a pattern of no units, and one that begins with 0, are found where that unit stands.
    unsigned find(const TovUChar *pattern, unsigned position, unsigned patternLength) const noexcept;

    /// The first unit at or behind `position` that equals `unit`, or one of a set that ends in front of its
    /// first 0 (null is an empty set), or that differs from `unit`.
    unsigned find_first_of(TovUChar unit, unsigned position) const noexcept;
    unsigned find_first_of(const TovUChar *set, unsigned position) const noexcept;
    unsigned find_first_not_of(TovUChar unit, unsigned position) const noexcept;

    /// The last unit at or in front of `position` that equals `unit`, or differs from it.
    unsigned find_last_of(TovUChar unit, unsigned position) const noexcept;
    unsigned find_last_not_of(TovUChar unit, unsigned position) const noexcept;

    // Comparison ------------------------------------------------------------------------------------------

    /// -1, 0 or 1 by lexicographic order.
    int compare(const TovUniString &other) const noexcept;

    /// Negative, 0 or positive by a total order that is quick to tell, but not lexicographic: by length, then
    /// by the last unit, then by the bytes in memory.
    int fastCompare(const TovUniString &other) const noexcept;

    friend bool operator==(const TovUniString &left, const TovUniString &right) noexcept {
        return left == right.view();
    }
    friend bool operator==(const TovUniString &left, std::u16string_view right) noexcept {
        return left.length() == right.size() &&
               (left.empty() ||
                std::memcmp(left.m_begin, right.data(), right.size() * sizeof(TovUChar)) == 0);
    }
    friend std::strong_ordering operator<=>(const TovUniString &left, const TovUniString &right) noexcept {
        return left.compare(right) <=> 0;
    }
    friend std::strong_ordering operator<=>(const TovUniString &left, std::u16string_view right) noexcept {
        return left.view() <=> right;
    }

    // Numbers and white space -------------------------------------------------------------------------------
    //
    // `from` is a place in this string's text; it is moved behind what was used. A value is counted in 32
    // bits; a digit that would make it smaller than it was is not used and ends the number. That is not every
    // overflow: "10000000000" is 1410065408.

    /// Reads decimal digits, without sign, white space or prefix; 0 when there are none.
    std::uint32_t scanUInt32(const TovUChar *&from) const noexcept {
        std::uint32_t value = 0;
        const TovUChar *at = from;
        for (std::uint32_t digit = 0; at < m_end && (digit = *at - std::uint32_t{u'0'}) <= 9; ++at)
            if (!takeDigit(value, 10, digit)) [[unlikely]]
                break;
        from = at;
        return value;
    }

    /// The whole text as decimal digits. `rc` becomes success, or gets the code 0xFFFFFFFF, and keeps all
    /// else, when there are none or when something else follows; the result is then that of the digits in
    /// front.
    std::uint32_t toUInt32(TovRc &rc) const noexcept;

    /// Reads white space, a sign, which is not applied, and digits in a base from 2 to 36; in base 0, which
    /// the text tells, a prefix "0x" is 16, "0" is 8. `from` stays where white space and sign are all there
    /// is, and where base 0 finds no number in the text: a "0" alone, or one in front of neither "x" nor an
    /// octal digit or 8.
    ///
    /// Errors     A base below 0 or above 36 raises TOVRC_INTERNAL_ERROR, "Internal error: base >= 0 &&
    ///            base <= 36".
    std::uint32_t strtoul(const TovUChar *&from, int base) const;

    /// Moves `from` over blanks, tabs, line feeds and carriage returns.
    void skipWs(const TovUChar *&from) const noexcept;

    /// Append a number in decimal, with zeros in front up to `width` characters; a sign counts as one.
    void appendUInt32(std::uint32_t value, unsigned width);
    void appendInt32(std::int32_t value, unsigned width);

    // Edits -------------------------------------------------------------------------------------------------

    void append(unsigned count, TovUChar unit);

    /// Cost       The capacity grows by 10 units when it is used up; what moves the text, and how often,
    ///            is told by TovUniStringHeapImpl::reallocate().
    void append(TovUChar unit) {
        if (TovUChar *target = takeRoom(1)) [[likely]]
            *target = unit;
        else
            appendSlowly(unit);
    }
    void push_back(TovUChar unit) { append(unit); }

    /// Appends a text, which may be a part of this string's own.
    void append(std::u16string_view text);

    /// Inserts units in front of a position; at or behind the end it appends them.
    void insert(unsigned position, unsigned count, TovUChar unit);

    /// A string without the blanks, or the white space, at both ends.
    TovUniString trimSpaces() const;
    TovUniString trimWs() const;

    /// A string without the `pad` units of its field: JustifyLeft cuts at the end, JustifyRight at the
    /// beginning, JustifyCenter at both, JustifyNone nowhere.
    TovUniString stripPads(Justify justify, TovUChar pad) const;

private:
    // The representations work on the three fields.
    friend class TovUniStringImpl;
    friend class TovUniStringHeapImpl;
    friend class TovUniStringBufImpl;
    friend class TovUniStringStaticImpl;
    friend class TovUniStringStaticHeapImpl;
    friend class TovUniStringEmptyImpl;
    friend class TovUniStringLocalCopyImpl;

    TovUniString(const TovUniString &other, TovFastHeap *heap)
        : m_begin(other.m_begin), m_end(other.m_end), m_impl(nullptr) {
        TovUniStringHeapImpl *buffer = other.heapImpl();
        if (buffer && buffer->canShare(heap)) {
            buffer->addRef();
            m_impl = buffer;
        } else {
            other.copyTo(*this, heap);
        }
    }
    TovUniString(const TovUChar *text, unsigned length, TovUniStringImpl *impl);

    // The representation if it is a counted buffer, else null. By far the most are, and for them the
    // commonest operations do here what the representation would do, without a virtual call.
    TovUniStringHeapImpl *heapImpl() const noexcept {
        const TovUniStringImpl &impl = *m_impl;
        return &typeid(impl) == &typeid(TovUniStringHeapImpl) ? static_cast<TovUniStringHeapImpl *>(m_impl)
                                                              : nullptr;
    }

    // Makes the text longer by units that are there and nobody else's, and gives their place; else null.
    TovUChar *takeRoom(unsigned count) noexcept {
        const TovUniStringHeapImpl *buffer = heapImpl();
        return buffer && buffer->hasRoom(m_end, count) ? std::exchange(m_end, m_end + count) : nullptr;
    }
    TovUChar *extend(unsigned count);
    void extendForNumber(unsigned zeros, unsigned digits);
    void appendSlowly(TovUChar unit);

    // Takes one more digit into the value, unless that makes it smaller.
    static bool takeDigit(std::uint32_t &value, std::uint32_t base, std::uint32_t digit) noexcept {
        const std::uint32_t next = value * base + digit;
        if (next < value)
            return false;
        value = next;
        return true;
    }

    bool becomeViewOfOwnBlock(const TovUniString &view);
    TovUniString between(const TovUChar *first, const TovUChar *last) const;

    void copyTo(TovUniString &to, TovFastHeap *heap) const {
        m_impl->copyTo(const_cast<TovUniString *>(this), &to, heap); // counts, and changes nothing else
    }

    TovUChar *m_begin; // not to be written through before copyOnWrite()
    TovUChar *m_end;
    TovUniStringImpl *m_impl;
};

namespace std {

template <>
struct hash<TovUniString> {
    size_t operator()(const TovUniString &text) const noexcept { return hash<u16string_view>()(text.view()); }
};

} // namespace std

/// The module behind TovUniString::emptyString(): one string.
class TOV_EXPORT TovUtStr {
public:
    static TovPoolCtrl ms_pool;
    static pthread_once_t ms_lock;
};

/// The module behind all strings: the representations that they share. It must outlive them.
class TOV_EXPORT TovUtStrPool {
public:
    static TovPoolCtrl ms_pool;
    static pthread_once_t ms_lock;
};

extern "C" {
TOV_EXPORT void TovUtStr_init();
TOV_EXPORT void TovUtStr_release();
TOV_EXPORT void TovUtStrPool_init();
TOV_EXPORT void TovUtStrPool_release();
}
