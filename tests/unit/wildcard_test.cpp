// Unit tests of the wildcard patterns: compiled node shapes, the collation
// ranks, set ranges, whole-string matching and hostile pattern texts.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>

#include "patt/wildcard.h"

namespace {

int rank(unsigned char c) {
    const char s[2] = {(char)c, 0};
    return vp_SYMcmp(s, "", 1);
}

bool match(const char *patt, const char *s) {
    PATTnode *p = kor_LOADpatt(patt);
    int r = kor_EXEpatt(p, s);
    kor_FREEpatt(p);
    return r == 0;
}

// The backtracking matcher the table replaced, kept as the reference: its
// results are what pages have always seen. Exponential on hostile patterns,
// so only small ones go through it.
constexpr int OLD_NO_MATCH_FURTHER = -2;

int old_exec(PATTnode *node, const char *s, int n) {
    int p = 0;
    while (node) {
        if (node->type == PATT_ANY_RUN) {
            if (p >= n && !node->next) return 0;
            if (p > n) return -1;
            for (int q = p; q <= n; q++) {
                int r = old_exec(node->next, s + q, n - q);
                if (r == 0) return 0;
                if (r == OLD_NO_MATCH_FURTHER) break;
            }
            return OLD_NO_MATCH_FURTHER;
        }
        if (node->type == PATT_NOWHERE) {
            if (p >= n && !node->next) return 0;
            if (p > n) return 0;
            for (int q = p; q <= n; q++) {
                int r = old_exec(node->next, s + q, n - q);
                if (r == 0) return -1;
                if (r == OLD_NO_MATCH_FURTHER) break;
            }
            return 0;
        }
        if (p >= n) return -1;
        if (kor_ORpatt(node, (unsigned char)s[p]) != 0) return -1;
        if (!node->next) return p == n - 1 ? 0 : -1;
        node = node->next;
        p++;
    }
    return 0;
}

int length(PATTnode *p, bool alt) {
    int n = 0;
    for (; p; p = alt ? p->alt : p->next) n++;
    return n;
}

TEST(Wildcard, NodeTypesOfPlainElements) {
    PATTnode *p = kor_LOADpatt("*?a!");
    ASSERT_NE(p, nullptr);
    ASSERT_EQ(length(p, false), 4);
    EXPECT_EQ(p->type, PATT_ANY_RUN);
    EXPECT_EQ(p->next->type, PATT_ONE);
    EXPECT_EQ(p->next->next->type, PATT_CHAR);
    EXPECT_EQ(p->next->next->c1, 'a');
    EXPECT_EQ(p->next->next->next->type, PATT_NOWHERE);
    kor_FREEpatt(p);
}

TEST(Wildcard, BracketSetIsOneChainOnAlt) {
    PATTnode *p = kor_LOADpatt("[xa-c]y");
    ASSERT_NE(p, nullptr);
    ASSERT_EQ(length(p, false), 2);
    ASSERT_EQ(length(p, true), 2);
    EXPECT_EQ(p->type, PATT_CHAR);
    EXPECT_EQ(p->c1, 'x');
    EXPECT_EQ(p->alt->type, PATT_RANGE);
    EXPECT_EQ(p->alt->c1, 'a');
    EXPECT_EQ(p->alt->c2, 'c');
    EXPECT_EQ(p->alt->next, nullptr);
    EXPECT_EQ(p->next->c1, 'y');
    kor_FREEpatt(p);

    p = kor_LOADpatt("[^xa-c]");
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(p->type, PATT_NOT_CHAR);
    EXPECT_EQ(p->alt->type, PATT_NOT_RANGE);
    kor_FREEpatt(p);
}

TEST(Wildcard, CloseBracketAsHighEndAndEmptySet) {
    // "]" in the third place of a range is its high end, not the close.
    PATTnode *p = kor_LOADpatt("[!-]b]");
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(p->type, PATT_RANGE);
    EXPECT_EQ(p->c1, '!');
    EXPECT_EQ(p->c2, ']');
    EXPECT_EQ(p->alt->c1, 'b');
    EXPECT_EQ(p->next, nullptr);
    kor_FREEpatt(p);

    p = kor_LOADpatt("[]a");
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(length(p, false), 1);
    EXPECT_EQ(p->c1, 'a');
    kor_FREEpatt(p);
    EXPECT_EQ(kor_LOADpatt("[]"), nullptr);
    EXPECT_EQ(kor_LOADpatt(""), nullptr);
    EXPECT_EQ(kor_LOADpatt(nullptr), nullptr);
}

TEST(Wildcard, BackslashEscapes) {
    for (const char *e : {"\\*", "\\!", "\\[", "\\]", "\\^", "\\-", "\\\\"}) {
        PATTnode *p = kor_LOADpatt(e);
        ASSERT_NE(p, nullptr) << e;
        EXPECT_EQ(length(p, false), 1) << e;
        EXPECT_EQ(p->type, PATT_CHAR) << e;
        EXPECT_EQ(p->c1, (unsigned char)e[1]) << e;
        kor_FREEpatt(p);
    }
    // Before "?" the backslash stays a literal and "?" a wildcard.
    PATTnode *p = kor_LOADpatt("\\?");
    ASSERT_EQ(length(p, false), 2);
    EXPECT_EQ(p->type, PATT_CHAR);
    EXPECT_EQ(p->c1, '\\');
    EXPECT_EQ(p->next->type, PATT_ONE);
    kor_FREEpatt(p);

    EXPECT_TRUE(match("a\\*", "a*"));
    EXPECT_FALSE(match("a\\*", "ab"));
    EXPECT_FALSE(match("\\?", "?"));
    EXPECT_TRUE(match("\\?", "\\?"));
    EXPECT_TRUE(match("\\?", "\\x"));
    EXPECT_TRUE(match("x\\", "x\\"));   // trailing backslash is a literal
}

TEST(Wildcard, AlphabetLayout) {
    EXPECT_EQ(strlen((const char *)SYMalphabet), 157u);
    EXPECT_EQ(rank(' '), 1);
    EXPECT_EQ(rank('^'), 63);
    EXPECT_EQ(rank('`'), 64);   // the underscore between them is left out
    EXPECT_EQ(rank('~'), 94);
    EXPECT_EQ(rank('_'), 0);
    EXPECT_EQ(rank(0), 0);
    EXPECT_EQ(rank('\n'), 0);
    EXPECT_EQ(rank(0x7F), 0);
    EXPECT_EQ(rank(0xC1), 95);    // first lower-case Russian letter
    EXPECT_EQ(rank(0xD1), 126);   // last one
    EXPECT_EQ(rank(0xAC), 121);   // hard sign, lower case
    EXPECT_EQ(rank(0xDF), 0);     // its KOI8-R code is not in the table
    EXPECT_EQ(rank(0xE1), 127);
    EXPECT_EQ(rank(0xAE), 152);   // hard sign, upper case
    EXPECT_EQ(rank(0xF1), 157);
    EXPECT_EQ(rank(0xE8), 0);   // absent upper-case letter
    EXPECT_EQ(rank(0xFF), 0);
}

TEST(Wildcard, SymcmpComparesRanksUpToN) {
    EXPECT_EQ(vp_SYMcmp("ab", "ac", 1), 0);
    EXPECT_EQ(vp_SYMcmp("ab", "ac", 2), -1);
    EXPECT_EQ(vp_SYMcmp("ab", "ac", 0), 0);
    EXPECT_EQ(vp_SYMcmp("ab", "ac", -5), 0);
    EXPECT_EQ(vp_SYMcmp("a", "a", 10), 0);   // stops at the end of a
    EXPECT_LT(vp_SYMcmp("", "a", 3), 0);
    EXPECT_EQ(vp_SYMcmp("_", "\x7f", 1), 0);   // both unranked
    // Collation order, not code order: C0 comes after D8 in the alphabet.
    EXPECT_GT(vp_SYMcmp("\xC0", "\xD8", 1), 0);
}

TEST(Wildcard, RussianRangeFollowsAlphabet) {
    PATTnode *p = kor_LOADpatt("[\xC1-\xD1]");
    const char *lower = (const char *)SYMalphabet + 94;
    for (int i = 0; i < 32; i++) EXPECT_EQ(kor_ORpatt(p, (unsigned char)lower[i]), 0) << i;
    for (int i = 0; i < 31; i++) EXPECT_EQ(kor_ORpatt(p, (unsigned char)lower[32 + i]), -1) << i;
    EXPECT_EQ(kor_ORpatt(p, 0xDF), -1);
    EXPECT_EQ(kor_ORpatt(p, 'z'), -1);
    // A signed char from the caller is the same byte.
    EXPECT_EQ(kor_ORpatt(p, (char)0xC0), 0);
    kor_FREEpatt(p);
}

TEST(Wildcard, UnrankedBytesInRanges) {
    EXPECT_FALSE(match("[ -~]", "_"));
    EXPECT_TRUE(match("[ -~]", "^"));
    // Low end unranked: every unranked byte is inside.
    EXPECT_TRUE(match("[_-a]", "_"));
    EXPECT_TRUE(match("[_-a]", "\xE8"));
    EXPECT_TRUE(match("[_-a]", "a"));
    EXPECT_FALSE(match("[_-a]", "b"));
    EXPECT_FALSE(match("[^_-a]", "\xDF"));
    EXPECT_TRUE(match("[^_-a]", "b"));
}

TEST(Wildcard, OrpattEdgeNodes) {
    EXPECT_EQ(kor_ORpatt(nullptr, 'a'), -1);
    PATTnode *p = kor_LOADpatt("?");
    EXPECT_EQ(kor_ORpatt(p, 'a'), 0);
    EXPECT_EQ(kor_ORpatt(p, 0), -1);
    kor_FREEpatt(p);
    p = kor_LOADpatt("*");
    EXPECT_EQ(kor_ORpatt(p, 'a'), -1);
    kor_FREEpatt(p);
    p = kor_LOADpatt("!");
    EXPECT_EQ(kor_ORpatt(p, 'a'), -1);
    kor_FREEpatt(p);
}

TEST(Wildcard, WholeStringMatching) {
    EXPECT_TRUE(match("a*", "a"));
    EXPECT_TRUE(match("a*", "abc"));
    EXPECT_FALSE(match("a*", "ba"));
    EXPECT_TRUE(match("*c", "abc"));
    EXPECT_FALSE(match("*c", "abcd"));
    EXPECT_TRUE(match("a?c", "abc"));
    EXPECT_FALSE(match("a?c", "ac"));
    EXPECT_FALSE(match("abc", "abcd"));
    EXPECT_FALSE(match("abc", "ab"));
    EXPECT_TRUE(match("*", ""));
    EXPECT_FALSE(match("?", ""));
    EXPECT_TRUE(match("a*b*c", "aXbYbZc"));
    EXPECT_FALSE(match("a*b*c", "aXbYbZ"));
}

TEST(Wildcard, Sets) {
    EXPECT_TRUE(match("[a-c]x", "bx"));
    EXPECT_FALSE(match("[a-c]x", "dx"));
    EXPECT_TRUE(match("[^a-c]x", "dx"));
    EXPECT_FALSE(match("[^a-c]x", "bx"));
    EXPECT_TRUE(match("[xyz]", "y"));
    EXPECT_FALSE(match("[^xyz]", "y"));
    EXPECT_TRUE(match("[^xyz]", "w"));
    EXPECT_FALSE(match("[^a-cx]", "x"));
    EXPECT_TRUE(match("[^a-cx]", "y"));
    // An unclosed set ends with the pattern.
    EXPECT_TRUE(match("[ab", "b"));
    EXPECT_TRUE(match("[a-", "-"));
}

TEST(Wildcard, NowhereMarker) {
    EXPECT_TRUE(match("abc!", "abc"));
    EXPECT_FALSE(match("abc!", "abcd"));
    EXPECT_TRUE(match("ab!c", "ab"));
    EXPECT_TRUE(match("ab!c", "abx"));
    EXPECT_FALSE(match("ab!c", "abc"));
    EXPECT_FALSE(match("ab!c", "abxc"));
    EXPECT_TRUE(match("!", ""));
    EXPECT_FALSE(match("!", "a"));
    // "*" after "!" makes the rest match somewhere: never true unless empty.
    EXPECT_FALSE(match("a!*", "ab"));
    // A "*" before "!" may take the whole rest, leaving nothing for "b".
    EXPECT_TRUE(match("*!b", "ab"));
}

TEST(Wildcard, EmptyPatternMatchesEverything) {
    EXPECT_EQ(kor_EXEpatt(nullptr, "anything"), 0);
    EXPECT_EQ(kor_EXEpatt(nullptr, ""), 0);
    EXPECT_TRUE(match("", "x"));
    EXPECT_TRUE(match("[]", "x"));
}

TEST(Wildcard, StarsAndBangsStayPolynomial) {
    // Backtracking retried every tail at each "!": minutes for twenty.
    std::string bangs = "*" + std::string(20, '!') + "a";
    EXPECT_FALSE(match(bangs.c_str(), std::string(40, 'b').c_str()));
    EXPECT_TRUE(match(("*" + std::string(21, '!') + "a").c_str(), std::string(40, 'b').c_str()));
    std::string stars;
    for (int i = 0; i < 30; i++) stars += "*a";
    std::string s(200, 'a');
    EXPECT_FALSE(match((stars + "*b").c_str(), s.c_str()));
    EXPECT_TRUE(match((stars + "*b").c_str(), (s + "b").c_str()));
    // An odd run of "!" before a letter the text lacks matches everywhere.
    std::string long_bangs = "*?" + std::string(1001, '!') + "a";
    EXPECT_TRUE(match(long_bangs.c_str(), std::string(2000, 'b').c_str()));
    EXPECT_FALSE(match(long_bangs.c_str(), ""));
}

TEST(Wildcard, TableAgreesWithBacktracking) {
    // Pattern pieces: every element kind, escapes, sets and their odd forms.
    const char *pieces[] = {"*",  "*",    "!",    "!",     "?",      "a",  "b",  "_", "\\*", "\\?",
                            "\\", "[ab]", "[^a]", "[a-b]", "[^_-a]", "[]", "[a", "-", "^"};
    const char letters[] = "ab_*?\\-";
    std::mt19937 rng(20240611);
    int matched = 0;
    for (int pair = 0; pair < 5000; pair++) {
        std::string patt, text;
        int pn = (int)(rng() % 7);
        for (int i = 0; i < pn; i++) patt += pieces[rng() % (sizeof pieces / sizeof *pieces)];
        int tn = (int)(rng() % 8);
        for (int i = 0; i < tn; i++) text += letters[rng() % (sizeof letters - 1)];
        PATTnode *p = kor_LOADpatt(patt.c_str());
        int want = old_exec(p, text.c_str(), (int)text.size()) == 0 ? 0 : -1;
        EXPECT_EQ(kor_EXEpatt(p, text.c_str()), want) << "[" << patt << "] [" << text << "]";
        matched += want == 0;
        kor_FREEpatt(p);
    }
    // both answers must be well represented for the check to mean much
    EXPECT_GT(matched, 500);
    EXPECT_LT(matched, 4500);
}

TEST(Wildcard, HostileLongPatterns) {
    std::string set = "[" + std::string(100000, 'q') + "-";
    PATTnode *p = kor_LOADpatt(set.c_str());
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(kor_EXEpatt(p, "q"), 0);
    EXPECT_EQ(kor_EXEpatt(p, "qq"), -1);
    kor_FREEpatt(p);

    std::string lit(200000, 'z');
    p = kor_LOADpatt(lit.c_str());
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(kor_EXEpatt(p, lit.c_str()), 0);
    EXPECT_EQ(kor_EXEpatt(p, "z"), -1);
    kor_FREEpatt(p);

    std::string junk;
    for (int i = 0; i < 5000; i++) junk += "[^\\!-*]?";
    p = kor_LOADpatt(junk.c_str());
    ASSERT_NE(p, nullptr);
    EXPECT_EQ(kor_EXEpatt(p, "abc"), -1);
    kor_FREEpatt(p);
}

}   // namespace
