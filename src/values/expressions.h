// Arithmetic expressions of $(expr:...): integer and floating modes.
// Owns the scanner, the shift-reduce evaluator and the kept results.
#pragma once

// Deepest parser stack, counting the start entry; reaching it gives up with 2.
constexpr int V_EXPR_STACK_MAX = 10000;

// Evaluates expr ("." anywhere in it selects floating mode). Returns 1 with
// an integer result, also for any invalid text (results then unchanged);
// 2 with a floating result, also when the stack limit is reached. Either
// way *v_int gets the low 32 bits of the last integer result and *v_float
// the last floating result narrowed to single precision. Integer division
// or remainder by zero raises SIGFPE.
int EXPR_parser(const char *expr, int *v_int, float *v_float);
