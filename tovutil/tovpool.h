/// Lazily initialised module pools: how shared state comes into being without a start-up call.
///
/// A module has a static TovPoolCtrl `ms_pool`, a static once-control `ms_lock` and two functions with
/// plain names, `<Module>_init` and `<Module>_release`. The first access runs the init function; an init
/// that fails with a TovError is not tried again: every later access raises a copy of that error.
///
/// Ownership  A pool owns its data for the life of the process. Nothing in the library calls a release
///            function; they stand ready for callers that unload everything in an order of their own.
/// Threads    Everything but release() may be called from any thread. release() wants that no other
///            thread uses the module.
/// Cost       After the first use an access is one byte compare and one load, inline.
#pragma once

#include <tovutil/tovatomic.h>
#include <tovutil/tovexport.h>

#include <cstdint>
#include <pthread.h>

class TovError;
struct TovPoolCtrlImpl;
struct TovPoolCtrlList;
struct TovPoolCtrlListImpl;

/// Control block of one pool. Plain, and usable from its all-zero image.
struct TOV_EXPORT TovPoolCtrl {
    enum Stat : std::int8_t { Untouched = 0, Ready = 1, Failed = 2 };

    std::int8_t m_stat;      ///< a Stat
    void *m_data;            ///< the module's data; null but in state Ready
    TovPoolCtrlImpl *m_impl; ///< this pool's list entry; null in state Untouched

    /// Gives the module's data, never null. What every accessor of a module calls.
    ///
    /// Errors     As init(); TOVRC_INTERNAL_ERROR, "Internal error: pool released", after release().
    void *get(pthread_once_t &once, void (*fInit)()) {
        return tovdetail::loadAcquire(m_stat) == Ready ? m_data : initLive(once, fInit);
    }

    /// Runs `fInit` if that has not happened and gives the data; null after release().
    ///
    /// Errors     A copy of the stored error when the initialisation has failed. An exception of
    ///            `fInit` that is no TovError passes through, and the next access tries again.
    void *init(pthread_once_t &once, void (*fInit)());

    /// Reports success; called by a module's init function. `data` is handed to the pool unless this
    /// throws. `fTermInit` has no effect.
    ///
    /// Errors     std::bad_alloc; the pool is as before.
    void initOk(void *data, void (*fRelease)(), TovPoolCtrlList &list, void (*fTermInit)());

    /// Reports failure; called by a module's init function. A clone of `error` is kept.
    ///
    /// Errors     std::bad_alloc, or what clone() raises; the pool is as before.
    void initError(const TovError &error, void (*fRelease)(), TovPoolCtrlList &list, void (*fTermInit)());

    /// Takes the data out of the pool; null, and no change, when the pool is not Ready.
    void *release();

private:
    void *initLive(pthread_once_t &once, void (*fInit)());
};

/// Entry of a pool in a list; never freed.
struct TOV_EXPORT TovPoolCtrlImpl {
    TovPoolCtrl *m_ctrl; ///< null once the pool has been released
    TovError *m_error;   ///< owned; null unless the initialisation failed
    void (*m_release)();
    TovPoolCtrlImpl *m_next;

    /// Makes an entry at the head of a list that has been through checkInit.
    ///
    /// Errors     std::bad_alloc; the list is as before.
    static TovPoolCtrlImpl *create(TovPoolCtrl *ctrl, void (*fRelease)(), TovPoolCtrlList &list);
};

/// A list of pools. Plain, and usable from its all-zero image.
struct TOV_EXPORT TovPoolCtrlList {
    TovPoolCtrlListImpl *m_impl; ///< null until the first pool registers
    std::int8_t m_isInit;        ///< not 0 once m_impl is valid

    /// Whether the library releases its pools by itself: never.
    static bool isCleanupEnabled();
};

/// Heap part of a list; never freed. All lists of the process are chained.
struct TOV_EXPORT TovPoolCtrlListImpl {
    TovPoolCtrlImpl *m_head; ///< newest first
    pthread_mutex_t m_mutex; ///< guards m_head and the entries' m_next
    TovPoolCtrlListImpl *m_prev;
    TovPoolCtrlListImpl *m_next;
    TovPoolCtrlList *m_list;

    static TovPoolCtrlListImpl *ms_head;
    static pthread_mutex_t ms_mutex; ///< guards the chain and the making of list bodies

    /// Makes sure that the list has a body, and gives the list. `fTermInit` has no effect.
    ///
    /// Errors     std::bad_alloc; the list is as before.
    static TovPoolCtrlList &checkInit(TovPoolCtrlList &list, void (*fTermInit)());
};

/// Names the lists. The modules of this library are in list 0.
template <int list>
struct TOV_EXPORT TovPoolCtrlListInst {
    static TovPoolCtrlList ms_list;
};

template <int list>
TovPoolCtrlList TovPoolCtrlListInst<list>::ms_list;

// One list 0 for the whole process, in this library.
extern template struct TovPoolCtrlListInst<0>;
