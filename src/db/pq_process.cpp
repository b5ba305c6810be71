// Starts vorn-pq by a double fork: the middle process ends at once and is
// reaped here, so the helper is never a child that the request process, or
// the FastCGI server above it, would have to wait for. The helper's
// standard error is a pipe until it has loaded its libraries: a helper the
// dynamic loader refuses leaves the loader's complaint there, and the
// failure is reported as one line that names the missing piece.
#include "db/pq_process.h"

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "db/pq_wire.h"

namespace {

// The greeting is the helper's first frame and small.
constexpr uint32_t HELLO_MAX = 64;
// How much of a failed helper's standard error the report quotes.
constexpr int REPORT_MAX = 400;
// Descriptors are moved up here first, so that putting them in place at
// 0..4 overwrites none of them.
constexpr int FD_ABOVE = 10;

// In the helper-to-be: the descriptors it expects, then the program. Only
// returns by ending the process.
[[noreturn]] void exec_helper(const char *path, int sock, int report) {
    int null = open("/dev/null", O_RDWR | O_CLOEXEC);
    int log = fcntl(2, F_DUPFD_CLOEXEC, FD_ABOVE);
    int s = fcntl(sock, F_DUPFD_CLOEXEC, FD_ABOVE);
    int r = fcntl(report, F_DUPFD_CLOEXEC, FD_ABOVE);
    int n = fcntl(null, F_DUPFD_CLOEXEC, FD_ABOVE);
    if (null < 0 || s < 0 || r < 0 || n < 0) _exit(127);
    // without a standard error of ours the log is /dev/null too
    if (dup2(n, 0) < 0 || dup2(n, 1) < 0 || dup2(s, V_PQ_SOCKET_FD) < 0 ||
        dup2(log >= 0 ? log : n, V_PQ_LOG_FD) < 0 || dup2(r, 2) < 0)
        _exit(127);
    close_range(V_PQ_LOG_FD + 1, ~0U, 0);
    sigset_t none;
    sigemptyset(&none);
    sigprocmask(SIG_SETMASK, &none, nullptr);
    signal(SIGPIPE, SIG_DFL);
    char name[] = "vorn-pq";
    char *argv[] = {name, nullptr};
    execv(path, argv);
    char line[PATH_MAX + 64];
    int len = snprintf(line, sizeof line, "cannot run %s: %s\n", path, strerror(errno));
    if (len > 0 && write(2, line, (size_t)len) < 0) _exit(127);
    _exit(127);
}

// The first line of what a helper that did not start wrote, or a stand-in.
void read_report(int fd, char *text, int size) {
    fcntl(fd, F_SETFL, O_NONBLOCK);
    ssize_t n = read(fd, text, (size_t)size - 1);
    text[n > 0 ? n : 0] = '\0';
    text[strcspn(text, "\r\n")] = '\0';
    if (!*text) snprintf(text, size, "it ended without a word");
}

}   // namespace

int V_pq_helper_path(char *path, int size, char *err, int esize) {
    char self[PATH_MAX];
    ssize_t n = readlink("/proc/self/exe", self, sizeof self - 1);
    if (n <= 0) {
        snprintf(err, esize, "cannot find the running program (/proc/self/exe): %s",
                 n < 0 ? strerror(errno) : "empty");
        return -1;
    }
    self[n] = '\0';
    const char *slash = strrchr(self, '/');
    int dir = slash ? (int)(slash - self) : 0;
    int len = snprintf(path, size, "%.*s/%s", dir, self, V_PQ_HELPER_NAME);
    if (len < 0 || len >= size) {
        snprintf(err, esize, "the path of %s is too long", V_PQ_HELPER_NAME);
        return -1;
    }
    return 0;
}

int V_pq_start(const char *path, char *err, int size) {
    if (access(path, X_OK) != 0) {
        snprintf(err, size, "PostgreSQL helper %s is missing (install vorn-pq beside vorn): %s",
                 path, strerror(errno));
        return -1;
    }
    int sv[2], report[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sv)) {
        snprintf(err, size, "PostgreSQL helper: no socket: %s", strerror(errno));
        return -1;
    }
    if (pipe2(report, O_CLOEXEC)) {
        snprintf(err, size, "PostgreSQL helper: no pipe: %s", strerror(errno));
        close(sv[0]);
        close(sv[1]);
        return -1;
    }
    fflush(stderr);
    pid_t middle = fork();
    if (middle == 0) {
        pid_t helper = fork();
        if (helper == 0) exec_helper(path, sv[1], report[1]);
        _exit(helper < 0 ? 1 : 0);
    }
    int fork_errno = errno;
    close(sv[1]);
    close(report[1]);
    int status = 0;
    while (middle > 0 && waitpid(middle, &status, 0) < 0 && errno == EINTR) {
    }
    if (middle < 0 || !WIFEXITED(status) || WEXITSTATUS(status) != 0) {
        snprintf(err, size, "PostgreSQL helper %s: cannot fork: %s", path,
                 strerror(middle < 0 ? fork_errno : EAGAIN));
        close(sv[0]);
        close(report[0]);
        return -1;
    }

    V_PQ_FRAME hello;
    char why[128];
    int got = V_pq_receive(sv[0], HELLO_MAX, &hello, why, sizeof why);
    if (got == 1) {
        V_PQ_IN in(hello.data.get(), hello.size);
        int len;
        const char *text = in.str(&len);
        if (!in.bad && text && !strcmp(text, V_PQ_HELLO)) {
            close(report[0]);
            return sv[0];
        }
    }
    close(sv[0]);
    char said[REPORT_MAX];
    read_report(report[0], said, sizeof said);
    close(report[0]);
    if (got == 1)
        snprintf(err, size, "PostgreSQL helper %s is not vorn's: wrong greeting", path);
    else if (strstr(said, "libpq"))
        snprintf(err, size,
                 "PostgreSQL helper %s cannot start: the client library libpq.so.5 is missing "
                 "(Debian package libpq5): %s",
                 path, said);
    else
        snprintf(err, size, "PostgreSQL helper %s did not start: %s", path, said);
    return -1;
}
