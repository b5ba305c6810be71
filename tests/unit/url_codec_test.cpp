// Unit tests of the form text utilities: url escapes both ways, the field
// reader with its length count and cut, lines, shell escapes, file names.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "form/url_codec.h"
#include "form/urlencoded.h"

namespace {

FILE *from_text(const std::string &text) {
    FILE *f = tmpfile();
    fwrite(text.data(), 1, text.size(), f);
    rewind(f);
    return f;
}

TEST(UrlCodec, EscapeKeepsOnlyLettersAndDigits) {
    char out[64];
    escape_url("aZ09 -_.~/\xE9", out);
    EXPECT_STREQ(out, "aZ09%20%2d%5f%2e%7e%2f%e9");
    // every byte but NUL survives the round trip
    std::string all;
    for (int c = 1; c < 256; c++) all += (char)c;
    std::string coded(3 * all.size() + 1, '\0');
    escape_url(all.c_str(), coded.data());
    unescape_url(coded.data());
    EXPECT_EQ(std::string(coded.c_str()), all);
}

TEST(UrlCodec, FieldReaderCountsTheDeclaredLength) {
    FILE *f = from_text("a=1&bb=2&rest");
    int cl = 13;
    char *w = fmakeword(f, '&', &cl);
    EXPECT_STREQ(w, "a=1");
    EXPECT_EQ(cl, 9);
    free(w);
    cl = 3;   // the length ends the field before its '&'
    w = fmakeword(f, '&', &cl);
    EXPECT_STREQ(w, "bb=");
    EXPECT_EQ(cl, 0);
    EXPECT_EQ(fgetc(f), '2');   // nothing read beyond the length
    free(w);
    cl = 100;
    w = fmakeword(f, '&', &cl);
    EXPECT_STREQ(w, "");
    free(w);
    w = fmakeword(f, '&', &cl);   // the end of the stream ends the field too
    EXPECT_STREQ(w, "rest");
    EXPECT_EQ(cl, 95);
    free(w);
    fclose(f);
}

// The cut is counted, not written: the body is decoded while the header
// block is still open. The warning comes later, from fmakeword_warning.
TEST(UrlCodec, LongFieldIsCutAndCountedSilently) {
    // exactly at the limit: nothing is cut
    FILE *f = from_text(std::string(V_FIELD_MAX, 'y') + "&");
    int cl = V_FIELD_MAX + 1;
    int cuts = fmakeword_cuts();
    testing::internal::CaptureStdout();
    char *w = fmakeword(f, '&', &cl);
    fflush(stdout);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(strlen(w), (size_t)V_FIELD_MAX);
    EXPECT_EQ(fmakeword_cuts(), cuts);
    free(w);
    fclose(f);

    std::string big(60000, 'x');
    big[V_FIELD_MAX - 1] = 'L';
    big.back() = 'E';
    for (int ended_by_stop = 0; ended_by_stop < 2; ended_by_stop++) {
        f = from_text(ended_by_stop ? big + "&" : big);
        cl = (int)big.size() + ended_by_stop;
        testing::internal::CaptureStdout();
        w = fmakeword(f, '&', &cl);
        fflush(stdout);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
        EXPECT_EQ(fmakeword_cuts(), cuts + 1 + ended_by_stop);
        std::string kept = w;
        EXPECT_EQ(kept.size(), (size_t)V_FIELD_MAX + (ended_by_stop ? 0 : 1));
        EXPECT_EQ(kept[V_FIELD_MAX - 1], 'L');
        if (!ended_by_stop) {
            EXPECT_EQ(kept.back(), 'E');
        }
        free(w);
        fclose(f);
    }
    char text[200] = "";
    FILE *out = fmemopen(text, sizeof text, "w");
    ASSERT_NE(out, nullptr);
    fmakeword_warning(out);   // one warning however many fields were cut
    fclose(out);
    EXPECT_STREQ(text, "<hr> WARNING: Value value size is over 50000!!! [cut]... <hr>");
}

TEST(UrlCodec, ShellEscapeIsBounded) {
    char cmd[128] = "ls & rm -rf ~/x; echo $(id) `w` 'q' \"d\" a|b *?<>^[]{}\\ #=!%";
    escape_shell_cmd(cmd, sizeof cmd);
    EXPECT_STREQ(cmd, "ls \\& rm -rf \\~/x\\; echo \\$\\(id\\) \\`w\\` \\'q\\' \\\"d\\\" "
                      "a\\|b \\*\\?\\<\\>\\^\\[\\]\\{\\}\\\\ \\#\\=\\!\\%");
    // Control bytes and bytes above 127 go in quotes, a run in one pair.
    char quoted[32] = "a\n\tb\r\xe9\x7f c";
    escape_shell_cmd(quoted, sizeof quoted);
    EXPECT_STREQ(quoted, "a'\n\t'b'\r\xe9\x7f' c");

    // Every cut ends after a whole unit: no lone backslash, no open quote.
    const std::string units[] = {"", "a", "a\\;", "a\\;'\n'", "a\\;'\n\xe9'", "a\\;'\n\xe9'b"};
    for (int size = 1; size <= 12; size++) {
        char text[16] = "a;\n\xe9"
                        "b";
        escape_shell_cmd(text, size);
        std::string longest;
        for (const std::string &u : units)
            if ((int)u.size() < size) longest = u;
        EXPECT_EQ(text, longest) << size;
    }
}

TEST(UrlCodec, StripNameKeepsTheFileName) {
    char dos_path[] = "C:\\Users\\u\\photo.jpg";
    strip_name(dos_path);
    EXPECT_STREQ(dos_path, "photo.jpg");
    char mixed[] = "a\\b/c\\d.txt";
    strip_name(mixed);
    EXPECT_STREQ(mixed, "d.txt");
    char leading[] = "\\x.txt", rooted[] = "/y.txt";   // a separator at position 0
    strip_name(leading);
    strip_name(rooted);
    EXPECT_STREQ(leading, "x.txt");
    EXPECT_STREQ(rooted, "y.txt");
}

}   // namespace
