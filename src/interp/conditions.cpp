// The <@if>/<@elif>/<@else> construct with its one-line form, the string,
// integer and float comparisons and the value tests.
#include "interp/conditions.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>

#include "driver/diagnostics.h"
#include "interp/dispatcher.h"
#include "interp/flow.h"
#include "interp/loops.h"
#include "interp/page_reader.h"
#include "patt/like.h"
#include "sys/streams.h"
#include "values/arguments.h"
#include "values/command_entry.h"
#include "values/substitution.h"
#include "values/variables.h"

namespace {

// February always has 29 days: dates are checked for form, not for the
// calendar.
const int daylong[12] = {31, 29, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};

bool starts(const char *s, std::string_view tag) {
    return strncmp(s, tag.data(), tag.size()) == 0;
}

bool is_digit(char c) {
    return c >= '0' && c <= '9';
}

// The relational operators shared by the three comparisons; d is the sign
// of left minus right. Returns 0 holds, -1 does not, 1 unknown operator.
int relation(const char *op, int d) {
    // the usual one-character operators first, without the string compares
    if (op[0] && !op[1]) {
        switch (op[0]) {
        case '>': return d > 0 ? 0 : -1;
        case '<': return d < 0 ? 0 : -1;
        case '=': return d == 0 ? 0 : -1;
        default: return 1;
        }
    }
    if (!strcmp(op, ">=") || !strcmp(op, "&ge;") || !strcmp(op, "&gt;=")) return d >= 0 ? 0 : -1;
    if (!strcmp(op, "<=") || !strcmp(op, "&le;") || !strcmp(op, "&lt;=")) return d <= 0 ? 0 : -1;
    if (!strcmp(op, "!=")) return d != 0 ? 0 : -1;
    if (!strcmp(op, "==")) return d == 0 ? 0 : -1;
    if (!strcmp(op, "&gt;")) return d > 0 ? 0 : -1;
    if (!strcmp(op, "&lt;")) return d < 0 ? 0 : -1;
    return 1;
}

// Copies the next argument word of *rest into out (V_LINE_MAX bytes) and
// moves *rest behind it; a missing word is empty. The scanner may report a
// position past the end for an unclosed quote, hence the clamp.
void next_word(const char **rest, char *out) {
    out[0] = 0;
    int n = V_arg_string(*rest, out);
    if (n <= 0) {
        out[0] = 0;
        *rest += strlen(*rest);
        return;
    }
    size_t len = strlen(*rest);
    *rest += (size_t)n < len ? (size_t)n : len;
}

struct CondWords {
    char w[3][V_LINE_MAX];
};

void three_words(const char *rest, CondWords *cw) {
    for (auto &w : cw->w) next_word(&rest, w);
}

// atoi without its undefined overflow: out-of-range values saturate. Read
// as strtol reads base 10 (blanks, one sign, digits), without its locale.
int to_int(const char *s) {
    // isspace of the "C" locale the process runs in, without the call
    while (*s == ' ' || (*s >= '\t' && *s <= '\r')) s++;
    bool neg = *s == '-';
    if (*s == '-' || *s == '+') s++;
    long long v = 0;
    for (; is_digit(*s); s++)
        if (v <= INT_MAX) v = v * 10 + (*s - '0');
    if (neg) v = -v;
    if (v > INT_MAX) return INT_MAX;
    if (v < INT_MIN) return INT_MIN;
    return (int)v;
}

int test_fmt(CondWords *cw) {
    const char *v = V_get_value(cw->w[0]);
    if (!v) v = cw->w[0];
    const char *type = cw->w[1];
    if (!strcmp(type, "int")) return V_check_int(v);
    if (!strcmp(type, "float")) return V_check_float(v);
    if (!strcmp(type, "date")) return V_check_date(v);
    ERRMSG("Unknown option in FMT: %s \n", type);
    return -1;
}

int test_stat(const char *path, mode_t kind) {
    struct stat st;
    if (stat(path, &st) != 0) return -1;
    return (st.st_mode & S_IFMT) == kind ? 0 : -1;
}

// Runs the test the keyword selects; 0 holds, -1 does not. *neg tells
// whether the keyword carried a "!".
int run_kind(const char *kw, const char *rest, const char *whole, CondWords *cw, bool *neg) {
    *neg = kw[0] == '!';
    const char *k = *neg ? kw + 1 : kw;
    three_words(rest, cw);
    const char *a = cw->w[0], *op = cw->w[1], *b = cw->w[2];
    if (!strcmp(k, "cmp")) return V_user_cmp(a, op, b);
    if (!strcmp(k, "icmp")) return V_user_icmp(to_int(a), op, to_int(b));
    if (!strcmp(k, "fcmp")) {
        double x = 0, y = 0;
        sscanf(a, "%lf", &x);
        sscanf(b, "%lf", &y);
        return V_user_fcmp(x, op, y);
    }
    if (!strcmp(k, "fmt")) return test_fmt(cw);
    if (!strcmp(k, "filled")) {
        const char *v = V_get_value(a);
        return v && *v ? 0 : -1;
    }
    if (!strcmp(k, "EOF")) return V_eof ? 0 : -1;
    if (!strcmp(k, "exist")) return access(a, F_OK) == 0 ? 0 : -1;
    if (!strcmp(k, "isDir")) return test_stat(a, S_IFDIR);
    if (!strcmp(k, "isFile")) return test_stat(a, S_IFREG);
    // Any other word is the left value of a plain string comparison.
    *neg = false;
    three_words(whole, cw);
    return V_user_cmp(cw->w[0], cw->w[1], cw->w[2]);
}

// The comparisons a kept condition line may name by a keyword written out
// in its text, so that the keyword need not be looked for on every run.
enum Keyword { KW_OTHER, KW_CMP, KW_ICMP };

// A kept condition line taken apart once: where its inline command begins
// and which loop tag that command holds, the split of the condition text
// before it, and its keyword when that is plain text before any reference.
struct IfForm {
    long inline_at;
    Loop_tag tag;
    V_TEXT_FORM *cond;
    Keyword kw;
    bool neg;      // the keyword began with "!"
    int rest_at;   // where the words after the keyword begin
};

// The three words behind the keyword, as three_words reads them, split in
// place in text: ends written over with NULs, a missing word empty. False,
// text untouched, for a word that begins with a quote or holds a
// backslash: those take three_words.
bool plain_words(char *text, const char *w[3]) {
    char *end[3] = {};
    char *p = text;
    for (int k = 0; k < 3; k++) {
        while (*p == ' ') p++;
        w[k] = p;
        switch (*p) {
        case '"':
        case '\'':
        case '`':
        case '^':
        case '~':
        case '{':
        case '[': return false;
        default: break;
        }
        for (; *p && *p != ' '; p++)
            if (*p == '\\') return false;
        end[k] = p;
    }
    for (char *e : end) *e = 0;
    return true;
}

// The test of a condition whose keyword form found: the substituted words
// behind it are in rest.
int run_known(const IfForm *form, char *rest, CondWords *cw) {
    const char *w[3];
    if (!plain_words(rest, w)) {
        three_words(rest, cw);
        for (int k = 0; k < 3; k++) w[k] = cw->w[k];
    }
    if (form->kw == KW_ICMP) return V_user_icmp(to_int(w[0]), w[1], to_int(w[2]));
    return V_user_cmp(w[0], w[1], w[2]);
}

// Substitutes and evaluates the condition text of the line in buff (already
// cut before any inline command), from form when the line has one; buff is
// reused as scratch. Returns the branch flag.
int eval_condition(char *buff, int taglen, int compile, const IfForm *form) {
    char work[V_LINE_MAX];
    command_text(buff, taglen, compile, work, {}, form ? form->cond : nullptr);
    work[V_LINE_MAX - 1] = 0;
    // One set of words serves every condition: a test runs no page code, so
    // no other condition can start while they are in use (the error page
    // of a bad fmt: type runs only after its words are done with).
    static CondWords cw;
    if (form && form->kw != KW_OTHER && compile) {
        int holds = run_known(form, work + form->rest_at, &cw) == 0;
        return form->neg ? !holds : holds;
    }

    const char *rest = work;
    next_word(&rest, buff);
    V_TRACE("V_if: {%s} \n", buff);

    bool neg = false;
    int holds = run_kind(buff, rest, work, &cw, &neg) == 0;
    return neg ? !holds : holds;
}

const char IF_TAG[] = "<@if>";
const char ELIF_TAG[] = "<@elif>";
const char ELSE_TAG[] = "<@else>";
// Both condition tags trace under one name, with one blank before "ignore".
constexpr Entry IF_ENTRY = {.name = "V_if", .form = ENTRY_BRACES_NARROW};

// The length of the tag of an <@if> or <@elif> line, or 0 for any other line.
int condition_tag(const char *line) {
    if (starts(line, IF_TAG)) return (int)sizeof IF_TAG - 1;
    if (starts(line, ELIF_TAG)) return (int)sizeof ELIF_TAG - 1;
    return 0;
}

// Where the inline command of a condition line starts, or -1: the search
// starts one character after the tag, so "<@if><@x>" is no one-line form.
long inline_at(const char *buff, int taglen) {
    if (strnlen(buff, taglen + 1) < (size_t)taglen + 1) return -1;
    const char *p = strstr(buff + taglen + 1, "<@");
    return p ? p - buff : -1;
}

// Notes the keyword of the condition text cond in f when substitution
// cannot change it: a plain word ended by a blank (or the text's end)
// before any reference.
void find_keyword(const char *cond, IfForm *f) {
    const char *p = cond;
    while (*p == ' ') p++;
    const char *word = p;
    while (*p && *p != ' ') p++;
    std::string_view kw(word, (size_t)(p - word));
    const char *ref = strstr(cond, "$(");
    if (ref && ref < p) return;
    f->neg = kw.starts_with('!');
    if (f->neg) kw.remove_prefix(1);
    if (kw == "cmp")
        f->kw = KW_CMP;
    else if (kw == "icmp")
        f->kw = KW_ICMP;
    f->rest_at = (int)(p - cond);
}

// The form of a kept <@if> or <@elif> line, made on its first run; null
// without memory (the line then runs as it always did).
IfForm *if_form(const char *line, int taglen, void **parsed) {
    if (*parsed) return static_cast<IfForm *>(*parsed);
    auto *f = static_cast<IfForm *>(calloc(1, sizeof(IfForm)));
    char *cond = static_cast<char *>(malloc(V_LINE_MAX));
    if (f && cond) {
        f->inline_at = inline_at(line, taglen);
        f->tag = f->inline_at < 0 ? LOOP_NONE : loop_tag(line + f->inline_at, true);
        size_t n = f->inline_at < 0 ? strlen(line) : (size_t)f->inline_at;
        n -= (size_t)taglen;
        memcpy(cond, line + taglen, n);
        cond[n] = 0;
        f->cond = V_text_form(cond);
        find_keyword(cond, f);
    }
    free(cond);
    if (f && !f->cond) {
        free(f);
        f = nullptr;
    }
    *parsed = f;
    return f;
}

// The two line buffers of one construct, one pair per nesting level and
// kept off the C stack, so that deep nesting costs little stack per level.
struct IfBuffers {
    char line[V_LINE_MAX];   // lines of the block; the condition line of an elif
    char cmd[V_LINE_MAX];    // the inline command of a one-line form
};

// depth is V_depth inside a block, 1 to V_MAX_DEPTH as V_enter_block keeps it
IfBuffers *if_buffers(int depth) {
    static IfBuffers *pool[V_MAX_DEPTH + 1];
    if (!pool[depth]) pool[depth] = (IfBuffers *)malloc(sizeof(IfBuffers));
    return pool[depth];
}

// Evaluates a condition line held in buff and runs its one-line form if it
// has one. Returns 1 when the lines that follow are the construct's block,
// with *cond its branch flag; 0 when the inline command has dealt with it.
int if_head(V_FILE *fp, char *buff, int taglen, int *compile, char *cmd, int *cond,
            const IfForm *form) {
    long at = form ? form->inline_at : inline_at(buff, taglen);
    char *inl = at < 0 ? nullptr : buff + at;
    cmd[0] = 0;
    Loop_tag tag = LOOP_NONE;
    if (inl) {
        // a loop tag is all the inline command needs; any other is copied
        if (form && form->tag)
            tag = form->tag;
        else
            V_copy_cut(cmd, inl, V_LINE_MAX);
        *inl = 0;
    }
    *cond = eval_condition(buff, taglen, *compile, form);
    if (!inl) return 1;

    if (!tag) {
        V_TRACE("V_if: try as line command: {%s} \n", cmd);
        tag = loop_tag(cmd, true);
    }
    if (tag) {
        take_loop_tag(tag, *cond);
        return 0;
    }
    return V_command(fp, cmd, compile, !*cond) == 0 ? 0 : 1;
}

// The form of the kept line behind note for if_head; null when there is
// none or while tracing, whose lines the forms would leave out.
const IfForm *kept_if(V_LINE_NOTE *note, const char *line, int taglen) {
    if (!note || Trace || !V_trace_ready) return nullptr;
    return if_form(line, taglen, &note->parsed);
}

// Runs the lines after the condition line up to the matching "<@end>". An
// elif that is due is evaluated here in place, so that a long elif chain
// does not nest.
int run_block(V_FILE *fp, IfBuffers *b, int compile, int cond) {
    int taken = cond;
    int branch = cond;
    V_LINE_NOTE *note;
    char *line;
    for (;;) {
        if (V_read_cut(fp, b->line, &note, &line) <= 0) return 0;
        if (Continue) branch = 0;
        if (V_text_note(note)) {
            if (branch) V_text_line(note, line, compile);
            continue;
        }
        if (starts(line, ELIF_TAG)) {
            if (Continue || taken) {
                V_notfound(fp, compile, 1);
                return 0;
            }
            command_trace(line, ELIF_TAG, compile, 0, IF_ENTRY);
            int taglen = (int)sizeof ELIF_TAG - 1;
            if (!if_head(fp, line, taglen, &compile, b->cmd, &cond, kept_if(note, line, taglen)))
                return 0;
            taken = branch = cond;
            continue;
        }
        // A line read afresh is cut once more by V_command, as this runner
        // always did: the second cut changes nothing but shows in the trace.
        if (note ? V_command_cut(fp, line, note, &compile, !branch) == 0
                 : V_command(fp, line, &compile, !branch) == 0)
            continue;
        if (starts(line, "<@end>")) return 0;
        if (Loop_tag tag = loop_tag(line)) {
            take_loop_tag(tag, branch, "V_if");
            if (tag == LOOP_BREAK) branch = 0;   // nothing more of the branch runs
            continue;
        }
        if (V_is_else(line)) {
            if (!Continue && !taken) {
                V_DEBUG("<@else> \n");
                V_notfound(fp, compile, 0);
            } else {
                V_notfound(fp, compile, 1);
            }
            return 0;
        }
        if (branch) V_text_line(note, line, compile);
    }
}

}   // namespace

