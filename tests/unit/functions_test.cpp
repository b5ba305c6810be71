// Unit tests of the built-ins run by <@exec> on the variable store, and of
// argument binding and shadowing of user functions on in-memory pages.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "interp/flow.h"
#include "interp/functions.h"
#include "interp/loops.h"
#include "interp/page_reader.h"
#include "values/output.h"
#include "values/variables.h"

namespace {

std::string value(const char *name) {
    const char *v = V_get_value(name);
    return v ? v : "<missing>";
}

int exec(const std::string &line) {
    static char buff[8192];
    snprintf(buff, sizeof buff, "%s", line.c_str());
    return V_exec(buff, 1, 0);
}

// A page held in memory, and the page output captured while it runs.
struct Page {
    std::string text;
    V_FILE f{};
    explicit Page(const std::string &t) : text(t) {
        f.text = text.data();
        f.size = static_cast<int>(text.size());
    }
};

struct Capture {
    char *data = nullptr;
    size_t size = 0;
    FILE *saved = V_fp;
    Capture() { V_fp = open_memstream(&data, &size); }
    std::string done() {
        fclose(V_fp);
        V_fp = saved;
        std::string s(data, size);
        free(data);
        return s;
    }
};

int line(int (*handler)(char *, int, int, char *), const std::string &text, char *ret = nullptr) {
    static char buff[8192];
    snprintf(buff, sizeof buff, "%s", text.c_str());
    return handler(buff, 1, 0, ret);
}

int define(V_FILE *fp, const std::string &text) {
    static char buff[8192];
    snprintf(buff, sizeof buff, "%s", text.c_str());
    return V_function(fp, buff, 1, 0);
}

}  // namespace

TEST(Functions, StrcutCutsAtFirstOccurrence) {
    V_put_value("fn_mail", "name@host@x", 0, 0);
    EXPECT_EQ(exec("<@exec> strcut fn_mail @"), 0);
    EXPECT_EQ(value("fn_mail"), "name");
    exec("<@exec> strcut fn_mail zz");
    EXPECT_EQ(value("fn_mail"), "name");
    exec("<@exec> strcut fn_nothing @");   // a missing variable is left alone
    EXPECT_EQ(value("fn_nothing"), "<missing>");
}

TEST(Functions, ChcharNeedsExactlyThreeCharacters) {
    V_put_value("fn_word", "banana", 0, 0);
    exec("<@exec> chchar fn_word a_b");
    EXPECT_EQ(value("fn_word"), "bbnbnb");
    exec("<@exec> chchar fn_word ba");
    exec("<@exec> chchar fn_word b_cd");
    EXPECT_EQ(value("fn_word"), "bbnbnb");
    exec("<@exec> chchar fn_word \"b x\"");   // the middle character is only a separator
    EXPECT_EQ(value("fn_word"), "xxnxnx");
}

TEST(Functions, StrlenSetsTheLength) {
    V_put_value("fn_s", "", 0, 0);
    exec("<@exec> strlen fn_s fn_len");
    EXPECT_EQ(value("fn_len"), "0");
    V_put_value("fn_s", "hello world", 0, 0);
    exec("<@exec> strlen fn_s fn_len");
    EXPECT_EQ(value("fn_len"), "11");
    V_put_value("fn_len", "keep", 0, 0);
    exec("<@exec> strlen fn_none fn_len");
    EXPECT_EQ(value("fn_len"), "keep");
    // names compare exactly: an unknown built-in ends the request
    EXPECT_EXIT(
        {
            if (!freopen("/dev/null", "w", stdout)) exit(1);
            V_exec_call("StrLen", "fn_s fn_len");
        },
        testing::ExitedWithCode(255), "");
}

TEST(Functions, ArgumentsBindShadowAndStay) {
    Page page("a=$(fn_a) b=$(fn_b)\n<@end>\n");
    EXPECT_EQ(define(&page.f, "<@function> fn_f(fn_a, fn_b)"), 0);
    V_clear_value("fn_a");
    V_clear_value("fn_b");

    Capture out;
    // nothing to shadow: the arguments outlive the call
    EXPECT_EQ(line(V_call, "<@call> fn_f(1 , 2)"), 0);
    EXPECT_EQ(value("fn_a"), "1");
    EXPECT_EQ(value("fn_b"), "2");
    // now both are shadowed, and come back with their old values
    EXPECT_EQ(line(V_call, "<@call> fn_f(x)"), 0);
    EXPECT_EQ(value("fn_a"), "1");
    EXPECT_EQ(value("fn_b"), "2");
    // with one shadowed, every argument variable goes after the call
    V_clear_value("fn_a");
    EXPECT_EQ(line(V_call, "<@call> fn_f(y, z)"), 0);
    EXPECT_EQ(value("fn_a"), "<missing>");
    EXPECT_EQ(value("fn_b"), "2");
    EXPECT_EQ(out.done(), "a=1 b=2\na=x b=\na=y b=z\n");
    EXPECT_EQ(page.f.offset, page.f.size) << "the file's offset is restored";
}

TEST(Functions, ReturnFillsTheReceiverAndClearsFlags) {
    Page page("<@return> got $(fn_r)\nnot reached\n<@end>\n");
    define(&page.f, "<@function> fn_ret(fn_r)");
    char ret[8192] = "";
    Capture out;
    line(V_call, "<@call> fn_ret(7)", ret);
    EXPECT_EQ(out.done(), "");
    EXPECT_STREQ(ret, " got 7");   // the text after the tag, as it stands
    EXPECT_EQ(Continue + Break + ContinueBreak, 0);
    EXPECT_EQ(Return, nullptr);
}
