// Unit tests of the Set-Cookie lists with form values far longer than a
// line: names and encoded values are cut to the one line buffer, and the
// cut never splits an escape.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "driver/cookies.h"
#include "values/variables.h"

TEST(Cookies, LongListsAndValuesAreCutToTheLine)
{
    // 8191 - 5 name bytes leave room for 2728 escapes and two spare bytes
    std::string list = "ck_ab " + std::string(9000, 'n');
    V_put_value("V_SessionCOOKIES", list.c_str(), 0, 0);
    V_put_value("ck_ab", std::string(9000, '\xe9').c_str(), 0, 0);
    testing::internal::CaptureStdout();
    V_set_cookies();
    fflush(stdout);
    std::string out = testing::internal::GetCapturedStdout();
    V_put_value("V_SessionCOOKIES", "", 0, 0);

    size_t end = out.find('\n');
    ASSERT_NE(end, std::string::npos);
    std::string first = out.substr(0, end);
    std::string escapes;
    for (int i = 0; i < 2728; i++)
        escapes += "%e9";
    EXPECT_EQ(first, "Set-Cookie: ck_ab=" + escapes + "; path=/; ");
    // the second name is what is left of the list's line: 8191 - 6 letters
    std::string second = out.substr(end + 1);
    EXPECT_EQ(second.rfind("Set-Cookie: " + std::string(8185, 'n') + "=NULL;", 0), 0u);
}
