// The database session against real SQLite files: engine choice, cursors,
// the semicolon cut, transactions and the failure paths.
#include <gtest/gtest.h>
#include <sqlite3.h>

#include <cstdlib>
#include <cstring>
#include <string>
#include <unistd.h>

#include "base/directories.h"
#include "db/engine.h"
#include "db/session.h"
#include "values/block_heap.h"

namespace {

struct SessionTest : ::testing::Test {
    char dir[64] = "/tmp/vorn-session-XXXXXX";
    std::string db;
    V_heap *hp = nullptr;

    void SetUp() override {
        ASSERT_NE(mkdtemp(dir), nullptr);
        db = std::string(dir) + "/t.db";
        hp = V_heap_new();
        unsetenv("VORN_DB");
    }
    void TearDown() override {
        V_finish();
        V_heap_free(hp);
        std::string cmd = std::string("rm -rf ") + dir;
        ASSERT_EQ(system(cmd.c_str()), 0);
    }
    void connect() { ASSERT_EQ(V_database(("sqlite:" + db).c_str(), nullptr, nullptr), 0); }
    int exec(const char *sql) {
        char buf[8192];
        snprintf(buf, sizeof buf, "%s", sql);
        return V_noselect_sql(buf, nullptr, nullptr);
    }
    int open(const char *cid, const char *sql) {
        char buf[8192];
        snprintf(buf, sizeof buf, "%s", sql);
        return V_select_sql(V_SQL_OPEN, cid, buf, hp, nullptr, nullptr);
    }
    int fetch(const char *cid, V_val *val, int *numb) {
        return V_select_sql(V_SQL_FETCH, cid, nullptr, hp, numb, val);
    }
    void close(const char *cid) {
        V_select_sql(V_SQL_CLOSE, cid, nullptr, nullptr, nullptr, nullptr);
    }
    // Counts rows of t through a second, independent connection.
    int count_outside() {
        sqlite3 *other = nullptr;
        int n = -1;
        if (sqlite3_open(db.c_str(), &other) == SQLITE_OK) {
            sqlite3_stmt *st = nullptr;
            if (sqlite3_prepare_v2(other, "select count(*) from t", -1, &st, nullptr) ==
                    SQLITE_OK &&
                sqlite3_step(st) == SQLITE_ROW)
                n = sqlite3_column_int(st, 0);
            sqlite3_finalize(st);
        }
        sqlite3_close(other);
        return n;
    }
};

TEST_F(SessionTest, SessionRowsArriveAsTextWithNullAsMinusOne) {
    connect();
    ASSERT_EQ(exec("create table t (name text, n integer, r real)"), 0);
    ASSERT_EQ(exec("insert into t values ('ab', 7, 2.5)"), 0);
    ASSERT_EQ(exec("insert into t values (null, null, null)"), 0);
    ASSERT_EQ(exec("insert into t values ('', 0, 0)"), 0);
    ASSERT_EQ(open("c0", "select name, n, r from t order by rowid"), 0);
    V_val val[V_MAX_COLUMNS] = {};
    int numb = 0;
    ASSERT_EQ(fetch("c0", val, &numb), 0);
    ASSERT_EQ(numb, 3);
    EXPECT_STREQ(val[0].name, "name");
    EXPECT_STREQ(val[0].value, "ab");
    EXPECT_EQ(val[0].len, 2);
    EXPECT_STREQ(val[1].value, "7");
    EXPECT_STREQ(val[2].value, "2.5");
    ASSERT_EQ(fetch("c0", val, &numb), 0);
    EXPECT_EQ(val[0].len, -1);
    EXPECT_EQ(val[1].len, -1);
    ASSERT_EQ(fetch("c0", val, &numb), 0);
    EXPECT_EQ(val[0].len, 0);
    EXPECT_STREQ(val[0].value, "");
    // the end of the rows stays the end: the query is not started again
    EXPECT_EQ(fetch("c0", val, &numb), 1);
    EXPECT_EQ(fetch("c0", val, &numb), 1);
    close("c0");
    EXPECT_EQ(fetch("c0", val, &numb), -1);
}

TEST_F(SessionTest, SessionCutsAtTheLastSemicolon) {
    connect();
    ASSERT_EQ(exec("create table t (name text);"), 0);
    EXPECT_EQ(exec("insert into t values ('a;b');"), 0);
    // without a trailing one the cut falls inside the literal
    EXPECT_EQ(exec("insert into t values ('c;d')"), -1);
    EXPECT_EQ(open("c0", "select name from t;"), 0);
    V_val val[V_MAX_COLUMNS] = {};
    int numb = 0;
    ASSERT_EQ(fetch("c0", val, &numb), 0);
    EXPECT_STREQ(val[0].value, "a;b");
    EXPECT_EQ(fetch("c0", val, &numb), 1);
    // two statements in one text are refused, not half run
    EXPECT_EQ(exec("insert into t values ('x'); insert into t values ('y');"), -1);
    EXPECT_EQ(exec("   "), -1);
    EXPECT_STREQ(V_db_errmsg(), "empty statement");
}

TEST_F(SessionTest, SessionTenCursorSlotsAndNoMore) {
    connect();
    char cid[12][10];
    for (int i = 0; i < V_MAX_CURSORS; i++) {
        snprintf(cid[i], sizeof cid[i], "c%d", i);
        ASSERT_EQ(open(cid[i], "select 1 as one"), 0) << i;
        EXPECT_EQ(get_cursor(cid[i]), i);
    }
    EXPECT_EQ(get_cursor("c10"), -1);
    EXPECT_EQ(open("c10", "select 1"), -1);
    EXPECT_STREQ(V_db_errmsg(), "no more empty cursors");
    // an id that is open already is refused and its rows stay readable
    EXPECT_EQ(open("c3", "select 2 as two"), -1);
    V_val val[V_MAX_COLUMNS] = {};
    int numb = 0;
    ASSERT_EQ(fetch("c3", val, &numb), 0);
    EXPECT_STREQ(val[0].name, "one");
    close("c3");
    // a new id takes the lowest free slot
    EXPECT_EQ(open("c10", "select 3"), 0);
    EXPECT_EQ(get_cursor("c10"), 3);
    EXPECT_EQ(V_select_sql(7, "c10", nullptr, hp, &numb, val), -1);
}

TEST_F(SessionTest, SessionWorkIsOneTransactionUntilCommit) {
    connect();
    ASSERT_EQ(exec("create table t (n integer primary key)"), 0);
    ASSERT_EQ(exec("commit"), 0);
    ASSERT_EQ(exec("insert into t values (1)"), 0);
    EXPECT_EQ(count_outside(), 0);
    ASSERT_EQ(exec("commit work"), 0);
    EXPECT_EQ(count_outside(), 1);
    ASSERT_EQ(exec("insert into t values (2)"), 0);
    ASSERT_EQ(exec("rollback"), 0);
    ASSERT_EQ(exec("insert into t values (3)"), 0);
    // a failing statement undoes itself only
    EXPECT_EQ(exec("insert into t values (3)"), -1);
    EXPECT_NE(strstr(V_db_errmsg(), "UNIQUE"), nullptr) << V_db_errmsg();
    EXPECT_EQ(exec("insert into t values (4)"), 0);
    EXPECT_EQ(exec("begin"), 0);   // already in work: no error
    // the end of the session commits
    V_finish();
    EXPECT_EQ(count_outside(), 3);
    // statements without a session fail cleanly
    EXPECT_EQ(exec("insert into t values (5)"), -1);
    EXPECT_EQ(open("c0", "select 1"), -1);
}

TEST_F(SessionTest, SessionCursorSurvivesCommitAndFailuresInItsLoop) {
    connect();
    ASSERT_EQ(exec("create table t (n integer primary key)"), 0);
    ASSERT_EQ(exec("insert into t values (1)"), 0);
    ASSERT_EQ(exec("insert into t values (2)"), 0);
    ASSERT_EQ(exec("insert into t values (3)"), 0);
    ASSERT_EQ(open("c0", "select n from t order by n"), 0);
    V_val val[V_MAX_COLUMNS] = {};
    int numb = 0;
    int seen = 0;
    while (fetch("c0", val, &numb) == 0) {
        seen++;
        EXPECT_EQ(exec("insert into t values (1)"), -1);   // fails inside the loop
        EXPECT_EQ(exec("commit"), 0);
    }
    EXPECT_EQ(seen, 3) << V_db_errmsg();
    close("c0");
    EXPECT_EQ(count_outside(), 3);
}

TEST_F(SessionTest, SessionColumnLimits) {
    connect();
    std::string wide = "select 1 as c0";
    for (int i = 1; i < V_MAX_COLUMNS; i++) wide += ", 1 as c" + std::to_string(i);
    ASSERT_EQ(open("c0", wide.c_str()), 0);
    V_val val[V_MAX_COLUMNS] = {};
    int numb = 0;
    ASSERT_EQ(fetch("c0", val, &numb), 0);
    EXPECT_EQ(numb, V_MAX_COLUMNS);
    EXPECT_STREQ(val[99].name, "c99");
    close("c0");
    wide += ", 2 as extra";
    EXPECT_EQ(open("c0", wide.c_str()), -1);
    EXPECT_NE(strstr(V_db_errmsg(), "too many select-list items (101)"), nullptr);
    // the failed open left the slot free
    EXPECT_EQ(open("c0", "select 1 as \"a very long column name of forty-one chars  \""), 0);
    ASSERT_EQ(fetch("c0", val, &numb), 0);
    EXPECT_STREQ(val[0].name, "a very long column name of for");
    ASSERT_EQ(open("c1", "select 1 as \"twenty-eight characters then  \""), 0);
    ASSERT_EQ(fetch("c1", val, &numb), 0);
    EXPECT_STREQ(val[0].name, "twenty-eight characters then");
}

TEST_F(SessionTest, SessionChoosesTheEngineByName) {
    char *saved = V_HOME;
    V_HOME = dir;
    ASSERT_EQ(V_database("-", nullptr, nullptr), 0);
    ASSERT_EQ(exec("create table t (n)"), 0);
    V_finish();
    EXPECT_EQ(access((std::string(dir) + "/vorn.db").c_str(), F_OK), 0);
    ASSERT_EQ(V_database("Shop", "scott", "tiger"), 0);
    ASSERT_EQ(exec("create table t (n)"), 0);
    V_finish();
    EXPECT_EQ(access((std::string(dir) + "/Shop.db").c_str(), F_OK), 0);

    setenv("VORN_DB", "oracle", 1);
    EXPECT_EQ(V_database("Shop", nullptr, nullptr), -1);
    EXPECT_NE(strstr(V_db_errmsg(), "oracle"), nullptr);
    unsetenv("VORN_DB");
    V_HOME = saved;

    EXPECT_EQ(V_database("sqlite:/nonexistent-dir/x/y.db", nullptr, nullptr), -1);
    EXPECT_EQ(V_db_engine(), nullptr);
    EXPECT_EQ(V_database("sqlite:", nullptr, nullptr), -1);
    // a server that is not there
    std::string pg = std::string("postgres:host=") + dir + " connect_timeout=2";
    EXPECT_EQ(V_database(pg.c_str(), nullptr, nullptr), -1);
    EXPECT_NE(V_db_errmsg()[0], 0);
    EXPECT_EQ(strchr(V_db_errmsg(), '\n'), nullptr);
    EXPECT_EQ(exec("select 1"), -1);
}

TEST(SessionEngine, SessionErrorKeepsTheFirstLineBounded) {
    char buf[16];
    V_engine_error(buf, sizeof buf, "ERROR:  relation does not exist\nLINE 1: select");
    EXPECT_STREQ(buf, "ERROR:  relatio");
    V_engine_error(buf, sizeof buf, "short\r\nrest");
    EXPECT_STREQ(buf, "short");
    V_engine_error(buf, sizeof buf, nullptr);
    EXPECT_STREQ(buf, "");
}

}   // namespace
