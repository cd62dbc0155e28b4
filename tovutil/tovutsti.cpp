// The representations, and the module that holds those that all strings share.
#include <tovutil/tovutsti.h>

#include <tovutil/tovmodule.h>
#include <tovutil/tovsize.h>
#include <tovutil/tovutstr.h>

#include <algorithm>
#include <cassert>
#include <functional>
#include <memory>
#include <new>
#include <utility>

// The module ----------------------------------------------------------------------------------------

constinit TovPoolCtrl TovUtStrPool::ms_pool = {};
constinit pthread_once_t TovUtStrPool::ms_lock = PTHREAD_ONCE_INIT;

namespace {

// The objects by the flags of the getters.
struct Pool {
    using Impl = std::unique_ptr<TovUniStringImpl>;

    const std::unique_ptr<TovUniStringEmptyImpl> empty{new TovUniStringEmptyImpl};
    const Impl statics[2] = {Impl(new TovUniStringStaticImpl(false)), Impl(new TovUniStringStaticImpl(true))};
    const Impl locals[4] = {
        Impl(new TovUniStringLocalCopyImpl(false)), Impl(new TovUniStringLocalNoCopyImpl(false)),
        Impl(new TovUniStringLocalCopyImpl(true)), Impl(new TovUniStringLocalNoCopyImpl(true))};
};
static_assert(TovUniString::LocalNoCopy == 1 && TovUniString::NullTerminated == 2);

Pool &pool() {
    return *static_cast<Pool *>(TovUtStrPool::ms_pool.get(TovUtStrPool::ms_lock, TovUtStrPool_init));
}

int flagIf(bool nullTerminated) { return nullTerminated ? TovUniString::NullTerminated : 0; }

} // namespace

void TovUtStrPool_init() { tovdetail::initModule<Pool>(TovUtStrPool::ms_pool, TovUtStrPool_release); }

void TovUtStrPool_release() { tovdetail::releaseModule<Pool>(TovUtStrPool::ms_pool); }

// The root ------------------------------------------------------------------------------------------

TovUniStringImpl::~TovUniStringImpl() = default;

void TovUniStringImpl::unshare(TovUniString *) {}

void TovUniStringImpl::substr(TovUniString *string, unsigned position, unsigned count) {
    string->m_begin += position;
    string->m_end = string->m_begin + count;
}

void TovUniStringImpl::unsharedCopy(const TovUniString *from, TovUniString *to) const {
    setHeapImpl(to, from->length(), from->m_begin, from->m_end, nullptr);
}

TovUniStringImpl *TovUniStringImpl::getStaticImpl(int flags) {
    return pool().statics[(flags & TovUniString::NullTerminated) != 0].get();
}

TovUniStringImpl *TovUniStringImpl::getLocalImpl(int flags) {
    return pool().locals[flags & (TovUniString::LocalNoCopy | TovUniString::NullTerminated)].get();
}

TovUniStringImpl *TovUniStringImpl::getEmptyImpl() { return pool().empty.get(); }

void TovUniStringImpl::setEmptyImpl(TovUniString *string) {
    TovUniStringEmptyImpl *impl = pool().empty.get();
    string->m_impl = impl;
    string->m_begin = string->m_end = impl->str(string);
}

TovUniStringImpl *TovUniStringImpl::getHeapImpl(unsigned unitCount, TovFastHeap *heap) {
    return heap ? TovUniStringHeapImpl::allocate(unitCount, *heap)
                : TovUniStringHeapImpl::allocate(unitCount);
}

void TovUniStringImpl::setHeapImpl(TovUniString *string, unsigned unitCount, const TovUChar *begin,
                                   const TovUChar *end, TovFastHeap *heap) {
    if (!end && begin) // the text of a string may be none at all
        end = begin + unitCount;
    assert(static_cast<std::size_t>(end - begin) <= unitCount);
    TovUniStringImpl *impl = getHeapImpl(unitCount, heap);
    TovUChar *text = impl->str(string);
    TovUChar *textEnd = std::copy(begin, end, text);
    std::fill(textEnd, text + unitCount + 1, TovUChar(0)); // c_str() looks at units behind a text
    TovUniStringImpl *former = std::exchange(string->m_impl, impl);
    string->m_begin = text;
    string->m_end = textEnd;
    if (former)
        former->delRef();
}

void TovUniStringImpl::setHeapImpl(TovUniString *string, unsigned unitCount, TovFastHeap *heap) {
    static constexpr TovUChar nothing = 0;
    setHeapImpl(string, unitCount, &nothing, &nothing, heap);
}

