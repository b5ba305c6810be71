// Unit tests of the expression evaluator: precedence, modes, literal
// scanning, truncation, invalid texts keeping the previous result, limits.
#include "values/expressions.h"

#include <gtest/gtest.h>

#include <cmath>
#include <csignal>
#include <string>

namespace {

struct ExprResult {
    int status;
    int i;
    float f;
};

ExprResult eval(const char *text)
{
    ExprResult r{0, 12345, 1.25f};
    r.status = EXPR_parser(text, &r.i, &r.f);
    return r;
}

struct IntRow {
    const char *text;
    int status;
    int result;
};

TEST(ExpressionsTest, IntegerResults)
{
    // Invalid rows (status 1) report the integer result of the row before.
    const IntRow rows[] = {
        {"10/3", 1, 3},      {"-7/2", 1, -3},     {"-7%3", 1, -1},    {"7%-3", 1, 1},
        {"2+3*4", 1, 14},    {"2*(3+4)", 1, 14},  {"8-2-1", 1, 5},    {"100/10/5", 1, 2},
        {"17%5*2", 1, 4},    {"3|4", 1, 7},       {"6&3", 1, 2},      {"4|2&1", 1, 4},
        {"2+5&4", 1, 4},     {"1|6-3", 1, 3},     {"-1&3", 1, 3},     {"--5", 1, 5},
        {"2*-3", 1, -6},     {" ( 1 + 2 ) * 3 ", 1, 9},
        // Octal stops converting at 8 or 9 but consumes them; hex takes decimal digits only.
        {"017", 1, 15},      {"019", 1, 1},       {"08", 1, 0},       {"0x20", 1, 32},
        {"0xff", 1, 32},     {"0X10", 1, 32},     {"1e3", 1, 32},
        // 64-bit wrap-around, then the cut to the low 32 bits.
        {"2147483648", 1, -2147483647 - 1},       {"4294967297", 1, 1},
        {"4294967296*3/2", 1, -2147483647 - 1},
        {"(9223372036854775807+1)/4294967296", 1, -2147483647 - 1},
        {"(0-9223372036854775807-1)/-1", 1, 0},   {"(0-9223372036854775807-1)%-1", 1, 0},
        // Decimal literals saturate at the largest value, octal ones at all ones.
        {"99999999999999999999/2", 1, -1},        {"0777777777777777777777777/2", 1, 0},
    };
    for (const IntRow &row : rows) {
        SCOPED_TRACE(std::string("expression [") + row.text + "]");
        ExprResult r = eval(row.text);
        EXPECT_EQ(r.status, row.status);
        EXPECT_EQ(r.i, row.result);
    }
}

TEST(ExpressionsTest, InvalidTextKeepsPreviousIntegerResult)
{
    ASSERT_EQ(eval("40+2").i, 42);
    const char *invalid[] = {"",    "1+",   "(1",     "1 2",    "+3",    "1)",    "()",
                             "2^3", "a",    "2\t+ 3", "1 (2)", "- ",   "1.0+x", ".5",
                             "1.2.3"};
    for (const char *text : invalid) {
        SCOPED_TRACE(std::string("expression [") + text + "]");
        ExprResult r = eval(text);
        EXPECT_EQ(r.status, 1);
        EXPECT_EQ(r.i, 42);
    }
    ASSERT_EQ(eval("7/2.0").status, 2);
    ExprResult r = eval("1+");
    EXPECT_EQ(r.i, 42);
    EXPECT_FLOAT_EQ(r.f, 3.5f);  // the float result is still reported as it was
}

struct FloatRow {
    const char *text;
    float result;
};

TEST(ExpressionsTest, FloatModeResults)
{
    const FloatRow rows[] = {
        {"7/2.0", 3.5f},   {"0.1+0.2", 0.3f},  {"16777217.0", 16777216.0f},
        {"7.9%2", 1.0f},   {"-7.9%2", -1.0f},  {"6.5&3", 2.0f},  {"1.5|4", 5.0f},
        {"1.", 1.0f},      {"-1.5*2", -3.0f},  {"010+0.5", 8.5f}, {"0x10*1.", 16.0f},
        {"10-4-3.0", 3.0f},
        // 1e20 truncates out of the 32-bit range to the minimum.
        {"100000000000000000000.0%3", -2.0f},
        {"340282346638528859811704183484516925440.0", 3.40282347e38f},
    };
    for (const FloatRow &row : rows) {
        SCOPED_TRACE(std::string("expression [") + row.text + "]");
        ExprResult r = eval(row.text);
        EXPECT_EQ(r.status, 2);
        EXPECT_FLOAT_EQ(r.f, row.result);
    }
    // Narrowing beyond the single-precision range gives an infinity.
    ExprResult r = eval("1000000000000000000000000000000000000000.0*-1");
    EXPECT_TRUE(std::isinf(r.f) && r.f < 0);
    ASSERT_EQ(eval("5").i, 5);
    EXPECT_EQ(eval("2.0*3").i, 5);  // float evaluations leave the integer result alone
}

TEST(ExpressionsTest, StackLimit)
{
    ASSERT_EQ(eval("2.5").status, 2);
    // 9996 groups fit: start entry + parens + number + ")" = 9999 entries.
    std::string deep = std::string(9996, '(') + "1" + std::string(9996, ')');
    ExprResult r = eval(deep.c_str());
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(r.i, 1);
    deep = std::string(9997, '(') + "3" + std::string(9997, ')');
    r = eval(deep.c_str());
    EXPECT_EQ(r.status, 2);
    EXPECT_EQ(r.i, 1);
    EXPECT_FLOAT_EQ(r.f, 2.5f);
    // The limit strikes while the text is read, even for text that is invalid later.
    EXPECT_EQ(eval((std::string(9998, '-') + "1 x").c_str()).status, 2);
    EXPECT_EQ(eval((std::string(9997, '-') + "1").c_str()).i, -1);
    // Left-associative chains reduce as they go and never deepen the stack.
    deep.clear();
    for (int k = 0; k < 30000; k++)
        deep += "1+";
    EXPECT_EQ(eval((deep + "1").c_str()).i, 30001);
}

TEST(ExpressionsDeathTest, ZeroIntegerDivisorRaisesFpe)
{
    int i = 0;
    float f = 0;
    EXPECT_EXIT(EXPR_parser("1/0", &i, &f), testing::KilledBySignal(SIGFPE), "");
    EXPECT_EXIT(EXPR_parser("5%(2-2)", &i, &f), testing::KilledBySignal(SIGFPE), "");
    EXPECT_EXIT(EXPR_parser("5%0.5", &i, &f), testing::KilledBySignal(SIGFPE), "");
    // The division is done before the stray number shows the text invalid.
    EXPECT_EXIT(EXPR_parser("1/0 2", &i, &f), testing::KilledBySignal(SIGFPE), "");
}

}  // namespace
