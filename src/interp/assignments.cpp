// The commands that change variables: set, add, clear, replace, error and
// the operator assignments of V_let, with overflow-free integer arithmetic.
#include "interp/assignments.h"

#include <cctype>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "driver/diagnostics.h"
#include "values/arguments.h"
#include "values/command_entry.h"
#include "values/substitution.h"
#include "values/variables.h"

namespace {

constexpr int SET_AREA = 1000;     // name and value of <@set>, side by side
constexpr int REPLACE_ARG = 100;   // each argument of <@replace>
constexpr int RESULT_MAX = V_LINE_MAX - 1;

// Reads a number the way atoi does (blanks, sign, digits) but never overflows:
// values outside the int range are clamped to it.
int safe_atoi(const char *s) {
    if (!s) return 0;
    // isspace of the "C" locale the process runs in, without the call
    while (*s == ' ' || (*s >= '\t' && *s <= '\r')) s++;
    bool neg = *s == '-';
    if (*s == '-' || *s == '+') s++;
    long long v = 0;
    while (isdigit(static_cast<unsigned char>(*s))) {
        if (v <= INT_MAX) v = v * 10 + (*s - '0');
        s++;
    }
    if (neg) v = -v;
    if (v > INT_MAX) return INT_MAX;
    if (v < INT_MIN) return INT_MIN;
    return static_cast<int>(v);
}

// Arithmetic results wrap around like 32-bit machine integers, so INT_MAX + 1
// and INT_MIN / -1 give INT_MIN instead of undefined behaviour.
int wrap(long long v) {
    return static_cast<int>(static_cast<uint32_t>(static_cast<uint64_t>(v)));
}

// Takes the next argument of text into out (size bytes, cut), advancing *pos.
// Returns the scanner's result: 0 when no argument was left.
int next_arg(const char *text, int *pos, char *out, int size) {
    char word[V_LINE_MAX];
    int n = V_arg_string(text + *pos, word);
    if (n > 0) *pos += n;
    V_copy_cut(out, word, size);
    return n;
}

// Name and value of <@set> and <@add>, both taken from one area of `size`
// bytes: the value gets what the name leaves over.
void name_and_value(const char *text, char *area, int size, char **name, char **value) {
    int pos = 0;
    next_arg(text, &pos, area, size);
    int used = static_cast<int>(strlen(area)) + 1;
    *name = area;
    *value = area + used;
    if (used >= size) {
        area[size - 1] = '\0';
        *value = area + size - 1;
        return;
    }
    next_arg(text, &pos, *value, size - used);
}

// Left-to-right, non-overlapping replacement into result (V_LINE_MAX bytes).
// The guard reserves room for a whole replacement before every step.
void replace_all(const char *val, const char *old, const char *neu, char *result) {
    int len = 0;
    int oldlen = static_cast<int>(strlen(old));
    int newlen = static_cast<int>(strlen(neu));
    while (*val) {
        if (len + newlen > RESULT_MAX) break;
        if (strncmp(val, old, static_cast<size_t>(oldlen)) == 0) {
            memcpy(result + len, neu, static_cast<size_t>(newlen));
            len += newlen;
            val += oldlen;
        } else {
            result[len++] = *val++;
        }
    }
    result[len] = '\0';
}

// The text of <@error> used as a message format whose one argument is the
// raw command line: only "%s" (first one) and "%%" are honoured, every other
// directive is kept literally, so page text can never misuse the formatter.
void error_message(const char *fmt, const char *line, char *out, int size) {
    int n = 0;
    bool line_used = false;
    while (*fmt && n < size - 1) {
        if (fmt[0] == '%' && fmt[1] == '%') {
            out[n++] = '%';
            fmt += 2;
            continue;
        }
        if (fmt[0] == '%' && fmt[1] == 's' && !line_used) {
            for (const char *l = line; *l && n < size - 1; l++) out[n++] = *l;
            line_used = true;
            fmt += 2;
            continue;
        }
        out[n++] = *fmt++;
    }
    out[n] = '\0';
}

struct let_op {
    const char *op;   // as it follows the name: ">" and the operator
    char code;
};

// Tried in this order on the substituted text; the first found decides.
const let_op LET_OPS[] = {
    {">=", '='},  {">+=", '+'}, {">*=", '*'}, {">/=", '/'}, {">%=", '%'},
    {">-=", '-'}, {">$=", '$'}, {">;=", ';'}, {">++", 'i'}, {">--", 'd'},
};

// The first operator of LET_OPS found anywhere in line (the table's order
// decides, not the place), with *at where it first occurs; null when none.
// One pass over the '>' of the line finds them all.
const let_op *find_let_op(const char *line, const char **at) {
    constexpr int OPS = sizeof LET_OPS / sizeof LET_OPS[0];
    const char *first[OPS] = {};
    for (const char *p = strchr(line, '>'); p; p = strchr(p + 1, '>')) {
        for (int i = 0; i < OPS; i++) {
            const char *op = LET_OPS[i].op;
            if (!first[i] && p[1] == op[1] && (!op[2] || p[2] == op[2])) first[i] = p;
        }
    }
    for (int i = 0; i < OPS; i++) {
        if (first[i]) {
            *at = first[i];
            return &LET_OPS[i];
        }
    }
    return nullptr;
}

bool has_let_op(const char *line) {
    const char *at;
    return find_let_op(line, &at) != nullptr;
}

// The current value as an integer; `missing` stands in for a missing
// variable and, when null_too is set, for a null value.
int current_int(const char *name, int missing, bool null_too) {
    V_USER *u = V_get_user(name);
    if (!u) {
        V_get_value(name);   // for its "not found" trace
        return missing;
    }
    if (!u->var.value) return null_too ? missing : 0;
    return safe_atoi(u->var.value);
}

void concat(char *out, const char *a, const char *b) {
    V_copy_cut(out, a ? a : "", V_LINE_MAX);
    int n = static_cast<int>(strlen(out));
    V_copy_cut(out + n, b ? b : "", V_LINE_MAX - n);
}

// Works out the new value of `name` for operator `code` into out; the
// integer operators read the current value as current_int does, from u
// when the caller has the record at hand (found is set then).
void let_value(char code, const char *name, const char *operand, char *out, bool found = false,
               const V_USER *u = nullptr) {
    long long r = 0;
    // the operand is read only by the operators that take one
    int arg = code == 'i' || code == 'd' ? 0 : safe_atoi(operand);
    auto now = [&](int missing) {
        if (!found) return current_int(name, missing, true);
        if (!u) {
            V_get_value(name);   // for its "not found" trace
            return missing;
        }
        return u->var.value ? safe_atoi(u->var.value) : missing;
    };
    switch (code) {
    case '=': V_copy_cut(out, operand, V_LINE_MAX); return;
    case '$': concat(out, V_get_value(name), V_get_value(operand)); return;
    case ';': concat(out, V_get_value(name), operand); return;
    case '+': r = static_cast<long long>(now(0)) + arg; break;
    case '-': r = static_cast<long long>(now(0)) - arg; break;
    case '*': r = static_cast<long long>(now(1)) * arg; break;
    case '/': r = static_cast<long long>(now(1)) / (arg ? arg : 1); break;
    case '%': r = static_cast<long long>(now(0)) % (arg ? arg : 1); break;
    case 'i': r = static_cast<long long>(now(0)) + 1; break;
    case 'd': r = static_cast<long long>(now(0)) - 1; break;
    default: break;
    }
    V_int_text(wrap(r), out);
}

// The work of each handler after substitution. The handlers keep only the
// substituted line on their own frame because substitution can run a user
// function and so recurse; these helpers are kept out of line for that.
[[gnu::noinline]] int do_set(const char *buf) {
    char area[SET_AREA];
    char *name, *value;
    name_and_value(buf, area, SET_AREA, &name, &value);
    return V_put_value(name, value, 0, 0);
}

[[gnu::noinline]] int do_add(const char *buf) {
    char area[V_LINE_MAX];
    char *name, *value;
    name_and_value(buf, area, V_LINE_MAX, &name, &value);
    return V_add_value(name, value);
}

[[gnu::noinline]] void do_clear(const char *buf) {
    char patt[V_LINE_MAX];
    int pos = 0;
    next_arg(buf, &pos, patt, V_LINE_MAX);
    V_clear_value(patt);
}

[[gnu::noinline]] void do_replace(const char *buf) {
    char name[REPLACE_ARG], old[REPLACE_ARG], neu[REPLACE_ARG];
    int pos = 0;
    next_arg(buf, &pos, name, REPLACE_ARG);
    next_arg(buf, &pos, old, REPLACE_ARG);
    if (next_arg(buf, &pos, neu, REPLACE_ARG) < 1 || !old[0]) {
        ERRMSG("Bad syntax in REPLACE: %s ...", buf);
        return;
    }
    const char *val = V_get_value(name);
    if (!val) {
        V_TRACE("V_replace: NAME: [%s] not exist or NULL value", name);
        return;
    }
    V_TRACE("V_replace: NAME: [%s] VAL: [%s] replace: [%s] by: [%s]", name, val, old, neu);
    char result[V_LINE_MAX];
    replace_all(val, old, neu, result);
    V_put_value(name, result, 0, 0);
    V_TRACE("V_replace: NAME: [%s] NEWVAL: [%s]", name, result);
}

[[gnu::noinline]] void do_error(const char *buf, const char *line) {
    char msg[V_ERRMSG_SIZE];
    error_message(buf, line, msg, V_ERRMSG_SIZE);
    ERRMSG("%s", msg);
}

[[gnu::noinline]] int do_let(char *buf) {
    const char *op_at = nullptr;
    const let_op *found = find_let_op(buf, &op_at);
    if (!found) {
        V_TRACE("V_let: ### ERROR : did not find a command!!!");
        return -1;
    }
    char *at = buf + (op_at - buf);
    *at = '\0';
    char operand[V_LINE_MAX];
    int pos = 0;
    next_arg(at + strlen(found->op), &pos, operand, V_LINE_MAX);
    char value[V_LINE_MAX];
    let_value(found->code, buf, operand, value);
    return V_put_value(buf, value, 0, 0);
}

}   // namespace