void TovUniStringImpl::heapCopy(TovUniString *string, unsigned unitCount) {
    setHeapImpl(string, unitCount, string->m_begin, string->m_end, nullptr);
}

// Counted buffers -----------------------------------------------------------------------------------

void *TovUniStringHeapImpl::operator new(std::size_t objectSize, unsigned capacity) {
    return TovFastHeap::globalAllocate(objectSize + capacity * sizeof(TovUChar));
}

void *TovUniStringHeapImpl::operator new(std::size_t objectSize, unsigned capacity, TovFastHeap &heap) {
    return heap.allocate(objectSize + capacity * sizeof(TovUChar));
}

// NOLINTNEXTLINE(misc-new-delete-overloads): new has a size to add
void TovUniStringHeapImpl::operator delete(void *object) { TovFastHeap::deallocate(object); }

void TovUniStringHeapImpl::operator delete(void *object, unsigned) { TovFastHeap::deallocate(object); }

void TovUniStringHeapImpl::operator delete(void *object, unsigned, TovFastHeap &) {
    TovFastHeap::deallocate(object);
}

TovUniStringHeapImpl::TovUniStringHeapImpl(unsigned capacity, TovFastHeap *heap)
    : m_refCount(1), m_capacity(capacity), m_copyOnShare(false), m_room(capacity), m_heap(heap) {}

TovUniStringHeapImpl::~TovUniStringHeapImpl() = default;

TovUniStringHeapImpl *TovUniStringHeapImpl::make(unsigned unitCount, unsigned room, TovFastHeap *heap) {
    const unsigned capacity = tovdetail::stringLength(unitCount, "tovutil/tovutsti", __LINE__) + 1;
    room = std::max(room, capacity);
    auto *impl = heap ? new (room, *heap) TovUniStringHeapImpl(capacity, heap)
                      : new (room) TovUniStringHeapImpl(capacity, nullptr);
    impl->m_room = room;
    return impl;
}

TovUniStringHeapImpl *TovUniStringHeapImpl::allocate(unsigned unitCount) {
    return make(unitCount, 0, nullptr);
}

TovUniStringHeapImpl *TovUniStringHeapImpl::allocate(unsigned unitCount, TovFastHeap &heap) {
    return make(unitCount, 0, &heap);
}

// The room for a buffer that grows to `unitCount` units: twice what it has, some words at least, and on a
// fast heap no more than makes it a large object of it.
unsigned TovUniStringHeapImpl::roomToGrow(unsigned unitCount) const {
    constexpr unsigned leastRoom = 32;
    constexpr unsigned mostRoom = TovUniString::max_size() + 1;
    constexpr unsigned smallRoom =
        (TovFastHeap::c_maxSmall - sizeof(TovUniStringHeapImpl)) / sizeof(TovUChar);
    const unsigned room = std::max(m_room <= mostRoom / 2 ? 2 * m_room : mostRoom, leastRoom);
    return m_heap && unitCount < smallRoom ? std::min(room, smallRoom) : room;
}

TovUniStringImpl *TovUniStringHeapImpl::reallocate(unsigned unitCount) {
    if (unitCount < m_room)
        return extend(unitCount);
    TovUniStringHeapImpl *larger = make(unitCount, roomToGrow(unitCount), m_heap.get());
    larger->m_copyOnShare = m_copyOnShare;
    std::copy_n(str(), m_capacity, larger->str());
    larger->m_capacity = m_capacity;
    delete this;
    return larger->extend(unitCount);
}

TovUniStringHeapImpl *TovUniStringHeapImpl::extend(unsigned unitCount) {
    const unsigned capacity = std::max(m_capacity, unitCount + 1);
    std::fill(str() + m_capacity, str() + capacity, TovUChar(0));
    m_capacity = capacity;
    return this;
}

void TovUniStringHeapImpl::unshare(TovUniString *string) { copyOnWrite(string); }

void TovUniStringHeapImpl::setCopyOnShare(TovUniString *, bool copyOnShare) { m_copyOnShare = copyOnShare; }

unsigned TovUniStringHeapImpl::capacity(const TovUniString *string) const {
    return m_capacity - static_cast<unsigned>(string->m_begin - str());
}

void TovUniStringHeapImpl::copyOnWrite(TovUniString *string) {
    if (isShared())
        heapCopy(string, string->length());
}

