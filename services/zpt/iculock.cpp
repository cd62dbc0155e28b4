#include <services/zpt/iculock.h>

#include <pthread.h>
#include <sys/auxv.h>
#include <unicode/putil.h>

#include <mutex>

namespace zpt {

namespace {

constinit std::mutex s_mutex;

void lockForFork() { s_mutex.lock(); }
void unlockAfterFork() { s_mutex.unlock(); }

// Registered while the library is loaded, which is before any use and, because of -z nodelete, once.
// Without memory for it a fork goes on unguarded, as it would without this library.
//
// A program that runs with raised privileges reads no conversion tables that its caller names in the
// environment; this has to be said before any other use of ICU.
[[gnu::constructor]] void prepareProcess() {
    if (getauxval(AT_SECURE) != 0)
        u_setDataDirectory("");
    static_cast<void>(pthread_atfork(lockForFork, unlockAfterFork, unlockAfterFork));
}

} // namespace

IcuLock::IcuLock() noexcept { s_mutex.lock(); }
IcuLock::~IcuLock() { s_mutex.unlock(); }

} // namespace zpt
