// Diagnostics: the fatal error routine, the trace switched on by marker
// files in the home directory, the debug file of the command handlers and
// the process's one way out. Any module may include it: what it needs from
// the layers above reaches it through hooks the driver installs.
#pragma once
#include <cstdio>

// The upward half of diagnostics. The driver installs its own at start-up
// (V_install_hooks); a null member keeps the default named with it, so
// lower modules work without a driver as well.
struct V_DIAG_HOOKS {
    // Shows the message of a fatal error on the request's error page and
    // returns; V_exit follows. Default: the message on standard error.
    void (*error_page)(const char *message);
    // The request's own work before the process ends (the database session,
    // its temporary file). Default: nothing.
    void (*before_exit)();
    // The stream a page trace (Trace 1) goes into. Default: standard output.
    FILE *(*page_out)();
    // Writes the request heap's figures after a line of Trace 3. Default: nothing.
    void (*heap_figures)(FILE *fp);
    // Where the request is, for the error log: the page, and the file and
    // line being run (*file null and 0 when no line has run). *page null
    // when no page is known yet. Default: nothing known.
    int (*position)(const char **page, const char **file);
    // Sends the page output held for standard output, before a log line
    // (so that a terminal shows both in the order they were made) and at
    // the exit. Default: standard output flushed.
    void (*send_output)();
};
void V_set_diag_hooks(const V_DIAG_HOOKS &hooks);

constexpr int V_ERRMSG_SIZE = 8192;

extern char V_ERRMSG[V_ERRMSG_SIZE];   // text of the last error
extern int Trace;                      // 0 off, 1 page, 2 log, 3 log with heap figures
extern int Debug;                      // 0 off, 1 on, 2 on with a flush per line

// Ends the request with an error page, after a line in the error log;
// returns -1 only while an error is already being handled.
int ERRMSG(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
// Puts the error routine into the state it has while an error page runs:
// from then on ERRMSG returns -1 at once. For fuzz harnesses that drive one
// module outside a request, where the first error would end the process.
void V_hold_errors();
// Writes one line to standard error, the web server's error log: the local
// time, the process id, the page and line (from the position hook) and the
// message, its control characters (line ends included) made blanks.
void V_log_error(const char *message);
// Writes one trace line when tracing is on (the first call reads the marker
// files). Modules call it through V_TRACE, which tests the flags inline, so
// a trace costs a load and a branch while tracing is off.
int V_trace_line(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
extern int V_trace_ready;   // the marker files have been read
#define V_TRACE(...) ((Trace || !V_trace_ready) ? V_trace_line(__VA_ARGS__) : 0)
// Writes one line to the debug file when debugging is on (the first call
// reads the marker files; the first after it is switched off closes the
// file). Modules call it through V_DEBUG, which tests the flags inline.
void V_debug_line(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
extern int V_debug_pending;   // markers unread, or the debug file open
#define V_DEBUG(...) ((Debug || V_debug_pending) ? V_debug_line(__VA_ARGS__) : (void)0)
void PrintTM(FILE *fp);
// Ends the process: the before_exit hook, the held output sent, then
// exit with code (a fatal end, -2, shows to the parent as 255).
[[noreturn]] void V_exit(int code);
