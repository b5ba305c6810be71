// Placeholder bodies until this module is written.
#include "driver/diagnostics.h"

char V_ERRMSG[V_ERRMSG_SIZE];
int Trace;
int Debug;
int ERRMSG(const char *fmt, ...)  { return -1; }
int V_TRACE(const char *fmt, ...)  { return -1; }
void V_DEBUG(const char *fmt, ...)  {}
void PrintTM(FILE *fp) {}
