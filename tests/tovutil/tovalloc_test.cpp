#include <support/failalloc.h>

#include <tovutil/tovutil.h>

#include <gtest/gtest.h>

#include <cstring>

namespace {

using tovtest::FailingAllocation;

// Whether `call` raises the out-of-memory error as a plain TovError.
template <class Call>
bool raisesOutOfMemory(Call call) {
    try {
        call();
    } catch (const TovErrorFull &) {
        return false;
    } catch (const TovError &error) {
        return error.getReturnCode() == 21011 && error.getErrorType() == TovError::Critical &&
               std::strcmp(error.getErrorMessage(), "Out of memory.") == 0 && !*error.getLocation();
    }
    return false;
}

int s_handlerCalls;
FailingAllocation *s_failing;

// Frees memory on its third call.
void freeingHandler() {
    if (++s_handlerCalls == 3)
        delete std::exchange(s_failing, nullptr);
}

// Gives up on its second call.
void leavingHandler() {
    if (++s_handlerCalls == 2)
        __oom_handler = nullptr;
}

struct Handler {
    explicit Handler(void (*handler)()) {
        s_handlerCalls = 0;
        __oom_handler = handler;
    }
    ~Handler() { __oom_handler = nullptr; }
};

TEST(tovMalloc, RaisesInsteadOfFailing) {
    const Handler handler(leavingHandler);
    {
        const FailingAllocation failing(1);
        EXPECT_TRUE(raisesOutOfMemory([] { tovMalloc(10); }));
    }
    EXPECT_EQ(0, s_handlerCalls) << "there is no retry";
    void *block = tovMalloc(0);
    EXPECT_NE(nullptr, block);
    tovFree(block);
    tovFree(nullptr);
}

TEST(tovRealloc, KeepsTheOldBlockWhenItRaises) {
    void *block = tovRealloc(nullptr, 4);
    std::memcpy(block, "abc", 4);
    {
        const FailingAllocation failing(1);
        EXPECT_TRUE(raisesOutOfMemory([&] { tovRealloc(block, 1000); }));
    }
    EXPECT_STREQ("abc", static_cast<char *>(block));
    block = tovRealloc(block, 1000);
    EXPECT_STREQ("abc", static_cast<char *>(block));
    EXPECT_EQ(nullptr, tovRealloc(block, 0)) << "a null result for size 0 is no failure";
}

TEST(TovAllocator, AsksTheHandlerUntilThereIsMemory) {
    {
        const Handler handler(freeingHandler);
        s_failing = new FailingAllocation(1, true);
        void *block = TovAllocator::allocate(10);
        EXPECT_EQ(3, s_handlerCalls);
        TovAllocator::deallocate(block, 10);
    }
    {
        const Handler handler(leavingHandler);
        const FailingAllocation failing(1, true);
        EXPECT_TRUE(raisesOutOfMemory([] { TovAllocator::allocate(10); }));
        EXPECT_EQ(2, s_handlerCalls) << "the handler is read anew each time";
    }
    const FailingAllocation failing(1);
    EXPECT_TRUE(raisesOutOfMemory([] { TovAllocator::allocate(10); })) << "no handler";
}

TEST(TovAllocator, MovesContentsWithTheSmallerSize) {
    const struct {
        std::size_t oldSize, newSize, kept;
    } rows[] = {{10, 4, 4}, {4, 10, 4}, {4, 4, 4}, {1, 0, 0}};
    for (const auto &row : rows) {
        auto *old = static_cast<char *>(TovAllocator::allocate(row.oldSize));
        std::memset(old, 'x', row.oldSize);
        auto *moved = static_cast<char *>(TovAllocator::reallocate(old, row.oldSize, row.newSize));
        EXPECT_EQ(std::string(row.kept, 'x'), std::string(moved, row.kept));
        TovAllocator::deallocate(moved);
    }
    TovAllocator::deallocate(TovAllocator::reallocate(nullptr, 0, 8), 8);
    TovAllocator::deallocate(TovAllocator::reallocate(TovAllocator::allocate(3), 8));
    TovAllocator::deallocate(TovAllocator::reallocate(nullptr, 8));
}

TEST(TovAllocator, KeepsTheOldBlockWhenReallocateFails) {
    try {
        TovAllocator::reallocate(nullptr, 1, 8);
        FAIL();
    } catch (const TovErrorFull &error) {
        EXPECT_EQ("Internal error: oldp", error.getErrString());
        EXPECT_NE(nullptr, std::strstr(error.getLocation(), "Line(120) in module (tovutil)"));
    }
    auto *block = static_cast<char *>(TovAllocator::allocate(4));
    std::memcpy(block, "abc", 4);
    {
        const FailingAllocation failing(1);
        EXPECT_TRUE(raisesOutOfMemory([&] { TovAllocator::reallocate(block, 4, 100); }));
    }
    {
        const FailingAllocation failing(1);
        EXPECT_TRUE(raisesOutOfMemory([&] { TovAllocator::reallocate(block, 100); }));
    }
    EXPECT_STREQ("abc", block);
    TovAllocator::deallocate(block);
}

TEST(TovString, RaisesTheOutOfMemoryErrorOfTheLibrary) {
    const FailingAllocation failing(1);
    EXPECT_TRUE(raisesOutOfMemory([] { TovString(100, 'x'); }));
    const FailingAllocation again(1);
    EXPECT_TRUE(raisesOutOfMemory([] { TovUString(100, u'x'); }));
    EXPECT_THROW(TovString().reserve(TovString::npos - 1), std::length_error);
}

} // namespace
