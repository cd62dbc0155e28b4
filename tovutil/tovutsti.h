/// The representations behind TovUniString: how a string's text is owned, shared, copied, grown and
/// terminated. Callers of the string class need none of this.
///
/// One object in the module's pool serves all strings of its kind, so every operation takes the string that
/// it works on; only TovUniStringHeapImpl and TovUniStringStaticHeapImpl exist once for a text.
///
///     class                          the text lies in               a copy of the string
///     TovUniStringHeapImpl           a counted buffer               shares the buffer
///     TovUniStringStaticImpl         memory that outlives strings   views the same text
///     TovUniStringEmptyImpl          the object itself: one 0       is empty, too
///     TovUniStringStaticHeapImpl     a block of one string          views the same text as a Static string
///     TovUniStringLocalCopyImpl      a caller's buffer              has a text of its own
///     TovUniStringLocalNoCopyImpl    a caller's buffer              views the same buffer
///
/// A heap copy, below, is a new unshared TovUniStringHeapImpl from the global allocation, also for a string
/// that lived on a fast heap.
///
/// Units      Capacities, positions and counts are code units.
/// Errors     Exhausted memory raises what TovFastHeap::allocate(), TovFastHeap::globalAllocate() or operator
///            new raise; more than TovUniString::max_size() units raise TOVRC_INTERNAL_ERROR. The string is
///            as before.
/// Threads    The objects of the pool may be used by all threads at once. A buffer and all strings that share
///            it belong to one thread at a time, or the caller locks.
#pragma once

#include <tovutil/tovexport.h>
#include <tovutil/tovfheap.h>
#include <tovutil/tovstring.h>

#include <cstddef>
#include <cstdint>

class TovUniString;

class TOV_EXPORT TovUniStringImpl {
public:
    TovUniStringImpl() = default;
    TovUniStringImpl(const TovUniStringImpl &) = delete;
    TovUniStringImpl &operator=(const TovUniStringImpl &) = delete;

    virtual ~TovUniStringImpl();

    /// Counts one more and one less string on this text; the last one out ends the object.
    virtual void addRef() = 0;
    virtual void delRef() = 0;

    /// Whether the text may not be written: it has more than one string, or is not the library's own.
    virtual bool isShared() const = 0;

    /// Makes the string independent of other strings and of a caller's buffer.
    virtual void unshare(TovUniString *string);

    /// Whether copies of the string get a text of their own.
    virtual void setCopyOnShare(TovUniString *string, bool copyOnShare) = 0;

    /// The units that fit from the string's begin on, terminator included.
    virtual unsigned capacity(const TovUniString *string) const = 0;

    /// Gives the string a text that it may write.
    virtual void copyOnWrite(TovUniString *string) = 0;

    /// The text with a 0 behind it. Never writes to a text that another string views.
    virtual const TovUChar *c_str(TovUniString *string) = 0;

    virtual void erase(TovUniString *string) = 0;

    /// Makes sure that the capacity is at least `unitCount`.
    virtual void reserve(TovUniString *string, unsigned unitCount) = 0;

    /// Makes room for a length of `unitCount`; TovUniString::resize() sets the length.
    virtual void resize(TovUniString *string, unsigned unitCount) = 0;

    /// Makes `to` a copy of `from`, and lets go of what `to` held, if it has a representation so far. A null
    /// `heap` is the global allocation.
    virtual void copyTo(TovUniString *from, TovUniString *to, TovFastHeap *heap) = 0;

    /// Narrows the string to a stretch of its text, which must lie in it.
    virtual void substr(TovUniString *string, unsigned position, unsigned count);

    /// Where the string's text begins; for a counted buffer, where the buffer begins.
    virtual TovUChar *str(TovUniString *string) = 0;

    /// Makes `to`, which owns nothing so far, a copy of `from` that nothing done to `from` can change.
    virtual void unsharedCopy(const TovUniString *from, TovUniString *to) const;

    /// The one object for static texts: the terminated one if `flags` has TovUniString::NullTerminated.
    static TovUniStringImpl *getStaticImpl(int flags);

    /// The one object for texts in a caller's buffer, by TovUniString::LocalNoCopy and NullTerminated.
    static TovUniStringImpl *getLocalImpl(int flags);

    static TovUniStringImpl *getEmptyImpl();

    /// Makes the string empty. What it held is not let go of.
    static void setEmptyImpl(TovUniString *string);