int V_set(char *buff, int compile, int ignore) {
    char buf[V_LINE_MAX];
    int go = command_entry(buff, "<@set>", compile, ignore, buf);
    if (go <= 0) return go;
    return do_set(buf);
}

int V_add(char *buff, int compile, int ignore) {
    char buf[V_LINE_MAX];
    int go = command_entry(buff, "<@add>", compile, ignore, buf);
    if (go <= 0) return go;
    return do_add(buf);
}

int V_clear(char *buff, int compile, int ignore) {
    char buf[V_LINE_MAX];
    int go = command_entry(buff, "<@clear>", compile, ignore, buf);
    if (go <= 0) return go;
    do_clear(buf);
    return 0;
}

int V_replace(char *buff, int compile, int ignore) {
    char buf[V_LINE_MAX];
    int go = command_entry(buff, "<@replace>", compile, ignore, buf, {.form = ENTRY_BRACES_NARROW});
    if (go <= 0) return go;
    do_replace(buf);
    return 0;
}

int V_error(char *buff, int compile, int ignore) {
    char buf[V_LINE_MAX];
    int go = command_entry(buff, "<@error>", compile, ignore, buf);
    if (go <= 0) return go;
    do_error(buf, buff);
    return 0;
}

bool V_is_assignment(const char *line) {
    return line && strncmp(line, "<@", 2) == 0 && has_let_op(line);
}