const TovUChar *TovUniStringHeapImpl::c_str(TovUniString *string) {
    if (string->m_end < str() + m_capacity) {
        if (*string->m_end == 0)
            return string->m_begin;
        if (!isShared()) {
            *string->m_end = 0;
            return string->m_begin;
        }
    }
    copyOnWrite(string);
    if (string->capacity() == string->length())
        string->reserve(string->length() + 1);
    *string->m_end = 0;
    return string->m_begin;
}

void TovUniStringHeapImpl::erase(TovUniString *string) { string->m_end = string->m_begin; }

void TovUniStringHeapImpl::reserve(TovUniString *string, unsigned unitCount) {
    if (unitCount <= capacity(string))
        return;
    if (isShared())
        return heapCopy(string, unitCount);
    const unsigned length = string->length();
    const std::ptrdiff_t textAt = string->m_begin - str();
    auto *impl = unitCount <= m_capacity ? this : reallocate(unitCount);
    TovUChar *text = impl->str(string);
    if (textAt != 0)
        std::copy_n(text + textAt, length, text);
    string->m_impl = impl;
    string->m_begin = text;
    string->m_end = text + length;
}

void TovUniStringHeapImpl::resize(TovUniString *string, unsigned unitCount) {
    string->reserve(unitCount);
    string->m_end = string->m_begin + unitCount;
}

void TovUniStringHeapImpl::copyTo(TovUniString *from, TovUniString *to, TovFastHeap *heap) {
    if (!canShare(heap))
        return setHeapImpl(to, from->length(), from->m_begin, from->m_end, heap);
    TovUniStringImpl *former = std::exchange(to->m_impl, this);
    to->m_begin = from->m_begin;
    to->m_end = from->m_end;
    if (former == this)
        return;
    ++m_refCount;
    if (former)
        former->delRef();
}

TovUChar *TovUniStringHeapImpl::str(TovUniString *) { return str(); }

// Texts that are not counted -----------------------------------------------------------------------------

void TovUniStringBufImpl::addRef() {}

void TovUniStringBufImpl::delRef() {}

bool TovUniStringBufImpl::isShared() const { return true; }

void TovUniStringBufImpl::setCopyOnShare(TovUniString *string, bool copyOnShare) {
    string->m_impl = getCopyOnShareImpl(copyOnShare);
}

unsigned TovUniStringBufImpl::capacity(const TovUniString *string) const {
    return string->length() + (m_nullTerminated ? 1 : 0);
}

void TovUniStringBufImpl::copyOnWrite(TovUniString *string) { heapCopy(string, string->length()); }

const TovUChar *TovUniStringBufImpl::c_str(TovUniString *string) {
    // The flag was told for a whole text: the end of a substring lies inside of it.
    if (m_nullTerminated && *string->m_end == 0)
        return string->m_begin;
    heapCopy(string, string->length());
    *string->m_end = 0;
    return string->m_begin;
}

void TovUniStringBufImpl::erase(TovUniString *string) { setEmptyImpl(string); }

void TovUniStringBufImpl::reserve(TovUniString *string, unsigned unitCount) {
    if (unitCount > capacity(string))
        heapCopy(string, unitCount);
}

void TovUniStringBufImpl::resize(TovUniString *string, unsigned unitCount) {
    if (unitCount == 0)
        return string->erase();
    if (unitCount > capacity(string))
        return heapCopy(string, unitCount);
    string->m_end = string->m_begin + unitCount;
    string->m_impl = getNullTerminatedImpl(false);
}

TovUChar *TovUniStringBufImpl::str(TovUniString *string) { return string->m_begin; }

void TovUniStringBufImpl::shareText(const TovUniString *from, TovUniString *to, TovUniStringImpl *impl) {
    TovUChar *const begin = from->m_begin;
    TovUChar *const end = from->m_end;
    if (to->m_impl)
        to->m_impl->delRef();
    to->m_begin = begin;
    to->m_end = end;
    to->m_impl = impl;
}

// Static texts ------------------------------------------------------------------------------------------

void TovUniStringStaticImpl::setCopyOnShare(TovUniString *, bool) {}

void TovUniStringStaticImpl::copyTo(TovUniString *from, TovUniString *to, TovFastHeap *) {
    shareText(from, to, this);
}

void TovUniStringStaticImpl::unsharedCopy(const TovUniString *from, TovUniString *to) const {
    shareText(from, to, from->m_impl);
}