    /// A new buffer for `unitCount` units and a terminator; a null `heap` is the global allocation.
    static TovUniStringImpl *getHeapImpl(unsigned unitCount, TovFastHeap *heap);

    /// Gives the string a new buffer for `unitCount` units that holds the text [begin, end), and lets go of
    /// the old one last, because the text may lie in it. A null `end` means `unitCount` units.
    static void setHeapImpl(TovUniString *string, unsigned unitCount, const TovUChar *begin,
                            const TovUChar *end, TovFastHeap *heap);
    /// The same with no text.
    static void setHeapImpl(TovUniString *string, unsigned unitCount, TovFastHeap *heap);

protected:
    static void heapCopy(TovUniString *string, unsigned unitCount);
};

/// A counted buffer. The text lies behind the object, in the same allocation.
class TOV_EXPORT TovUniStringHeapImpl final : public TovUniStringImpl {
public:
    static void *operator new(std::size_t objectSize, unsigned capacity);
    static void *operator new(std::size_t objectSize, unsigned capacity, TovFastHeap &heap);
    static void operator delete(void *object); // NOLINT(misc-new-delete-overloads): new has a size to add
    static void operator delete(void *object, unsigned capacity);
    static void operator delete(void *object, unsigned capacity, TovFastHeap &heap);

    /// Make a buffer for `unitCount` units and a terminator, with one string on it.
    static TovUniStringHeapImpl *allocate(unsigned unitCount);
    static TovUniStringHeapImpl *allocate(unsigned unitCount, TovFastHeap &heap);

    ~TovUniStringHeapImpl() override;

    /// Gives a buffer for `unitCount` units with the old text in it, instead of this one, which must have
    /// one string only and may be gone afterwards.
    ///
    /// Cost       A buffer that grows gets room in reserve behind its capacity, up to its old size, so
    ///            growing by small steps moves the text seldom.
    TovUniStringImpl *reallocate(unsigned unitCount);

    void addRef() override { ++m_refCount; }
    void delRef() override {
        if (--m_refCount == 0)
            delete this;
    }
    bool isShared() const override { return m_refCount > 1; }
    void unshare(TovUniString *string) override;
    void setCopyOnShare(TovUniString *string, bool copyOnShare) override;
    unsigned capacity(const TovUniString *string) const override;
    void copyOnWrite(TovUniString *string) override;
    const TovUChar *c_str(TovUniString *string) override;
    void erase(TovUniString *string) override;
    void reserve(TovUniString *string, unsigned unitCount) override;
    void resize(TovUniString *string, unsigned unitCount) override;
    void copyTo(TovUniString *from, TovUniString *to, TovFastHeap *heap) override;
    TovUChar *str(TovUniString *string) override;

    /// Whether a copy of a string for `heap` shares the buffer.
    bool canShare(const TovFastHeap *heap) const { return !m_copyOnShare && heap == m_heap.get(); }

    /// Where the buffer begins.
    TovUChar *str() const {
        return reinterpret_cast<TovUChar *>(const_cast<TovUniStringHeapImpl *>(this) + 1);
    }

    /// Whether `count` units from `end` on may be written: nobody else has them.
    bool hasRoom(const TovUChar *end, unsigned count) const {
        return m_refCount == 1 && count <= static_cast<std::size_t>(str() + m_capacity - end);
    }

private:
    TovUniStringHeapImpl(unsigned capacity, TovFastHeap *heap);

    static TovUniStringHeapImpl *make(unsigned unitCount, unsigned room, TovFastHeap *heap);
    TovUniStringHeapImpl *extend(unsigned unitCount);
    unsigned roomToGrow(unsigned unitCount) const;

    std::int32_t m_refCount;
    std::uint32_t m_capacity; // of the text area, a terminator's unit included
    bool m_copyOnShare;
    std::uint32_t m_room; // units that the allocation has; m_capacity of them are told
    TovUtRef<TovFastHeap> m_heap;
};

/// A text that this object does not count, and nobody writes to.
class TOV_EXPORT TovUniStringBufImpl : public TovUniStringImpl {
public:
    explicit TovUniStringBufImpl(bool nullTerminated) : m_nullTerminated(nullTerminated) {}

