// Placeholder bodies until this module is written.
#include "values/arguments.h"

int V_take_string(const char *text, char *out) { return -1; }
int V_arg_string(const char *text, char *out) { return -1; }
int V_arg_string_sep(const char *text, char *out, const char *sep) { return -1; }
