// Diagnostics: the fatal error routine, the trace switched on by marker
// files in the home directory, and the debug file of the command handlers.
#pragma once
#include <cstdio>

constexpr int V_ERRMSG_SIZE = 8192;

extern char V_ERRMSG[V_ERRMSG_SIZE];   // text of the last error
extern int Trace;                      // 0 off, 1 page, 2 log, 3 log with heap figures
extern int Debug;                      // 0 off, 1 on, 2 on with a flush per line

// Ends the request with an error page; returns -1 only while an error is
// already being handled.
int ERRMSG(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
int V_TRACE(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
void V_DEBUG(const char *fmt, ...) __attribute__((format(printf, 1, 2)));
void PrintTM(FILE *fp);