/* ---- comparisons ---- */

int V_user_cmp(const char *left, const char *op, const char *right) {
    V_TRACE("V_user_cmp( %s, %s, %s )\n", left, op, right);
    if (!strcmp(op, "like")) return V_CMPpatt(right, left) != -1 ? 0 : -1;
    if (!strcmp(op, "vlike")) {
        const char *v = V_get_value(left);
        return v && V_CMPpatt(right, v) != -1 ? 0 : -1;
    }
    if (!strcmp(op, "!like")) return V_CMPpatt(right, left) == -1 ? 0 : -1;
    if (!strcmp(op, "!vlike")) {
        const char *v = V_get_value(left);
        return !v || V_CMPpatt(right, v) == -1 ? 0 : -1;
    }
    int d = strcmp(left, right);
    int r = relation(op, d > 0 ? 1 : d < 0 ? -1 : 0);
    if (r != 1) return r;
    ERRMSG("Unknown CMP operator: %s \n", op);
    return -1;
}

int V_user_icmp(int left, const char *op, int right) {
    V_TRACE("V_user_icmp( %d, %s, %d )\n", left, op, right);
    int r = relation(op, left > right ? 1 : left < right ? -1 : 0);
    if (r != 1) return r;
    ERRMSG("Unknown ICMP operator: %s \n", op);
    return -1;
}

