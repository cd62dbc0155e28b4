// What the event format has to know of a thread: which functions are open, and which texts are not
// complete yet.
#pragma once

#include <services/hvd/output.h>
#include <services/trc1.h>

#include <array>
#include <atomic>
#include <string>
#include <string_view>
#include <vector>

namespace hvd {

/// A traced function that has been entered. The record is only compared, never read again: its library
/// may be gone by then.
struct Frame {
    const TRC1_EPB *record;
    std::uintptr_t stack; ///< where the stack stood at the entry; it grows downwards
    std::uint32_t line;
    std::size_t nameStart; ///< in the names of the thread
};

/// A text that further pieces may follow. Everything is copied, for the same reason.
struct PendingText {
    const TRC1_EPB *record = nullptr; ///< null: none
    std::uint32_t line = 0;
    std::uint64_t time = 0; ///< of the first piece
    std::string function;
    std::string unit;
    std::string bytes;
};

/// The state of one thread. Never freed, but used again by later threads, so that the end of the process
/// finds every open function.
struct TracedThread {
    static constexpr std::size_t pendingCount = 8;

    TracedThread *next = nullptr;
    std::atomic<bool> taken{true};
    /// Set while the thread is inside an event; by the end of the process for ever.
    std::atomic<bool> busy{false};
    std::atomic<pid_t> id{0}; ///< 0 in a forked child, which doesn't have the thread
    /// Begin events without an end event, in the file of each slot.
    std::array<std::atomic<std::uint32_t>, fileSlots> open{};

    std::uint32_t fileSerial = 0; ///< the file that the open functions have been begun in
    std::vector<Frame> frames;    ///< the innermost is the last
    std::string names;            ///< of the frames, one behind the other
    std::array<PendingText, pendingCount> pending;
    std::size_t nextPending = 0;

    void push(const TRC1_EPB *record, std::uint32_t line, std::uintptr_t stack, std::string_view name);
    void pop() noexcept;
    std::string_view nameOf(std::size_t frame) const noexcept;
    void forgetFrames() noexcept;

    /// Whether the innermost frame is gone when a function enters at `stack`.
    bool innermostIsGone(const TRC1_EPB *record, std::uintptr_t stack) const noexcept;

    /// How many of the frames stay when `record` leaves at `stack`: less its own, and less those further
    /// in, which an exception has ended.
    std::size_t framesBelow(const TRC1_EPB *record, std::uintptr_t stack) const noexcept;

    PendingText *pendingOf(const TRC1_EPB *record) noexcept;
};

/// Makes ready for currentThread; false when the process has no more thread-specific keys. `atEnd` is
/// called at the end of each thread that has a state.
bool prepareThreads(void (*atEnd)(TracedThread &thread)) noexcept;

/// The state of this thread; null when memory has run out.
TracedThread *currentThread() noexcept;

/// The newest of all states, each of which leads to the next.
TracedThread *firstThread() noexcept;

/// Makes the calling thread the only one, without an event of its own so far.
void threadsForked() noexcept;

} // namespace hvd
