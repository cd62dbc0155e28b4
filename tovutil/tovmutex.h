/// A thin wrapper of a POSIX mutex.
///
/// Threads    Lockable as the standard library means it, so std::lock_guard<TovMutex> works.
/// Errors     None: the results of the platform's calls are not tested.
#pragma once

#include <tovutil/tovexport.h>

#include <pthread.h>

class TOV_EXPORT TovMutex {
public:
    /// Selects the constructor of a recursive mutex.
    enum RecursiveType { Recursive };

    /// Makes a default mutex.
    TovMutex() { pthread_mutex_init(&m_mutex, nullptr); }

    /// Makes a recursive mutex, which its owner may lock again. All recursive mutexes of the process
    /// share one attribute object, made at the first of them.
    ///
    /// Errors     A TovErrorFull, TOVRC_INTERNAL_ERROR, when the attribute can't be made; the next
    ///            construction tries again.
    explicit TovMutex(RecursiveType);

    ~TovMutex() { pthread_mutex_destroy(&m_mutex); }
    TovMutex(const TovMutex &) = delete;
    TovMutex &operator=(const TovMutex &) = delete;

    void lock() { pthread_mutex_lock(&m_mutex); }
    void unlock() { pthread_mutex_unlock(&m_mutex); }
    bool try_lock() { return pthread_mutex_trylock(&m_mutex) == 0; }

private:
    pthread_mutex_t m_mutex;
};

extern "C" {
/// The attribute of recursive mutexes; null until the first of them has been made.
TOV_EXPORT extern pthread_mutexattr_t *s_recursiveAttr;

/// Makes the attribute; handed to pthread_once.
TOV_EXPORT void tovutil_recursiveAttrInitFunc();
}
