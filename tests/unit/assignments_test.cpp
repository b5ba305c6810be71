// Unit tests of the limits of the assignment commands: the line size that
// cuts a concatenation and a replacement, and the room of <@set>. The
// operators themselves are page cases (tests/pages/assignments).
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

}   // namespace

TEST(Assignments, ConcatenationIsCutAtTheLineSize) {
    V_put_value("as_s", std::string(8000, 'a').c_str(), 0, 0);
    run(V_let, "<@as_s>;= " + std::string(500, 'b'));
    EXPECT_EQ(value("as_s").size(), 8191u);
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

TEST(Assignments, SetNameAndValueShareAThousandBytes) {
    run(V_set, "<@set> as_long " + std::string(2000, 'z'));
    EXPECT_EQ(value("as_long"), std::string(1000 - 8 - 1, 'z'));
}
