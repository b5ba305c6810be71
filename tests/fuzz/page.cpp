// Fuzz target: a whole page run. An input is the page text. The interpreter
// ends every run through exit() and keeps process-wide state, as one process
// per request may, so each input runs in a child process of its own, from
// the command line as in a shell, in a scratch site with standard input,
// output and error on /dev/null (sanitizer reports keep the fuzzer's). The children
// are forked by a server process forked once at start-up, while this
// process is still small: a fork of the fuzzer with its grown corpus costs
// several times more. Each child copies its coverage counters back through
// shared memory as it exits, so the fuzzer still sees what a page reached.
//
// A child that exits (0, or 255 after an error) or outlives its run-time
// alarm has finished; one killed by any other signal, or ended by a
// sanitizer report, makes this process abort, which libFuzzer records as a
// crash of the input. The fuzzing build bounds loop passes and refuses the
// commands that reach outside the process (see interp/dispatcher.cpp).
#include <fcntl.h>
#include <ftw.h>
#include <sanitizer/common_interface_defs.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "driver/request.h"
#include "harness.h"

// The instrumented code's coverage counters; the linker marks their bounds.
extern "C" uint8_t __start___sancov_cntrs[] __attribute__((weak));
extern "C" uint8_t __stop___sancov_cntrs[] __attribute__((weak));

namespace {

constexpr long RUN_USEC = 500000;   // a page's time budget
constexpr int EXIT_ERROR = 255;     // a run ended by the error routine

std::string scratch, site;
uint8_t *shared_counters;
size_t counter_bytes;

void copy_counters(int status, void *) {
    memcpy(shared_counters, __start___sancov_cntrs, counter_bytes);
    _exit(status);   // no exit handlers of the fuzzer in the child
}

[[noreturn]] void run_child() {
    signal(SIGALRM, SIG_DFL);
    itimerval budget{{0, 0}, {0, RUN_USEC}};
    setitimer(ITIMER_REAL, &budget, nullptr);
    __sanitizer_set_report_fd(reinterpret_cast<void *>(static_cast<intptr_t>(dup(STDERR_FILENO))));
    int null = open("/dev/null", O_RDWR);
    dup2(null, STDIN_FILENO);
    dup2(null, STDOUT_FILENO);
    dup2(null, STDERR_FILENO);   // the error log's lines
    if (chdir(site.c_str()) != 0) _exit(EXIT_ERROR);
    on_exit(copy_counters, nullptr);
    char prog[] = "vorn", page[] = "page.html";
    char *argv[] = {prog, page, nullptr};
    V_install_hooks();
    V_main(2, argv);
    _exit(0);
}

int commands[2], results[2];   // pipes to the fork server and back

// The fork server: one child per byte read, its wait status written back;
// it ends when the fuzzer's end of the pipe closes.
[[noreturn]] void serve() {
    close(commands[1]);
    close(results[0]);
    char go;
    while (read(commands[0], &go, 1) == 1) {
        pid_t pid = fork();
        if (pid == 0) run_child();
        int status = -1;
        while (pid > 0 && waitpid(pid, &status, 0) < 0 && errno == EINTR) {}
        if (write(results[1], &status, sizeof status) != sizeof status) break;
    }
    _exit(0);
}

// The wait status of one page run.
int run_page() {
    char go = 1;
    int status;
    while (write(commands[1], &go, 1) != 1)
        if (errno != EINTR) abort();
    while (read(results[0], &status, sizeof status) != sizeof status)
        if (errno != EINTR) abort();
    return status;
}

int remove_entry(const char *path, const struct stat *, int, FTW *) {
    return remove(path);
}

void remove_scratch() {
    nftw(scratch.c_str(), remove_entry, 8, FTW_DEPTH | FTW_PHYS);
}

}   // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    char dir[] = "/tmp/vorn-fuzz-page.XXXXXX";
    if (!mkdtemp(dir)) abort();
    scratch = dir;
    site = scratch + "/site";
    for (const char *sub : {"/site", "/home", "/tmp"}) mkdir((scratch + sub).c_str(), 0700);
    atexit(remove_scratch);
    for (const char *name : {"REQUEST_METHOD", "HTTP_HOST", "SERVER_NAME", "SERVER_PORT"})
        unsetenv(name);
    setenv("V_HOME", (scratch + "/home").c_str(), 1);
    setenv("TMP_DIR", (scratch + "/tmp").c_str(), 1);
    setenv("HTTP_COOKIE", "a=1; session=x%20y; b=", 1);
    setenv("TZ", "Europe/Paris", 1);
    hold_divide_fault();
    counter_bytes = (size_t)(__stop___sancov_cntrs - __start___sancov_cntrs);
    void *m = mmap(nullptr, counter_bytes ? counter_bytes : 1, PROT_READ | PROT_WRITE,
                   MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (m == MAP_FAILED) abort();
    shared_counters = static_cast<uint8_t *>(m);
    if (pipe(commands) || pipe(results)) abort();
    pid_t server = fork();
    if (server < 0) abort();
    if (server == 0) serve();
    close(commands[0]);
    close(results[1]);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    FILE *page = fopen((site + "/page.html").c_str(), "wb");
    if (!page) abort();
    fwrite(data, 1, size, page);
    fclose(page);
    int status = run_page();
    if (WIFEXITED(status) && (WEXITSTATUS(status) == 0 || WEXITSTATUS(status) == EXIT_ERROR)) {
        memcpy(__start___sancov_cntrs, shared_counters, counter_bytes);
        return 0;
    }
    if (WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM) return 0;
    fprintf(stderr, "page run ended abnormally (wait status %#x)\n", status);
    abort();
}
