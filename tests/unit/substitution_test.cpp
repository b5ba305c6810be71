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
#include "driver/diagnostics.h"
#include "interp/value_names.h"
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

void put(const char *name, const char *value) {
    ASSERT_EQ(V_put_value(name, value, 0, 0), 0);
}

TEST(Substitution, LiteralModesAndEmptyLines) {
    put("st_v", "val\xE9");
    int html = HTML;
    HTML = 1;
    EXPECT_EQ(tr("a $(st_v) b\n", 0), "a $(st_v) b\n");
    EXPECT_EQ(tr("\xE8 $(st_v) b\n", 1), "\xE8 val\xE9 b\n");   // buffers are never encoded
    HTML = html;
    int saved = IgnoreEmpty;
    IgnoreEmpty = 1;
    EXPECT_EQ(tr("\n"), "");
    IgnoreEmpty = 0;
    EXPECT_EQ(tr("\n"), "\n");
    IgnoreEmpty = saved;
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

TEST(Substitution, WordSplitsAtEveryTab) {
    put("st_tabs", " a\t\tb  c ");
    EXPECT_EQ(tv("word:st_tabs:2"), "");
    EXPECT_EQ(tv("word:st_tabs:3"), "b");
    EXPECT_EQ(tv("word:st_tabs:4"), "c");
    EXPECT_EQ(tv("word:st_tabs:5"), "");
    EXPECT_EQ(tv("word:st_tabs:-1"), "");
}

TEST(Substitution, IntAndPrintfAcceptOneMatchingConversion) {
    EXPECT_EQ(tv("int:%05d:42"), "00042");
    EXPECT_EQ(tv("int:100%% of %d:7"), "100% of 7");
    EXPECT_EQ(tv("int:%d %d:7"), "");
    EXPECT_EQ(tv("int:%n:7"), "");
    EXPECT_EQ(tv("int:%ld:7"), "");
    EXPECT_EQ(tv("int:%*d:7"), "");
    EXPECT_EQ(tv("int:%99999d:7"), "");
    EXPECT_EQ(tv("int:no conversion, 100%%:7"), "no conversion, 100%");

    put("st_p", "3.14159");
    EXPECT_EQ(tv("printf:%.2f:st_p"), "3.14");
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
    expect("\xff", "ff");       // -1: printed as ffffffff, crypt reads ff
    expect("\x80\x80", "00");   // -256 % 256 = 0
    expect("\x80\x01", "ff");   // -127: ffffff81
}

TEST(Substitution, SystemNamesMatchAsPrefixes) {
    EXPECT_EQ(tv("V_VERSION"), "670");
    EXPECT_EQ(tv("V_VERSIONS"), "670");
    V_rowcount = 12;
    EXPECT_EQ(tv("V_ROWS_total"), "12");
    put("todayx", "var");
    EXPECT_EQ(tv("todayx"), "var");   // whole names only
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

// Rows installed from above: a prefix row takes the text after its name, a
// whole-name row no longer reference, and their values pass through the
// cut: length like any value.
TEST(Substitution, InstalledRowsResolveAfterTheOwnNames) {
    static const V_VALUE_ROW rows[] = {
        {"up:", true, [](const char *rest, char *out) { snprintf(out, V_LINE_MAX, "<%s>", rest); }},
        {"UP", false, [](const char *, char *out) { snprintf(out, V_LINE_MAX, "whole"); }},
        {"upper:", true, [](const char *, char *out) { snprintf(out, V_LINE_MAX, "row"); }},
        {nullptr, false, nullptr},
    };
    V_set_value_rows(rows);
    put("UPX", "var");
    put("up", "text");
    EXPECT_EQ(tv("up:abc"), "<abc>");
    EXPECT_EQ(tr("[$(up:$(up))]"), "[<text>]");
    EXPECT_EQ(tv("UP"), "whole");
    EXPECT_EQ(tv("UPX"), "var");
    EXPECT_EQ(tv("cut:3:up:abc"), "<ab");
    EXPECT_EQ(tv("upper:up"), "TEXT");   // the value layer's own name wins
    V_set_value_rows(nullptr);
    EXPECT_EQ(tv("UP"), "");   // no table: a variable, here unset
    V_set_value_rows(v_INTERP_VALUES);
}

// A line split once must substitute as the walk does, cuts included: the
// reference at and over the length a reference may have, a line ending in
// an open reference, heads that decide a name or leave it open, and
// buffers too small for the line. Lines the split does not take walk.
TEST(Substitution, SplitLinesSubstituteAsTheWalk) {
    int ready = V_trace_ready;
    V_trace_ready = 1;   // the split is used only once the trace is settled
    put("sp_a", "alpha");
    put("sp_sfx", "sp");
    put("V_ERRMSGsp", "var");
    put("sp_n", "len:sp_a");
    put("sp_empty", "");
    put(std::string(V_REF_MAX - 2, 'r').c_str(), "long name");
    const std::string at_limit(V_REF_MAX - 2, 'r'), over(V_REF_MAX - 1, 'r');
    const std::string lines[] = {
        "plain text\n",
        "a $(sp_a) b $(sp_a)$(sp_a)\n",
        "$(upper:sp_a) $(cut:2:sp_a) $(expr: 7 % 4) $(expr: 2 + 3 * 4)",
        "$($(sp_n)) $(V_NVAL$(sp_empty)) $(V_ERRMSG$(sp_empty)) $(V_N$(sp_empty)VAL)",
        "$(V_ERRMSG$(sp_sfx)) $(V_NV$(sp_sfx)) $(today$(sp_sfx))",
        "$(sp_$(sp_empty)a) [$(expr:$(sp_empty) 1 + 1)] $(str:1:2:$(sp_a))",
        "[$(" + at_limit + ")]",
        "[$(" + over + ")]",
        "open $(sp_a",
        "nested $(upper:$(sp_a) end",
        "$(\n) across $(sp_a\n)",
        "(brackets $(sp_a)) $(sp_(a)) $()",
    };
    for (const std::string &line : lines) {
        V_TEXT_FORM *form = V_text_form(line.c_str());
        for (int size : {1, 2, 5, 12, 40, V_LINE_MAX}) {
            std::string walk(static_cast<size_t>(size), '#'), split(static_cast<size_t>(size), '#');
            V_transline_n(line.c_str(), walk.data(), size, 1);
            V_transline_form(form, line.c_str(), split.data(), size, 1);
            EXPECT_EQ(split, walk) << line.substr(0, 60) << " in " << size;
        }
        V_free_text_form(form);
    }
    EXPECT_EQ(V_text_form("open $(sp_a"), nullptr);
    EXPECT_EQ(V_text_form(("[$(" + over + ")]").c_str()), nullptr);
    V_TEXT_FORM *form = V_text_form(("[$(" + at_limit + ")]").c_str());
    EXPECT_NE(form, nullptr);
    V_free_text_form(form);
    V_trace_ready = ready;
}

}   // namespace
