// Unit tests of the comparisons (every operator and its entity form), the
// like-pattern expressions and their cache, and the value-form tests.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>

#include "interp/conditions.h"
#include "patt/like.h"
#include "values/block_heap.h"
#include "values/dates.h"
#include "values/variables.h"

namespace {

struct OpCase {
    const char *op;
    int less, equal, greater;   // expected results for l<r, l==r, l>r
};

// 0 holds, -1 does not.
const OpCase relational[] = {
    {">=", -1, 0, 0},   {"&ge;", -1, 0, 0}, {"&gt;=", -1, 0, 0},
    {"<=", 0, 0, -1},   {"&le;", 0, 0, -1}, {"&lt;=", 0, 0, -1},
    {"!=", 0, -1, 0},   {"==", -1, 0, -1},  {"=", -1, 0, -1},
    {">", -1, -1, 0},   {"&gt;", -1, -1, 0},
    {"<", 0, -1, -1},   {"&lt;", 0, -1, -1},
};

TEST(Conditions, CmpEveryRelationalOperator) {
    for (const OpCase &c : relational) {
        EXPECT_EQ(V_user_cmp("abc", c.op, "abd"), c.less) << c.op;
        EXPECT_EQ(V_user_cmp("abc", c.op, "abc"), c.equal) << c.op;
        EXPECT_EQ(V_user_cmp("abd", c.op, "abc"), c.greater) << c.op;
    }
}

TEST(Conditions, IcmpAndFcmpEveryOperator) {
    for (const OpCase &c : relational) {
        EXPECT_EQ(V_user_icmp(9, c.op, 10), c.less) << c.op;
        EXPECT_EQ(V_user_icmp(-3, c.op, -3), c.equal) << c.op;
        EXPECT_EQ(V_user_icmp(10, c.op, 9), c.greater) << c.op;
        EXPECT_EQ(V_user_fcmp(1.25, c.op, 1.5), c.less) << c.op;
        EXPECT_EQ(V_user_fcmp(2.0, c.op, 2.0), c.equal) << c.op;
        EXPECT_EQ(V_user_fcmp(1.5, c.op, 1.25), c.greater) << c.op;
    }
}

TEST(Conditions, StringOrderIsNotNumericOrder) {
    EXPECT_EQ(V_user_icmp(10, ">", 9), 0);
    EXPECT_EQ(V_user_cmp("10", ">", "9"), -1);
    EXPECT_EQ(V_user_cmp("", "<", "a"), 0);
}

TEST(Conditions, LikeOperators) {
    EXPECT_EQ(V_user_cmp("abc", "like", "a*"), 0);
    EXPECT_EQ(V_user_cmp("xbc", "like", "a*"), -1);
    EXPECT_EQ(V_user_cmp("abc", "!like", "a*"), -1);
    EXPECT_EQ(V_user_cmp("xbc", "!like", "a*"), 0);
    // The subject is the left side, the pattern the right.
    EXPECT_EQ(V_user_cmp("a*", "like", "abc"), -1);
}

TEST(Conditions, VlikeReadsTheVariable) {
    ASSERT_EQ(V_put_value("conditions_test_v", "hello", 0, 0), 0);
    EXPECT_EQ(V_user_cmp("conditions_test_v", "vlike", "h*o"), 0);
    EXPECT_EQ(V_user_cmp("conditions_test_v", "vlike", "x*"), -1);
    EXPECT_EQ(V_user_cmp("conditions_test_v", "!vlike", "h*o"), -1);
    EXPECT_EQ(V_user_cmp("conditions_test_v", "!vlike", "x*"), 0);
    // No such variable: vlike never holds, !vlike always does.
    EXPECT_EQ(V_user_cmp("conditions_test_none", "vlike", "*"), -1);
    EXPECT_EQ(V_user_cmp("conditions_test_none", "!vlike", "*"), 0);
}

TEST(Conditions, PatternExpressionSplitting) {
    EXPECT_EQ(V_CMPpatt("x*||y*", "yes"), 0);
    EXPECT_EQ(V_CMPpatt("x*||y*", "no"), -1);
    EXPECT_EQ(V_CMPpatt("a*&&*b", "ab"), 0);
    EXPECT_EQ(V_CMPpatt("a*&&*b", "ac"), -1);
    EXPECT_EQ(V_CMPpatt("a*&&*b", "cb"), -1);
    // a||b&&c is a or (b and c).
    EXPECT_EQ(V_CMPpatt("a||b&&c", "a"), 0);
    EXPECT_EQ(V_CMPpatt("a||b&&c", "b"), -1);
    EXPECT_EQ(V_CMPpatt("a||b*&&*c", "bc"), 0);
    // The part before "||" is one whole pattern, "&&" included.
    EXPECT_EQ(V_CMPpatt("a&&b||c", "a&&b"), 0);
    EXPECT_EQ(V_CMPpatt("a&&b||c", "a"), -1);
    EXPECT_EQ(V_CMPpatt("a&&b||c", "c"), 0);
    // Empty parts match everything.
    EXPECT_EQ(V_CMPpatt("", "anything"), 0);
    EXPECT_EQ(V_CMPpatt("zz||", "anything"), 0);
    EXPECT_EQ(V_CMPpatt("&&z", "z"), 0);
}

int slot_of(const std::string &patt) {
    for (int i = 0; i < V_PATT_CACHE; i++)
        if (v_pattCACHE[i].patt && patt == v_pattCACHE[i].patt) return i;
    return -1;
}

TEST(Conditions, PatternCacheEvictsInInsertionOrder) {
    // Whatever the cache held before, 128 new patterns fill all of it.
    std::string p[131];
    for (int i = 0; i < 131; i++) p[i] = "cache_test_" + std::to_string(i) + "*";
    for (int i = 0; i < 128; i++) EXPECT_EQ(V_CMPexec(p[i].c_str(), "x"), -1);
    for (int i = 0; i < 128; i++) ASSERT_NE(slot_of(p[i]), -1) << i;

    // Using an entry again does not protect it: eviction is by age.
    int first = slot_of(p[0]), second = slot_of(p[1]);
    EXPECT_EQ(V_CMPexec(p[0].c_str(), "cache_test_0 hit"), 0);
    EXPECT_EQ(V_CMPexec(p[128].c_str(), "cache_test_128"), 0);
    EXPECT_EQ(slot_of(p[0]), -1);
    EXPECT_EQ(slot_of(p[128]), first);
    EXPECT_EQ(slot_of(p[1]), second);
    EXPECT_EQ(V_CMPexec(p[129].c_str(), "cache_test_129!"), 0);
    EXPECT_EQ(slot_of(p[1]), -1);
    EXPECT_EQ(slot_of(p[129]), second);
    EXPECT_NE(slot_of(p[2]), -1);

    // An evicted pattern comes back compiled afresh and still matches.
    EXPECT_EQ(V_CMPexec(p[0].c_str(), "cache_test_0"), 0);
    EXPECT_NE(slot_of(p[0]), -1);
}

TEST(Conditions, EmptyPatternIsCachedNotAnError) {
    EXPECT_EQ(V_CMPexec("", "abc"), 0);
    EXPECT_EQ(V_CMPexec("[]", "abc"), 0);
    int s = slot_of("[]");
    ASSERT_NE(s, -1);
    EXPECT_EQ(v_pattCACHE[s].korPATT, nullptr);
}

TEST(Conditions, CheckInt) {
    EXPECT_EQ(V_check_int("0123456789"), 0);
    EXPECT_EQ(V_check_int(""), 0);
    EXPECT_EQ(V_check_int("-1"), -1);
    EXPECT_EQ(V_check_int("+1"), -1);
    EXPECT_EQ(V_check_int("12a"), -1);
    EXPECT_EQ(V_check_int(" 1"), -1);
}

TEST(Conditions, CheckFloat) {
    EXPECT_EQ(V_check_float("3.14"), 0);
    EXPECT_EQ(V_check_float("42"), 0);
    EXPECT_EQ(V_check_float(".5"), 0);
    EXPECT_EQ(V_check_float("5."), 0);
    EXPECT_EQ(V_check_float("."), 0);
    EXPECT_EQ(V_check_float(""), 0);
    EXPECT_EQ(V_check_float("1.2.3"), -1);
    EXPECT_EQ(V_check_float(".."), -1);
    EXPECT_EQ(V_check_float("-1.5"), -1);
    EXPECT_EQ(V_check_float("1e5"), -1);
}

TEST(Conditions, CheckDate) {
    EXPECT_EQ(V_check_date("2024-01-31"), 0);
    EXPECT_EQ(V_check_date("2023-02-29"), 0);   // no leap-year rule
    EXPECT_EQ(V_check_date("0000-12-31"), 0);
    EXPECT_EQ(V_check_date("2023-02-30"), -1);
    EXPECT_EQ(V_check_date("2023-04-31"), -1);
    EXPECT_EQ(V_check_date("2023-13-01"), -1);
    EXPECT_EQ(V_check_date("2023-00-10"), -1);
    EXPECT_EQ(V_check_date("2023-01-00"), -1);
    EXPECT_EQ(V_check_date("2023-1-01"), -1);
    EXPECT_EQ(V_check_date("2023-01-011"), -1);
    EXPECT_EQ(V_check_date("2023/01/01"), -1);
    EXPECT_EQ(V_check_date("2023-0a-01"), -1);
    EXPECT_EQ(V_check_date("-023-01-01"), -1);
    EXPECT_EQ(V_check_date(""), -1);
}

TEST(Conditions, GetInt) {
    char dst[8];
    EXPECT_EQ(V_get_int("2024-05", dst, 4), 0);
    EXPECT_STREQ(dst, "2024");
    EXPECT_EQ(V_get_int("12", dst, 2), 0);
    EXPECT_STREQ(dst, "12");
    EXPECT_EQ(V_get_int("1x3", dst, 3), -1);
    // A short source stops at its terminator instead of reading past it.
    EXPECT_EQ(V_get_int("1", dst, 4), -1);
    EXPECT_EQ(V_get_int("anything", dst, 0), 0);
    EXPECT_STREQ(dst, "");
}

TEST(Conditions, TodayIsTheLocalDateInTheHeap) {
    V_heap *hp = V_heap_new();
    char *s = V_today(hp);
    ASSERT_NE(s, nullptr);
    time_t now = time(nullptr);
    struct tm tm;
    localtime_r(&now, &tm);
    char want[32];
    snprintf(want, sizeof want, "%04d-%02d-%02d", tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday);
    EXPECT_STREQ(s, want);
    EXPECT_EQ(V_check_date(s), 0);
    EXPECT_EQ(V_today(nullptr), nullptr);
    V_heap_free(hp);
}

}  // namespace
