// Memory that runs out, at every allocation of ours and of ICU in turn: the result is a failure with
// code 20 or what it would have been, nothing is thrown, and the same call then succeeds.
#include "pages.h"

#include <support/failalloc.h>

#include <unicode/uclean.h>

#include <gtest/gtest.h>

#include <thread>

using namespace tovtest;

namespace {

// ICU's allocations go through the failing ones, too.
void *icuAlloc(const void *, std::size_t size) { return std::malloc(size); }
void *icuRealloc(const void *, void *block, std::size_t size) { return std::realloc(block, size); }
void icuFree(const void *, void *block) { std::free(block); }

// ICU remembers for ever that its own tables could not be read, so they are read before anything fails.
class MemoryTest : public testing::Test {
protected:
    static void SetUpTestSuite() {
        UErrorCode status = U_ZERO_ERROR;
        u_setMemoryFunctions(nullptr, icuAlloc, icuRealloc, icuFree, &status);
        ASSERT_TRUE(U_SUCCESS(status));
        ucnv_countAvailable();
    }
};

// Runs `attempt` in fresh threads, which have no converters yet, with its 1st, 2nd, ... allocation failing
// until it gets through, and gives how often it failed. `attempt` gives whether it succeeded.
template <class Attempt>
int failuresUntilSuccess(Attempt attempt) {
    int failures = 0;
    for (long nth = 1;; ++nth) {
        bool fired = false;
        bool good = false;
        std::thread([&] {
            FailingAllocation failing(nth);
            good = attempt();
            fired = failing.fired();
        }).join();
        failures += !good;
        EXPECT_TRUE(good || fired) << "failed without a failed allocation";
        if (!fired || testing::Test::HasFailure())
            return failures;
    }
}

} // namespace

// Before everything else in this program: the list is read by the first call that gets through.
TEST_F(MemoryTest, FailsTheListWithoutHarm) {
    EXPECT_GT(failuresUntilSuccess([] { return LNG1_GetCodepageId("Shift_JIS", nullptr) == 130630; }), 5);
}

TEST_F(MemoryTest, NeverFailsTheProcessLocale) {
    {
        FailingAllocation failing(1, true);
        CXLocale *standIn = LNG1_PrivateFunction_GetProcessLocale();
        ASSERT_NE(nullptr, standIn);
        EXPECT_EQ(57352, LNG1_GetLocaleNumInfo(standIn, LNG1_CODEPAGE_ID, 0));
        EXPECT_EQ(20, CXGetError(standIn));
        CXReleaseLocale(standIn, 0);
    }
    EXPECT_EQ(0, CXGetError(LNG1_PrivateFunction_GetProcessLocale()));
}

TEST_F(MemoryTest, FailsTheOpeningOfALocale) {
    for (const char *name : {"ibm-37", "ISO-2022-JP", "ibm-930"}) {
        const std::int32_t id = LNG1_GetCodepageId(name, nullptr);
        EXPECT_GT(failuresUntilSuccess([id] {
                      long error = 0;
                      CXLocale *locale = LNG1_GetLocale(0, id, 0, &error);
                      EXPECT_TRUE(locale || error == 20) << error;
                      if (locale)
                          CXReleaseLocale(locale, 0);
                      return locale != nullptr;
                  }),
                  2)
            << name;
    }
}

TEST_F(MemoryTest, FailsAConversion) {
    for (const char *name : {"Shift_JIS", "windows-1251", "ibm-930", "UTF-7", "HZ"}) {
        const Page page(name);
        EXPECT_GT(failuresUntilSuccess([&] {
                      char bytes[64];
                      const auto n =
                          CXUnicodeToStringEx(page.locale(), bytes, 0, sizeof bytes, u"Text", 4, 0);
                      EXPECT_TRUE(n == 4 || CXGetError(page.locale()) == 20) << name;
                      return n > 0;
                  }),
                  1)
            << name;
    }
}

// Tables are left out when there is no memory for them, and made by a later call.
TEST_F(MemoryTest, ConvertsWithoutTables) {
    const Page page("EUC-KR");
    const std::string text(std::size_t{40} << 10, 'x');
    const std::u16string units(text.size(), u'x');
    std::u16string got(text.size(), u'\0');
    EXPECT_GT(failuresUntilSuccess([&] {
                  const auto n = CXStringToUnicode(got.data(), int(got.size()), page.locale(), text.data(),
                                                   int(text.size()), 0);
                  return n == int(text.size()) && got == units;
              }),
              1);
}
