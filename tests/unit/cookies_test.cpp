// Unit tests of sizes no CGI environment string can reach: a 1 MB cookie
// header, and Set-Cookie lists with form values far longer than a line,
// whose names and encoded values are cut to the one line buffer without
// splitting an escape.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <string>

#include "interp/cookies.h"
#include "values/variables.h"

TEST(Cookies, LongListsAndValuesAreCutToTheLine) {
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
    for (int i = 0; i < 2728; i++) escapes += "%e9";
    EXPECT_EQ(first, "Set-Cookie: ck_ab=" + escapes + "; path=/; ");
    // the second name is what is left of the list's line: 8191 - 6 letters
    std::string second = out.substr(end + 1);
    EXPECT_EQ(second.rfind("Set-Cookie: " + std::string(8185, 'n') + "=NULL;", 0), 0u);
}

TEST(Cookies, MegabyteHeaderIsScannedAndTheValueCut) {
    std::string jar;
    while (jar.size() < (1u << 20)) jar += "f=" + std::string(1000, 'x') + "; ";
    // the value is cut at 8191 bytes, inside its last escape, before decoding
    jar += "xbig=no; big=" + std::string(8190, 'v') + "%41; big=late";
    setenv("HTTP_COOKIE", jar.c_str(), 1);
    char line[] = "<@cookie> big";
    V_cookie(line, 0, 0);
    unsetenv("HTTP_COOKIE");
    EXPECT_EQ(std::string(V_get_value("big")), std::string(8190, 'v') + "%");
}

// A megabyte cookie header cannot reach a page (the system refuses such an
// environment entry when the program is started), but the process's own
// environment may hold one.
TEST(Cookies, MegabyteHeaderGivesValuesCutToTheLine) {
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
