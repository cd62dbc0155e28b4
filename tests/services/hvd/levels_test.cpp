// How a record gets its level: the patterns, TRC1_Sync, and the change at run time.
#include "traceprobe.h"

#include <atomic>
#include <dlfcn.h>

using namespace hvdtest;

namespace {

constinit TRC1_EPB s_isFile = makeRecord("TovOsPath::isFile");
constinit TRC1_EPB s_equals = makeRecord("operator==");

std::uint32_t levelWith(const char *levels, TRC1_EPB &record) {
    hvdTraceSetLevels(levels);
    return levelOf(record);
}

TEST_F(TraceProbe, LastMatchingEntryHolds) {
    const struct {
        const char *why;
        const char *levels;
        std::uint32_t level;
    } rows[] = {
        {"null is off", nullptr, 0},
        {"empty is off", "", 0},
        {"blanks are off", " \t", 0},
        {"nothing matches", "Other=all", 0},
        {"one name", "*=flow", 64},
        {"state", "*=state", 16},
        {"detail", "*=detail", 1},
        {"error", "*=error", 128},
        {"all", "*=all", 209},
        {"joined, once more than needed", "*=flow+state+flow", 80},
        {"a number", "*=5", 5},
        {"a number joined to a name", "*=error+4", 132},
        {"the largest number", "*=4294967295", 4294967295},
        {"blanks around all parts", " * = flow + state , Other = all ", 80},
        {"function's name", "TovOsPath::isFile=flow", 64},
        {"function's name only as a whole", "TovOsPath::isFil=flow,sFile=flow", 0},
        {"source path", "tests/probe=flow", 64},
        {"unit name", "PROBE=flow", 64},
        {"the last match, not the closest", "TovOsPath::isFile=all,*=error", 128},
        {"the last match is off", "*=all,TovOsPath*=0", 0},
        {"star in the middle", "Tov*::*File=flow", 64},
        {"star goes back", "*:i*File*=flow", 64},
        {"star has to leave the rest", "*isFile?=flow", 0},
        {"star stands for nothing, too", "*TovOsPath**::isFile*=flow", 64},
        {"question mark",
         "TovOsPat?::?s????"
         "=flow",
         64},
        {"question mark wants a byte", "TovOsPath::isFile?=flow", 0},
        {"case counts", "tovospath*=flow", 0},
    };
    const Outcome outcome = run({}, [&] {
        for (const auto &row : rows) {
            SCOPED_TRACE(row.why);
            EXPECT_EQ(row.level, levelWith(row.levels, s_isFile));
        }
        EXPECT_EQ(64u, levelWith("operator===flow", s_equals));
    });
    EXPECT_EQ("", outcome.err);
}

TEST_F(TraceProbe, MalformedEntriesAreReportedWithTheirPlaceAndGoodOnesHold) {
    const struct {
        const char *levels;
        const char *place;
        std::uint32_t level;
    } rows[] = {
        {"TovOsPath*=flow,*=bad", "entry 2, offset 16: unknown level", 64},
        {" x, *=flow", "entry 1, offset 1: no '=' in \"x\"", 64},
        {"*=state,,", "entry 2, offset 8: an empty entry", 16},
        {"=flow,*=1", "entry 1, offset 0: no pattern", 1},
        {"*=flow,*=", "entry 2, offset 7: unknown level", 64},
        {"*=flow,*=flow+", "entry 2, offset 7: unknown level", 64},
        {"*=flow,*=4294967296", "entry 2, offset 7: unknown level", 64},
        {"*=flow,*=-1", "entry 2, offset 7: unknown level", 64},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.levels);
        const Outcome set = run({}, [&] {
            EXPECT_FALSE(hvdTraceSetLevels(row.levels));
            EXPECT_EQ(row.level, levelOf(s_isFile));
        });
        EXPECT_NE(std::string::npos, set.err.find(row.place)) << set.err;
        const Outcome read = run({{"HVD_TRACE", row.levels}}, [&] {
            EXPECT_EQ(row.level, levelOf(s_isFile));
            levelOf(s_equals);
        });
        const std::size_t at = read.err.find(row.place);
        EXPECT_NE(std::string::npos, at) << read.err;
        EXPECT_EQ(std::string::npos, read.err.find(row.place, at + 1)) << "reported twice";
    }
}

