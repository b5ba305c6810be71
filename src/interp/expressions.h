// Arithmetic expressions of $(expr:...): integer and floating modes.
#pragma once

// 1: integer result in *v_int (also for an invalid expression);
// 2: floating result in *v_float.
int EXPR_parser(const char *expr, int *v_int, float *v_float);