namespace {

// An assignment line taken apart once: the name and the operator stand
// before any reference, so substitution changes only the value text. The
// first operator of LET_OPS found in the substituted line is the one found
// here when it is the first of the table (nothing a value brings can come
// before it) or when the line has no reference at all.
struct LetForm {
    bool assignment;   // V_is_assignment of the line
    bool ok;
    char code;
    int value_at;   // where the value text begins in the line
    char *name;
    V_TEXT_FORM *value;
    V_MEMO memo;     // the variable assigned
    bool no_value;   // nothing but blanks after the operator
};

LetForm *let_form(const char *line) {
    auto *f = static_cast<LetForm *>(calloc(1, sizeof(LetForm)));
    if (!f) return nullptr;
    f->assignment = V_is_assignment(line);
    if (!f->assignment) return f;
    const char *text = line + 2;   // behind "<@"
    const char *at = nullptr;
    const let_op *op = find_let_op(text, &at);
    if (!op) return f;
    std::string_view name(text, static_cast<size_t>(at - text));
    bool refs = strstr(text, "$(") != nullptr;
    if (name.find("$(") != std::string_view::npos || (refs && op != &LET_OPS[0])) return f;
    f->name = static_cast<char *>(malloc(name.size() + 1));
    if (!f->name) return f;
    memcpy(f->name, name.data(), name.size());
    f->name[name.size()] = '\0';
    f->code = op->code;
    f->value_at = static_cast<int>(at - line) + static_cast<int>(strlen(op->op));
    f->value = V_text_form(line + f->value_at);
    f->ok = f->value != nullptr;
    // blanks alone substitute to themselves and give an empty operand
    f->no_value = line[f->value_at + strspn(line + f->value_at, " ")] == '\0';
    return f;
}

}   // namespace

int V_let_kept(char *buff, int compile, int ignore, void **parsed) {
    if (!*parsed) *parsed = let_form(buff);
    auto *f = static_cast<LetForm *>(*parsed);
    if (f && !f->assignment) return -1;
    // the debug line shows the whole substituted line: the walk writes it
    if (!f || !f->ok || !compile || Debug || V_debug_pending) return V_let(buff, compile, ignore);
    if (Trace || !V_trace_ready) command_trace(buff, "<@", compile, ignore, {.name = "V_let"});
    if (ignore) return 0;
    // the substituted line would hold the name and operator before the
    // value, which leaves the value what the line's buffer has left
    char operand[V_LINE_MAX];   // no longer than buf: taken without a cut
    operand[0] = '\0';
    if (!f->no_value) {
        char buf[V_LINE_MAX];
        V_transline_form(f->value, buff + f->value_at, buf, V_LINE_MAX - (f->value_at - 2),
                         compile);
        V_arg_string(buf, operand);
    }
    // Substitution may have run page code: the record is looked for only
    // now, and it stays good up to the store (reading values changes no tree).
    V_USER *u = V_get_user_memo(f->name, &f->memo);
    const char *value = operand;   // "=" stores the operand as it is
    char result[V_LINE_MAX];
    if (f->code != '=') {
        let_value(f->code, f->name, operand, result, true, u);
        value = result;
    }
    return u ? V_put_user(u, value) : V_put_value(f->name, value, 0, 0);
}

int V_let(char *buff, int compile, int ignore) {
    if (!V_is_assignment(buff)) return -1;
    // the tag is the "<@" before the variable's name
    char buf[V_LINE_MAX];
    int go = command_entry(buff, "<@", compile, ignore, buf, {.name = "V_let"});
    if (go <= 0) return go;
    return do_let(buf);
}
