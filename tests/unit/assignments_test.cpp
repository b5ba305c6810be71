// Unit tests of the assignment commands: every V_let operator with its rule
// for a missing variable, wrap-around arithmetic, replace and set limits.
#include <gtest/gtest.h>

#include <climits>
#include <cstdio>
#include <string>

#include "interp/assignments.h"
#include "values/variables.h"

namespace {

// Runs a handler on a copy of the line, as the dispatcher hands it over.
int run(int (*handler)(char *, int, int), const std::string &line, int ignore = 0) {
    static char buff[8192];
    snprintf(buff, sizeof buff, "%s", line.c_str());
    return handler(buff, 1, ignore);
}

std::string value(const char *name) {
    const char *v = V_get_value(name);
    return v ? v : "<missing>";
}

void fresh(const char *name) { V_clear_value(name); }

}  // namespace

TEST(Assignments, LetMissingVariableRules) {
    struct {
        const char *line;
        const char *expect;
    } cases[] = {
        {"<@as_m1>++", "1"},       {"<@as_m2>--", "-1"},   {"<@as_m3>*= 5", "5"},
        {"<@as_m4>/= 4", "0"},     {"<@as_m5>%= 3", "0"},  {"<@as_m6>-= 7", "-7"},
        {"<@as_m7>+= 7", "7"},     {"<@as_m8>;= abc", "abc"}, {"<@as_m9>= hello", "hello"},
    };
    for (auto &c : cases) {
        std::string name = std::string(c.line).substr(2, 5);
        fresh(name.c_str());
        EXPECT_EQ(run(V_let, c.line), 0) << c.line;
        EXPECT_EQ(value(name.c_str()), c.expect) << c.line;
    }
    // a missing variable counts as 1 for division: 1 / 4 is 0, 8 / 1 is 8
    fresh("as_d");
    run(V_let, "<@as_d>/= 1");
    EXPECT_EQ(value("as_d"), "1");
}

TEST(Assignments, LetArithmeticOnExistingValues) {
    V_put_value("as_n", "17", 0, 0);
    run(V_let, "<@as_n>%= 5");
    EXPECT_EQ(value("as_n"), "2");
    run(V_let, "<@as_n>*= -3");
    EXPECT_EQ(value("as_n"), "-6");
    run(V_let, "<@as_n>/= 0");   // a zero divisor counts as 1
    EXPECT_EQ(value("as_n"), "-6");
    run(V_let, "<@as_n>%= 0");
    EXPECT_EQ(value("as_n"), "0");
    V_put_value("as_n", "12abc", 0, 0);   // read like atoi
    run(V_let, "<@as_n>+= 3x");
    EXPECT_EQ(value("as_n"), "15");
    V_put_value("as_n", "text", 0, 0);
    run(V_let, "<@as_n>++");
    EXPECT_EQ(value("as_n"), "1");
}

TEST(Assignments, LetArithmeticWrapsWithoutOverflow) {
    char max[16], min[16];
    snprintf(max, sizeof max, "%d", INT_MAX);
    snprintf(min, sizeof min, "%d", INT_MIN);
    V_put_value("as_w", max, 0, 0);
    run(V_let, "<@as_w>++");
    EXPECT_EQ(value("as_w"), min);
    run(V_let, "<@as_w>--");
    EXPECT_EQ(value("as_w"), max);
    V_put_value("as_w", min, 0, 0);
    run(V_let, "<@as_w>/= -1");
    EXPECT_EQ(value("as_w"), min);
    V_put_value("as_w", min, 0, 0);
    run(V_let, "<@as_w>%= -1");
    EXPECT_EQ(value("as_w"), "0");
    V_put_value("as_w", "99999999999999999999", 0, 0);   // clamped when read
    run(V_let, "<@as_w>+= 0");
    EXPECT_EQ(value("as_w"), max);
    V_put_value("as_w", max, 0, 0);
    run(V_let, "<@as_w>*= 99999999999");
    EXPECT_EQ(value("as_w"), "1");   // INT_MAX * INT_MAX wraps to 1
}

