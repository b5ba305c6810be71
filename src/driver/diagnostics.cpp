// Diagnostics: the fatal error routine with its one-shot lock, the error log
// line, the trace switched on by marker files in the home directory, the
// debug file and the exit. Everything it needs from the layers above comes
// through the hooks the driver installs, so that any module may include it.
#include "driver/diagnostics.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sys/time.h>
#include <unistd.h>

#include "base/directories.h"
#include "base/hot_data.h"
#include "base/tmp_files.h"

char V_ERRMSG[V_ERRMSG_SIZE];
V_HOT int Trace;
V_HOT int V_trace_ready;
int V_debug_pending = 1;
V_HOT int Debug;

namespace {

V_HOT int err_locked;

// The defaults serve until the driver installs its hooks: an error goes to
// standard error, and nothing is cleaned up before the exit.
void error_to_stderr(const char *message) {
    fprintf(stderr, "ERROR: %s\n", message);
}

void nothing_before_exit() {}

FILE *standard_output() {
    return stdout;
}

void no_heap_figures(FILE *) {}

void flush_standard_output() {
    fflush(stdout);
}

int nowhere(const char **page, const char **file) {
    *page = nullptr;
    *file = nullptr;
    return 0;
}

V_DIAG_HOOKS hooks = {error_to_stderr, nothing_before_exit,  standard_output, no_heap_figures,
                      nowhere,         flush_standard_output};

constexpr int NAME_ROOM = 400;                   // of a page or file name in a log line
constexpr int LOG_LINE = V_ERRMSG_SIZE + 1024;   // a message and where it came from

// The log is read line by line, and a message can carry a visitor's bytes:
// no control character may start a line of its own or move a terminal.
void blank_controls(char *text) {
    for (unsigned char *p = (unsigned char *)text; *p; p++)
        if (*p < 0x20 || *p == 0x7f) *p = ' ';
}

V_HOT FILE *trace_fp;   // log file of Trace 2 and 3

V_HOT FILE *debug_fp;
V_HOT int debug_ready;
V_HOT bool debug_refused;   // its name was held by another file: no more tries

// The clock shared by trace and debug lines.
V_HOT int tm_ready;
V_HOT long tm_start;
V_HOT long tm_prev_sec;
V_HOT long tm_prev_usec;

int home_file_exists(const char *name) {
    char path[1024];
    int n = snprintf(path, sizeof path, "%s/%s", V_HOME, name);
    if (n < 0 || n >= (int)sizeof path) return 0;
    return access(path, F_OK) == 0;
}

// Opens the trace or debug file name.PID in the temporary directory. A name
// held by a link or by a file not ours alone is refused with one line in the
// web server's log, naming the file as `what`; errno is kept for the caller.
FILE *open_tmp_file(const char *what, const char *name, TmpOpen how) {
    char path[1024];
    int n =
        snprintf(path, sizeof path, "%s/%s.%d", TMP_DIR ? TMP_DIR : "/tmp", name, (int)getpid());
    if (n < 0 || n >= (int)sizeof path) return nullptr;
    FILE *f = V_open_tmp(path, how);
    if (!f && V_tmp_refused(errno)) {
        int err = errno;
        V_tmp_report(what, path, err);
        errno = err;
    }
    return f;
}

// Later markers override earlier ones, so V_LOG3 beats V_LOG beats V_TRACE.
void trace_setup() {
    V_trace_ready = 1;
    if (home_file_exists("V_TRACE") || Trace == 1) Trace = 1;
    if (home_file_exists("V_LOG") || Trace == 2) {
        trace_fp = open_tmp_file("trace file", "V_LOG", TmpOpen::Truncate);
        Trace = 2;
    }
    if (home_file_exists("V_LOG3") || Trace == 3) {
        if (trace_fp) fclose(trace_fp);
        trace_fp = open_tmp_file("trace file", "V_LOG3", TmpOpen::Truncate);
        Trace = 3;
    }
}

void debug_setup() {
    if (!V_HOME) return;
    debug_ready = 1;
    if (home_file_exists("V_DEBUG")) Debug = 1;
    if (home_file_exists("V_DEBUG2")) Debug = 2;
}

}   // namespace

void V_set_diag_hooks(const V_DIAG_HOOKS &installed) {
    hooks.error_page = installed.error_page ? installed.error_page : error_to_stderr;
    hooks.before_exit = installed.before_exit ? installed.before_exit : nothing_before_exit;
    hooks.page_out = installed.page_out ? installed.page_out : standard_output;
    hooks.heap_figures = installed.heap_figures ? installed.heap_figures : no_heap_figures;
    hooks.position = installed.position ? installed.position : nowhere;
    hooks.send_output = installed.send_output ? installed.send_output : flush_standard_output;
}

