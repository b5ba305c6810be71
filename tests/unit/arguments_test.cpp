// Unit tests of the argument scanners: words, quoted arguments with their
// closing delimiters and escapes, separator-ended fields.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "values/arguments.h"

namespace {

// Steps through a text the way the command handlers do.
std::vector<std::string> split(const char *text, const char *sep = nullptr) {
    std::vector<std::string> out;
    char buf[256];
    for (int guard = 0; guard < 50; guard++) {
        int n = V_arg_string_sep(text, buf, sep);
        if (!n) break;
        out.push_back(buf);
        text += n;
    }
    return out;
}

TEST(Arguments, TakeStringSplitsOnBlanksOnly) {
    char out[64];
    const char *text = "  one\ttwo three";
    int n = V_take_string(text, out);
    EXPECT_STREQ(out, "one\ttwo");
    EXPECT_EQ(n, 9);
    n = V_take_string(text + n, out);
    EXPECT_STREQ(out, "three");
    EXPECT_EQ(V_take_string("   ", out), 0);
    EXPECT_STREQ(out, "");
}

TEST(Arguments, PlainAndEmptyArguments) {
    char out[64];
    EXPECT_EQ(V_arg_string("   ", out), 0);
    EXPECT_STREQ(out, "");
    EXPECT_EQ(V_arg_string("", out), 0);
    EXPECT_EQ(V_arg_string("\"\"", out), 2);
    EXPECT_STREQ(out, "");
    EXPECT_EQ(V_arg_string("  abc def", out), 5);
    EXPECT_STREQ(out, "abc");
}

TEST(Arguments, EachOpeningCharacterHasItsCloser) {
    char out[64];
    struct Case {
        const char *text, *arg;
        int pos;
    } cases[] = {
        {"\"a b\" x", "a b", 5}, {"'a b' x", "a b", 5},   {"`a b` x", "a b", 5},
        {"^a b^ x", "a b", 5},   {"~a b~ x", "a b", 5},   {"{a b} x", "a b", 5},
        {"[a [b] x", "a [b", 6}, {"{a {b} x", "a {b", 6},
    };
    for (const Case &c : cases) {
        EXPECT_EQ(V_arg_string(c.text, out), c.pos) << c.text;
        EXPECT_STREQ(out, c.arg) << c.text;
    }
}

TEST(Arguments, BackslashKeepsTheDelimiter) {
    char out[64];
    EXPECT_EQ(V_arg_string("{a\\}b} z", out), 6);
    EXPECT_STREQ(out, "a}b");
    V_arg_string("\"say \\\"hi\\\"\"", out);
    EXPECT_STREQ(out, "say \"hi\"");
    V_arg_string("'c:\\dir\\x'", out);   // other backslashes stay
    EXPECT_STREQ(out, "c:\\dir\\x");
    V_arg_string("a\\ b c", out);
    EXPECT_STREQ(out, "a b");
}

TEST(Arguments, UnclosedQuoteStopsAtTheEnd) {
    char out[64];
    const char *text = "\"abc";
    int n = V_arg_string(text, out);
    EXPECT_STREQ(out, "abc");
    EXPECT_EQ(n, 4);   // never past the terminator
    EXPECT_EQ(V_arg_string(text + n, out), 0);
}

TEST(Arguments, StepsThroughAnArgumentList) {
    EXPECT_EQ(split("name \"two words\" {x} 'y'  last"),
              (std::vector<std::string>{"name", "two words", "x", "y", "last"}));
    EXPECT_EQ(split("a \"\" b"), (std::vector<std::string>{"a", "", "b"}));
}

TEST(Arguments, SeparatorFields) {
    EXPECT_EQ(split(",,a,b;;c,", ",;"), (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_EQ(split("one two", ""), (std::vector<std::string>{"one", "two"}));
    char out[64];
    EXPECT_EQ(V_arg_string_sep(",,,", out, ","), 0);
    EXPECT_STREQ(out, "");
    EXPECT_EQ(V_arg_string_sep("abc", out, ","), 3);
    EXPECT_STREQ(out, "abc");
}

TEST(Arguments, OutputNeverExceedsInputLength) {
    const char *texts[] = {"\"x\"", "{a\\}}", "   word", ",a,", "[]", "\"\\\"\\\"\""};
    for (const char *t : texts) {
        size_t len = strlen(t);
        // exactly strlen+1 bytes on the heap, so the sanitizer build sees
        // any write past them
        char *out = new char[len + 1];
        V_arg_string(t, out);
        EXPECT_LE(strlen(out), len);
        V_arg_string_sep(t, out, ",");
        V_take_string(t, out);
        delete[] out;
    }
}

}  // namespace
