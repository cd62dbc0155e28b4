/// Intrusive reference counts: a base class that carries the count, and a smart reference of one pointer.
///
/// Ownership  An object is owned jointly by all that raised its count. When the count returns to 0 the object
///            decides in unreferenced() what becomes of it; by default it deletes itself.
/// Errors     An empty reference that is dereferenced raises TOVRC_INTERNAL_ERROR, "Internal error: 0".
/// Threads    All references to one object belong to one thread at a time, or the caller locks.
/// Cost       A reference is one pointer, a copy one add; no atomic instruction and no control block.
#pragma once

#include <tovutil/tovexport.h>

#include <atomic>
#include <cstdint>
#include <iosfwd>
#include <utility>

class TOV_EXPORT TovUtRefBase {
public:
    TovUtRefBase() : m_count(0) {}
    virtual ~TovUtRefBase();

    /// Called whenever the count has gone from 0 to 1. Does nothing here.
    virtual void referenced();

    /// Called whenever the count has gone from 1 to 0. Deletes the object here; a class whose storage is not
    /// from operator new overrides it.
    virtual void unreferenced();

    TovUtRefBase(const TovUtRefBase &) = delete;
    TovUtRefBase &operator=(const TovUtRefBase &) = delete;

    /// The two steps of whoever moves the count by hand. The object may be gone after the second.
    void addReference() {
        if (moveCount(1) == 1) [[unlikely]]
            referenced();
    }
    void dropReference() {
        if (moveCount(-1) == 0) [[unlikely]]
            unreferenced();
    }

    /// References at present. Not checked for overflow or underflow: it wraps.
    std::int32_t count() const {
        return std::atomic_ref<std::int32_t>(const_cast<std::int32_t &>(m_count))
            .load(std::memory_order_relaxed);
    }

private:
    // A plain load, add and store. They are spelt as relaxed accesses because in a process that has turned
    // its fast heaps off the heaps of all threads are one object, whose count nobody relies on.
    // The sum is unsigned because a heap may have more objects than a signed word can count.
    std::int32_t moveCount(std::int32_t by) {
        const auto sum = static_cast<std::uint32_t>(count()) + static_cast<std::uint32_t>(by);
        const auto moved = static_cast<std::int32_t>(sum);
        std::atomic_ref<std::int32_t>(m_count).store(moved, std::memory_order_relaxed);
        return moved;
    }

    std::int32_t m_count;
};

/// What is out of line of the references.
class TOV_EXPORT TovUtRefUtils {
public:
    TovUtRefUtils() = delete;

    /// Raises the error of an empty reference. The arguments, a reference and its operator, are not read.
    [[noreturn]] static void raiseError(const void *ref, char op);

    /// Writes "TovUtRef(ref(...) ptr(...) count(...) )" in the stream's formats, without a line end.
    static void trace(std::ostream &os, const void *ref, const void *ptr, std::int32_t count);
};

/// A reference to an object of a class that derives from TovUtRefBase; may be empty.
template <class T>
class TovUtRef {
public:
    constexpr TovUtRef() noexcept : m_ptr(nullptr) {}
    explicit TovUtRef(T *object) : m_ptr(object) { take(); }
    TovUtRef(const TovUtRef &other) : m_ptr(other.m_ptr) { take(); }
    TovUtRef(TovUtRef &&other) noexcept : m_ptr(std::exchange(other.m_ptr, nullptr)) {}
    ~TovUtRef() {
        if (m_ptr)
            m_ptr->dropReference();
    }

    // The new object is held, and this reference complete, before the old object is let go: it may be the
    // same one, or the owner of the source or of this reference.
    TovUtRef &operator=(T *object) {
        become(TovUtRef(object));
        return *this;
    }
    TovUtRef &operator=(const TovUtRef &other) {
        become(TovUtRef(other));
        return *this;
    }
    TovUtRef &operator=(TovUtRef &&other) noexcept {
        become(TovUtRef(std::move(other)));
        return *this;
    }
    void reset(T *object = nullptr) { become(TovUtRef(object)); }

    void swap(TovUtRef &other) noexcept { std::swap(m_ptr, other.m_ptr); }

    T *get() const noexcept { return m_ptr; }
    explicit operator bool() const noexcept { return m_ptr != nullptr; }
    bool operator==(const TovUtRef &) const noexcept = default;

    T &operator*() const {
        if (!m_ptr) [[unlikely]]
            TovUtRefUtils::raiseError(this, '*');
        return *m_ptr;
    }
    T *operator->() const { return &**this; }

    /// Writes this reference, its pointer and the object's count (0 when empty).
    void trace(std::ostream &os) const { TovUtRefUtils::trace(os, this, m_ptr, m_ptr ? m_ptr->count() : 0); }

private:
    void become(TovUtRef &&other) noexcept { swap(other); }

    void take() {
        if (m_ptr)
            m_ptr->addReference();
    }

    T *m_ptr;
};
