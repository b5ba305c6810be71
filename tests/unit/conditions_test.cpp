// Unit tests of what the condition pages (tests/pages/conditions) cannot
// see: the like-pattern cache and its eviction, the date-digit reader on
// a short source, and today's date without a heap.
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

TEST(Conditions, TodayIsTheLocalDateCutToItsBuffer) {
    char s[V_TODAY_SIZE] = "x";
    ASSERT_TRUE(V_today(s, sizeof s));
    time_t now = time(nullptr);
    struct tm tm;
    localtime_r(&now, &tm);
    char want[32];
    snprintf(want, sizeof want, "%04d-%02d-%02d", tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday);
    EXPECT_STREQ(s, want);
    EXPECT_EQ(V_check_date(s), 0);
    // one byte short: nothing written past the buffer, and it reads empty
    char shortbuf[V_TODAY_SIZE - 1] = "x";
    EXPECT_FALSE(V_today(shortbuf, sizeof shortbuf));
    EXPECT_STREQ(shortbuf, "");
    EXPECT_FALSE(V_today(nullptr, V_TODAY_SIZE));
}

}   // namespace
