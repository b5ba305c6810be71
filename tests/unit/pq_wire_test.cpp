// The engine's talk with vorn-pq under hostile bytes: every length is the
// other side's claim, so a field or a count past its frame, a string
// without its terminator and a frame cut short are refused, never followed;
// and the helper's start reports what is missing and leaves no child.
#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "db/pq_process.h"
#include "db/pq_wire.h"

namespace {

std::string u32(uint32_t v) {
    return std::string(reinterpret_cast<const char *>(&v), sizeof v);
}

// A string field as the wire carries it.
std::string field(const std::string &s) {
    return u32((uint32_t)s.size()) + s + std::string(1, '\0');
}

TEST(PqWire, StringsStayInsideTheirFrame) {
    int len;
    // 1 a length one past the bytes, and one whose terminator is missing
    std::string past = u32(4) + "abcd";
    V_PQ_IN a(past.data(), past.size());
    EXPECT_EQ(a.str(&len), nullptr);
    EXPECT_TRUE(a.bad);
    std::string unterminated = u32(3) + "abcd";
    V_PQ_IN b(unterminated.data(), unterminated.size());
    EXPECT_EQ(b.str(&len), nullptr);
    EXPECT_TRUE(b.bad);
    // 2 null, then a string with a zero byte inside, whole
    std::string ok = u32(V_PQ_NULL) + field(std::string("a\0b", 3));
    V_PQ_IN c(ok.data(), ok.size());
    EXPECT_EQ(c.str(&len), nullptr);
    EXPECT_EQ(len, -1);
    const char *s = c.str(&len);
    ASSERT_NE(s, nullptr);
    EXPECT_EQ(std::string(s, len), std::string("a\0b", 3));
    EXPECT_FALSE(c.bad);
    // 3 once bad, every later read yields nothing, even one that would fit
    std::string later = std::string(1, 'x') + field("fits");
    V_PQ_IN d(later.data(), 0);
    d.u32();
    d.end = later.data() + later.size();
    EXPECT_EQ(d.u8(), 0);
    EXPECT_EQ(d.str(&len), nullptr);
    EXPECT_TRUE(d.bad);
}

bool read_rows(const std::string &bytes, V_PQ_ROWS *rows) {
    V_PQ_IN in(bytes.data(), bytes.size());
    return V_pq_read_rows(&in, rows);
}

TEST(PqWire, RowCountsAreCheckedBeforeTheyAreBelieved) {
    // 1 two columns, two rows, a NULL among them
    std::string good = u32(2) + field("n") + field("t") + u32(2) + field("1") + field("one") +
                       field("2") + u32(V_PQ_NULL);
    V_PQ_ROWS rows;
    ASSERT_TRUE(read_rows(good, &rows));
    EXPECT_EQ(rows.ncols, 2);
    EXPECT_EQ(rows.nrows, 2);
    EXPECT_STREQ(rows.names[1], "t");
    EXPECT_STREQ(rows.cells[1].text, "one");
    EXPECT_EQ(rows.cells[3].text, nullptr);
    EXPECT_EQ(rows.cells[3].len, -1);
    // 2 counts no frame of this size could hold: refused before allocating
    V_PQ_ROWS huge_cols, huge_rows, product;
    EXPECT_FALSE(read_rows(u32(0xfffffff0u) + field("n"), &huge_cols));
    EXPECT_FALSE(read_rows(u32(0) + u32(0xfffffff0u), &huge_rows));
    // each count alone fits what is left, their product does not
    std::string wide = u32(2) + field("a") + field("b") + u32(3) + field("") + field("") + field("");
    EXPECT_FALSE(read_rows(wide, &product));
    // 3 fewer cells than announced, and bytes after the last row
    V_PQ_ROWS short_rows, trailing;
    EXPECT_FALSE(read_rows(u32(1) + field("n") + u32(2) + field("1"), &short_rows));
    EXPECT_FALSE(read_rows(u32(1) + field("n") + u32(1) + field("1") + "x", &trailing));
}

struct Pair {
    int fd[2];
    Pair() { EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, fd), 0); }
    ~Pair() {
        for (int f : fd)
            if (f >= 0) close(f);
    }
    void write_and_close(const std::string &bytes) {
        ASSERT_EQ(write(fd[1], bytes.data(), bytes.size()), (ssize_t)bytes.size());
        close(fd[1]);
        fd[1] = -1;
    }
};

