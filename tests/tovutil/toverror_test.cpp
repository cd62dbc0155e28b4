#include <tovutil/tovutil.h>

#include <gtest/gtest.h>

#include <string>

namespace {

TovErrorFull fullError(const char *text, const TovError *secondary = nullptr) {
    return TovErrorFull(5, "", 7, "", 3, "", 0, TovError::Error, 1, "", "", "", "", text, secondary);
}

// All that a plain error shows, in one string.
std::string shown(const TovError &error) {
    return std::to_string(error.getReturnCode()) + "/" + std::to_string(error.getPosition()) + "/" +
           std::to_string(error.getFailedLayer()) + "/" + std::to_string(error.getReason()) + "/" +
           std::to_string(error.getErrorType()) + "/" + error.getLocation() + "/" + error.getErrorMessage() +
           (error.getSecondary() ? " <- " + shown(*error.getSecondary()) : "");
}

TEST(TovError, HasTwoStaticBodies) {
    EXPECT_EQ("0/0/0/0/8//", shown(TovError()));
    const TovError noMemory(21011, 7, 8, 9, TovError::Transient, "x", "y", nullptr);
    EXPECT_EQ("21011/0/0/0/1//Out of memory.", shown(noMemory)) << "the arguments are dropped";
    EXPECT_EQ("21011/0/0/0/1//Out of memory.", shown(TovErrorFull::getOutOfMem()));
}

TEST(TovError, SharesStaticBodiesAmongCopiesOnly) {
    TovError original;
    {
        TovError copy(original);
        EXPECT_EQ(original.getErrorMessage(), copy.getErrorMessage()) << "the same literal";
        copy.setReason(4);
        EXPECT_EQ("0/0/0/4/8//", shown(copy));
    }
    EXPECT_EQ("0/0/0/0/8//", shown(original));
    EXPECT_EQ("0/0/0/0/8//", shown(TovError()));

    TovError noMemory(TovErrorFull::getOutOfMem());
    noMemory.setErrorMessage("changed");
    EXPECT_EQ("21011/0/0/0/1//changed", shown(noMemory));
    EXPECT_STREQ("Out of memory.", TovErrorFull::getOutOfMem().getErrorMessage());
}

TEST(TovError, ChangesThroughEverySetter) {
    TovError error(1, 2, 3, 4, TovError::Error, "there", "what", nullptr);
    EXPECT_EQ("1/2/3/4/2/there/what", shown(error)) << "position comes before the layer";
    error.setMods(false);
    EXPECT_FALSE(error.hasMods());
    const struct {
        void (*set)(TovError &);
        const char *want;
    } rows[] = {
        {[](TovError &e) { e.setReturnCode(21011); }, "21011/2/3/4/2/there/what"},
        {[](TovError &e) { e.setPosition(9); }, "21011/9/3/4/2/there/what"},
        {[](TovError &e) { e.setFailedLayer(8); }, "21011/9/8/4/2/there/what"},
        {[](TovError &e) { e.setReason(7); }, "21011/9/8/7/2/there/what"},
        {[](TovError &e) { e.setErrorType(TovError::Critical); }, "21011/9/8/7/1/there/what"},
        {[](TovError &e) { e.setLocation("here"); }, "21011/9/8/7/1/here/what"},
        {[](TovError &e) { e.setErrorMessage(nullptr); }, "21011/9/8/7/1/here/"},
        {[](TovError &e) { e.setLocation(e.getLocation()); }, "21011/9/8/7/1/here/"},
        {[](TovError &e) {
             const TovError inner;
             e.setSecondary(&inner);
         },
         "21011/9/8/7/1/here/ <- 0/0/0/0/8//"},
        {[](TovError &e) { e.setSecondary(nullptr); }, "21011/9/8/7/1/here/"},
    };
    for (const auto &row : rows) {
        error.setMods(false);
        row.set(error);
        EXPECT_EQ(row.want, shown(error));
        EXPECT_TRUE(error.hasMods());
    }
}

TEST(TovError, TakesPrivateBodyForSetModsToo) {
    TovError error;
    error.setMods(false);
    EXPECT_FALSE(error.hasMods());
    EXPECT_TRUE(TovError().hasMods());
    EXPECT_TRUE(TovError(error).hasMods()) << "a copy is changed, whatever its source was";
}

TEST(TovError, CopiesDeepWithTheWholeChain) {
    const TovErrorFull innermost = fullError("third");
    const TovErrorFull inner = fullError("second", &innermost);
    TovError outer(1, 0, 0, 0, TovError::Error, "l", "first", &inner);
    const std::string want = shown(outer);
    EXPECT_NE(want.npos, want.find("ReturnCode(5) Layer(7) Reason(3) Pos(0) ErrorType(ERROR),\nthird"));

    TovError copy(outer);
    TovError assigned;
    assigned = outer;
    EXPECT_EQ(want, shown(copy));
    EXPECT_EQ(want, shown(assigned));
    EXPECT_NE(outer.getErrorMessage(), copy.getErrorMessage());
    EXPECT_NE(outer.getSecondary(), copy.getSecondary());
    EXPECT_NE(nullptr, dynamic_cast<const TovErrorFull *>(copy.getSecondary()));
    outer.setSecondary(nullptr);
    EXPECT_EQ(want, shown(copy));
}

TEST(TovError, AssignsFromItselfAndFromItsOwnChain) {
    const TovErrorFull innermost = fullError("third");
    const TovErrorFull inner = fullError("second", &innermost);
    TovError error(1, 0, 0, 0, TovError::Error, "l", "first", &inner);
    const std::string before = shown(error);
    const TovError &same = error;
    error = same;
    EXPECT_EQ(before, shown(error));

    error.setSecondary(error.getSecondary()->getSecondary());
    EXPECT_EQ("1/0/0/0/2/l/first <- " + shown(innermost), shown(error));
    error = *error.getSecondary();
    EXPECT_STREQ(innermost.getErrorMessage(), error.getErrorMessage());

    TovError base;
    base = TovError();
    EXPECT_EQ("0/0/0/0/8//", shown(base));
    base = error;
    base = TovErrorFull::getOutOfMem();
    EXPECT_EQ("21011/0/0/0/1//Out of memory.", shown(base)) << "back on a static body";
}

TEST(TovError, KeepsComposedTextsWhenAFullErrorIsCopied) {
    const TovErrorFull full = fullError("text");
    const TovError plain(full);
    EXPECT_STREQ(full.getErrorMessage(), plain.getErrorMessage());
    EXPECT_STREQ(full.getLocation(), plain.getLocation());
}

TEST(TovError, ClonesAndRaisesWithItsDynamicType) {
    const TovErrorFull full = fullError("text");
    const TovError &base = full;
    const std::unique_ptr<TovError> copy(base.clone());
    EXPECT_NE(nullptr, dynamic_cast<TovErrorFull *>(copy.get()));
    EXPECT_THROW(base.raise(), TovErrorFull);
    EXPECT_THROW(base.logRaise(), TovErrorFull);
    try {
        base.raise();
    } catch (const TovError &caught) {
        EXPECT_STREQ(full.getErrorMessage(), caught.getErrorMessage());
    }
    try {
        TovError(1, 2, 3, 4, TovError::Error, "l", "m", &full).raise();
    } catch (const TovErrorFull &) {
        FAIL() << "a plain error is raised as a plain one";
    } catch (const TovError &caught) {
        EXPECT_EQ("1/2/3/4/2/l/m", shown(caught).substr(0, 13));
    }
    try {
        tovThrowBadAlloc();
    } catch (const TovErrorFull &) {
        FAIL();
    } catch (const TovError &caught) {
        EXPECT_EQ(21011U, caught.getReturnCode());
    }
}

} // namespace