int V_user_fcmp(double left, const char *op, double right) {
    V_TRACE("V_user_fcmp( %f, %s, %f )\n", left, op, right);
    // A NaN operand makes every relation false except "!=".
    int d = left > right ? 1 : left < right ? -1 : left == right ? 0 : 2;
    int r;
    if (d == 2)
        r = relation(op, 0) == 1 ? 1 : (!strcmp(op, "!=") ? 0 : -1);
    else
        r = relation(op, d);
    if (r != 1) return r;
    ERRMSG("Unknown FCMP operator: %s \n", op);
    return -1;
}

/* ---- value-form tests ---- */

int V_check_int(const char *text) {
    for (; *text; text++)
        if (!is_digit(*text)) return -1;
    return 0;
}

int V_check_float(const char *text) {
    int dots = 0;
    for (; *text; text++) {
        if (*text == '.' && ++dots == 1) continue;
        if (!is_digit(*text)) return -1;
    }
    return 0;
}

int V_get_int(const char *src, char *dst, int n) {
    int i = 0;
    for (; i < n; i++) {
        if (!is_digit(src[i])) {
            dst[i] = 0;
            return -1;
        }
        dst[i] = src[i];
    }
    dst[i] = 0;
    return 0;
}

int V_check_date(const char *text) {
    if (strnlen(text, 11) != 10) return -1;
    if (text[4] != '-' || text[7] != '-') return -1;
    char y[5], m[3], d[3];
    if (V_get_int(text, y, 4) || V_get_int(text + 5, m, 2) || V_get_int(text + 8, d, 2)) return -1;
    int month = atoi(m), day = atoi(d);
    if (month < 1 || month > 12) return -1;
    if (day < 1 || day > daylong[month - 1]) return -1;
    return 0;
}