// "2025-06-01 10:00:00 vorn[812]: PAGE:LINE: message" when the line is the
// page's own, "PAGE: FILE:LINE: message" when it is in another file (an
// include, a function defined there), "PAGE: message" before any line ran.
void V_log_error(const char *message) {
    char line[LOG_LINE];
    int used = 0;
    // each piece is cut at the end of the line buffer, never past it
    auto add = [&](const char *fmt, auto... args) {
        int n = snprintf(line + used, sizeof line - used, fmt, args...);
        if (n > 0) used = std::min(used + n, (int)sizeof line - 1);
    };
    time_t now = time(nullptr);
    struct tm local;
    char stamp[32] = "";
    if (localtime_r(&now, &local)) strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &local);
    add("%s vorn[%d]: ", stamp, (int)getpid());
    const char *page = nullptr, *file = nullptr;
    int at = hooks.position(&page, &file);
    // names are cut so that the message always finds room
    if (page && file && at && !strcmp(page, file))
        add("%.*s:%d: ", NAME_ROOM, page, at);
    else if (page && file && at)
        add("%.*s: %.*s:%d: ", NAME_ROOM, page, NAME_ROOM, file, at);
    else if (page)
        add("%.*s: ", NAME_ROOM, page);
    else if (file && at)
        add("%.*s:%d: ", NAME_ROOM, file, at);
    // messages often start with a blank and end in a blank and a line end
    if (!message) message = "";
    while (*message && (unsigned char)*message <= ' ') message++;
    add("%s", message);
    blank_controls(line);
    while (used && line[used - 1] == ' ') line[--used] = 0;
    hooks.send_output();
    fprintf(stderr, "%s\n", line);
    fflush(stderr);
}

void PrintTM(FILE *fp) {
    struct timeval now;
    gettimeofday(&now, nullptr);
    if (!tm_ready) {
        tm_ready = 1;
        tm_start = now.tv_sec;
        tm_prev_sec = now.tv_sec;
        tm_prev_usec = now.tv_usec;
    }
    long since_prev = (now.tv_sec - tm_prev_sec) * 1000000L + (now.tv_usec - tm_prev_usec);
    if (fp)
        fprintf(fp, "%5d.%06d [%6d] ", (int)(now.tv_sec - tm_start), (int)now.tv_usec,
                (int)since_prev);
    tm_prev_sec = now.tv_sec;
    tm_prev_usec = now.tv_usec;
}

int V_trace_line(const char *fmt, ...) {
    // The hot path: every module traces freely, so "off" must stay cheap.
    if (V_trace_ready && !Trace) return 0;
    if (!V_HOME) return -1;
    if (!V_trace_ready) trace_setup();
    if (!Trace) return 0;

    FILE *fp = Trace == 1 ? hooks.page_out() : trace_fp;
    if (!fp) return 0;
    if (Trace == 1) fputs("<hr><h3><pre>", fp);
    PrintTM(fp);
    va_list ap;
    va_start(ap, fmt);
    vfprintf(fp, fmt, ap);
    va_end(ap);
    if (Trace == 1) fputs("</pre></h3><hr>\n", fp);
    fflush(fp);
    if (Trace == 3) hooks.heap_figures(fp);
    return 0;
}

namespace {

// The work of V_debug_line, which notes afterwards whether the next call
// still has something to do while debugging is off.
void debug_line(const char *fmt, va_list ap) {
    if (!debug_ready) debug_setup();
    if (!Debug) {
        if (debug_fp) {
            fclose(debug_fp);
            debug_fp = nullptr;
        }
        return;
    }
    if (!debug_fp && !debug_refused) {
        debug_fp = open_tmp_file("debug file", "V_DEBUG", TmpOpen::Append);
        // a refused name is reported once, not on every line
        debug_refused = !debug_fp && V_tmp_refused(errno);
    }
    if (!debug_fp) return;
    PrintTM(debug_fp);
    vfprintf(debug_fp, fmt, ap);
    if (Debug > 1) fflush(debug_fp);
}

}   // namespace

void V_debug_line(const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    debug_line(fmt, ap);
    va_end(ap);
    V_debug_pending = !debug_ready || debug_fp != nullptr;
}

void V_hold_errors() {
    err_locked = 1;
}

int ERRMSG(const char *fmt, ...) {
    V_TRACE("ERRMSG: locked= %d :: msgfmt= %s \n", err_locked, fmt);
    // An error inside the error page is dropped; the caller carries on.
    if (err_locked) return -1;
    err_locked = 1;

    va_list ap;
    va_start(ap, fmt);
    vsnprintf(V_ERRMSG, sizeof V_ERRMSG, fmt, ap);
    va_end(ap);
    V_TRACE("V_ERRMSG: %s", V_ERRMSG);
    V_log_error(V_ERRMSG);
    hooks.error_page(V_ERRMSG);
    V_exit(-2);
}

void V_exit(int code) {
    V_TRACE("V_exit( %d );", code);
    hooks.before_exit();
    V_TRACE("V_exit: exit...");
    hooks.send_output();
    // A fatal end (-2) shows to the parent as 255.
    exit(code == -2 ? 255 : code);
}