TEST_F(TraceProbe, ManyMalformedEntriesAreReportedByTheirNumber) {
    std::string levels;
    for (int entry = 0; entry < 20000; ++entry)
        levels += "x,";
    const Outcome outcome =
        run({{"HVD_TRACE", levels + "*=flow"}}, [] { EXPECT_EQ(64u, levelOf(s_isFile)); });
    EXPECT_EQ(11u, linesOf(outcome.err).size());
    EXPECT_NE(std::string::npos, outcome.err.find(" 19990 more malformed entries"));
}

TEST_F(TraceProbe, WithoutVariablesEveryRecordIsOffAndStaysCurrent) {
    const Outcome outcome = run({}, [] {
        EXPECT_NE(s_isFile.sequence, s_sequence);
        errno = 77;
        EXPECT_EQ(0u, TRC1_Sync(&s_isFile));
        EXPECT_EQ(77, errno);
        EXPECT_EQ(0u, s_isFile.level);
        EXPECT_EQ(s_isFile.sequence, s_sequence);
    });
    EXPECT_EQ("", outcome.out + outcome.err);
}

TEST_F(TraceProbe, VariablesAreReadOnceAndGiveWayToWhatIsSetAtRunTime) {
    run({{"HVD_TRACE", "*=flow"}}, [] {
        EXPECT_EQ(64u, levelOf(s_isFile));
        setenv("HVD_TRACE", "*=all", 1);
        EXPECT_EQ(64u, levelOf(s_equals));
        EXPECT_TRUE(hvdTraceSetLevels("*=state"));
        EXPECT_NE(s_isFile.sequence, s_sequence);
        EXPECT_EQ(16u, levelOf(s_isFile));
        EXPECT_EQ(16u, levelOf(s_equals));
    });
    run({{"HVD_TRACE", "*=flow"}}, [] {
        EXPECT_TRUE(hvdTraceSetLevels("*=state"));
        EXPECT_EQ(16u, levelOf(s_isFile)) << "set before the first record";
    });
}

// No thread may be left with former levels by a sync that was overtaken.
TEST_F(TraceProbe, EveryThreadSeesTheLastChange) {
    run({}, [] {
        static constinit TRC1_EPB records[] = {makeRecord("a"), makeRecord("b"), makeRecord("c"),
                                               makeRecord("d")};
        std::atomic<bool> done = false;
        std::vector<std::thread> threads;
        for (int t = 0; t < 4; ++t)
            threads.emplace_back([&] {
                while (!done)
                    for (TRC1_EPB &record : records)
                        levelOf(record);
            });
        for (std::uint32_t round = 0; round < 2000; ++round) {
            const std::uint32_t level = round % 7 + 1;
            hvdTraceSetLevels(("*=" + std::to_string(level)).c_str());
            for (TRC1_EPB &record : records)
                ASSERT_EQ(level, levelOf(record)) << round;
        }
        done = true;
        for (std::thread &thread : threads)
            thread.join();
        EXPECT_TRUE(hvdTraceSetLevels(""));
        for (TRC1_EPB &record : records)
            EXPECT_EQ(0u, levelOf(record));
    });
}

// The word of a library that is gone is left alone, also when other memory has taken its place; loaded
// again, the library gets the levels of that time.
TEST_F(TraceProbe, ChangeWhileALibraryIsUnloaded) {
    run({}, [] {
        for (int round = 0; round < 3; ++round) {
            void *library = dlopen(HVD_TEST_LIBRARY, RTLD_NOW | RTLD_LOCAL);
            ASSERT_NE(nullptr, library) << dlerror();
            const auto level = reinterpret_cast<std::uint32_t (*)()>(dlsym(library, "levelOfUnloadable"));
            ASSERT_NE(nullptr, level);
            hvdTraceSetLevels("unloadable=flow");
            EXPECT_EQ(64u, level());
            hvdTraceSetLevels("unloadable=state");
            EXPECT_EQ(16u, level());
            ASSERT_EQ(0, dlclose(library));
            ASSERT_EQ(nullptr, dlopen(HVD_TEST_LIBRARY, RTLD_NOW | RTLD_NOLOAD))
                << "the test needs it unloaded";
            hvdTraceSetLevels("*=all");
            hvdTraceSetLevels("");
        }
    });
}

} // namespace
