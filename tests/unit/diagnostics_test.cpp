// Unit tests of the trace and debug switches, the time prefix and the error
// routine's texts; each runs in a child process since the set-up is one-shot.
#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "base/directories.h"
#include "driver/diagnostics.h"
#include "values/output.h"

namespace {

std::vector<std::string> made_dirs;

std::string make_dir() {
    char tmpl[] = "/tmp/vorn-diag-XXXXXX";
    made_dirs.push_back(mkdtemp(tmpl));
    return made_dirs.back();
}

void remove_dirs() {
    for (const std::string &d : made_dirs) std::filesystem::remove_all(d);
    made_dirs.clear();
}

void touch(const std::string &path) {
    FILE *f = fopen(path.c_str(), "w");
    if (f) fclose(f);
}

std::string slurp(const std::string &path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

// Runs body in a child process; its exit code 0 means every check held.
template <class F> void in_child(F body) {
    pid_t pid = fork();
    if (pid == 0) {
        body();
        fflush(nullptr);
        remove_dirs();
        _exit(testing::Test::HasFailure() ? 1 : 0);
    }
    int raw = 0;
    waitpid(pid, &raw, 0);
    EXPECT_TRUE(WIFEXITED(raw) && WEXITSTATUS(raw) == 0) << "child status " << raw;
}

#define IN_CHILD(...) in_child([&] { __VA_ARGS__; })

const char *PREFIX = R"( *\d+\.\d{6} \[ *-?\d+\] )";

}   // namespace

TEST(Diagnostics, FirstPrefixShowsNoElapsedTime) {
    IN_CHILD({
        FILE *f = tmpfile();
        PrintTM(f);
        PrintTM(f);
        rewind(f);
        char line[200] = "";
        size_t n = fread(line, 1, sizeof line - 1, f);
        line[n] = 0;
        std::string text = line;
        EXPECT_TRUE(std::regex_match(
            text, std::regex(R"(    0\.\d{6} \[     0\]     0\.\d{6} \[ *\d+\] )")))
            << text;
    });
}

TEST(Diagnostics, TraceIsSilentUntilHomeIsKnown) {
    IN_CHILD({
        V_HOME = nullptr;
        EXPECT_EQ(V_TRACE("x"), -1);
        std::string home = make_dir();
        V_HOME = (char *)home.c_str();
        EXPECT_EQ(V_TRACE("x"), 0);   // no marker: off
        EXPECT_EQ(Trace, 0);
    });
}

TEST(Diagnostics, LaterMarkerWinsAndLogCarriesHeapFigures) {
    IN_CHILD({
        std::string home = make_dir(), tmp = make_dir();
        touch(home + "/V_TRACE");
        touch(home + "/V_LOG3");
        V_HOME = (char *)home.c_str();
        TMP_DIR = (char *)tmp.c_str();
        FILE *page = tmpfile();
        V_stdout = page;
        V_TRACE("hello %d\n", 42);
        EXPECT_EQ(Trace, 3);
        std::string log = slurp(tmp + "/V_LOG3." + std::to_string(getpid()));
        EXPECT_TRUE(std::regex_match(
            log, std::regex(std::string(PREFIX) +
                            R"(hello 42\n hp: -?\d+  mb: -?\d+ m_used: -?\d+ =====\n)")))
            << log;
        EXPECT_EQ(ftell(page), 0);   // nothing went into the page
    });
}

TEST(Diagnostics, PageTraceIsFramed) {
    IN_CHILD({
        std::string home = make_dir();
        touch(home + "/V_TRACE");
        V_HOME = (char *)home.c_str();
        FILE *page = tmpfile();
        V_stdout = page;
        V_TRACE("step %s", "one");
        V_TRACE("step %s", "two");
        EXPECT_EQ(Trace, 1);
        rewind(page);
        char buf[512] = "";
        size_t n = fread(buf, 1, sizeof buf - 1, page);
        buf[n] = 0;
        std::string frame = std::string("<hr><h3><pre>") + PREFIX;
        std::string text = buf;
        EXPECT_TRUE(std::regex_match(text, std::regex(frame + "step one</pre></h3><hr>\n" + frame +
                                                      "step two</pre></h3><hr>\n")))
            << text;
    });
}

TEST(Diagnostics, DebugFileAppendsAndStopsWhenSwitchedOff) {
    IN_CHILD({
        std::string home = make_dir(), tmp = make_dir();
        touch(home + "/V_DEBUG");
        touch(home + "/V_DEBUG2");
        V_HOME = (char *)home.c_str();
        TMP_DIR = (char *)tmp.c_str();
        std::string path = tmp + "/V_DEBUG." + std::to_string(getpid());
        {
            std::ofstream old(path);
            old << "old\n";
        }
        V_DEBUG("%s // %s \n", "<@x> a", "a");
        EXPECT_EQ(Debug, 2);
        Debug = 0;
        V_DEBUG("dropped\n");
        std::string text = slurp(path);
        EXPECT_TRUE(
            std::regex_match(text, std::regex(std::string("old\n") + PREFIX + "<@x> a // a \n")))
            << text;
    });
}

TEST(Diagnostics, ErrorMessageIsCutAtItsBuffer) {
    std::string huge(20000, 'z');
    EXPECT_EXIT(
        {
            if (freopen("/dev/null", "w", stdout)) ERRMSG("%s", huge.c_str());
        },
        testing::ExitedWithCode(255), "");
}

TEST(Diagnostics, DebugMarkerAloneGivesLevelOne) {
    IN_CHILD({
        std::string home = make_dir(), tmp = make_dir();
        touch(home + "/V_DEBUG");
        V_HOME = (char *)home.c_str();
        TMP_DIR = (char *)tmp.c_str();
        V_DEBUG("one\n");
        EXPECT_EQ(Debug, 1);
    });
}

// Without a driver (hooks reset to their defaults) an error ends the
// process with its message on standard error, and a heap trace line
// carries no figures.
TEST(Diagnostics, DefaultsServeWithoutADriver) {
    EXPECT_EXIT(
        {
            V_set_diag_hooks({});
            ERRMSG("no driver %d", 7);
        },
        testing::ExitedWithCode(255), "ERROR: no driver 7");
    IN_CHILD({
        V_set_diag_hooks({});
        std::string home = make_dir(), tmp = make_dir();
        touch(home + "/V_LOG3");
        V_HOME = (char *)home.c_str();
        TMP_DIR = (char *)tmp.c_str();
        V_TRACE("plain\n");
        std::string log = slurp(tmp + "/V_LOG3." + std::to_string(getpid()));
        EXPECT_TRUE(std::regex_match(log, std::regex(std::string(PREFIX) + "plain\n"))) << log;
    });
}

// The error-log line stays one line within its buffer however long the
// page and file names and the message are, with no control byte in it,
// and the message always finds room after the names.
TEST(Diagnostics, LogLineIsOneBoundedLine) {
    IN_CHILD({
        static std::string page(9000, 'p'), file(9000, 'f');
        V_set_diag_hooks({nullptr, nullptr, nullptr, nullptr,
                          [](const char **p, const char **f) {
                              *p = page.c_str();
                              *f = file.c_str();
                              return 7;
                          },
                          nullptr});
        std::string dir = make_dir(), path = dir + "/stderr";
        ASSERT_TRUE(freopen(path.c_str(), "w", stderr));
        V_log_error((" first\r\nsecond\x1b[2J" + std::string(9000, 'm') + "\n").c_str());
        fflush(stderr);
        std::string line = slurp(path);
        EXPECT_EQ(line.find('\n'), line.size() - 1);
        EXPECT_EQ(line.find_first_of("\r\x1b"), std::string::npos);
        EXPECT_LE(line.size(), (size_t)V_ERRMSG_SIZE + 1024);
        EXPECT_NE(line.find(" vorn[" + std::to_string(getpid()) + "]: ppp"), std::string::npos);
        EXPECT_NE(line.find("fff:7: first  second [2Jmmm"), std::string::npos) << line;
    });
}
