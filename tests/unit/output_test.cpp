// Unit tests of output and entity encoding: the entity table, the value
// cut, buffers never encoded, and the choice of the output stream.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>

#include "values/output.h"

namespace {

// Redirects the page output into a temporary file for the test's duration.
struct Capture {
    FILE *fp = tmpfile();
    FILE *saved = V_stdout;
    int html = HTML, len = V_len;
    Capture() { V_stdout = fp; }
    ~Capture() {
        V_stdout = saved;
        HTML = html;
        V_len = len;
        fclose(fp);
    }
    std::string text() {
        std::string out;
        rewind(fp);
        for (int c; (c = fgetc(fp)) != EOF;) out += static_cast<char>(c);
        return out;
    }
};

TEST(Output, EntityTable) {
    int rows = 0;
    while (HTML_tab[rows].html) rows++;
    EXPECT_EQ(rows, 52);
    EXPECT_STREQ(HTML_string(0xF8), "&ordmas;");
    EXPECT_STREQ(HTML_string(0xBF), "&questi;");
    EXPECT_STREQ(HTML_string(0xDD), "&Yacute;");
    EXPECT_STREQ(HTML_string(0xE5), "\xE5");
}

TEST(Output, EncodingOnlyTowardsTheStream) {
    Capture cap;
    HTML = 1;
    V_len = -1;
    transvalue("<b>caf\xE9</b> \xDF\xE5 & \"q\" \xF8\xBF", nullptr);
    V_write_text("a\xC7" "b cut here", 3);
    V_putchar(0xC0);
    char buf[32];
    transvalue("\xE9t\xE9", buf);
    EXPECT_STREQ(buf, "\xE9t\xE9");
    HTML = 0;
    transvalue("\xE9", nullptr);
    V_write_text("\xE8", 1);
    EXPECT_EQ(cap.text(), "<b>caf&eacute;</b> \xDF\xE5 & \"q\" &ordmas;&questi;"
                          "a&Ccedil;b&Agrave;\xE9\xE8");
}

TEST(Output, LengthCutLeavesTheValueAlone) {
    Capture cap;
    HTML = 1;
    V_len = 4;
    const char value[] = "\xE9" "123456789";
    EXPECT_EQ(transvalue(value, nullptr), 4);
    EXPECT_EQ(cap.text(), "&eacute;123");
    EXPECT_EQ(strlen(value), 10u);
    char buf[32];
    transvalue(value, buf);
    EXPECT_STREQ(buf, "\xE9" "123");
    V_len = 0;   // no limit
    transvalue(nullptr, buf);
    EXPECT_STREQ(buf, "");
}

TEST(Output, StreamChoice) {
    FILE *saved_stdout = V_stdout, *saved_fp = V_fp;
    FILE *page = tmpfile();
    V_stdout = nullptr;
    V_fp = nullptr;
    EXPECT_EQ(V_out(), stdout);
    V_fp = page;
    EXPECT_EQ(V_out(), page);
    {
        Capture cap;   // a redirection wins over the page stream
        transvalue("x", nullptr);
        EXPECT_EQ(cap.text(), "x");
    }
    EXPECT_EQ(ftell(page), 0);
    V_stdout = saved_stdout;
    V_fp = saved_fp;
    fclose(page);
}

}  // namespace
