// Unit tests of the page-path confinement under the site root and of
// V_check_name rewriting or refusing a variable's path on a real directory.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "base/directories.h"
#include "driver/environment.h"
#include "values/variables.h"

namespace {

std::string confine(const char *root, const char *value, int size = 500) {
    char out[600];
    if (V_confine_path(root, value, out, size)) return "<refused>";
    return out;
}

std::string make_site() {
    char tmpl[] = "/tmp/vorn-env-XXXXXX";
    std::string root = mkdtemp(tmpl);
    mkdir((root + "/a").c_str(), 0755);
    mkdir((root + "/a/b").c_str(), 0755);
    FILE *f = fopen((root + "/a/b/c.html").c_str(), "w");
    fputs("x\n", f);
    fclose(f);
    return root;
}

// The refusal ends the process; its message is not what is checked here.
void quiet_check(const std::string &root, const char *name) {
    if (!freopen("/dev/null", "w", stdout)) return;
    V_check_name(root.c_str(), name);
}

}   // namespace

TEST(Environment, ConfineJoinsAndCollapses) {
    EXPECT_EQ(confine("/site", "a/./b//c.html"), "/site/a/b/c.html");
    EXPECT_EQ(confine("/site", "/a/b.html"), "/site/a/b.html");    // PATH_INFO style
    EXPECT_EQ(confine("/site", "/site/x.html"), "/site/x.html");   // already under root
    EXPECT_EQ(confine("/site", "a/.//./b.html"), "/site/a/b.html");
    EXPECT_EQ(confine("/site/", "p.html"), "/site/p.html");
    EXPECT_EQ(confine("/site", "a/../b.html"), "/site/a/../b.html");   // stays inside
}

TEST(Environment, ConfineRefusesClimbingOut) {
    EXPECT_EQ(confine("/site", "../../etc/passwd"), "<refused>");
    EXPECT_EQ(confine("/site", "a/../../x"), "<refused>");
    EXPECT_EQ(confine("/site", "/site/../etc/passwd"), "<refused>");
    EXPECT_EQ(confine("/site", "a/./../.././x"), "<refused>");
    // a sibling directory sharing the root's prefix is not under the root
    EXPECT_EQ(confine("/site", "/site2/x.html"), "/site/site2/x.html");
}

TEST(Environment, ConfineRefusesWhatDoesNotFit) {
    std::string long_value(495, 'x');
    EXPECT_EQ(confine("/site", long_value.c_str()), "<refused>");
    EXPECT_EQ(confine("/site", "abc", 9), "<refused>");
    EXPECT_EQ(confine("/site", "abc", 10), "/site/abc");
}

TEST(Environment, CheckNameRewritesToTheCleanPath) {
    std::string root = make_site();
    ASSERT_EQ(V_put_value("V_PAGE", "a/./b//c.html", 0, 0), 0);
    ASSERT_EQ(V_add_value("V_PAGE", "second"), 0);
    V_check_name(root.c_str(), "V_PAGE");
    EXPECT_EQ(std::string(V_get_value("V_PAGE")), root + "/a/b/c.html");
    V_USER *u = V_get_user("V_PAGE");
    ASSERT_NE(u, nullptr);
    ASSERT_NE(u->var.next, nullptr);   // only the first value is checked
    EXPECT_STREQ(u->var.next->value, "second");

    std::string full = root + "/a/b/c.html";
    ASSERT_EQ(V_put_value("env_full", full.c_str(), 0, 0), 0);
    V_check_name(root.c_str(), "env_full");
    EXPECT_EQ(std::string(V_get_value("env_full")), full);
    std::filesystem::remove_all(root);
}

TEST(Environment, CheckNameRefusalIsFatal) {
    std::string root = make_site();
    ASSERT_EQ(V_put_value("env_bad", "../../etc/passwd", 0, 0), 0);
    EXPECT_EXIT(quiet_check(root, "env_bad"), testing::ExitedWithCode(255), "");
    // a directory is no regular file
    ASSERT_EQ(V_put_value("env_dir", "a/b", 0, 0), 0);
    EXPECT_EXIT(quiet_check(root, "env_dir"), testing::ExitedWithCode(255), "");
    std::string huge(501, 'y');
    ASSERT_EQ(V_put_value("env_huge", huge.c_str(), 0, 0), 0);
    EXPECT_EXIT(quiet_check(root, "env_huge"), testing::ExitedWithCode(255), "");
    std::filesystem::remove_all(root);
}

TEST(Environment, HomeFallsBackToCurrentDirectory) {
    for (const char *dir : {"/Vorn", "/etc/Vorn", "/opt/Vorn", "/apps/Vorn"}) {
        if (access((std::string(dir) + "/v.config").c_str(), F_OK) == 0)
            GTEST_SKIP() << "an installation exists in " << dir;
    }
    EXPECT_EXIT(
        {
            unsetenv("V_HOME");
            unsetenv("TMP_DIR");
            V_env();
            bool ok = !strcmp(V_HOME, ".") && !strcmp(TMP_DIR, "/tmp") && getenv("TMP_DIR") &&
                      !strcmp(getenv("TMP_DIR"), "/tmp");
            exit(ok ? 0 : 1);
        },
        testing::ExitedWithCode(0), "");
}
