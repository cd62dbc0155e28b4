/// Plain words that several threads read without a lock. The library's control blocks are plain
/// structures, usable from their all-zero image, so their words are read and written through here.
#pragma once

#include <atomic>

namespace tovdetail {

/// Reads a word; what its writer stored before it is visible afterwards.
template <class T>
T loadAcquire(const T &word) noexcept {
    // An atomic_ref to const does not exist in C++20; the load does not write.
    return std::atomic_ref<T>(const_cast<T &>(word)).load(std::memory_order_acquire);
}

/// Writes a word, last of all that its readers rely on.
template <class T>
void storeRelease(T &word, T value) noexcept {
    std::atomic_ref<T>(word).store(value, std::memory_order_release);
}

} // namespace tovdetail