TEST(Assignments, LetConcatenation) {
    V_put_value("as_s", "x", 0, 0);
    V_put_value("as_t", "tail", 0, 0);
    run(V_let, "<@as_s>;= abc");
    EXPECT_EQ(value("as_s"), "xabc");
    run(V_let, "<@as_s>$= as_t");
    EXPECT_EQ(value("as_s"), "xabctail");
    run(V_let, "<@as_s>$= as_nothing");
    EXPECT_EQ(value("as_s"), "xabctail");
    run(V_let, "<@as_s>;= \"two words\"");
    EXPECT_EQ(value("as_s"), "xabctailtwo words");
    // the result is cut at the line size instead of running over
    V_put_value("as_s", std::string(8000, 'a').c_str(), 0, 0);
    run(V_let, "<@as_s>;= " + std::string(500, 'b'));
    EXPECT_EQ(value("as_s").size(), 8191u);
}

TEST(Assignments, LetNameAndRejections) {
    V_put_value("as_ix", "k", 0, 0);
    EXPECT_EQ(run(V_let, "<@as_name$(as_ix)>= 4"), 0);   // the name is substituted
    EXPECT_EQ(value("as_namek"), "4");
    EXPECT_EQ(run(V_let, "<@as_q> no operator"), -1);
    EXPECT_EQ(run(V_let, "as_q>= 1"), -1);
    fresh("as_ig");
    EXPECT_EQ(run(V_let, "<@as_ig>= 1", 1), 0);
    EXPECT_EQ(value("as_ig"), "<missing>");
    V_put_value("as_fixed", "1", 1, 0);
    EXPECT_EQ(run(V_let, "<@as_fixed>++"), -1);
    EXPECT_EQ(value("as_fixed"), "1");
}

TEST(Assignments, ReplaceLeftToRightWithoutRescanning) {
    V_put_value("as_r", "aaa", 0, 0);
    EXPECT_EQ(run(V_replace, "<@replace> as_r aa b"), 0);
    EXPECT_EQ(value("as_r"), "ba");
    V_put_value("as_r", "aXa", 0, 0);
    run(V_replace, "<@replace> as_r a aa");
    EXPECT_EQ(value("as_r"), "aaXaa");
    run(V_replace, "<@replace> as_r X \"\"");   // an empty replacement removes
    EXPECT_EQ(value("as_r"), "aaaa");
    fresh("as_rm");
    EXPECT_EQ(run(V_replace, "<@replace> as_rm a b"), 0);
    EXPECT_EQ(value("as_rm"), "<missing>");
}

TEST(Assignments, ReplaceGuardStopsEarly) {
    // Room for a whole replacement is kept before every step, so a copy of
    // plain bytes also stops once the result plus the replacement passes 8191.
    V_put_value("as_g", std::string(9000, 'x').c_str(), 0, 0);
    run(V_replace, "<@replace> as_g q " + std::string(50, 'n'));
    EXPECT_EQ(value("as_g"), std::string(8142, 'x'));
    V_put_value("as_g", std::string(5000, 'x').c_str(), 0, 0);
    run(V_replace, "<@replace> as_g x yy");
    EXPECT_EQ(value("as_g"), std::string(8190, 'y'));
}

TEST(Assignments, SetAddAndClear) {
    run(V_set, "<@set> as_v \"a b c\"");
    EXPECT_EQ(value("as_v"), "a b c");
    run(V_add, "<@add> as_v second");
    V_USER *u = V_get_user("as_v");
    ASSERT_NE(u, nullptr);
    ASSERT_NE(u->var.next, nullptr);
    EXPECT_STREQ(u->var.next->value, "second");
    // name and value of set share 1000 bytes
    run(V_set, "<@set> as_long " + std::string(2000, 'z'));
    EXPECT_EQ(value("as_long"), std::string(1000 - 8 - 1, 'z'));
    V_put_value("as_c1", "1", 0, 0);
    V_put_value("as_c2", "2", 0, 0);
    V_put_value("as_cf", "3", 1, 0);
    EXPECT_EQ(run(V_clear, "<@clear> as_c*"), 0);
    EXPECT_EQ(value("as_c1"), "<missing>");
    EXPECT_EQ(value("as_c2"), "<missing>");
    EXPECT_EQ(value("as_cf"), "3");   // fixed variables stay
    EXPECT_EQ(run(V_clear, "<@clear> as_nothing_matches*"), 0);
    EXPECT_EQ(run(V_set, "<@setx> as_v 1"), -1);
    EXPECT_EQ(run(V_set, "<@set> as_v changed", 1), 0);
    EXPECT_EQ(value("as_v"), "a b c");
}