    void addRef() override;
    void delRef() override;
    bool isShared() const override;
    void setCopyOnShare(TovUniString *string, bool copyOnShare) override;
    unsigned capacity(const TovUniString *string) const override;
    void copyOnWrite(TovUniString *string) override;
    const TovUChar *c_str(TovUniString *string) override;
    void erase(TovUniString *string) override;
    void reserve(TovUniString *string, unsigned unitCount) override;
    void resize(TovUniString *string, unsigned unitCount) override;
    TovUChar *str(TovUniString *string) override;

    /// The object that serves the same text with another flag.
    virtual TovUniStringImpl *getNullTerminatedImpl(bool nullTerminated) = 0;
    virtual TovUniStringImpl *getCopyOnShareImpl(bool copyOnShare) = 0;

protected:
    /// `to` lets go of what it held and views the text of `from` through `impl`.
    static void shareText(const TovUniString *from, TovUniString *to, TovUniStringImpl *impl);

    // A 0 stands at the end of the strings; of a substring's end it tells nothing.
    bool m_nullTerminated;
};

class TOV_EXPORT TovUniStringStaticImpl : public TovUniStringBufImpl {
public:
    using TovUniStringBufImpl::TovUniStringBufImpl;

    void setCopyOnShare(TovUniString *string, bool copyOnShare) override;
    void copyTo(TovUniString *from, TovUniString *to, TovFastHeap *heap) override;
    void unsharedCopy(const TovUniString *from, TovUniString *to) const override;
    TovUniStringImpl *getNullTerminatedImpl(bool nullTerminated) override;
    TovUniStringImpl *getCopyOnShareImpl(bool copyOnShare) override;
};

class TOV_EXPORT TovUniStringEmptyImpl final : public TovUniStringStaticImpl {
public:
    TovUniStringEmptyImpl();

    void erase(TovUniString *string) override;
    void resize(TovUniString *string, unsigned unitCount) override;
    TovUChar *str(TovUniString *string) override;
    TovUniStringImpl *getNullTerminatedImpl(bool nullTerminated) override;

    using TovUniStringStaticImpl::copyTo;
    virtual void copyTo(TovUniString *from, TovUniString *to);

private:
    TovUChar m_empty; // the text of all strings of this kind
};

/// Lives with the string that TovUniString::initStatic() made; copies of that string do not keep it.
class TOV_EXPORT TovUniStringStaticHeapImpl final : public TovUniStringBufImpl {
public:
    static void *operator new(std::size_t objectSize, unsigned unitCount);
    static void operator delete(void *object); // NOLINT(misc-new-delete-overloads): new has a size to add
    static void operator delete(void *object, unsigned unitCount);

    explicit TovUniStringStaticHeapImpl(unsigned unitCount);

    void delRef() override;
    void setCopyOnShare(TovUniString *string, bool copyOnShare) override;
    void copyTo(TovUniString *from, TovUniString *to, TovFastHeap *heap) override;
    void unsharedCopy(const TovUniString *from, TovUniString *to) const override;
    TovUniStringImpl *getNullTerminatedImpl(bool nullTerminated) override;
    TovUniStringImpl *getCopyOnShareImpl(bool copyOnShare) override;

    /// Where the units begin.
    TovUChar *text();

    /// Whether a text that begins there views this block.
    bool holds(const TovUChar *begin);

private:
    std::uint32_t m_unitCount;
};

/// A text in a caller's buffer, which must live as long as its strings.
class TOV_EXPORT TovUniStringLocalImpl : public TovUniStringBufImpl {
public:
    using TovUniStringBufImpl::TovUniStringBufImpl;

    void unshare(TovUniString *string) override;
    TovUniStringImpl *getCopyOnShareImpl(bool copyOnShare) override;
};

class TOV_EXPORT TovUniStringLocalCopyImpl final : public TovUniStringLocalImpl {
public:
    using TovUniStringLocalImpl::TovUniStringLocalImpl;

    void copyTo(TovUniString *from, TovUniString *to, TovFastHeap *heap) override;
    void substr(TovUniString *string, unsigned position, unsigned count) override;
    TovUniStringImpl *getNullTerminatedImpl(bool nullTerminated) override;
};

class TOV_EXPORT TovUniStringLocalNoCopyImpl final : public TovUniStringLocalImpl {
public:
    using TovUniStringLocalImpl::TovUniStringLocalImpl;

    void copyTo(TovUniString *from, TovUniString *to, TovFastHeap *heap) override;
    TovUniStringImpl *getNullTerminatedImpl(bool nullTerminated) override;
};
