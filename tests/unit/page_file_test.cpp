// Unit tests of the in-memory line reader and of cut_cmd's comment,
// continuation and control-byte handling, on files built in memory.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

#include "interp/page_file.h"
#include "interp/page_reader.h"
#include "values/substitution.h"

namespace {

struct MemFile {
    std::string text;
    V_FILE f{};
    explicit MemFile(const std::string &t) : text(t) {
        f.text = text.data();
        f.size = (int)text.size();
        f.offset = 0;
    }
    std::string rest() const { return text.substr((size_t)f.offset); }
};

// Runs cut_cmd on first (the line already read) with the rest of the file in mem.
std::string cut(const std::string &first, MemFile &mem) {
    static char buff[V_LINE_MAX];
    snprintf(buff, sizeof buff, "%s", first.c_str());
    EXPECT_EQ(cut_cmd(&mem.f, buff), 0);
    return buff;
}

}   // namespace

TEST(PageFile, FgetsReadsLinesKeepingNewline) {
    MemFile m("one\ntwo\nlast");
    char buf[64];
    EXPECT_EQ(V_fgets(buf, sizeof buf, &m.f), 4);
    EXPECT_STREQ(buf, "one\n");
    EXPECT_EQ(V_fgets(buf, sizeof buf, &m.f), 4);
    EXPECT_STREQ(buf, "two\n");
    EXPECT_EQ(V_fgets(buf, sizeof buf, &m.f), 4);
    EXPECT_STREQ(buf, "last");
    EXPECT_EQ(V_fgets(buf, sizeof buf, &m.f), 0);
    EXPECT_STREQ(buf, "");
}

TEST(PageFile, FgetsSplitsLongLineAtBufferSize) {
    MemFile m("abcdefgh\n");
    char buf[4];
    EXPECT_EQ(V_fgets(buf, sizeof buf, &m.f), 3);
    EXPECT_STREQ(buf, "abc");
    EXPECT_EQ(V_fgets(buf, sizeof buf, &m.f), 3);
    EXPECT_STREQ(buf, "def");
    EXPECT_EQ(V_fgets(buf, sizeof buf, &m.f), 3);
    EXPECT_STREQ(buf, "gh\n");
    EXPECT_EQ(m.f.offset, m.f.size);
}

TEST(PageFile, CommentOpenerAloneDoesNotCloseItself) {
    MemFile m("rest\n");
    EXPECT_EQ(cut("a<@--@>b\n", m), "a");
}

TEST(PageFile, ContinuationJoinsWithAuthorsBlank) {
    MemFile m("&& $(b) == 2\nnext\n");
    EXPECT_EQ(cut("<@if> $(a) == 1 \\\n", m), "<@if> $(a) == 1 && $(b) == 2");
    EXPECT_EQ(m.rest(), "next\n");
}

TEST(PageFile, ContinuationWithoutBlankGluesWords) {
    MemFile m("def\n");
    EXPECT_EQ(cut("<@set> x abc\\\n", m), "<@set> x abcdef");
}

TEST(PageFile, LaterBackslashesBecomeBlanks) {
    MemFile m("  b\\\nc\t\\\nd\nnext\n");
    EXPECT_EQ(cut("<@set> v a\\\n", m), "<@set> v a  b c  d");
    EXPECT_EQ(m.rest(), "next\n");
}

TEST(PageFile, ContinuationLineCommentsAndEndOfFile) {
    MemFile m("b <@-- c\n --@>d\\\n");
    EXPECT_EQ(cut("<@set> v a\\\n", m), "<@set> v ab d ");
    EXPECT_EQ(m.f.offset, m.f.size);
}

TEST(PageFile, TextLineBackslashIsNoContinuation) {
    MemFile m("next\n");
    EXPECT_EQ(cut("text \\\n", m), "text \\\n");
    EXPECT_EQ(m.f.offset, 0);
}

TEST(PageFile, CommentNearBufferEndStaysInBounds) {
    // the comment opens at the last position that holds it; the following
    // lines are read in small pieces and never written past the buffer
    std::string first(V_LINE_MAX - 5, 'x');
    first += "<@--";
    MemFile m(std::string(1000, 'y') + "\n--@>\nafter\n");
    std::string out = cut(first, m);
    EXPECT_EQ(out, std::string(V_LINE_MAX - 5, 'x'));
    EXPECT_EQ(m.rest(), "\nafter\n");
}

TEST(PageFile, ContinuationUpToLimitIsKept) {
    // 8191 bytes in all is still accepted
    std::string first = "<@set> v " + std::string(V_LINE_MAX - 1 - 9 - 200, 'a') + "\\\n";
    MemFile m(std::string(200, 'b') + "\n");
    std::string out = cut(first, m);
    EXPECT_EQ(out.size(), (size_t)V_LINE_MAX - 1);
    EXPECT_EQ(out.back(), 'b');
}

TEST(PageFileDeathTest, ContinuationOverLimitIsFatal) {
    std::string first = "<@set> v " + std::string(V_LINE_MAX - 1 - 9 - 100, 'a') + "\\\n";
    std::string more;
    for (int i = 0; i < 5; i++) more += std::string(250, 'b') + "\\\n";
    more += "end\n";
    EXPECT_EXIT(
        {
            MemFile m(more);
            cut(first, m);
            exit(0);
        },
        testing::ExitedWithCode(255), "");
}

// The driver hands V_page_text the stat it took when it checked the page;
// the file can be gone by the time it is opened, and then there is no page
// text, not a fatal "Cannot open file".
TEST(PageFile, PageTextTakesTheGivenStatAndSurvivesAVanishedFile) {
    char path[] = "/tmp/vorn-pagetext-XXXXXX";
    int fd = mkstemp(path);
    ASSERT_GE(fd, 0);
    ASSERT_EQ(write(fd, "<p>one</p>\n", 11), 11);
    close(fd);
    struct stat seen;
    ASSERT_EQ(stat(path, &seen), 0);
    const char *text = V_page_text(path, &seen);
    ASSERT_NE(text, nullptr);
    EXPECT_STREQ(text, "<p>one</p>\n");
    V_page_forget();

    // the same stat for a file no longer there: the loaded copy matches it
    // but the file cannot be read, so it is no page
    unlink(path);
    EXPECT_EQ(V_page_text(path, &seen), nullptr);
    // nor is a path that never opened, with a stat that matches nothing loaded
    seen.st_ino ^= 1;
    EXPECT_EQ(V_page_text(path, &seen), nullptr);
    EXPECT_EQ(V_page_text(path), nullptr);
    V_page_forget();
}
