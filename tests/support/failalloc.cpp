#include <support/failalloc.h>

#include <atomic>
#include <cstdlib>
#include <new>

extern "C" {
void *__real_malloc(std::size_t size);
void *__real_realloc(void *block, std::size_t size);
void __real_free(void *block);
// Visible, because the linker wraps the references of a sanitizer's library, too.
[[gnu::visibility("default")]] void *__wrap_malloc(std::size_t size);
[[gnu::visibility("default")]] void *__wrap_realloc(void *block, std::size_t size);
[[gnu::visibility("default")]] void __wrap_free(void *block);
}

namespace {

thread_local long t_countdown = 0; // 0: nothing fails
thread_local bool t_onwards = false;
thread_local bool t_fired = false;
thread_local long t_count = 0;
std::atomic<long> s_live{0};

bool mustFail() {
    if (t_fired && t_onwards)
        return true;
    if (t_countdown == 0 || --t_countdown != 0)
        return false;
    t_fired = true;
    return true;
}

void *counted(void *block) {
    if (block) {
        ++t_count;
        s_live.fetch_add(1, std::memory_order_relaxed);
    }
    return block;
}

} // namespace

namespace tovtest {

FailingAllocation::FailingAllocation(long nth, bool onwards) {
    t_fired = false;
    t_onwards = onwards;
    t_countdown = nth;
}

FailingAllocation::~FailingAllocation() {
    t_countdown = 0;
    t_onwards = false;
}

bool FailingAllocation::fired() const { return t_fired; }

long allocationCount() { return t_count; }

long liveAllocations() { return s_live.load(std::memory_order_relaxed); }

} // namespace tovtest

void *__wrap_malloc(std::size_t size) { return mustFail() ? nullptr : counted(__real_malloc(size)); }

void *__wrap_realloc(void *block, std::size_t size) {
    if (mustFail())
        return nullptr;
    return block ? __real_realloc(block, size) : counted(__real_realloc(block, size));
}

void __wrap_free(void *block) {
    if (block)
        s_live.fetch_sub(1, std::memory_order_relaxed);
    __real_free(block);
}

// All forms, because a sanitizer brings its own of those that a program leaves out.
void *operator new(std::size_t size) {
    if (void *block = __wrap_malloc(size ? size : 1))
        return block;
    throw std::bad_alloc();
}

void *operator new[](std::size_t size) { return operator new(size); }

void *operator new(std::size_t size, const std::nothrow_t &) noexcept {
    return __wrap_malloc(size ? size : 1);
}

void *operator new[](std::size_t size, const std::nothrow_t &) noexcept {
    return __wrap_malloc(size ? size : 1);
}

void *operator new(std::size_t size, std::align_val_t alignment) {
    const auto boundary = static_cast<std::size_t>(alignment);
    if (!mustFail())
        if (void *block = counted(std::aligned_alloc(boundary, (size + boundary - 1) / boundary * boundary)))
            return block;
    throw std::bad_alloc();
}

void operator delete(void *block) noexcept { __wrap_free(block); }

void operator delete(void *block, std::size_t) noexcept { __wrap_free(block); }

void operator delete[](void *block) noexcept { __wrap_free(block); }

void operator delete[](void *block, std::size_t) noexcept { __wrap_free(block); }

void operator delete(void *block, std::align_val_t) noexcept { __wrap_free(block); }

void operator delete(void *block, std::size_t, std::align_val_t) noexcept { __wrap_free(block); }
