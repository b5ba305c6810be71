// Cursor ids: lazy connect from V_BASE, reuse of released ids, the limit of
// ten, and the fresh start after everything is released.
#include <gtest/gtest.h>

#include <cstdlib>
#include <string>
#include <unistd.h>

#include "db/cursor_ids.h"
#include "db/session.h"
#include "values/variables.h"

namespace {

struct CursorIdsTest : ::testing::Test {
    char dir[64] = "/tmp/vorn-cids-XXXXXX";

    void SetUp() override {
        ASSERT_NE(mkdtemp(dir), nullptr);
        V_finish();
        V_free_all();
        ASSERT_EQ(V_put_value("V_BASE", (std::string("sqlite:") + dir + "/c.db").c_str(), 0, 0), 0);
        V_put_value("V_USER", "", 0, 0);
        V_put_value("V_PASSWD", "", 0, 0);
    }
    void TearDown() override {
        V_finish();
        V_free_all();
        ASSERT_EQ(system((std::string("rm -rf ") + dir).c_str()), 0);
    }
};

TEST_F(CursorIdsTest, CursorIdsConnectOnFirstRequestAndReuseReleasedIds) {
    EXPECT_EQ(V_get_base(), nullptr);
    std::string ids;
    for (int i = 0; i < 10; i++) {
        const char *cid = V_get_cid();
        ASSERT_NE(cid, nullptr);
        ids += std::string(cid) + " ";
    }
    EXPECT_EQ(ids, "c0 c1 c2 c3 c4 c5 c6 c7 c8 c9 ");
    EXPECT_EQ(std::string(V_get_base()), std::string("sqlite:") + dir + "/c.db");
    EXPECT_EQ(access((std::string(dir) + "/c.db").c_str(), F_OK), 0);

    V_free_cid("c42");   // unknown: ignored
    V_free_cid("c7");
    V_free_cid("c3");
    EXPECT_STREQ(V_get_cid(), "c3");   // released ids go first, lowest slot first
    EXPECT_STREQ(V_get_cid(), "c7");
    EXPECT_EXIT(V_get_cid(), testing::ExitedWithCode(255), "");

    V_free_all();
    EXPECT_EQ(V_get_base(), nullptr);
    EXPECT_STREQ(V_get_cid(), "c0");
    EXPECT_STREQ(V_get_cid(), "c1");
}

TEST_F(CursorIdsTest, CursorIdsLoopOfOpenAndCloseKeepsTheFirstId) {
    for (int i = 0; i < 25; i++) {
        const char *cid = V_get_cid();
        ASSERT_STREQ(cid, "c0");
        V_free_cid(cid);
    }
}

TEST_F(CursorIdsTest, CursorIdsFailToConnectWithoutAUsableBase) {
    V_put_value("V_BASE", "", 0, 0);
    EXPECT_EXIT(V_get_cid(), testing::ExitedWithCode(255), "");
    V_put_value("V_BASE", "sqlite:/nonexistent-dir/no/c.db", 0, 0);
    EXPECT_EXIT(V_get_cid(), testing::ExitedWithCode(255), "");
    EXPECT_EQ(V_get_base(), nullptr);
}

}   // namespace
