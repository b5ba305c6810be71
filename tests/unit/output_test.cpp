// Unit test of output: the order of the output streams, which a page
// cannot show (values/output_encoding.case shows the encoding).
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

TEST(Output, StreamChoice) {
    FILE *saved_stdout = V_stdout;
    V_stdout = nullptr;
    EXPECT_EQ(V_out(), stdout);
    {
        Capture cap;   // a redirection takes the page output
        EXPECT_EQ(V_out(), cap.fp);
        transvalue("x", nullptr);
        EXPECT_EQ(cap.text(), "x");
    }
    V_stdout = saved_stdout;
}

}   // namespace