TEST(PqWire, FramesOverTheLimitOrCutShortAreRefused) {
    char err[128];
    V_PQ_FRAME frame;
    {   // 1 a length over the receiver's limit
        Pair p;
        p.write_and_close(u32(1000) + std::string(1000, 'x'));
        EXPECT_EQ(V_pq_receive(p.fd[0], 999, &frame, err, sizeof err), -1);
        EXPECT_STREQ(err, "message of 1000 bytes is over the limit of 999");
    }
    {   // 2 cut inside the body, and inside the length
        Pair body, head;
        body.write_and_close(u32(10) + "abc");
        EXPECT_EQ(V_pq_receive(body.fd[0], 64, &frame, err, sizeof err), -1);
        EXPECT_STREQ(err, "connection closed inside a message");
        head.write_and_close("ab");
        EXPECT_EQ(V_pq_receive(head.fd[0], 64, &frame, err, sizeof err), -1);
    }
    {   // 3 a whole frame, then the end
        Pair p;
        p.write_and_close(u32(3) + "abc");
        ASSERT_EQ(V_pq_receive(p.fd[0], 64, &frame, err, sizeof err), 1);
        EXPECT_EQ(frame.size, 3u);
        EXPECT_STREQ(frame.data.get(), "abc");
        EXPECT_EQ(V_pq_receive(p.fd[0], 64, &frame, err, sizeof err), 0);
    }
    {   // 4 sending to a peer that is gone fails instead of raising SIGPIPE
        Pair p;
        close(p.fd[0]);
        p.fd[0] = -1;
        V_PQ_OUT out;
        out.str("select 1");
        ASSERT_TRUE(out.finish());
        EXPECT_EQ(V_pq_send(p.fd[1], out, err, sizeof err), -1);
        EXPECT_STREQ(err, "ended");
    }
}

// A stand-in helper: a script in a fresh directory.
std::string script(const char *name, const char *body) {
    char dir[] = "/tmp/vorn-pqunit-XXXXXX";
    if (!mkdtemp(dir)) return "";
    std::string path = std::string(dir) + "/" + name;
    FILE *f = fopen(path.c_str(), "w");
    if (!f) return "";
    fprintf(f, "#!/bin/sh\n%s\n", body);
    fclose(f);
    chmod(path.c_str(), 0755);
    return path;
}

void remove_script(const std::string &path) {
    unlink(path.c_str());
    rmdir(path.substr(0, path.rfind('/')).c_str());
}

TEST(PqProcess, AHelperThatCannotStartIsNamedWithTheCause) {
    char err[512];
    // 1 not there
    EXPECT_EQ(V_pq_start("/nonexistent-vorn-dir/vorn-pq", err, sizeof err), -1);
    EXPECT_STREQ(err, "PostgreSQL helper /nonexistent-vorn-dir/vorn-pq is missing (install "
                      "vorn-pq beside vorn): No such file or directory");
    // 2 the dynamic loader refuses it: the complaint is quoted, one line
    std::string refused = script("vorn-pq", "echo 'vorn-pq: error while loading shared libraries: "
                                            "libpq.so.5: cannot open shared object file' >&2\n"
                                            "echo 'second line' >&2\nexit 127");
    ASSERT_FALSE(refused.empty());
    EXPECT_EQ(V_pq_start(refused.c_str(), err, sizeof err), -1);
    EXPECT_NE(strstr(err, "cannot start: the client library libpq.so.5 is missing (Debian "
                          "package libpq5): vorn-pq: error while loading shared libraries"),
              nullptr)
        << err;
    EXPECT_EQ(strchr(err, '\n'), nullptr);
    remove_script(refused);
    // 3 a program that answers with something else than the greeting
    std::string foreign = script("vorn-pq", "printf '\\003\\000\\000\\000abc' >&3");
    EXPECT_EQ(V_pq_start(foreign.c_str(), err, sizeof err), -1);
    EXPECT_NE(strstr(err, "is not vorn's"), nullptr) << err;
    remove_script(foreign);
    // none of them is left for this process to wait for
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);
    EXPECT_EQ(errno, ECHILD);
}

TEST(PqProcess, TheRealHelperAnswersAndEndsOnNonsense) {
    char err[512];
    char path[4096];
    ASSERT_EQ(V_pq_helper_path(path, sizeof path, err, sizeof err), 0) << err;
    EXPECT_STREQ(strrchr(path, '/'), "/vorn-pq");
    int fd = V_pq_start(VORN_PQ_HELPER, err, sizeof err);
    ASSERT_GE(fd, 0) << err;
    EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1);   // not our child

    // 1 a server that is not there: libpq's message comes back, one reply
    V_PQ_OUT connect;
    connect.u8(V_PQ_CONNECT);
    connect.str("host=/nonexistent-vorn-dir connect_timeout=2");
    connect.str(nullptr);
    connect.str(nullptr);
    ASSERT_TRUE(connect.finish());
    ASSERT_EQ(V_pq_send(fd, connect, err, sizeof err), 0) << err;
    V_PQ_FRAME reply;
    ASSERT_EQ(V_pq_receive(fd, V_PQ_FRAME_MAX, &reply, err, sizeof err), 1) << err;
    V_PQ_IN in(reply.data.get(), reply.size);
    EXPECT_EQ(in.u8(), V_PQ_UNKNOWN);
    EXPECT_EQ(in.u8(), 1);
    int len;
    const char *message = in.str(&len);
    ASSERT_NE(message, nullptr);
    EXPECT_NE(strstr(message, "/nonexistent-vorn-dir"), nullptr) << message;
    EXPECT_EQ(in.u32(), 0u);
    EXPECT_EQ(in.left(), 0u);

    // 2 a request of no known kind ends the helper: the socket closes
    V_PQ_OUT nonsense;
    nonsense.u8(99);
    ASSERT_TRUE(nonsense.finish());
    ASSERT_EQ(V_pq_send(fd, nonsense, err, sizeof err), 0) << err;
    EXPECT_EQ(V_pq_receive(fd, V_PQ_FRAME_MAX, &reply, err, sizeof err), 0);
    close(fd);
}

}   // namespace
