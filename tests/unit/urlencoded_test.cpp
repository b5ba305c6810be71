// Unit tests of GET and url-encoded POST decoding: field splitting and
// escapes, the PATH_INFO page entry, the declared length and table limits.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <string>

#include "form/urlencoded.h"

namespace {

entry table[V_ENT_MAX];

void clear_table() {
    for (int i = 0; i < V_ENT_MAX && table[i].name; i++) {
        free(table[i].name);
        free(table[i].val);
        table[i].name = table[i].val = nullptr;
    }
}

int count() {
    int n = 0;
    while (n < V_ENT_MAX && table[n].name) n++;
    return n;
}

void expect_entry(int i, const char *name, const char *val) {
    ASSERT_NE(table[i].name, nullptr) << i;
    EXPECT_STREQ(table[i].name, name) << i;
    if (val)
        EXPECT_STREQ(table[i].val, val) << i;
    else
        EXPECT_EQ(table[i].val, nullptr) << i;
}

// A clean CGI environment for each test.
struct Request : testing::Test {
    void SetUp() override {
        for (const char *v :
             {"REQUEST_METHOD", "QUERY_STRING", "PATH_INFO", "CONTENT_TYPE", "CONTENT_LENGTH"})
            unsetenv(v);
        clear_table();
    }
    void TearDown() override { clear_table(); }

    // Feeds body to standard input and runs the POST decoder on it.
    int post(const std::string &body, const char *length = nullptr) {
        setenv("REQUEST_METHOD", "POST", 1);
        setenv("CONTENT_TYPE", "application/x-www-form-urlencoded", 1);
        std::string cl = length ? length : std::to_string(body.size());
        setenv("CONTENT_LENGTH", cl.c_str(), 1);
        char path[] = "/tmp/urlencoded_test.XXXXXX";
        int fd = mkstemp(path);
        EXPECT_GE(fd, 0);
        EXPECT_EQ(write(fd, body.data(), body.size()), (ssize_t)body.size());
        close(fd);
        EXPECT_NE(freopen(path, "r", stdin), nullptr);
        unlink(path);
        return POST_parser(table);
    }
};

using UrlencodedTest = Request;

TEST_F(UrlencodedTest, MethodsAndContentTypes) {
    EXPECT_STREQ(GETenv("REQUEST_METHOD"), "");
    EXPECT_EQ(GetMethod(), -1);
    setenv("REQUEST_METHOD", "GET", 1);
    EXPECT_EQ(GetMethod(), 2);
    EXPECT_EQ(POST_parser(table), -1);
    EXPECT_STREQ(POST_errmsg, "This script should be referenced with a METHOD of POST.\n");
    setenv("REQUEST_METHOD", "POST", 1);
    EXPECT_EQ(GetMethod(), 1);
    EXPECT_EQ(GET_parser(table, "V_PAGE"), -1);
    EXPECT_STREQ(POST_errmsg, "This script should be referenced with a METHOD GET.\n");
    EXPECT_EQ(CheckEnctypeMethod(), 1);
    setenv("CONTENT_TYPE", "application/x-www-form-urlencoded; charset=utf-8", 1);
    EXPECT_EQ(CheckEnctypeMethod(), 1);
    EXPECT_EQ(POST_parser(table), -1);
    EXPECT_STREQ(POST_errmsg, "This script can only be used to decode form results. \n");
    setenv("CONTENT_TYPE", "application/x-www-form-urlencoded", 1);
    EXPECT_EQ(CheckEnctypeMethod(), 0);
}

TEST_F(UrlencodedTest, QueryFieldsAndEscapes) {
    setenv("REQUEST_METHOD", "GET", 1);
    setenv("QUERY_STRING", "a=1&b=&c&a+b=c%2Bd&x%3Dy=z&&e=%", 1);
    ASSERT_EQ(GET_parser(table, "V_PAGE"), 0);
    ASSERT_EQ(count(), 7);
    expect_entry(0, "a", "1");
    expect_entry(1, "b", "");
    expect_entry(2, "c", nullptr);
    expect_entry(3, "a b", "c+d");
    expect_entry(4, "x", "y=z");   // the escape is decoded before the split
    expect_entry(5, "", nullptr);
    expect_entry(6, "e", "%");
    EXPECT_EQ(table[7].val, nullptr);
}

TEST_F(UrlencodedTest, PathInfoGivesThePageEntry) {
    setenv("REQUEST_METHOD", "GET", 1);
    setenv("PATH_INFO", "/p.html&x=1", 1);
    ASSERT_EQ(GET_parser(table, "V_PAGE"), 0);
    ASSERT_EQ(count(), 2);
    expect_entry(0, "V_PAGE", "/p.html");
    expect_entry(1, "x", "1");
    ASSERT_EQ(GET_path(table, "V_PAGE"), 0);
    ASSERT_EQ(count(), 2);
    expect_entry(0, "V_PAGE", "/p.html&x=1");

    setenv("QUERY_STRING", "", 1);   // a set query string, even empty, wins
    clear_table();
    ASSERT_EQ(GET_parser(table, "V_PAGE"), 0);
    EXPECT_EQ(count(), 0);
}

TEST_F(UrlencodedTest, PostReadsOnlyTheDeclaredLength) {
    ASSERT_EQ(post("a=1&b=2", "5"), 0);
    ASSERT_EQ(count(), 2);
    expect_entry(0, "a", "1");
    expect_entry(1, "b", nullptr);
    EXPECT_EQ(fgetc(stdin), '=');   // the rest is left unread
}

}   // namespace
