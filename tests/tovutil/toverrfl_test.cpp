#include <support/failalloc.h>
#include <support/traced.h>

#include <tovutil/tovutil.h>

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <thread>
#include <vector>

namespace {

struct Fields {
    std::uint32_t returnCode = 0;
    const char *returnCodeName = "";
    std::uint32_t layer = 0;
    const char *layerName = "";
    std::uint32_t reason = 0;
    const char *reasonName = "";
    std::uint32_t position = 0;
    TovError::ErrorType type = TovError::Api;
    const char *text = "";

    TovErrorFull make() const {
        return TovErrorFull(returnCode, returnCodeName, layer, layerName, reason, reasonName, position, type,
                            12, "from", "version", "a/file.cpp", "build", text, nullptr);
    }
};

TEST(TovErrorFull, ComposesTheMessage) {
    const struct {
        const char *why;
        Fields fields;
        const char *want;
    } rows[] = {
        {"all empty", {}, "ReturnCode(0) Layer(0) Reason(0) Pos(0) ErrorType(API),\n"},
        {"numbers",
         {.returnCode = 5, .layer = 7, .reason = 3},
         "ReturnCode(5) Layer(7) Reason(3) Pos(0) ErrorType(API),\n"},
        {"a reason name",
         {.returnCode = 5, .layer = 7, .reason = 3, .reasonName = "R"},
         "ReturnCode(5) Layer(7) Reason(R) Pos(0) ErrorType(API),\n"},
        {"a layer name",
         {.layer = 7, .layerName = "L", .reason = 3},
         "ReturnCode(0) L(3) Pos(0) ErrorType(API),\n"},
        {"a layer name and a reason name",
         {.layerName = "L", .reason = 3, .reasonName = "R"},
         "ReturnCode(0) L(R) Pos(0) ErrorType(API),\n"},
        {"a layer name with reason 0 leaves two blanks, whatever the reason's name",
         {.returnCodeName = "C", .layerName = "L", .reasonName = "R"},
         "C  Pos(0) ErrorType(API),\n"},
        {"null names count as empty",
         {.returnCodeName = nullptr, .layerName = nullptr, .reasonName = nullptr},
         "ReturnCode(0) Layer(0) Reason(0) Pos(0) ErrorType(API),\n"},
        {"the largest numbers",
         {.returnCode = 4294967295U, .layer = 4294967295U, .reason = 4294967295U, .position = 4294967295U},
         "ReturnCode(4294967295) Layer(4294967295) Reason(4294967295) Pos(4294967295) ErrorType(API),\n"},
        {"types and text",
         {.type = TovError::Critical, .text = "t"},
         "ReturnCode(0) Layer(0) Reason(0) Pos(0) ErrorType(CRITICAL),\nt"},
        {"a type of its own",
         {.type = static_cast<TovError::ErrorType>(3)},
         "ReturnCode(0) Layer(0) Reason(0) Pos(0) ErrorType(Unknown),\n"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_STREQ(row.want, row.fields.make().getErrorMessage());
    }
}

TEST(TovErrorFull, ComposesTheLocation) {
    EXPECT_STREQ("From (), Line(0) in module () Build() Version()", TovErrorFull().getLocation());
    EXPECT_STREQ("From (from), Line(12) in module (file.cpp) Build(build) Version(version)",
                 Fields().make().getLocation());
}

TEST(TovErrorFull, CutsTextsToTheirFields) {
    const std::string text(200, 'x');
    const TovErrorFull error(1, text.c_str(), 2, text.c_str(), 3, text.c_str(), 0, TovError::Api, 1,
                             text.c_str(), text.c_str(), text.c_str(), text.c_str(), TovString(text.c_str()),
                             nullptr);
    const auto xs = [](std::size_t n) { return std::string(n, 'x'); };
    EXPECT_EQ(xs(47) + " " + xs(47) + "(" + xs(47) + ") Pos(0) ErrorType(API),\n" + text,
              error.getErrorMessage());
    EXPECT_EQ("From (" + xs(127) + "), Line(1) in module (" + xs(15) + ") Build(" + xs(63) + ") Version(" +
                  xs(63) + ")",
              error.getLocation());
}

TEST(TovErrorFull, KeepsTheLastComponentOfAPath) {
    const struct {
        const char *path;
        const char *want;
    } rows[] = {
        {"tovutil/tovpath", "tovpath"},
        {"a\\b/c\\name", "name"},
        {"a/b\\c/name", "name"},
        {"plain", "plain"},
        {"ends/", ""},
        {"dir/12345678901234567890", "123456789012345"},
    };
    for (const auto &row : rows) {
        TovErrorFull error;
        error.setMods(false);
        error.setFile(row.path);
        EXPECT_TRUE(error.hasMods());
        EXPECT_EQ("From (), Line(0) in module (" + std::string(row.want) + ") Build() Version()",
                  error.getLocation());
    }
    for (const char *none : {static_cast<const char *>(nullptr), ""}) {
        TovErrorFull error;
        error.setFile("name");
        error.setMods(false);
        error.setFile(none);
        EXPECT_FALSE(error.hasMods()) << "an empty path leaves the texts as they are";
        error.setMods(true);
        EXPECT_STREQ("From (), Line(0) in module () Build() Version()", error.getLocation());
    }
}

TEST(TovErrorFull, FillsFieldsWithNuls) {
    char field[8] = "abcdefg";
    TovErrorFull error;
    error.setStr(field, "xy", sizeof field);
    EXPECT_EQ(std::string("xy\0\0\0\0\0\0", 8), std::string(field, 8));
    error.setStr(field, nullptr, sizeof field);
    EXPECT_EQ('\0', field[0]);
    error.setStr(field, "longer than that", sizeof field);
    EXPECT_STREQ("longer ", field);
    error.setStr(field, field + 2, sizeof field);
    EXPECT_STREQ("nger ", field) << "the source may lie in the field";
    error.setStr(field, "x", 0);
    EXPECT_STREQ("nger ", field);
}

TEST(TovErrorFull, ComposesAnewAfterEveryChangeAndOnlyThen) {
    TovErrorFull error = Fields().make();
    EXPECT_TRUE(error.hasMods());
    const char *first = error.getErrorMessage();
    EXPECT_FALSE(error.hasMods());
    EXPECT_EQ(first, error.getErrorMessage());
    error.setReason(6);
    EXPECT_STREQ("ReturnCode(0) Layer(0) Reason(6) Pos(0) ErrorType(API),\n", error.getErrorMessage());
}

TEST(TovErrorFull, CopiesAndAssignsAllFields) {
    const TovErrorFull inner = Fields{.text = "inner"}.make();
    TovErrorFull error(1, "C", 2, "L", 3, "R", 4, TovError::Transient, 5, "from", "v", "f", "b", "text",
                       &inner);
    TovErrorFull copy(error);
    EXPECT_TRUE(copy.hasMods()) << "its texts are composed anew";
    TovErrorFull assigned = Fields{.text = "other"}.make();
    assigned.getErrorMessage();
    assigned = error;
    for (const TovErrorFull *one : {&copy, &assigned}) {
        EXPECT_STREQ("C L(R) Pos(4) ErrorType(TRANSIENT),\ntext", one->getErrorMessage());
        EXPECT_STREQ("From (from), Line(5) in module (f) Build(b) Version(v)", one->getLocation());
        EXPECT_EQ("text", one->getErrString());
        ASSERT_NE(nullptr, one->getSecondary());
        EXPECT_STREQ(inner.getErrorMessage(), one->getSecondary()->getErrorMessage());
    }
    const TovErrorFull &same = assigned;
    assigned = same;
    EXPECT_STREQ("C L(R) Pos(4) ErrorType(TRANSIENT),\ntext", assigned.getErrorMessage());
    assigned = TovErrorFull();
    EXPECT_STREQ("ReturnCode(0) Layer(0) Reason(0) Pos(0) ErrorType(API),\n", assigned.getErrorMessage());
    EXPECT_EQ(nullptr, assigned.getSecondary());
}

TEST(TovErrorFull, MayBeReadAndCopiedByManyThreads) {
    const TovErrorFull shared = Fields{.text = "shared"}.make();
    const TovErrorFull sharedDefault; // on a static body, which the first composition replaces
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i)
        threads.emplace_back([&] {
            EXPECT_STREQ("ReturnCode(0) Layer(0) Reason(0) Pos(0) ErrorType(API),\n",
                         sharedDefault.getErrorMessage());
            EXPECT_STREQ("ReturnCode(0) Layer(0) Reason(0) Pos(0) ErrorType(API),\nshared",
                         TovErrorFull(shared).getErrorMessage());
        });
    for (std::thread &thread : threads)
        thread.join();
}

// Reads another error while its own text is composed.
class TextOfAnother : public TovErrorFull {
public:
    TovString getErrString() const override { return Fields{.text = "inner"}.make().getErrorMessage(); }
};

TEST(TovErrorFull, AsksDerivedErrorsForTheirText) {
    EXPECT_STREQ("ReturnCode(0) Layer(0) Reason(0) Pos(0) ErrorType(API),\n"
                 "ReturnCode(0) Layer(0) Reason(0) Pos(0) ErrorType(API),\ninner",
                 TextOfAnother().getErrorMessage());
}

TEST(TovErrorFull, SurvivesACompositionThatFindsNoMemory) {
    const TovString longText(2000, 'x'); // beyond the room that a composition has by itself
    const TovErrorFull error(1, "", 0, "", 0, "", 0, TovError::Api, 1, "", "", "", "", longText, nullptr);
    // Reach the module, so that the failing allocation is the composition's own.
    EXPECT_STRNE("", Fields().make().getErrorMessage());

    bool swallowed = false, raised = false;
    for (long nth = 1;; ++nth) {
        TovErrorFull one(error);
        bool fired = false;
        raised |= tovtest::raises<TovError>([&] {
            tovtest::FailingAllocation failing(nth);
            struct Watch {
                tovtest::FailingAllocation &failing;
                bool &fired;
                ~Watch() { fired = failing.fired(); }
            } watch{failing, fired};
            one.checkMods();
        });
        if (!fired)
            break;
        if (!one.hasMods()) { // not tried again until the next change
            swallowed = true;
            EXPECT_STREQ("Can't create error message: Out of memory.", one.getErrorMessage());
            EXPECT_STREQ("", one.getLocation());
        }
        one.setReason(1);
        EXPECT_NE(std::string::npos, std::string(one.getErrorMessage()).find(longText.c_str()));
    }
    EXPECT_TRUE(swallowed) << "the memory of the composition's own work";
    EXPECT_TRUE(raised) << "the memory of the strings";
}

TEST(TovErrFl, MakesANewMutexAfterItsRelease) {
    EXPECT_STRNE("", Fields().make().getErrorMessage());
    TovErrFl_release();
    TovErrFl_release();
    EXPECT_STREQ("ReturnCode(9) Layer(0) Reason(0) Pos(0) ErrorType(API),\n",
                 Fields{.returnCode = 9}.make().getErrorMessage());
}

TEST(tovCheck, RaisesAnInternalErrorAndTracesIt) {
    tovtest::TraceRecorder recorder("TovError::logRaise=all");
    try {
        tovCheck("tovutil//tovutil", 120, "Internal error: oldp", TOV_CODE(TOVRC_INTERNAL_ERROR));
    } catch (const TovErrorFull &error) {
        EXPECT_STREQ("TOVRC_INTERNAL_ERROR  Pos(1) ErrorType(ERROR),\nInternal error: oldp",
                     error.getErrorMessage());
        EXPECT_EQ(0U, std::string(error.getLocation()).find("From (), Line(120) in module (tovutil) Build("));
        EXPECT_EQ(21020U, error.getReturnCode());
        EXPECT_EQ(101U, error.getFailedLayer());
        EXPECT_EQ("Internal error: oldp", error.getErrString());
    }
    const auto lines = recorder.lines();
    ASSERT_LE(4U, lines.size());
    EXPECT_EQ("> TovError::logRaise", lines[0]);
    EXPECT_EQ("TovError::logRaise: Args - ", lines[1]);
    EXPECT_EQ("TovError::logRaise: State - TOVRC_INTERNAL_ERROR  Pos(1) ErrorType(ERROR),\nInternal",
              lines[2].substr(0, 83));
    for (const std::string &line : lines)
        EXPECT_NE('<', line[0]) << "it leaves by an exception";
}

TEST(TovString, GoesToAStreamUpToItsFirstNul) {
    std::ostringstream os;
    os << TovString("ab\0cd", 5) << TovString("e");
    EXPECT_EQ("abe", os.str());
}

} // namespace
