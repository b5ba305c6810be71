// Arithmetic expressions: the token scanner, the shift-reduce evaluator
// (its stack mirrors an LR parser's) and the results kept between calls.
#include "values/expressions.h"

#include <cfloat>
#include <climits>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "base/coverage.h"
#include "values/output.h"

namespace {

// Which member is live is decided per evaluation by EXPR_FLOAT, never per value.
struct ExprValue {
    int64_t i;
    long double f;
};

enum TokenKind { TOK_END, TOK_NUMBER, TOK_CHAR };

struct ExprToken {
    TokenKind kind;
    int ch;
    ExprValue v;
};

// Stack symbols: 'E' expression, 'B' binary operator, 'U' unary minus,
// '(' and ')' parentheses, '$' the end of the text.
struct ExprSym {
    char kind;
    char op;
    ExprValue v;
};

const char *EXPR_BUFF = nullptr;
int EXPR_INIT = 0;
int EXPR_FLOAT = 0;
const char *scan_pos = nullptr;

// Kept across evaluations: an invalid text reports the previous result.
int64_t value_int = 0;
long double value_float = 0;

ExprSym expr_stack[V_EXPR_STACK_MAX];
int expr_depth = 0;

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

int digit_value(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return 99;
}

// Reads an unsigned number in base 8 or 16 from the start of s, as an
// unsigned conversion of the C library would: stops at the first digit
// foreign to the base and saturates at all ones on overflow.
int64_t read_unsigned(const char *s, int base) {
    uint64_t n = 0;
    for (; digit_value(*s) < base; s++) {
        uint64_t d = static_cast<uint64_t>(digit_value(*s));
        if (n > (UINT64_MAX - d) / static_cast<uint64_t>(base)) return -1;
        n = n * static_cast<uint64_t>(base) + d;
    }
    return static_cast<int64_t>(n);
}

// Decimal digits as a signed conversion reads them: saturating at the maximum.
int64_t read_decimal(const char *s) {
    int64_t n = 0;
    for (; is_digit(*s); s++) {
        int d = *s - '0';
        if (n > (INT64_MAX - d) / 10) return INT64_MAX;
        n = n * 10 + d;
    }
    return n;
}

// Leaves scan_pos on the last character of the number.
void scan_number(ExprToken *tok) {
    const char *start = scan_pos;
    tok->kind = TOK_NUMBER;
    tok->v = ExprValue{0, 0};
    if (start[0] == '0' && is_digit(start[1])) {
        // 8 and 9 are consumed though the conversion stops before them.
        while (is_digit(scan_pos[1])) scan_pos++;
        tok->v.i = read_unsigned(start, 8);
    } else if (start[0] == '0' && start[1] == 'x' && is_digit(start[2])) {
        scan_pos += 2;
        while (is_digit(scan_pos[1])) scan_pos++;
        tok->v.i = read_unsigned(start + 2, 16);
    } else {
        while (is_digit(scan_pos[1])) scan_pos++;
        if (scan_pos[1] == '.') {
            scan_pos++;
            while (is_digit(scan_pos[1])) scan_pos++;
            // Only reachable in floating mode: any "." selects it.
            tok->v.f = strtold(start, nullptr);
            return;
        }
        tok->v.i = read_decimal(start);
    }
    tok->v.f = static_cast<long double>(tok->v.i);
}

void next_token(ExprToken *tok) {
    if (EXPR_INIT) {
        EXPR_INIT = 0;
        scan_pos = EXPR_BUFF;
    } else if (*scan_pos) {
        scan_pos++;
    }
    // Only the space is a blank; a tab is an ordinary (unknown) character.
    while (*scan_pos == ' ') scan_pos++;
    if (!*scan_pos) {
        tok->kind = TOK_END;
        return;
    }
    if (!is_digit(*scan_pos)) {
        tok->kind = TOK_CHAR;
        tok->ch = static_cast<unsigned char>(*scan_pos);
        return;
    }
    scan_number(tok);
}

int precedence(int op) {
    switch (op) {
    case '|': return 1;
    case '&': return 2;
    case '+':
    case '-': return 3;
    case '*':
    case '/':
    case '%': return 4;
    default: return 0;
    }
}

bool is_binary_op(const ExprToken &tok) {
    return tok.kind == TOK_CHAR && precedence(tok.ch) > 0;
}

// The processor's integer-divide fault, made explicit. The default action
// is restored first so the process ends by the signal even where a
// handler (a sanitizer's) was installed.
int64_t divide_fault() {
    // the signal ends the process without stdio's exit: what the page
    // wrote before the fault is sent first
    V_output_fault();
    V_coverage_dump();
    signal(SIGFPE, SIG_DFL);
    raise(SIGFPE);
    return 0;
}

int64_t int_op(char op, int64_t a, int64_t b) {
    // Wrap-around through unsigned arithmetic avoids signed overflow.
    uint64_t ua = static_cast<uint64_t>(a), ub = static_cast<uint64_t>(b);
    switch (op) {
    case '+': return static_cast<int64_t>(ua + ub);
    case '-': return static_cast<int64_t>(ua - ub);
    case '*': return static_cast<int64_t>(ua * ub);
    case '&': return a & b;
    case '|': return a | b;
    }
    if (b == 0) return divide_fault();
    if (b == -1)   // INT64_MIN / -1 wraps to itself; its remainder is 0
        return op == '/' ? static_cast<int64_t>(0 - ua) : 0;
    return op == '/' ? a / b : a % b;
}

// Truncation toward zero to 32 bits. Values out of range (and NaN) give
// INT_MIN, the processor's "integer indefinite", instead of undefined behaviour.
int32_t to_int32(long double x) {
    if (std::isnan(x) || x <= static_cast<long double>(INT32_MIN) - 1 ||
        x >= static_cast<long double>(INT32_MAX) + 1)
        return INT32_MIN;
    return static_cast<int32_t>(x);
}

// What the processor's division by a zero divisor gives, computed without
// dividing: a NaN dividend comes back as it is, a zero one gives the
// processor's default NaN (sign set, printed "-nan"), any other an infinity
// with the sign of both operands together (1/-0.0 is -inf).
long double divide_by_zero(long double a, long double b) {
    if (std::isnan(a)) return a;
    if (a == 0) return std::copysign(std::numeric_limits<long double>::quiet_NaN(), -1.0L);
    return std::signbit(a) != std::signbit(b) ? -HUGE_VALL : HUGE_VALL;
}

long double float_op(char op, long double a, long double b) {
    switch (op) {
    case '+': return a + b;
    case '-': return a - b;
    case '*': return a * b;
    case '/': return b == 0 ? divide_by_zero(a, b) : a / b;
    }
    int64_t ia = to_int32(a), ib = to_int32(b);
    if (op == '&') return static_cast<long double>(ia & ib);
    if (op == '|') return static_cast<long double>(ia | ib);
    if (ib == 0) return static_cast<long double>(divide_fault());
    return static_cast<long double>(ia % ib);
}

ExprValue apply_binary(char op, const ExprValue &a, const ExprValue &b) {
    ExprValue r{0, 0};
    if (EXPR_FLOAT)
        r.f = float_op(op, a.f, b.f);
    else
        r.i = int_op(op, a.i, b.i);
    return r;
}

ExprValue negate(const ExprValue &a) {
    ExprValue r{0, 0};
    if (EXPR_FLOAT)
        r.f = -a.f;
    else
        r.i = static_cast<int64_t>(0 - static_cast<uint64_t>(a.i));
    return r;
}

// Narrowing as the hardware rounds, without an out-of-range conversion:
// beyond the rounding midpoint above FLT_MAX the result is an infinity.
float to_single(long double x) {
    if (!std::isfinite(x) || std::fabs(x) <= static_cast<long double>(FLT_MAX))
        return static_cast<float>(x);
    long double limit = static_cast<long double>(FLT_MAX) + std::ldexp(1.0L, 103);
    float mag = std::fabs(x) >= limit ? HUGE_VALF : FLT_MAX;
    return x < 0 ? -mag : mag;
}

// False when the stack would reach its limit (the start entry counts too).
bool push(char kind, char op, const ExprValue &v) {
    if (expr_depth + 2 >= V_EXPR_STACK_MAX) return false;
    expr_stack[expr_depth++] = ExprSym{kind, op, v};
    return true;
}

const ExprSym *top(int back) {
    return expr_depth > back ? &expr_stack[expr_depth - 1 - back] : nullptr;
}

// Reduces the handles at the top of the stack. A binary operation waits
// only when the lookahead is a binary operator binding tighter; every other
// lookahead reduces, as default reductions would, before an error shows.
void reduce(const ExprToken &look) {
    for (;;) {
        const ExprSym *right = top(0), *mid = top(1);
        if (!right || !mid || right->kind != 'E') return;
        if (mid->kind == 'U') {
            ExprValue r = negate(right->v);
            expr_depth -= 2;
            expr_stack[expr_depth++] = ExprSym{'E', 0, r};
            continue;
        }
        if (mid->kind != 'B') return;
        if (is_binary_op(look) && precedence(look.ch) > precedence(mid->op)) return;
        ExprValue r = apply_binary(mid->op, top(2)->v, right->v);
        expr_depth -= 3;
        expr_stack[expr_depth++] = ExprSym{'E', 0, r};
    }
}

const int PARSE_MORE = 0;
const int PARSE_INVALID = 1;
const int PARSE_FULL = 2;

// Shifts a token where an operand is due.
int shift_operand(const ExprToken &tok) {
    ExprValue none{0, 0};
    if (tok.kind == TOK_NUMBER) return push('E', 0, tok.v) ? PARSE_MORE : PARSE_FULL;
    if (tok.kind == TOK_CHAR && (tok.ch == '(' || tok.ch == '-'))
        return push(tok.ch == '(' ? '(' : 'U', 0, none) ? PARSE_MORE : PARSE_FULL;
    return PARSE_INVALID;
}

// Shifts a token after a complete expression; ")" closes its group at once.
int shift_after_expr(const ExprToken &tok) {
    ExprValue none{0, 0};
    if (is_binary_op(tok))
        return push('B', static_cast<char>(tok.ch), none) ? PARSE_MORE : PARSE_FULL;
    if (tok.kind == TOK_CHAR && tok.ch == ')' && top(1) && top(1)->kind == '(') {
        if (!push(')', 0, none)) return PARSE_FULL;
        ExprValue inner = top(1)->v;
        expr_depth -= 3;
        expr_stack[expr_depth++] = ExprSym{'E', 0, inner};
        return PARSE_MORE;
    }
    if (tok.kind == TOK_END && expr_depth == 1) return push('$', 0, none) ? PARSE_MORE : PARSE_FULL;
    return PARSE_INVALID;
}

// 1: integer result stored or invalid text; 2: floating result stored or
// stack full.
int parse_expression() {
    expr_depth = 0;
    for (;;) {
        ExprToken tok{TOK_END, 0, ExprValue{0, 0}};
        next_token(&tok);
        reduce(tok);
        const ExprSym *t = top(0);
        int rc = (t && t->kind == 'E') ? shift_after_expr(tok) : shift_operand(tok);
        if (rc == PARSE_FULL) return 2;
        if (rc == PARSE_INVALID) return 1;
        if (tok.kind != TOK_END) continue;
        // The first complete expression ends the parse at once.
        if (EXPR_FLOAT) {
            value_float = expr_stack[0].v.f;
            return 2;
        }
        value_int = expr_stack[0].v.i;
        return 1;
    }
}

// A plain decimal number as the scanner reads it (no octal or hex form),
// with *s moved behind it; false, *s untouched, for anything else.
bool plain_number(const char **s, int64_t *n) {
    const char *p = *s;
    if (!is_digit(*p) || (p[0] == '0' && (is_digit(p[1]) || p[1] == 'x'))) return false;
    // read_decimal's saturation, in the same pass over the digits
    int64_t v = 0;
    for (; is_digit(*p); p++) {
        int d = *p - '0';
        v = v > (INT64_MAX - d) / 10 ? INT64_MAX : v * 10 + d;
    }
    *n = v;
    *s = p;
    return true;
}

// The short texts most pages give, "A" or "A op B" with plain decimal
// numbers and blanks, worked out without the parser's stack: the result
// the parser would store. False for any other text, which the parser takes.
bool small_expression(const char *expr) {
    const char *p = expr;
    while (*p == ' ') p++;
    int64_t a = 0, b = 0;
    if (!plain_number(&p, &a)) return false;
    while (*p == ' ') p++;
    if (!*p) {
        value_int = a;
        return true;
    }
    char op = *p;
    if (!precedence(op)) return false;
    p++;
    while (*p == ' ') p++;
    if (!plain_number(&p, &b)) return false;
    while (*p == ' ') p++;
    if (*p) return false;
    value_int = int_op(op, a, b);
    return true;
}

}   // namespace

int EXPR_parser(const char *expr, int *v_int, float *v_float) {
    if (!expr) expr = "";
    // value_float narrowed, kept: the short form leaves value_float as it was
    static float narrowed = 0;
    int rc = 1;
    if (!small_expression(expr)) {
        EXPR_BUFF = expr;
        EXPR_INIT = 1;
        EXPR_FLOAT = strchr(expr, '.') ? 1 : 0;
        rc = parse_expression();
        narrowed = to_single(value_float);
    }
    *v_int = static_cast<int>(static_cast<uint32_t>(static_cast<uint64_t>(value_int)));
    *v_float = narrowed;
    return rc;
}