/* ---- <@if> ---- */

int V_if(V_FILE *fp, char *buff, int compile, int ignore) {
    return V_if_kept(fp, buff, compile, ignore, nullptr);
}

int V_if_kept(V_FILE *fp, char *buff, int compile, int ignore, V_LINE_NOTE *note) {
    // The condition is substituted by if_head, once the inline command of
    // a one-line form is cut off.
    bool is_if = starts(buff, IF_TAG);
    std::string_view tag = is_if ? IF_TAG : ELIF_TAG;
    int go = command_entry(buff, tag, compile, ignore, nullptr, IF_ENTRY);
    if (go < 0) return go;
    int taglen = (int)tag.size();
    const IfForm *form = kept_if(note, buff, taglen);
    if (go == 0) {
        // A skipped construct still consumes its lines, so that nesting
        // stays balanced; a one-line form and an elif own no lines.
        if (is_if && (form ? form->inline_at : inline_at(buff, taglen)) < 0)
            V_notfound(fp, compile, 1);
        return 0;
    }
    if (V_enter_block() < 0) return 0;
    if (form && form->tag) {
        // a loop tag after the condition: no block, no command to copy
        buff[form->inline_at] = 0;
        take_loop_tag(form->tag, eval_condition(buff, taglen, compile, form));
        V_leave_block();
        return 0;
    }
    IfBuffers *b = if_buffers(V_depth);
    int cond = 0;
    if (!b)
        ERRMSG("### No memory...");
    else if (if_head(fp, buff, taglen, &compile, b->cmd, &cond, form))
        run_block(fp, b, compile, cond);
    V_leave_block();
    return 0;
}

const char *V_if_inline(const char *line) {
    int taglen = condition_tag(line);
    if (!taglen) return nullptr;
    long at = inline_at(line, taglen);
    return at < 0 ? nullptr : line + at;
}

bool V_is_else(const char *line) {
    return starts(line, ELSE_TAG);
}
