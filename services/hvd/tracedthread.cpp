#include <services/hvd/tracedthread.h>

#include <new>
#include <pthread.h>
#include <unistd.h>

namespace hvd {

namespace {

constinit std::atomic<TracedThread *> s_threads{nullptr};
// Written by the one thread that opens the output.
constinit pthread_key_t s_key = 0;
constinit bool s_hasKey = false;
using AtEnd = void (*)(TracedThread &);
constinit AtEnd s_atEnd = nullptr;

bool hasNothingOpen(const TracedThread &thread) {
    for (const auto &count : thread.open)
        if (count.load(std::memory_order_relaxed) != 0)
            return false;
    return true;
}

// A file that is being completed may still need the thread id beside the count.
TracedThread *takeFormer() {
    for (TracedThread *thread = firstThread(); thread; thread = thread->next) {
        bool taken = false;
        if (thread->taken.compare_exchange_strong(taken, true, std::memory_order_acquire)) {
            if (hasNothingOpen(*thread))
                return thread;
            thread->taken.store(false, std::memory_order_release);
        }
    }
    return nullptr;
}

TracedThread *makeThread() {
    auto *made = new (std::nothrow) TracedThread;
    if (!made)
        return nullptr;
    made->next = s_threads.load(std::memory_order_relaxed);
    while (!s_threads.compare_exchange_weak(made->next, made, std::memory_order_release,
                                            std::memory_order_relaxed)) {
    }
    return made;
}

// Destructors that run after this one may trace again: that takes a new state, and this runs once more.
extern "C" void releaseThread(void *state) {
    auto *thread = static_cast<TracedThread *>(state);
    s_atEnd(*thread);
    thread->taken.store(false, std::memory_order_release);
}

} // namespace

void TracedThread::push(const TRC1_EPB *record, std::uint32_t line, std::uintptr_t stack,
                        std::string_view name) {
    names.reserve(names.size() + name.size()); // what can fail comes first
    frames.push_back({record, stack, line, names.size()});
    names += name;
}

void TracedThread::pop() noexcept {
    names.resize(frames.back().nameStart);
    frames.pop_back();
}

std::string_view TracedThread::nameOf(std::size_t frame) const noexcept {
    const std::size_t end = frame + 1 < frames.size() ? frames[frame + 1].nameStart : names.size();
    return std::string_view(names).substr(frames[frame].nameStart, end - frames[frame].nameStart);
}

void TracedThread::forgetFrames() noexcept {
    frames.clear();
    names.clear();
}

// At the same place stands a function that the compiler has put into its caller, or else the same one,
// called again after it has thrown.
bool TracedThread::innermostIsGone(const TRC1_EPB *record, std::uintptr_t stack) const noexcept {
    if (frames.empty())
        return false;
    const Frame &last = frames.back();
    return last.stack < stack || (last.stack == stack && last.record == record);
}

// The stack stands a little higher or lower at the exit than at the entry where the calls are made
// through helper functions. So the frame may be the outermost of those that seem to be further in, or
// the first of those that do not. If there is none, it was entered before tracing was on.
std::size_t TracedThread::framesBelow(const TRC1_EPB *record, std::uintptr_t stack) const noexcept {
    std::size_t outer = frames.size();
    while (outer > 0 && frames[outer - 1].stack <= stack)
        --outer;
    for (std::size_t at = outer; at < frames.size(); ++at)
        if (frames[at].record == record)
            return at;
    if (outer > 0 && frames[outer - 1].record == record)
        return outer - 1;
    while (outer < frames.size() && frames[outer].stack == stack)
        ++outer;
    return outer;
}

PendingText *TracedThread::pendingOf(const TRC1_EPB *record) noexcept {
    for (PendingText &text : pending)
        if (text.record == record)
            return &text;
    return nullptr;
}

bool prepareThreads(void (*atEnd)(TracedThread &)) noexcept {
    s_atEnd = atEnd;
    if (!s_hasKey)
        s_hasKey = pthread_key_create(&s_key, releaseThread) == 0;
    return s_hasKey;
}

TracedThread *currentThread() noexcept {
    if (void *known = pthread_getspecific(s_key))
        return static_cast<TracedThread *>(known);
    TracedThread *thread = takeFormer();
    if (!thread && !(thread = makeThread()))
        return nullptr;
    thread->id.store(gettid(), std::memory_order_relaxed);
    if (pthread_setspecific(s_key, thread) == 0)
        return thread;
    thread->taken.store(false, std::memory_order_release);
    return nullptr;
}

TracedThread *firstThread() noexcept { return s_threads.load(std::memory_order_acquire); }

// The others' states stay taken, because the fork may have met them in the middle of a change.
void threadsForked() noexcept {
    if (!s_hasKey)
        return;
    auto *own = static_cast<TracedThread *>(pthread_getspecific(s_key));
    for (TracedThread *thread = firstThread(); thread; thread = thread->next) {
        thread->id.store(thread == own ? gettid() : 0, std::memory_order_relaxed);
        for (auto &count : thread->open)
            count.store(0, std::memory_order_relaxed);
    }
    if (!own)
        return;
    own->fileSerial = 0;
    for (PendingText &text : own->pending) // the parent writes them
        text.record = nullptr;
}

} // namespace hvd
