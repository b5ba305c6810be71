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
    for (int n; out.size() < 50 && (n = V_arg_string_sep(text, buf, sep)) != 0; text += n)
        out.push_back(buf);
    return out;
}

TEST(Arguments, WordsAndEmptyArguments) {
    char out[64];
    EXPECT_EQ(V_take_string("  one\ttwo three", out), 9);
    EXPECT_STREQ(out, "one\ttwo");   // only the blank separates
    EXPECT_EQ(V_take_string("   ", out), 0);
    EXPECT_EQ(V_arg_string("   ", out), 0);
    EXPECT_STREQ(out, "");
    EXPECT_EQ(V_arg_string("\"\"", out), 2);   // empty but present
    EXPECT_STREQ(out, "");
}

TEST(Arguments, DelimitersAndEscapes) {
    char out[64];
    struct Case {
        const char *text, *arg;
        int pos;
    } cases[] = {
        {"\"a b\" x", "a b", 5}, {"'a b' x", "a b", 5},   {"`a b` x", "a b", 5},
        {"^a b^ x", "a b", 5},   {"~a b~ x", "a b", 5},   {"[a [b] x", "a [b", 6},
        {"{a {b} x", "a {b", 6}, {"{a\\}b} z", "a}b", 6}, {"'c:\\d\\'", "c:\\d'", 7},
        {"a\\ b c", "a b", 4},   {"\"abc", "abc", 4},   // unclosed: stops at the end
    };
    for (const Case &c : cases) {
        EXPECT_EQ(V_arg_string(c.text, out), c.pos) << c.text;
        EXPECT_STREQ(out, c.arg) << c.text;
    }
}

TEST(Arguments, StepsThroughLists) {
    EXPECT_EQ(split("name \"two words\" {x} 'y'  last \"\""),
              (std::vector<std::string>{"name", "two words", "x", "y", "last", ""}));
    EXPECT_EQ(split("\"unclosed"), (std::vector<std::string>{"unclosed"}));
    EXPECT_EQ(split(",,a,b;;c,", ",;"), (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_EQ(split("one two", ""), (std::vector<std::string>{"one", "two"}));
    EXPECT_EQ(split(",,,", ","), std::vector<std::string>{});
}

TEST(Arguments, OutputFitsInStrlenPlusOne) {
    for (const char *t : {"\"x\"", "{a\\}}", "   word", ",a,", "[]", "\"\\\"\\\"\""}) {
        char *out = new char[strlen(t) + 1];   // the sanitizer build sees overruns
        V_arg_string(t, out);
        V_arg_string_sep(t, out, ",");
        V_take_string(t, out);
        delete[] out;
    }
}

}   // namespace
