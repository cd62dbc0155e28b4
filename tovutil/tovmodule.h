// Internal: how a module's init and release functions are written, and the mutex that a module keeps
// in its pool.
#pragma once

#include <tovutil/toverror.h>
#include <tovutil/tovmutex.h>
#include <tovutil/tovpool.h>

#include <memory>

namespace tovdetail {

/// The body of `<Module>_init`: builds the module's data, a `Data` made without arguments.
template <class Data>
void initModule(TovPoolCtrl &pool, void (*fRelease)()) {
    if (pool.m_stat != TovPoolCtrl::Untouched)
        return;
    try {
        auto data = std::make_unique<Data>();
        pool.initOk(data.get(), fRelease, TovPoolCtrlListInst<0>::ms_list, nullptr);
        data.release();
    } catch (const TovError &error) {
        pool.initError(error, fRelease, TovPoolCtrlListInst<0>::ms_list, nullptr);
    }
}

/// The body of `<Module>_release`.
template <class Data>
void releaseModule(TovPoolCtrl &pool) {
    delete static_cast<Data *>(pool.release());
}

/// Registers what takes all locks of the library before a child is made; to be called before the first of
/// them is taken.
void guardLocksAtFork();

/// A module's mutex. No thread but the forking one can hold it while a child is made, so that a child
/// never waits for a thread that it does not have. Held for short operations only, and never while
/// another lock of the library is taken.
class ModuleMutex {
public:
    ModuleMutex();
    ~ModuleMutex();
    ModuleMutex(const ModuleMutex &) = delete;
    ModuleMutex &operator=(const ModuleMutex &) = delete;

    void lock() { m_mutex.lock(); }
    void unlock() { m_mutex.unlock(); }

private:
    friend struct ForkHandlers;

    TovMutex m_mutex;
    ModuleMutex *m_next;
};

} // namespace tovdetail
