#include <support/failalloc.h>

#include <tovutil/toverrfl.h>
#include <tovutil/tovuterr.h>

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>

namespace {

using tovtest::failEachAllocation;
using tovtest::liveAllocations;

struct Text : TovInsert {
    explicit Text(TovString shown) : bytes(std::move(shown)) {}
    void appendTo(TovString &text) const override {
        EXPECT_EQ("", text) << "an insert is given an empty string";
        text += bytes;
    }
    TovString bytes;
};

TEST(TovInsert, FillsFormats) {
    const struct {
        const char *why, *format, *want;
    } rows[] = {
        {"one after the other", "x%sy%sz", "xaaybbz"},
        {"by number", "%(2)s-%(1)s", "bb-aa"},
        {"a number leaves the counter alone", "%(2)s %s %s", "bb aa bb"},
        {"a percent sign", "100%%", "100%"},
        {"no placeholder behind a percent sign", "%%s%%%%%%s", "%s%%%s"},
        {"a percent sign before a placeholder", "%%%s%%", "%aa%"},
        {"other letters use up an insert", "%d%s", "bb"},
        {"but not by number", "%(1)d%s", "aa"},
        {"a percent sign as a letter", "%(1)%s%.4%%s", "sbb"},
        {"plain", "no placeholder", "no placeholder"},
        {"empty", "", ""},
        {"no more inserts", "%s %s %s.", "aa bb ."},
        {"numbers without an insert", "<%(3)s%(0)s%()s%(4294967295)s>", "<>"},
        {"number and width", "%(2).1s%(2).2s", ".bb"},
        {"width and number", "%.4(1)s", "1)s"},
        {"an open number counts from 0", "%(1s%(0s%(2s", "bbaa"},
        {"an open number with a width", "%(0.2s%(1.1s", "aa."},
        {"a number ends where it would become smaller", "%(4294967296)s", ")s"},
        {"a width, too", "%.4294967296s", "s"},
        {"a number that wraps to a larger one goes on", "<%(10000000000)s%.10000000000s>", "<aa>"},
        {"a sign is no digit", "%(-1)s%.-1s", "1)s1s"},
        {"bytes that are not ASCII", "\xFF-%\xFF%s-\x80", "\xFF-bb-\x80"},
        {"ends inside a placeholder", "x%", "x"},
        {"ends inside a number", "x%(", "x"},
        {"ends behind a digit", "x%(1", "x"},
        {"ends behind a number", "x%(1)", "x"},
        {"ends inside a width", "x%.", "x"},
        {"ends behind a width", "x%(1).2", "x"},
    };
    const Text a("aa"), b("bb");
    for (const auto &row : rows)
        EXPECT_EQ(row.want, TovInsert::subst(row.format, a, b)) << row.why << ": " << row.format;
}

TEST(TovInsert, CutsTextsToTheWidth) {
    const TovString z509(509, 'z'), z512(512, 'z');
    const struct {
        const char *format;
        TovString text, want;
    } rows[] = {
        {"%.5s", "abcdefgh", "ab..."},
        {"%.7s", "abcdefgh", "abcd..."},
        {"%.8s", "abcdefgh", "abcdefgh"},
        {"%s", z512, z512},
        {"%s", z512 + "z", z509 + "..."},
        {"%.4294967295s", z512 + z512, z512 + z512},
        {"%.3s", "abcd", "..."},
        {"%.2s", "abc", ".."},
        {"%.2s", "ab", "ab"},
        {"%.1s", "ab", "."},
        {"%.0s", "a", ""},
        {"%.s", "a", ""},
        {"%.0s", "", ""},
        {"<%.5s>", TovString("a\0b\0cd", 6), TovString("<a\0...>", 7)},
    };
    for (const auto &row : rows)
        EXPECT_EQ(row.want, TovInsert::subst(row.format, Text(row.text))) << row.format << " " << row.text;
}

// The message moves from the stack to the heap wherever it gets too long.
TEST(TovInsert, BuildsMessagesOfAnyLength) {
    for (std::size_t length = 0; length < 1100; ++length) {
        const TovString plain(length, 'x');
        ASSERT_EQ(plain + "%aa" + plain, TovInsert::subst((plain + "%%%s" + plain).c_str(), Text("aa")));
        ASSERT_EQ(plain + plain, TovInsert::subst("%.2000s%.2000s", Text(plain), Text(plain)));
    }
}

TEST(TovInsert, TakesOneToEightInserts) {
    const Text t[] = {Text("1"), Text("2"), Text("3"), Text("4"), Text("5"), Text("6"), Text("7"), Text("8")};
    const char *const f = "%(9)s%(8)s%(7)s%(6)s%(5)s%(4)s%(3)s%(2)s%(1)s";
    EXPECT_EQ("1", TovInsert::subst(f, t[0]));
    EXPECT_EQ("21", TovInsert::subst(f, t[0], t[1]));
    EXPECT_EQ("321", TovInsert::subst(f, t[0], t[1], t[2]));
    EXPECT_EQ("4321", TovInsert::subst(f, t[0], t[1], t[2], t[3]));
    EXPECT_EQ("54321", TovInsert::subst(f, t[0], t[1], t[2], t[3], t[4]));
    EXPECT_EQ("654321", TovInsert::subst(f, t[0], t[1], t[2], t[3], t[4], t[5]));
    EXPECT_EQ("7654321", TovInsert::subst(f, t[0], t[1], t[2], t[3], t[4], t[5], t[6]));
    EXPECT_EQ("87654321", TovInsert::subst(f, t[0], t[1], t[2], t[3], t[4], t[5], t[6], t[7]));
    const TovInsert *const none[] = {nullptr};
    EXPECT_EQ("", TovInsert::subst(f, none));
}

TEST(TovInsert, PassesOnWhatAnInsertRaises) {
    struct Refusing : TovInsert {
        void appendTo(TovString &) const override { throw std::domain_error("refused"); }
    };
    const long before = liveAllocations();
    EXPECT_THROW(TovInsert::subst("%s%s", Text(TovString(600, 'x')), Refusing()), std::domain_error);
    EXPECT_EQ(before, liveAllocations());
}

TEST(OutOfMemory, Messages) {
    const Text longText(TovString(600, 'x')), shortText("y");
    const TovString format = TovString(600, 'z') + "%s and %(2)s and %(1)s";
    const auto message = [&] { return TovInsert::subst(format.c_str(), longText, shortText); };
    const TovString want = message();
    failEachAllocation<TovError>([] { return 0; }, [&](int) { message(); },
                                 [&](int) { EXPECT_EQ(want, message()); });
}

TovErrorFull fullError(const TovError *secondary = nullptr) {
    return TovErrorFull(21020, "CODE", 101, "LAYER", 0, "", 0, TovError::Error, 1, "f", "1.0", "file",
                        "build", "a text that is too long for a string without memory of its own", secondary);
}

TovError plainError() { return TovError(7, 0, 0, 0, TovError::Error, "there", "what", nullptr); }

// All that a holder shows.
std::string shown(const TovRc &rc) {
    return (rc.ok() ? "ok " : "failed ") + std::to_string(rc.getRc()) + (rc.getErrorObj() ? " error " : " ") +
           rc.getMsg();
}

// Every state, reached from every other one and from itself.
TEST(TovRc, GoesFromAnyStateToAnyOther) {
    const struct {
        void (*enter)(TovRc &);
        std::string want;
    } states[] = {
        {[](TovRc &rc) { rc.reset(); }, "ok 0 "},
        {[](TovRc &rc) { rc.setErrorObj(plainError()); }, "failed 7 error what"},
        {[](TovRc &rc) { rc.setErrorObj(fullError()); },
         std::string("failed 21020 error ") + fullError().getErrorMessage()},
        {[](TovRc &rc) { rc.setErrorObj(TovErrorFull::getOutOfMem()); }, "failed 21011 error Out of memory."},
        {[](TovRc &rc) { rc.setMsg(9, "nine"); }, "failed 9 nine"},
        {[](TovRc &rc) { rc.setMsg(0, nullptr); }, "ok 0 "},
        {[](TovRc &rc) { // as a caller that fills the fields by itself
             rc.reset();
             rc.m_rc = 5;
             rc.m_msg = static_cast<char *>(std::memcpy(::operator new(5), "five", 5));
             rc.m_ownsMsg = 1;
         },
         "failed 5 five"},
    };
    EXPECT_EQ("ok 0 ", shown(TovRc()));
    const long before = liveAllocations();
    for (const auto &from : states) {
        for (const auto &to : states) {
            TovRc rc;
            from.enter(rc);
            to.enter(rc);
            EXPECT_EQ(to.want, shown(rc)) << "from " << from.want;
        }
    }
    EXPECT_EQ(before, liveAllocations());
}

TEST(TovRc, ClonesTheErrorWithItsType) {
    TovRc rc;
    rc.setErrorObj(fullError());
    const TovError *error = rc.getErrorObj();
    EXPECT_NE(nullptr, dynamic_cast<const TovErrorFull *>(error));
    EXPECT_EQ(error->getErrorMessage(), rc.getMsg()) << "the clone's text, not a copy";
}

TEST(TovRc, TakesWhatItHoldsItself) {
    TovRc rc;
    const TovError secondary = plainError();
    rc.setErrorObj(fullError(&secondary));
    const std::string full = shown(rc);
    rc.setErrorObj(*rc.getErrorObj());
    EXPECT_EQ(full, shown(rc));
    rc.setErrorObj(*rc.getErrorObj()->getSecondary());
    EXPECT_EQ("failed 7 error what", shown(rc));
    rc.setMsg(1, rc.getMsg());
    EXPECT_EQ("failed 1 what", shown(rc));
    rc.setMsg(2, rc.getMsg());
    EXPECT_EQ("failed 2 what", shown(rc));
}

TEST(OutOfMemory, ReturnCodes) {
    const TovError secondary = plainError();
    const TovErrorFull error = fullError(&secondary);
    fullError().checkMods(); // the module behind compositions: not every sanitizer lets its init fail
    const std::pair<const char *, void (*)(TovRc &)> befores[] = {
        {"failed 9 nine", [](TovRc &rc) { rc.setMsg(9, "nine"); }},
        {"failed 7 error what", [](TovRc &rc) { rc.setErrorObj(plainError()); }},
    };
    for (const auto &[before, enter] : befores) {
        const auto make = [enter = enter] {
            auto rc = std::make_unique<TovRc>();
            enter(*rc);
            return rc;
        };
        const auto unchanged = [before = before](const auto &rc) { EXPECT_EQ(before, shown(*rc)); };
        failEachAllocation<TovError, std::bad_alloc>(
            make, [&](auto &rc) { rc->setErrorObj(error); }, unchanged);
        failEachAllocation<std::bad_alloc>(
            make, [](auto &rc) { rc->setMsg(1, "one"); }, unchanged);
    }
}

} // namespace
