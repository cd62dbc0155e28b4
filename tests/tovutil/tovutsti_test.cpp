// Which representation a string has after which operation, and whose text lies where.
#include <support/failalloc.h>
#include <tovutil/toverrfl.h>
#include <tovutil/tovfheap.h>
#include <tovutil/tovutstr.h>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <thread>
#include <typeinfo>
#include <vector>

namespace {

using tovtest::allocationCount;
using tovtest::liveAllocations;

static_assert(sizeof(TovUniString) == 3 * sizeof(void *));
static_assert(std::is_nothrow_move_constructible_v<TovUniString> &&
              std::is_nothrow_move_assignable_v<TovUniString>);

// The name of a string's representation, "+0" with the flag for a terminator, "*" when a buffer is shared.
std::string kindOf(const TovUniString &string) {
    const TovUniStringImpl &impl = string.impl();
    const std::string_view name = typeid(impl).name();
    std::string kind(name.substr(name.find("TovUniString") + 12));
    kind.resize(kind.find("Impl"));
    if (kind == "Heap")
        return string.isShared() ? "Heap*" : "Heap";
    return string.capacity() == string.length() ? kind : kind + "+0";
}

using View = std::u16string_view;

constexpr char16_t c_text[] = u"hello world";
constexpr unsigned c_length = 11;

// A string of each kind with the same text, and what it needs to live.
struct Subject {
    TovUniString string;
    std::unique_ptr<TovUniString> other; // shares a buffer with it
    std::unique_ptr<char16_t[]> buffer;  // a caller's
};

Subject make(const std::string &kind) {
    Subject subject;
    if (kind == "Heap" || kind == "Heap*")
        subject.string = TovUniString(c_text);
    if (kind == "Heap*")
        subject.other = std::make_unique<TovUniString>(subject.string);
    if (kind.starts_with("StaticHeap"))
        subject.string.initStatic("hello world", c_length);
    else if (kind.starts_with("Static"))
        subject.string = TovUniString::fromStatic(c_text, c_length, kind.ends_with("0"));
    if (kind.starts_with("Local")) {
        subject.buffer = std::make_unique<char16_t[]>(c_length + 1);
        std::u16string_view(c_text).copy(subject.buffer.get(), c_length);
        const int noCopy = kind.starts_with("LocalNoCopy") ? TovUniString::LocalNoCopy : 0;
        const int terminated = kind.ends_with("0") ? TovUniString::NullTerminated : 0;
        subject.string = TovUniString::fromLocal(subject.buffer.get(), c_length, noCopy | terminated);
    }
    return subject;
}

const char *const c_kinds[] = {"Heap",      "Heap*",       "Static",      "Static+0",      "StaticHeap+0",
                               "LocalCopy", "LocalCopy+0", "LocalNoCopy", "LocalNoCopy+0", "Empty+0"};

// Transitions ---------------------------------------------------------------------------------------------

TEST(Representations, MoveAsTheTableTells) {
    struct Row {
        const char *kind;
        const char *copied; // the target of a copy
        const char *copyOnWrite, *unshare, *cStr, *reserve, *erase, *resize;
    };
    const Row rows[] = {
        {"Heap", "Heap*", "Heap", "Heap", "Heap", "Heap", "Heap", "Heap"},
        {"Heap*", "Heap*", "Heap", "Heap", "Heap*", "Heap", "Heap*", "Heap*"}, // a 0 stands behind its text
        {"Static", "Static", "Heap", "Static", "Heap", "Heap", "Empty+0", "Static"},
        {"Static+0", "Static+0", "Heap", "Static+0", "Static+0", "Heap", "Empty+0", "Static"},
        {"StaticHeap+0", "Static+0", "Heap", "StaticHeap+0", "StaticHeap+0", "Heap", "Empty+0", "StaticHeap"},
        {"LocalCopy", "Heap", "Heap", "Heap", "Heap", "Heap", "Empty+0", "LocalCopy"},
        {"LocalCopy+0", "Heap", "Heap", "Heap", "LocalCopy+0", "Heap", "Empty+0", "LocalCopy"},
        {"LocalNoCopy", "LocalNoCopy", "Heap", "Heap", "Heap", "Heap", "Empty+0", "LocalNoCopy"},
        {"LocalNoCopy+0", "LocalNoCopy+0", "Heap", "Heap", "LocalNoCopy+0", "Heap", "Empty+0", "LocalNoCopy"},
        {"Empty+0", "Empty+0", "Heap", "Empty+0", "Empty+0", "Heap", "Empty+0", "Heap"},
    };
    using Operation = std::function<void(TovUniString &)>;
    for (const Row &row : rows) {
        SCOPED_TRACE(row.kind);
        const auto after = [&](const Operation &operation) {
            Subject subject = make(row.kind);
            EXPECT_EQ(row.kind, kindOf(subject.string));
            auto *former = const_cast<TovUniStringImpl *>(&subject.string.impl());
            operation(subject.string);
            if (std::string_view(row.kind) == "StaticHeap+0" && subject.string.empty())
                delete former; // an erase leaves the block to its views
            return kindOf(subject.string);
        };
        Subject source = make(row.kind);
        EXPECT_EQ(row.copied, kindOf(TovUniString(source.string)));
        EXPECT_EQ(row.copyOnWrite, after([](TovUniString &s) { s.copyOnWrite(); }));
        EXPECT_EQ(row.unshare, after([](TovUniString &s) { s.unshare(); }));
        EXPECT_EQ(row.cStr, after([](TovUniString &s) { s.c_str(); })) << "c_str";
        EXPECT_EQ(row.reserve, after([](TovUniString &s) { s.reserve(s.capacity() + 1); }));
        EXPECT_EQ(row.erase, after([](TovUniString &s) { s.erase(); })) << "erase";
        EXPECT_EQ(row.resize, after([](TovUniString &s) { s.resize(4); })) << "resize";
    }
}

TEST(Representations, AllHoldTheSameTextThroughEveryMove) {
    for (const char *kind : c_kinds) {
        SCOPED_TRACE(kind);
        const std::u16string text = make(kind).string.empty() ? u"" : c_text;
        Subject subject = make(kind);
        TovUniString copy(subject.string), moved(std::move(subject.string));
        if (kind == std::string("StaticHeap+0"))
            copy.copyOnWrite(); // a view would not outlive the block
        EXPECT_EQ(copy, text);
        EXPECT_EQ(moved, text);
        EXPECT_EQ("Empty+0", kindOf(subject.string));
        EXPECT_EQ(std::u16string(moved.c_str()), text);
        moved.reserve(100);
        EXPECT_EQ(100u + 1, moved.capacity());
        EXPECT_EQ(moved, text);
        moved.append(u'!');
        EXPECT_EQ(copy, text);
        TovUniString independent;
        copy.impl().unsharedCopy(&copy, &independent);
        EXPECT_EQ(independent, text);
    }
    EXPECT_EQ(std::u16string_view(c_text), u"hello world") << "a literal that was written to";
}

TEST(Representations, MayViewNothingAtAll) {
    const TovUChar *const none = nullptr;
    const std::function<TovUniString()> views[] = {
        [&] { return TovUniString::fromStatic(none, 0); }, [&] { return TovUniString::fromLocal(none, 0); },
        [&] { return TovUniString::fromLocal(none, 0, TovUniString::LocalNoCopy); }};
    for (const auto &view : views) {
        TovUniString appended = view(), reserved = view(), resized = view();
        appended.append(u"text");
        EXPECT_EQ(appended, u"text");
        reserved.reserve(10);
        EXPECT_EQ(reserved, u"");
        resized.resize(4);
        EXPECT_EQ(4u, resized.length());
        EXPECT_EQ(0, *view().c_str());
    }
}

TEST(Representations, NothingLeaks) {
    TovUniString::emptyString(); // the modules live on
    const long before = liveAllocations();
    for (const char *kind : c_kinds) {
        Subject subject = make(kind), target = make("StaticHeap+0");
        target.string = subject.string;
        subject.string = TovUniString(u"another");
        subject.string = subject.string.substr(2);
        target.string = std::move(subject.string);
    }
    EXPECT_EQ(before, liveAllocations());
}

// Sharing ---------------------------------------------------------------------------------------------------

TEST(HeapString, SharesItsBufferUntilAWrite) {
    TovUniString one(u"abc"), two(one);
    EXPECT_TRUE(one.isShared() && two.isShared());
    EXPECT_EQ(one.begin(), two.begin());
    *two.writable() = u'x';
    EXPECT_EQ(one, u"abc");
    EXPECT_EQ(two, u"xbc");
    EXPECT_FALSE(one.isShared() || two.isShared());
}

TEST(HeapString, ChangesHeapsOnlyByACopyOfTheText) {
    const auto heap = TovFastHeap::create(0), otherHeap = TovFastHeap::create(0);
    const TovUniString onHeap = TovUniString::fromHeap(u"text", 4, heap.get());
    const struct {
        const char *why;
        TovUniString copy;
        bool shared;
    } rows[] = {
        {"a plain copy leaves the heap", TovUniString(onHeap), false},
        {"another heap", TovUniString(otherHeap, onHeap), false},
        {"no heap", TovUniString(TovFastHeap::getEmptyRef(), onHeap), false},
        {"the same heap", TovUniString(heap, onHeap), true},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(row.copy, onHeap);
        EXPECT_EQ(row.shared, row.copy.begin() == onHeap.begin());
    }
    TovUniString assigned;
    assigned = onHeap;
    EXPECT_NE(assigned.begin(), onHeap.begin()) << "assignment is as a plain copy";
}

TEST(HeapString, CountsOnItsHeapTwiceAndLetsItEnd) {
    TovUniString::emptyString();
    const long before = liveAllocations();
    auto heap = TovFastHeap::create(0);
    {
        const auto counted = heap->count();
        const TovUniString small = TovUniString::fromHeap(u"a", 1, heap.get());
        EXPECT_EQ(counted + 2, heap->count()) << "as an object and as a reference";
        const std::u16string text(1000, u'x');
        const TovUniString large = TovUniString::fromHeap(text.data(), 1000, heap.get());
        EXPECT_EQ(counted + 3, heap->count()) << "a large buffer is a reference only";
        TovUniString growing = TovUniString::fromHeap(text.data(), 200, heap.get());
        growing.reserve(220);
        EXPECT_EQ(counted + 5, heap->count()) << "room in reserve does not make a buffer large";
        heap.reset();
        EXPECT_EQ(small, u"a");
        EXPECT_EQ(large, text);
    }
    EXPECT_EQ(before, liveAllocations());
}

TEST(HeapString, CopiesTheTextWhenSharingIsOff) {
    TovUniString string(u"abc");
    string.setCopyOnShare(true);
    const TovUniString copy(string);
    EXPECT_NE(copy.begin(), string.begin());
    EXPECT_NE(string.substr(1).begin(), string.begin() + 1);
    string.reserve(5000);
    EXPECT_NE(TovUniString(string).begin(), string.begin()) << "a new buffer keeps the setting";
    string.setCopyOnShare(false);
    EXPECT_EQ(TovUniString(string).begin(), string.begin());
    EXPECT_EQ(TovUniString(copy).begin(), copy.begin()) << "a copy does not inherit it";
}

TEST(LocalString, MovesBetweenItsTwoKinds) {
    for (const char *kind : {"LocalCopy", "LocalCopy+0", "LocalNoCopy", "LocalNoCopy+0"}) {
        SCOPED_TRACE(kind);
        const std::string flag = std::string_view(kind).ends_with("0") ? "+0" : "";
        Subject subject = make(kind);
        subject.string.setCopyOnShare(false);
        EXPECT_EQ("LocalNoCopy" + flag, kindOf(subject.string));
        EXPECT_EQ(TovUniString(subject.string).begin(), subject.string.begin());
        subject.string.setCopyOnShare(true);
        EXPECT_EQ("LocalCopy" + flag, kindOf(subject.string));
        EXPECT_NE(TovUniString(subject.string).begin(), subject.string.begin());
    }
}

TEST(LocalString, CopiesToTheHeapThatIsGiven) {
    const auto heap = TovFastHeap::create(0);
    Subject subject = make("LocalCopy");
    const TovUniString copy(heap, subject.string);
    EXPECT_EQ(TovUniString(heap, copy).begin(), copy.begin()) << "so it lives there";
}

// A change of the caller's buffer must not show afterwards.
TEST(LocalString, IsIndependentOnceUnshared) {
    for (const char *kind : {"LocalCopy", "LocalNoCopy+0"}) {
        SCOPED_TRACE(kind);
        Subject subject = make(kind);
        subject.string.unshare();
        subject.buffer[0] = u'J';
        EXPECT_EQ(subject.string, c_text);
    }
}

TEST(StaticHeapString, GivesViewsThatItsEraseLeavesAlone) {
    TovUniString string;
    string.initStatic("text", 4);
    const TovUniString view(string);
    EXPECT_EQ(view.begin(), string.begin());
    TovUniString cut(string), erased(string);
    erased.erase();
    EXPECT_EQ(cut, u"text");
    const std::unique_ptr<TovUniStringImpl> block(const_cast<TovUniStringImpl *>(&string.impl()));
    string.erase(); // leaves the block, which this test ends by itself
    EXPECT_EQ(view, u"text");
}

TEST(StaticHeapString, KeepsItsBlockWhenItBecomesAPartOfItself) {
    for (bool move : {false, true}) {
        TovUniString string;
        string.initStatic("  text ", 7);
        TovUniString trimmed = string.trimWs();
        if (move)
            string = std::move(trimmed);
        else
            string = trimmed;
        EXPECT_EQ(string, u"text");
        EXPECT_EQ("StaticHeap+0", kindOf(string));
        EXPECT_EQ(std::u16string(string.c_str()), u"text") << "its block goes on behind it";
    }
}

TEST(StaticHeapString, KeepsItsBlockForEveryViewOfIt) {
    const struct {
        const char *why;
        void (*change)(TovUniString &own, TovUniString &view);
        View text;
        const char *kind;
    } rows[] = {
        {"the whole, taken back after a cut",
         [](TovUniString &own, TovUniString &view) {
             own = own.substr(2, 2);
             own = view;
         },
         u"a text", "StaticHeap+0"},
        {"a part that lies behind the own one",
         [](TovUniString &own, TovUniString &view) {
             own = own.substr(0, 1);
             own = view.substr(2);
         },
         u"text", "StaticHeap+0"},
        {"the terminator as a unit: nothing stands behind it",
         [](TovUniString &own, TovUniString &view) {
             view.resize(7);
             own = view;
         },
         View(u"a text\0", 7), "StaticHeap"},
        {"a move empties its source",
         [](TovUniString &own, TovUniString &view) {
             TovUniString moved(view);
             own = std::move(moved);
             EXPECT_EQ("Empty+0", kindOf(moved));
         },
         u"a text", "StaticHeap+0"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        TovUniString own;
        own.initStatic("a text", 6);
        TovUniString view(own);
        row.change(own, view);
        EXPECT_EQ(own, row.text);
        EXPECT_EQ(row.kind, kindOf(own));
        EXPECT_EQ(View(own.c_str(), row.text.size() + 1), std::u16string(row.text) + u'\0');
    }
}

TEST(StaticHeapString, TellsItsFlagToItsViews) {
    TovUniString string;
    string.initStatic("text", 4);
    string.resize(3);
    EXPECT_EQ("Static", kindOf(TovUniString(string)));
    TovUniString copy;
    string.impl().unsharedCopy(&string, &copy);
    EXPECT_EQ("Static+0", kindOf(copy)) << "this copy always claims a terminator";
    EXPECT_EQ(std::u16string(copy.c_str()), u"tex") << "and looks before it relies on it";
}

// Room and terminators --------------------------------------------------------------------------------

TEST(Capacity, IsWhatWasAskedForAndATerminator) {
    TovUniString string(u"abcdef");
    EXPECT_EQ(7u, string.capacity());
    string.reserve(7);
    EXPECT_EQ(7u, string.capacity());
    string.reserve(8);
    EXPECT_EQ(9u, string.capacity());
    string.reserve(20);
    EXPECT_EQ(21u, string.capacity());
    string.resize(2);
    EXPECT_EQ(21u, string.capacity());
    EXPECT_EQ(20u, string.substr(1).capacity()) << "less by what lies in front";
    EXPECT_EQ(string, u"ab");
}

TEST(Capacity, ComesFromTheFrontOfTheBufferFirst) {
    TovUniString string(u"0123456789");
    string = string.substr(6);
    const TovUChar *front = string.begin() - 6;
    const long before = allocationCount();
    string.reserve(10);
    EXPECT_EQ(before, allocationCount());
    EXPECT_EQ(front, string.begin());
    EXPECT_EQ(string, u"6789");
    string = string.substr(1);
    string.reserve(30);
    EXPECT_EQ(string, u"789") << "a text that moves with its buffer";
    EXPECT_EQ(31u, string.capacity());
}

TEST(Capacity, OfASharedBufferIsNotTakenFromTheOthers) {
    TovUniString all(u"0123456789"), part = all.substr(2, 3);
    part.reserve(30);
    EXPECT_EQ(part, u"234");
    part = all.substr(2, 3);
    part.resize(5); // within the buffer: the text of the other, to be written over by a caller
    part.append(2, u'x');
    EXPECT_EQ(all, u"0123456789");
    EXPECT_EQ(part.substr(5), u"xx");
}

// Growing by steps of the told capacity would move a text of 100 000 units 10 000 times.
TEST(Capacity, GrowsInFewMoves) {
    TovUniString string;
    const long before = allocationCount();
    for (int i = 0; i < 100000; ++i)
        string.append(u'x');
    EXPECT_LT(allocationCount() - before, 20);
    EXPECT_LE(string.capacity(), 100000u + 11) << "what is told grows by tens all the same";
}

TEST(Resize, TakesATerminatorIntoTheString) {
    auto string = TovUniString::fromStatic(u"abc", 3, true);
    EXPECT_EQ(4u, string.capacity());
    string.resize(4);
    EXPECT_EQ("Static", kindOf(string));
    EXPECT_EQ(string, std::u16string_view(u"abc\0", 4));
}

TEST(Resize, OfNothingGivesZeros) {
    TovUniString string;
    string.resize(1);
    EXPECT_EQ(string, std::u16string_view(u"\0", 1));
    EXPECT_EQ("Heap", kindOf(string));
    EXPECT_TRUE(TovUniString().empty()) << "the unit that all empty strings view";
    TovUniString heap(u"abc");
    heap.resize(0);
    EXPECT_EQ(4u, heap.capacity()) << "a buffer stays";
}

TEST(CStr, CopiesOnlyWhatItMustNotTerminate) {
    const auto isCopied = [](TovUniString &string) {
        const TovUChar *begin = string.begin();
        const std::u16string text(string.view());
        const TovUChar *terminated = string.c_str();
        EXPECT_EQ(text, terminated);
        EXPECT_EQ(string, text);
        return terminated != begin;
    };
    TovUniString alone(u"abcdef");
    alone = alone.substr(1, 3);
    EXPECT_FALSE(isCopied(alone)) << "a part of a buffer of its own";

    TovUniString all(u"abcdef"), middle = all.substr(1, 3), tail = all.substr(3);
    EXPECT_TRUE(isCopied(middle)) << "a part of a shared buffer";
    EXPECT_EQ(all, u"abcdef");
    all.c_str();
    tail = all.substr(3);
    EXPECT_FALSE(isCopied(tail)) << "a part in front of a 0";

    TovUniString full(u"ab");
    full.resize(3);
    full.writable()[2] = u'c';
    EXPECT_TRUE(isCopied(full)) << "a buffer that is full";

    auto literal = TovUniString::fromStatic(u"abcdef", 6, true);
    TovUniString front = literal.substr(0, 3), back = literal.substr(3);
    EXPECT_TRUE(isCopied(front)) << "the flag of the whole literal";
    EXPECT_FALSE(isCopied(back));
}

TEST(Substr, IsEmptyBehindTheEnd) {
    const TovUniString string(u"abc");
    EXPECT_EQ("Empty+0", kindOf(string.substr(4)));
    EXPECT_EQ("Empty+0", kindOf(string.substr(TovUniString::npos)));
    const TovUniString atEnd = string.substr(3);
    EXPECT_EQ(atEnd.begin(), string.end()) << "at the end it still views the text";
    EXPECT_EQ(string.substr(1, TovUniString::npos), u"bc");
    EXPECT_EQ(string.substr(1, 1), u"b");
}

// Bytes -----------------------------------------------------------------------------------------------

TEST(FromBytes, ConvertsFromTheProcessLocale) {
    const struct {
        const char *why;
        std::string bytes;
        std::u16string text;
    } rows[] = {
        {"ASCII", "abc", u"abc"},
        {"nothing", "", u""},
        {"UTF-8", "\xC3\xA4\xE2\x82\xAC", u"\u00E4\u20AC"},
        {"bytes that are no text", "\xFF\xFE", u""},
        {"a NUL is a character", std::string("a\0b", 3), std::u16string(u"a\0b", 3)},
    };
    const auto heap = TovFastHeap::create(0);
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        const auto size = static_cast<unsigned>(row.bytes.size());
        TovUniString plain = TovUniString::fromBytes(row.bytes.data(), size);
        TovUniString onHeap = TovUniString::fromBytes(row.bytes.data(), size, heap.get());
        TovUniString fixed;
        fixed.initStatic(row.bytes.data(), size);
        for (TovUniString *string : {&plain, &onHeap, &fixed}) {
            EXPECT_EQ(*string, row.text);
            const TovUChar *begin = string->begin();
            EXPECT_EQ(0, string->c_str()[string->length()]);
            EXPECT_EQ(begin, string->begin()) << "terminated from the start";
        }
    }
    EXPECT_EQ(TovUniString::fromBytes("up to the NUL", TovUniString::npos), u"up to the NUL");
}

// Limits and failures ---------------------------------------------------------------------------------

template <class Call>
void refuses(Call call) {
    try {
        call();
        ADD_FAILURE() << "not refused";
    } catch (const TovError &error) {
        EXPECT_EQ(21020u, error.getReturnCode());
        EXPECT_NE(std::string::npos, std::string(error.getErrorMessage()).find("length <= "));
    }
}

TEST(Limits, AreRefusedAndTheStringStays) {
    constexpr unsigned npos = TovUniString::npos;
    for (const char *kind : c_kinds) {
        SCOPED_TRACE(kind);
        Subject subject = make(kind);
        TovUniString &string = subject.string;
        const std::u16string text(string.view());
        refuses([&] { string.resize(npos); });
        refuses([&] { string.reserve(npos); });
        refuses([&] { string.append(npos, u'x'); });
        refuses([&] { string.append(std::u16string_view(c_text, std::size_t(1) << 32)); });
        refuses([&] { string.append(npos - string.length(), u'x'); });
        refuses([&] { string.insert(0, npos - string.length(), u'x'); });
        refuses([&] { string.appendUInt32(5, npos); });
        refuses([&] { string.appendInt32(-5, npos); });
        EXPECT_EQ(string, text);
    }
    refuses([] { TovUniString(std::u16string_view(c_text, std::size_t(1) << 32)); });
    refuses([] { TovUniString::fromBytes("", 0x80000000U); });
    refuses([] { TovUniString().initStatic("", 0x80000000U); });
}

TEST(Failures, LeaveEachStringItsText) {
    using Operation = void (*)(TovUniString &);
    const struct {
        const char *name;
        Operation operation;
    } operations[] = {
        {"copyOnWrite", [](TovUniString &s) { s.copyOnWrite(); }},
        {"unshare", [](TovUniString &s) { s.unshare(); }},
        {"c_str", [](TovUniString &s) { s.c_str(); }},
        {"reserve", [](TovUniString &s) { s.reserve(600); }},
        {"resize", [](TovUniString &s) { s.resize(600); }},
        {"append a unit", [](TovUniString &s) { s.append(u'x'); }},
        {"append one of a count", [](TovUniString &s) { s.append(1, u'x'); }},
        {"append many", [](TovUniString &s) { s.append(600, u'x'); }},
        {"append a text", [](TovUniString &s) { s.append(u" and more"); }},
        {"append itself", [](TovUniString &s) { s.append(s.view()); }},
        {"append a number", [](TovUniString &s) { s.appendInt32(-12345, 300); }},
        {"insert", [](TovUniString &s) { s.insert(1, 600, u'x'); }},
        {"copy", [](TovUniString &s) { TovUniString copy(s); }},
        {"assign", [](TovUniString &s) { s = TovUniString(s.view()); }},
        {"assign a part", [](TovUniString &s) { s = s.substr(2, 3); }},
        {"trimSpaces", [](TovUniString &s) { s.trimSpaces(); }},
        {"trimWs", [](TovUniString &s) { s.trimWs(); }},
        {"stripPads", [](TovUniString &s) { s.stripPads(TovUniString::JustifyCenter, u'd'); }},
        {"strtoul",
         [](TovUniString &s) {
             const TovUChar *at = s.begin();
             s.strtoul(at, 10);
         }},
        {"to a heap", [](TovUniString &s) { TovUniString(TovFastHeap::create(0), s); }},
    };
    TovUniString::emptyString();
    for (const char *kind : c_kinds) {
        for (const auto &row : operations) {
            SCOPED_TRACE(std::string(row.name) + " of " + kind);
            const std::u16string text(make(kind).string.view());
            const long before = liveAllocations();
            tovtest::failEachAllocation<TovError, std::bad_alloc>(
                [&] { return make(kind); }, [&](Subject &subject) { row.operation(subject.string); },
                [&](Subject &subject) {
                    EXPECT_EQ(subject.string, text);
                    if (subject.other) {
                        EXPECT_EQ(*subject.other, text);
                    }
                });
            if (HasFailure())
                return;
            EXPECT_EQ(before, liveAllocations());
        }
    }
}

TEST(OutOfMemory, UniString) {
    const auto heap = TovFastHeap::create(0);
    const std::function<void()> calls[] = {
        [] { TovUniString copy(std::u16string_view(u"text")); },
        [] { TovUniString::fromStatic(u"text", 4); },
        [] { TovUniString::fromLocal(u"text", 4); },
        [&] { TovUniString::fromHeap(u"text", 4, heap.get()); },
        [] { TovUniString::fromHeap(u"text", 4); },
        [] { TovUniString::fromBytes("text", 4); },
        [] { TovUniString().initStatic("text", 4); },
    };
    const long before = liveAllocations();
    for (const auto &call : calls)
        tovtest::failEachAllocation<TovError, std::bad_alloc>([] { return 0; }, [&](int) { call(); },
                                                              [](int) {});
    EXPECT_EQ(before, liveAllocations());
}

TEST(OutOfMemory, StringModules) {
#ifdef TOV_THREAD_SANITIZER
    GTEST_SKIP() << "this sanitizer's pthread_once lets no exception through";
#endif
    const auto forget = [](TovPoolCtrl &pool, pthread_once_t &once, void (*release)()) {
        release();
        pool = {};
        once = PTHREAD_ONCE_INIT;
    };
    tovtest::failEachAllocation<std::bad_alloc>(
        [&] {
            forget(TovUtStr::ms_pool, TovUtStr::ms_lock, TovUtStr_release);
            forget(TovUtStrPool::ms_pool, TovUtStrPool::ms_lock, TovUtStrPool_release);
            return 0;
        },
        [](int) { TovUniString::emptyString(); }, [](int) { EXPECT_EQ(TovUniString(), u""); });
}

// The modules -----------------------------------------------------------------------------------------

TEST(Modules, ServeThreadsThatComeTogether) {
    TovUtStr_release();
    TovUtStrPool_release();
    TovUtStr::ms_pool = TovUtStrPool::ms_pool = {};
    TovUtStr::ms_lock = TovUtStrPool::ms_lock = PTHREAD_ONCE_INIT;
    std::vector<std::thread> threads;
    std::vector<const void *> seen(8);
    for (const void *&address : seen)
        threads.emplace_back([&address] {
            auto local = TovUniString::emptyString();
            local.append(u"text");
            const auto literal = TovUniString::fromStatic(u"shared by all", 13);
            EXPECT_EQ(TovUniString(literal).begin(), literal.begin());
            address = &TovUniString::emptyString();
        });
    for (std::thread &thread : threads)
        thread.join();
    EXPECT_EQ(std::vector<const void *>(8, &TovUniString::emptyString()), seen);
    EXPECT_EQ("Static+0", kindOf(TovUniString::emptyString()));
}

} // namespace
