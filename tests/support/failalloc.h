// Makes the n-th allocation of the calling thread fail: malloc, realloc and operator new as the test
// and the objects linked into it call them. Needs the option FAIL_ALLOC of tov_test.
#pragma once

#include <gtest/gtest.h>

#include <string>

namespace tovtest {

/// While it lives, the n-th allocation of this thread fails (the first is 1), and with `onwards` all
/// later ones, too.
class FailingAllocation {
public:
    explicit FailingAllocation(long nth, bool onwards = false);
    ~FailingAllocation();
    FailingAllocation(const FailingAllocation &) = delete;
    FailingAllocation &operator=(const FailingAllocation &) = delete;

    /// Whether an allocation has failed.
    bool fired() const;
};

/// Allocations of this thread so far, failed ones not counted.
long allocationCount();

/// Allocations minus frees, of malloc and operator new together, over all threads and over all that is
/// linked into the test. Meaningful as a difference.
long liveAllocations();

/// Runs `call` and tells whether it raised one of `Raised`; any other exception passes.
template <class First, class... Rest, class Call>
bool raises(Call call) {
    try {
        if constexpr (sizeof...(Rest) != 0)
            return raises<Rest...>(call);
        else
            call();
        return false;
    } catch (const First &) {
        return true;
    }
}

/// Runs `op(object)` on a fresh `make()` with its 1st, 2nd, 3rd ... allocation failing, until it gets
/// through; once with that allocation alone failing, and once with all later ones as well. The failure
/// must come as one of `Raised`, or not at all (swallowed). `after(object)` then checks what the contract
/// promises after a failure.
template <class... Raised, class Make, class Op, class After>
void failEachAllocation(Make make, Op op, After after) {
    for (bool onwards : {false, true}) {
        for (long nth = 1;; ++nth) {
            SCOPED_TRACE("allocation " + std::to_string(nth) + (onwards ? " and all later" : ""));
            auto object = make();
            bool fired = false;
            const bool raised = raises<Raised...>([&] {
                FailingAllocation failing(nth, onwards);
                struct Watch { // the failing scope ends before the exception is seen
                    FailingAllocation &failing;
                    bool &fired;
                    ~Watch() { fired = failing.fired(); }
                } watch{failing, fired};
                op(object);
            });
            EXPECT_TRUE(fired || !raised) << "raised without a failed allocation";
            if (!fired)
                break;
            after(object);
            if (testing::Test::HasFailure())
                return;
        }
    }
}

} // namespace tovtest
