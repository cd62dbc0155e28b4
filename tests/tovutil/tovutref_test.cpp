#include <support/failalloc.h>
#include <tovutil/toverrfl.h>
#include <tovutil/tovutref.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <new>
#include <sstream>
#include <string>
#include <type_traits>
#include <utility>

namespace {

// Tells what happens to it: "r" referenced, "u" unreferenced, "d" destroyed.
class Watched : public TovUtRefBase {
public:
    explicit Watched(std::string &log, bool survives = false) : m_log(log), m_survives(survives) {}
    ~Watched() override { m_log += 'd'; }
    void referenced() override { m_log += 'r'; }
    void unreferenced() override {
        m_log += 'u';
        if (!m_survives)
            TovUtRefBase::unreferenced();
    }

    TovUtRef<Watched> m_next;

private:
    std::string &m_log;
    const bool m_survives;
};

using Ref = TovUtRef<Watched>;

static_assert(sizeof(Ref) == sizeof(void *), "a reference costs one pointer");
static_assert(sizeof(TovUtRefBase) == 2 * sizeof(void *), "a count behind the virtual operations");
static_assert(!std::is_convertible_v<Watched *, Ref>, "a pointer is taken on purpose only");
static_assert(!std::is_convertible_v<Ref, bool>);
static_assert(std::is_nothrow_move_constructible_v<Ref>);

TEST(RefCount, FiresOnTheExactTransitions) {
    std::string log;
    {
        const Ref first(new Watched(log));
        EXPECT_EQ("r", log);
        {
            const Ref second(first);
            EXPECT_EQ(2, first->count());
        }
        EXPECT_EQ("r", log);
        EXPECT_EQ(1, first->count());
    }
    EXPECT_EQ("rud", log);
}

TEST(RefCount, FiresAgainForAnObjectThatSurvives) {
    std::string log;
    {
        Watched object(log, true);
        EXPECT_EQ(0, object.count());
        for (int i = 0; i < 2; ++i)
            const Ref ref(&object);
        EXPECT_EQ("ruru", log);
        EXPECT_EQ(0, object.count());
        object.addReference();
        object.addReference();
        object.dropReference();
        EXPECT_EQ("rurur", log);
        object.dropReference();
    }
    EXPECT_EQ("rururud", log);
}

TEST(RefCount, WrapsBeyondItsLargestValue) {
    std::string log;
    Watched object(log, true);
    const std::int32_t largest = INT32_MAX;
    std::memcpy(reinterpret_cast<char *>(static_cast<TovUtRefBase *>(&object)) + sizeof(void *), &largest,
                sizeof largest);
    object.addReference();
    EXPECT_EQ(INT32_MIN, object.count());
    object.dropReference();
    EXPECT_EQ(INT32_MAX, object.count());
    EXPECT_EQ("", log);
}

TEST(RefCount, DeletesThroughTheBase) {
    std::string log;
    { const TovUtRef<TovUtRefBase> ref(new Watched(log)); }
    EXPECT_EQ("rud", log);
}

TEST(Ref, AssignsFromAnySource) {
    // Two objects; "a" holds the first, "b" the second, each with one reference. The logs tell what
    // became of the objects, and "a" is what the row says.
    const struct {
        const char *why;
        void (*assign)(Ref &a, Ref &b);
        const char *wantedA, *wantedB;
        bool holdsFirst, holdsSecond;
    } rows[] = {
        {"copy", [](Ref &a, Ref &b) { a = b; }, "rud", "r", false, true},
        {"move", [](Ref &a, Ref &b) { a = std::move(b); }, "rud", "r", false, true},
        {"pointer", [](Ref &a, Ref &b) { a = b.get(); }, "rud", "r", false, true},
        {"itself", [](Ref &a, Ref &) { a = *&a; }, "r", "r", true, false},
        {"itself, moved", [](Ref &a, Ref &) { a = std::move(*&a); }, "r", "r", true, false},
        {"its own pointer", [](Ref &a, Ref &) { a = a.get(); }, "r", "r", true, false},
        {"reset to its own pointer", [](Ref &a, Ref &) { a.reset(a.get()); }, "r", "r", true, false},
        {"null", [](Ref &a, Ref &) { a = nullptr; }, "rud", "r", false, false},
        {"reset", [](Ref &a, Ref &) { a.reset(); }, "rud", "r", false, false},
        {"empty", [](Ref &a, Ref &) { a = Ref(); }, "rud", "r", false, false},
        {"swap", [](Ref &a, Ref &b) { a.swap(b); }, "r", "r", false, true},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        std::string logA, logB;
        auto *first = new Watched(logA);
        auto *second = new Watched(logB);
        {
            Ref a(first), b(second);
            row.assign(a, b);
            EXPECT_EQ(row.wantedA, logA);
            EXPECT_EQ(row.wantedB, logB);
            EXPECT_EQ(row.holdsFirst, a.get() == first);
            EXPECT_EQ(row.holdsSecond, a.get() == second);
            EXPECT_EQ(row.holdsFirst || row.holdsSecond, static_cast<bool>(a));
        }
        EXPECT_EQ("rud", logA);
        EXPECT_EQ("rud", logB);
    }
}

TEST(Ref, TakesWhatTheOldObjectOwns) {
    using Assign = void (*)(Ref &);
    for (Assign assign :
         {Assign([](Ref &ref) { ref = ref->m_next; }), Assign([](Ref &ref) { ref = std::move(ref->m_next); }),
          Assign([](Ref &ref) { ref = ref->m_next.get(); })}) {
        std::string ownerLog, log;
        Ref ref(new Watched(ownerLog));
        ref->m_next = new Watched(log);
        assign(ref);
        EXPECT_EQ("rud", ownerLog);
        EXPECT_EQ("r", log);
        EXPECT_EQ(1, ref->count());
    }
}

TEST(Ref, MayLieInTheObjectThatItLetsGo) {
    std::string log;
    auto *object = new Watched(log);
    object->m_next = object;
    object->m_next.reset();
    EXPECT_EQ("rud", log);
}

TEST(Ref, TouchesNothingWhileEmpty) {
    const Ref empty;
    const Ref null(nullptr);
    const Ref copy(empty);
    EXPECT_FALSE(empty);
    EXPECT_EQ(empty, null);
    EXPECT_EQ(nullptr, copy.get());
}

TEST(Ref, ComparesByObject) {
    std::string log;
    const Ref one(new Watched(log)), same(one), other(new Watched(log));
    EXPECT_TRUE(one == same);
    EXPECT_TRUE(one != other);
}

std::string raisedBy(void (*use)(const Ref &)) {
    try {
        use(Ref());
    } catch (const TovErrorFull &error) {
        EXPECT_EQ(TOVRC_INTERNAL_ERROR, error.getReturnCode());
        return std::string(error.getErrorMessage()) + "|" + error.getLocation();
    }
    return "nothing";
}

TEST(Ref, RaisesWhenDereferencedEmpty) {
    for (auto use : {+[](const Ref &ref) { (void)*ref; }, +[](const Ref &ref) { (void)ref->count(); }}) {
        const std::string raised = raisedBy(use);
        EXPECT_EQ("TOVRC_INTERNAL_ERROR  Pos(1) ErrorType(ERROR),\nInternal error: 0|From (), Line(25) in "
                  "module (tovutref)",
                  raised.substr(0, raised.find(" Build(")));
    }
}

TEST(RefTrace, WritesReferencePointerAndCount) {
    std::string log;
    const Ref full(new Watched(log)), empty;
    const struct {
        const Ref &ref;
        const char *count;
    } rows[] = {{full, "1"}, {empty, "0"}};
    for (const auto &row : rows) {
        std::ostringstream traced, wanted;
        row.ref.trace(traced);
        wanted << "TovUtRef(ref(" << static_cast<const void *>(&row.ref) << ") ptr("
               << static_cast<const void *>(row.ref.get()) << ") count(" << row.count << ") )";
        EXPECT_EQ(wanted.str(), traced.str());
    }
}

TEST(OutOfMemory, RefTrace) {
    const Ref empty;
    tovtest::failEachAllocation<std::bad_alloc>([] { return 0; },
                                                [&](int) {
                                                    std::ostringstream stream;
                                                    empty.trace(stream);
                                                },
                                                [](int) {});
}

TEST(OutOfMemory, RefRaiseError) {
    const Ref empty;
    tovtest::failEachAllocation<TovError>(
        [] { return 0; },
        [&](int) {
            try {
                (void)*empty;
                ADD_FAILURE() << "nothing raised";
            } catch (const TovErrorFull &error) {
                EXPECT_EQ(TOVRC_INTERNAL_ERROR, error.getReturnCode());
            } catch (const std::bad_alloc &) { // the body of an error comes from operator new
            }
        },
        [](int) {});
}

} // namespace
