// Unit tests of the Set-Cookie lists with form values far longer than a
// line: names and encoded values are cut to the one line buffer.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "driver/cookies.h"
#include "values/variables.h"

TEST(Cookies, LongListsAndValuesAreCutToTheLine)
{
    std::string list = "ck_a " + std::string(9000, 'n');
    V_put_value("V_SessionCOOKIES", list.c_str(), 0, 0);
    V_put_value("ck_a", std::string(9000, '\xe9').c_str(), 0, 0);
    testing::internal::CaptureStdout();
    V_set_cookies();
    fflush(stdout);
    std::string out = testing::internal::GetCapturedStdout();
    V_put_value("V_SessionCOOKIES", "", 0, 0);

    size_t end = out.find('\n');
    ASSERT_NE(end, std::string::npos);
    std::string first = out.substr(0, end);
    EXPECT_EQ(first.rfind("Set-Cookie: ck_a=%e9%e9", 0), 0u);
    EXPECT_LT(first.size(), 8192u + 40);
    // the second name is what is left of the list's line: 8191 - 5 letters
    std::string second = out.substr(end + 1);
    EXPECT_EQ(second.rfind("Set-Cookie: " + std::string(8186, 'n') + "=NULL;", 0), 0u);
}

// A megabyte cookie header cannot reach a page (the system refuses such an
// environment entry when the program is started), but the process's own
// environment may hold one.
TEST(Cookies, MegabyteHeaderGivesValuesCutToTheLine)
{
    std::string jar = "a=1; big=" + std::string(1 << 20, 'x') + "; z=2";
    setenv("HTTP_COOKIE", jar.c_str(), 1);
    char big[] = "<@cookie> big", z[] = "<@cookie> z";
    EXPECT_EQ(V_cookie(big, 1, 0), 0);
    EXPECT_EQ(V_cookie(z, 1, 0), 0);
    unsetenv("HTTP_COOKIE");
    const char *value = V_get_value("big");
    ASSERT_NE(value, nullptr);
    EXPECT_EQ(std::string(value), std::string(8191, 'x'));
    EXPECT_STREQ(V_get_value("z"), "2");
}
