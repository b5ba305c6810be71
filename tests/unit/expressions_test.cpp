// Unit tests of the expression evaluator on hostile texts: invalid ones
// keeping the previous result, the stack limit, zero divisors. Results
// are page cases (tests/pages/expressions).
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

ExprResult eval(const char *text) {
    ExprResult r{0, 12345, 1.25f};
    r.status = EXPR_parser(text, &r.i, &r.f);
    return r;
}

TEST(ExpressionsTest, InvalidTextKeepsPreviousIntegerResult) {
    ASSERT_EQ(eval("40+2").i, 42);
    const char *invalid[] = {"",  "1+",     "(1",    "1 2", "+3",    "1)", "()",   "2^3",
                             "a", "2\t+ 3", "1 (2)", "- ",  "1.0+x", ".5", "1.2.3"};
    for (const char *text : invalid) {
        SCOPED_TRACE(std::string("expression [") + text + "]");
        ExprResult r = eval(text);
        EXPECT_EQ(r.status, 1);
        EXPECT_EQ(r.i, 42);
    }
    ASSERT_EQ(eval("7/2.0").status, 2);
    ExprResult r = eval("1+");
    EXPECT_EQ(r.i, 42);
    EXPECT_FLOAT_EQ(r.f, 3.5f);   // the float result is still reported as it was
}

TEST(ExpressionsTest, StackLimit) {
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
    for (int k = 0; k < 30000; k++) deep += "1+";
    EXPECT_EQ(eval((deep + "1").c_str()).i, 30001);
}

TEST(ExpressionsDeathTest, ZeroIntegerDivisorRaisesFpe) {
    int i = 0;
    float f = 0;
    EXPECT_EXIT(EXPR_parser("1/0", &i, &f), testing::KilledBySignal(SIGFPE), "");
    EXPECT_EXIT(EXPR_parser("5%(2-2)", &i, &f), testing::KilledBySignal(SIGFPE), "");
    EXPECT_EXIT(EXPR_parser("5%0.5", &i, &f), testing::KilledBySignal(SIGFPE), "");
    // The division is done before the stray number shows the text invalid.
    EXPECT_EXIT(EXPR_parser("1/0 2", &i, &f), testing::KilledBySignal(SIGFPE), "");
}

}   // namespace