TovUniStringImpl *TovUniStringStaticImpl::getNullTerminatedImpl(bool nullTerminated) {
    return getStaticImpl(flagIf(nullTerminated));
}

TovUniStringImpl *TovUniStringStaticImpl::getCopyOnShareImpl(bool) { return this; }

// No text ------------------------------------------------------------------------------------------------

TovUniStringEmptyImpl::TovUniStringEmptyImpl() : TovUniStringStaticImpl(true), m_empty(0) {}

void TovUniStringEmptyImpl::erase(TovUniString *) {}

void TovUniStringEmptyImpl::resize(TovUniString *string, unsigned unitCount) {
    if (unitCount == 0)
        return;
    heapCopy(string, unitCount);
    std::fill_n(string->m_begin, unitCount, TovUChar(0));
}

TovUChar *TovUniStringEmptyImpl::str(TovUniString *) { return &m_empty; }

TovUniStringImpl *TovUniStringEmptyImpl::getNullTerminatedImpl(bool) { return this; }

void TovUniStringEmptyImpl::copyTo(TovUniString *from, TovUniString *to) { copyTo(from, to, nullptr); }

// A block of one string -----------------------------------------------------------------------------

void *TovUniStringStaticHeapImpl::operator new(std::size_t objectSize, unsigned unitCount) {
    return ::operator new(objectSize + unitCount * sizeof(TovUChar));
}

// NOLINTNEXTLINE(misc-new-delete-overloads): new has a size to add
void TovUniStringStaticHeapImpl::operator delete(void *object) { ::operator delete(object); }

void TovUniStringStaticHeapImpl::operator delete(void *object, unsigned) { ::operator delete(object); }

TovUniStringStaticHeapImpl::TovUniStringStaticHeapImpl(unsigned unitCount)
    : TovUniStringBufImpl(true), m_unitCount(unitCount) {}

void TovUniStringStaticHeapImpl::delRef() { delete this; }

void TovUniStringStaticHeapImpl::setCopyOnShare(TovUniString *, bool) {}

void TovUniStringStaticHeapImpl::copyTo(TovUniString *from, TovUniString *to, TovFastHeap *) {
    shareText(from, to, getCopyOnShareImpl(false));
}

void TovUniStringStaticHeapImpl::unsharedCopy(const TovUniString *from, TovUniString *to) const {
    shareText(from, to, getStaticImpl(TovUniString::NullTerminated));
}

TovUniStringImpl *TovUniStringStaticHeapImpl::getNullTerminatedImpl(bool nullTerminated) {
    m_nullTerminated = nullTerminated;
    return this;
}

TovUniStringImpl *TovUniStringStaticHeapImpl::getCopyOnShareImpl(bool) {
    return getStaticImpl(flagIf(m_nullTerminated));
}

TovUChar *TovUniStringStaticHeapImpl::text() { return reinterpret_cast<TovUChar *>(this + 1); }

bool TovUniStringStaticHeapImpl::holds(const TovUChar *begin) {
    return !std::less<>()(begin, text()) && std::less<>()(begin, text() + m_unitCount);
}

// A caller's buffer ---------------------------------------------------------------------------------

void TovUniStringLocalImpl::unshare(TovUniString *string) { heapCopy(string, string->length()); }

TovUniStringImpl *TovUniStringLocalImpl::getCopyOnShareImpl(bool copyOnShare) {
    return getLocalImpl((copyOnShare ? 0 : TovUniString::LocalNoCopy) | flagIf(m_nullTerminated));
}

void TovUniStringLocalCopyImpl::copyTo(TovUniString *from, TovUniString *to, TovFastHeap *heap) {
    setHeapImpl(to, from->length(), from->m_begin, from->m_end, heap);
}

void TovUniStringLocalCopyImpl::substr(TovUniString *string, unsigned position, unsigned count) {
    const TovUChar *begin = string->m_begin + position;
    setHeapImpl(string, count, begin, begin + count, nullptr);
}

TovUniStringImpl *TovUniStringLocalCopyImpl::getNullTerminatedImpl(bool nullTerminated) {
    return getLocalImpl(flagIf(nullTerminated));
}

void TovUniStringLocalNoCopyImpl::copyTo(TovUniString *from, TovUniString *to, TovFastHeap *) {
    shareText(from, to, this);
}

TovUniStringImpl *TovUniStringLocalNoCopyImpl::getNullTerminatedImpl(bool nullTerminated) {
    return getLocalImpl(TovUniString::LocalNoCopy | flagIf(nullTerminated));
}
