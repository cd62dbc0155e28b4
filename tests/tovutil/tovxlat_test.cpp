#include <tovutil/tovxlat.h>

#include <gtest/gtest.h>

#include <cstdint>

namespace {

constexpr TovXlatEntry s_empty[] = {{7, nullptr}};
constexpr TovXlatEntry s_table[] = {{1, "one"}, {-1, "minus"}, {1, "uno"},   {2, "one"},
                                    {0, ""},    {3, "Case"},   {9, nullptr}, {4, "behind the end"}};

TEST(TovXlatEntry, FindsTheFirstRowWithAText) {
    constexpr std::int32_t none = -99;
    const struct {
        const char *why;
        const TovXlatEntry *table;
        TovString text;
        std::int32_t want;
    } rows[] = {
        {"the first of two rows", s_table, "one", 1},
        {"a row further on", s_table, "uno", 1},
        {"an empty text", s_table, "", 0},
        {"a letter in the other case", s_table, "case", none},
        {"a byte more", s_table, "ones", none},
        {"a byte less", s_table, "on", none},
        {"a NUL inside", s_table, {"one\0", 4}, none},
        {"a row behind the end", s_table, "behind the end", none},
        {"an empty table", s_empty, "", none},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_EQ(row.want, row.table->getValue(row.text, none));
        const std::int32_t *value = row.table->lookupValue(row.text);
        ASSERT_EQ(row.want != none, value != nullptr);
        if (value) {
            EXPECT_EQ(row.want, *value);
        }
    }
}

TEST(TovXlatEntry, FindsTheFirstRowWithAValue) {
    const struct {
        const char *why;
        const TovXlatEntry *table;
        std::int32_t value;
        const char *want; // null: not there
        TovString printed;
    } rows[] = {
        {"the first of two rows", s_table, 1, "one", "one"},
        {"a negative number", s_table, -1, "minus", "minus"},
        {"an empty text", s_table, 0, "", ""},
        {"the value of the end row", s_table, 9, nullptr, "#9"},
        {"a row behind the end", s_table, 4, nullptr, "#4"},
        {"an empty table", s_empty, 7, nullptr, "#7"},
        {"a negative number that is not there", s_table, -2, nullptr, "#-2"},
        {"the smallest number", s_table, INT32_MIN, nullptr, "#-2147483648"},
    };
    for (const auto &row : rows) {
        SCOPED_TRACE(row.why);
        EXPECT_STREQ(row.want ? row.want : "default", row.table->getText(row.value, "default"));
        EXPECT_STREQ(row.want, row.table->getText(row.value, nullptr));
        EXPECT_EQ(row.printed, row.table->print(row.value));
    }
}

} // namespace
