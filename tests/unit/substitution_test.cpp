// Unit tests of value substitution: nesting, buffer bounds, the chained
// modifiers, hostile formats, the crypt salt and the system names.
#include <gtest/gtest.h>

#include <crypt.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>

#include "db/sql_commands.h"
#include "interp/options.h"
#include "values/output.h"
#include "values/substitution.h"
#include "values/variables.h"

namespace {

std::string tr(const char *line, int compile = 1) {
    static char buff[V_LINE_MAX];
    memset(buff, 'Z', sizeof buff);
    V_transline(line, buff, compile);
    return buff;
}

std::string tv(const char *ref) {
    static char buff[V_LINE_MAX];
    V_transvalue(ref, buff);
    return buff;
}

void put(const char *name, const char *value) { ASSERT_EQ(V_put_value(name, value, 0, 0), 0); }

// Sends the page output to a temporary file for the test's duration.
struct PageCapture {
    FILE *fp = tmpfile();
    FILE *saved = V_stdout;
    int html = HTML;
    PageCapture() { V_stdout = fp; }
    ~PageCapture() {
        V_stdout = saved;
        HTML = html;
        fclose(fp);
    }
    std::string text() {
        fflush(fp);
        rewind(fp);
        std::string out;
        for (int c; (c = fgetc(fp)) != EOF;) out += (char)c;
        return out;
    }
};

TEST(Substitution, NestedReferencesExpandInnermostFirst) {
    put("st_b", "x");
    put("st_ax", "found");
    EXPECT_EQ(tr("[$(st_a$(st_b))]"), "[found]");
    put("st_n", "  a   b ");
    EXPECT_EQ(tr("$(upper:trim:st_n)"), "A B");
    EXPECT_EQ(tr("$(len:upper:trim:st_n)"), "3");
    // parentheses inside a reference belong to it
    put("st_f(1)", "paren");
    EXPECT_EQ(tr("<$(st_f(1))>"), "<paren>");
}

TEST(Substitution, LiteralModesAndEmptyLines) {
    put("st_v", "val");
    EXPECT_EQ(tr("a $(st_v) b\n", 0), "a $(st_v) b\n");
    EXPECT_EQ(tr("a $(st_v) b\n", 1), "a val b\n");
    int saved = IgnoreEmpty;
    IgnoreEmpty = 1;
    EXPECT_EQ(tr("\n"), "");
    IgnoreEmpty = 0;
    EXPECT_EQ(tr("\n"), "\n");
    IgnoreEmpty = saved;
}

TEST(Substitution, UnbalancedReferenceRunsToTheEnd) {
    put("st_tail", "T");
    EXPECT_EQ(tr("x $(st_tail"), "x T");
    EXPECT_EQ(tr("x $(st_tail)y$("), "x Ty");
    EXPECT_EQ(tr("$ ( $x ) $"), "$ ( $x ) $");
}

TEST(Substitution, MissingNamesGiveEmptyText) {
    EXPECT_EQ(tr("[$(st_nothing)]"), "[]");
    EXPECT_EQ(tr("$(len:st_nothing)"), "0");
    EXPECT_EQ(tr("$()"), "");
}

TEST(Substitution, BufferIsNeverOverrun) {
    char small[9];
    small[8] = '#';
    V_transline_n("0123456789", small, 8, 1);
    EXPECT_STREQ(small, "0123456");
    put("st_long", std::string(6000, 'v').c_str());
    V_transline_n("ab$(st_long)", small, 8, 1);
    EXPECT_STREQ(small, "abvvvvv");
    EXPECT_EQ(small[8], '#');

    // two 6000-character values in one 8192-byte line
    std::string line = "$(st_long)$(st_long)";
    std::string out = tr(line.c_str());
    EXPECT_EQ(out.size(), (size_t)V_LINE_MAX - 1);
    std::string text(20000, 't');
    EXPECT_EQ(tr(text.c_str()).size(), (size_t)V_LINE_MAX - 1);
    // escapes and url coding grow a value: still cut at the buffer
    put("st_amp", std::string(5000, '&').c_str());
    std::string shell = tr("$(sh:st_amp)");
    EXPECT_EQ(shell.size(), (size_t)V_LINE_MAX - 2);   // whole pairs only
    EXPECT_EQ(shell.substr(shell.size() - 2), "\\&");
    EXPECT_EQ(tr("$(txt2url:st_amp)").size(), (size_t)V_LINE_MAX - 1);
}

TEST(Substitution, OverlongAndDeeplyNestedReferencesAreSafe) {
    std::string ref = "$(" + std::string(6000, 'n') + ")after";
    EXPECT_EQ(tr(ref.c_str()), "after");
    std::string deep;
    for (int i = 0; i < 2000; i++) deep += "$(";
    EXPECT_EQ(tr(deep.c_str()), "");
    std::string chain;
    for (int i = 0; i < 1300; i++) chain += "upper:";
    put("st_c", "c");
    EXPECT_EQ(tv((chain + "st_c").c_str()), "C");
}

TEST(Substitution, CutLimitsOneValueOnly) {
    put("st_abc", "abcdef");
    EXPECT_EQ(tr("$(cut:3:st_abc) $(st_abc)"), "abc abcdef");
    EXPECT_EQ(V_len, -1);
    EXPECT_EQ(tr("[$(cut:3)]"), "[]");
}

TEST(Substitution, StrTakesInclusiveRange) {
    put("st_s", "abcdef");
    EXPECT_EQ(tv("str:2:4:st_s"), "bcd");
    EXPECT_EQ(tv("str:1:1:st_s"), "a");
    EXPECT_EQ(tv("str:4:99:st_s"), "def");
    EXPECT_EQ(tv("str:7:9:st_s"), "");   // starts right behind the end
    EXPECT_EQ(tv("str:8:9:st_s"), "");
    EXPECT_EQ(tv("str:0:2:st_s"), "");
    EXPECT_EQ(tv("str:3:2:st_s"), "");
    EXPECT_EQ(tv("str:"), "");
    EXPECT_EQ(tv("str:2:st_s"), "");
    EXPECT_EQ(tv("str:2:3:upper:st_s"), "BC");
}

TEST(Substitution, WordCountsFromOne) {
    put("st_w", "  one   two\tthree ");
    EXPECT_EQ(tv("word:st_w:1"), "one");
    EXPECT_EQ(tv("word:st_w:2"), "two");
    EXPECT_EQ(tv("word:st_w:3"), "three");
    EXPECT_EQ(tv("word:st_w:4"), "");
    EXPECT_EQ(tv("word:st_w:-1"), "");
    EXPECT_EQ(tv("word:st_w:0"), "");
    EXPECT_EQ(tv("word:st_w"), "");
    put("st_tabs", "a\t\tb");
    EXPECT_EQ(tv("word:st_tabs:2"), "");
    EXPECT_EQ(tv("word:st_tabs:3"), "b");
    EXPECT_EQ(tv("word:upper:st_w:2"), "TWO");
}

TEST(Substitution, StringModifiers) {
    put("st_m", "Ab C");
    EXPECT_EQ(tv("lower:st_m"), "ab c");
    EXPECT_EQ(tv("upper:st_m"), "AB C");
    put("st_t", " \tx  ");
    EXPECT_EQ(tv("trim:st_t"), "\tx");
    put("st_u", "a b&c/\xE9");
    EXPECT_EQ(tv("txt2url:st_u"), "a%20b%26c%2f%e9");
    put("st_e", "a%20b%2");
    EXPECT_EQ(tv("url2txt:st_e"), "a b%2");
    put("st_sh", "a;b $(x)");
    EXPECT_EQ(tv("sh:st_sh"), "a\\;b \\$\\(x\\)");
    put("st_date", "2024-03-09 10:11");
    EXPECT_EQ(tv("year:st_date"), "2024");
    EXPECT_EQ(tv("month:st_date"), "03");
    EXPECT_EQ(tv("day:st_date"), "09");
    put("st_short", "2024-3-9");
    EXPECT_EQ(tv("year:st_short"), "2024-3-9");
    EXPECT_EQ(tv("\\t") + tv("\\n") + tv("\\r"), "\t\n\r");
    setenv("ST_ENV", "from env", 1);
    EXPECT_EQ(tv("env:ST_ENV"), "from env");
    EXPECT_EQ(tv("env:ST_UNSET_NAME"), "");
}

TEST(Substitution, IntAndPrintfAcceptOneMatchingConversion) {
    EXPECT_EQ(tv("int:%05d:42"), "00042");
    EXPECT_EQ(tv("int:%x:255"), "ff");
    EXPECT_EQ(tv("int:100%% of %d:7"), "100% of 7");
    EXPECT_EQ(tv("int:%d %d:7"), "");
    EXPECT_EQ(tv("int:%s:7"), "");
    EXPECT_EQ(tv("int:%n:7"), "");
    EXPECT_EQ(tv("int:%ld:7"), "");
    EXPECT_EQ(tv("int:%*d:7"), "");
    EXPECT_EQ(tv("int:%99999d:7"), "");
    EXPECT_EQ(tv("int:no conversion, 100%%:7"), "no conversion, 100%");
    EXPECT_EQ(tv("int:%d"), "");

    put("st_p", "3.14159");
    EXPECT_EQ(tv("printf:%.2f:st_p"), "3.14");
    EXPECT_EQ(tv("printf:%d:st_p"), "3");
    EXPECT_EQ(tv("printf:[%8s]:st_p"), "[ 3.14159]");
    EXPECT_EQ(tv("printf:%c:st_p"), "3");
    EXPECT_EQ(tv("printf:Cost %d:st_p"), "Cost 3");
    EXPECT_EQ(tv("printf:%s%s:st_p"), "");
    EXPECT_EQ(tv("printf:%s %n:st_p"), "");
    EXPECT_EQ(tv("printf:%5.1e:st_nothing"), "0.0e+00");
    std::string wide = "printf:" + std::string(100, 'w') + "%d:st_p";
    EXPECT_EQ(tv(wide.c_str()), std::string(79, 'w'));   // cut format loses its conversion
    EXPECT_EQ(tv("printf:%%:st_p"), "%");
}

TEST(Substitution, CryptSaltFromByteSum) {
    auto expect = [](const char *value, const char *salt) {
        put("st_pw", value);
        std::string want = crypt(value, salt);
        EXPECT_EQ(tv("crypt:st_pw"), want) << value;
        EXPECT_EQ(want.substr(0, 2), std::string(salt, 2));
    };
    expect("abc", "26");        // 294 % 256 = 38
    expect("", "00");
    expect("\xff", "ff");       // -1: printed as ffffffff, crypt reads ff
    expect("\x80\x80", "00");   // -256 % 256 = 0
    expect("\x80\x01", "ff");   // -127: ffffff81
}

TEST(Substitution, SystemNamesMatchAsPrefixes) {
    EXPECT_EQ(tv("V_VERSION"), "670");
    EXPECT_EQ(tv("V_VERSIONS"), "670");
    V_rowcount = 12;
    EXPECT_EQ(tv("V_ROWS_total"), "12");
    V_sqlcode = -1403;
    EXPECT_EQ(tv("V_SQLCODE"), "-1403");
    V_INSERT_ID = 77;
    EXPECT_EQ(tv("V_INSERT_ID"), "77");
    put("st_dir", "x");
    EXPECT_EQ(tv("DIRX"), "");   // whole names only
    put("todayx", "var");
    EXPECT_EQ(tv("todayx"), "var");
    EXPECT_GE(atoi(tv("V_DDT").c_str()), 0);
    usleep(3000);
    int ddt = atoi(tv("V_DDT").c_str());
    EXPECT_GE(ddt, 3000);
    EXPECT_LT(ddt, 3000000);
    long now = time(nullptr);
    long dt = atol(tv("V_DT").c_str());
    EXPECT_LE(now, dt);
    EXPECT_LE(dt, now + 2);
    std::string udt = tv("V_UDT");
    ASSERT_EQ(udt.find('.'), udt.size() - 7);
    EXPECT_FALSE(tv("V_RANDOM").empty());
}

TEST(Substitution, PageOutputEncodesTextAndValues) {
    PageCapture cap;
    HTML = 1;
    put("st_html", "<b>\xE9</b>");
    V_transline("caf\xE9 $(st_html) $(cut:2:st_html)\n", nullptr, 1);
    V_transline("raw $(st_html)\n", nullptr, 0);
    EXPECT_EQ(cap.text(), "caf&eacute; <b>&eacute;</b> <b\nraw $(st_html)\n");
    EXPECT_EQ(V_len, -1);
}

TEST(Substitution, BufferIsNeverEncoded) {
    int saved = HTML;
    HTML = 1;
    put("st_enc", "\xE9");
    EXPECT_EQ(tr("\xE8$(st_enc)"), "\xE8\xE9");
    HTML = saved;
}

}  // namespace
