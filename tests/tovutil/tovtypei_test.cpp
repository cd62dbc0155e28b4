#include <support/failalloc.h>
#include <tovutil/tovtypei.h>

#include <gtest/gtest.h>

#include <new>
#include <stdexcept>
#include <string>

namespace {

static_assert(sizeof(TovTypeInfo) == 3 * sizeof(void *));
static_assert(sizeof(TovRttiBase) == sizeof(void *));

constexpr char c_name[] = "Shape";
constexpr char c_equalText[] = "Shape";

TEST(TypeInfo, ComparesNamesByAddress) {
    int extra = 0;
    const TovTypeInfo shape(c_name, nullptr), same(c_name, &extra), equalText(c_equalText, nullptr);
    const struct {
        const char *why;
        const TovTypeInfo &one, &other;
        int equal;
    } rows[] = {
        {"one descriptor", shape, shape, 1},
        {"one name, another extra pointer", shape, same, 1},
        {"equal texts at two addresses", shape, equalText, 0},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(row.equal, row.one == row.other);
        EXPECT_EQ(1 - row.equal, row.one != row.other);
        EXPECT_EQ(0, row.one.before(row.other));
        EXPECT_EQ(0, row.other.before(row.one));
    }
    EXPECT_EQ(c_name, shape.name());
    EXPECT_EQ(c_name, shape.raw_name());
}

std::string castError(const char *from, const char *to) {
    try {
        TovTypeInfo(to, nullptr).badRefCast(TovTypeInfo(from, nullptr));
    } catch (const std::runtime_error &error) {
        return error.what();
    }
}

TEST(TypeInfo, TellsBothNamesOfABadCast) {
    EXPECT_EQ("bad reference conversion from type: 'A' to type: 'B'", castError("A", "B"));
    EXPECT_EQ("bad reference conversion from type: '' to type: 'B'", castError(nullptr, "B"));
}

class Shape : public TovRttiBase {
public:
    static const TovTypeInfo s_type;
    const TovTypeInfo &getTypeInfo() const override { return s_type; }
    void *castTo(const TovTypeInfo &target, void *unused) override {
        m_unused = unused;
        return target == s_type ? this : nullptr;
    }
    void *m_unused = this;
};
const TovTypeInfo Shape::s_type(c_name, nullptr);

TEST(RttiBase, CastsByDescriptorWithoutTheSecondArgument) {
    Shape shape;
    int something = 0;
    for (void *unused : {static_cast<void *>(nullptr), static_cast<void *>(&something)}) {
        EXPECT_EQ(&shape, shape.rttiCast(Shape::s_type, unused));
        EXPECT_EQ(nullptr, shape.m_unused);
        EXPECT_EQ(nullptr, shape.rttiCast(TovTypeInfo(c_equalText, nullptr), unused));
    }
}

TEST(OutOfMemory, TypeInfoBadRefCast) {
    const std::string longName(100, 'n');
    tovtest::failEachAllocation<std::bad_alloc>(
        [] { return 0; },
        [&](int) {
            try {
                TovTypeInfo("A", nullptr).badRefCast(TovTypeInfo(longName.c_str(), nullptr));
            } catch (const std::runtime_error &) {
            }
        },
        [](int) {});
}

} // namespace
