// Placeholder bodies until this module is written.
#include "interp/expressions.h"

int EXPR_parser(const char *expr, int *v_int, float *v_float) { return -1; }
