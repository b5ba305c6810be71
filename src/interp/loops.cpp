// The block runner V_notfound, the <@while> loop in its three forms, and the
// nesting guard that keeps recursion off the C stack's end. The loop-control
// flags they follow belong to interp/flow.
#include "interp/loops.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <pthread.h>

#include "driver/diagnostics.h"
#include "interp/dispatcher.h"
#include "interp/flow.h"
#include "interp/page_reader.h"
#include "values/arguments.h"
#include "values/command_entry.h"
#include "values/substitution.h"
#include "values/variables.h"

int V_depth;

namespace {

constexpr int KEYWORD_MAX = 20;   // form keyword of <@while>
constexpr int NAME_MAX = 100;     // loop variable name
constexpr int SEP_MAX = 100;      // separator characters of the words form

uintptr_t stack_low;   // lowest address of this thread's stack, 0 if unknown
bool stack_known;

void find_stack() {
    stack_known = true;
    pthread_attr_t attr;
    if (pthread_getattr_np(pthread_self(), &attr) != 0) return;
    void *addr = nullptr;
    size_t size = 0;
    if (pthread_attr_getstack(&attr, &addr, &size) == 0)
        stack_low = reinterpret_cast<uintptr_t>(addr);
    pthread_attr_destroy(&attr);
}

bool stack_short() {
    if (!stack_known) find_stack();
    if (!stack_low) return false;
    uintptr_t here = reinterpret_cast<uintptr_t>(__builtin_frame_address(0));
    return here < stack_low + static_cast<uintptr_t>(V_STACK_RESERVE);
}

// Skips a body once, as a loop does when it has nothing to run over.
void skip_body(V_FILE *fp) {
    V_notfound(fp, 0, 1);
}

#ifdef VORN_FUZZ
// A fuzzed page may loop for ever. In the fuzzing build all loops of a run
// share one budget of passes; once it is spent every loop ends after its
// current pass, so such a page is a finished run and not a hang.
constexpr long FUZZ_PASS_BUDGET = 2000;
long fuzz_passes;
#endif

// One pass over the body; returns true when the loop is to end.
bool run_pass(V_FILE *fp, int start, int compile) {
    fp->offset = start;
    V_notfound(fp, compile, 0);
    bool ends = pass_ends();
#ifdef VORN_FUZZ
    if (++fuzz_passes > FUZZ_PASS_BUDGET) ends = true;
#endif
    return ends;
}

// Copies a value chain into heap hp, so that passes stay valid whatever the
// body does to the variable's own storage.
V_var *copy_chain(V_heap *hp, const V_var *v) {
    V_var *head = nullptr;
    V_var **tail = &head;
    for (; v; v = v->next) {
        V_var *c = static_cast<V_var *>(V_heap_alloc(hp, sizeof(V_var)));
        if (!c) return head;
        if (v->value) {
            size_t n = strlen(v->value) + 1;
            c->value = static_cast<char *>(V_heap_alloc(hp, static_cast<int>(n)));
            if (c->value) memcpy(c->value, v->value, n);
        }
        *tail = c;
        tail = &c->next;
    }
    return head;
}

struct while_form {
    char keyword[KEYWORD_MAX];
    char name[NAME_MAX];
    char sep[SEP_MAX];
};

// Keyword, variable name and separator of a <@while> line; false when the
// line names no form (the plain loop).
[[gnu::noinline]] bool read_form(const char *text, while_form *form) {
    char word[V_LINE_MAX];
    const char *fields[3] = {form->keyword, form->name, form->sep};
    const int sizes[3] = {KEYWORD_MAX, NAME_MAX, SEP_MAX};
    bool any = false;
    for (int i = 0; i < 3; i++) {
        int n = V_arg_string(text, word);
        if (n > 0) text += n;
        V_copy_cut(const_cast<char *>(fields[i]), n > 0 ? word : "", sizes[i]);
        if (i == 0) any = n > 0;
    }
    return any;
}

// Line buffers of the block runners, one per nesting level, kept off the C
// stack so that deep nesting costs less stack per level.
char *line_buffer(int depth) {
    static char *pool[V_MAX_DEPTH + 1];
    if (!pool[depth]) pool[depth] = static_cast<char *>(malloc(V_LINE_MAX));
    return pool[depth];
}

// The variable a values or words loop runs over, with the loop flags reset;
// without a value to run over the body is skipped once and null returned.
V_USER *loop_variable(V_FILE *fp, const char *name) {
    loop_start();
    V_USER *u = V_get_user(name);
    if (!u) V_get_value(name);   // for its "not found" trace
    if (!u || !u->var.value) {
        skip_body(fp);
        return nullptr;
    }
    return u;
}

}   // namespace

int V_enter_block() {
    if (V_depth >= V_MAX_DEPTH)
        ERRMSG("Blocks and calls nested too deeply: more than %d levels\n", V_MAX_DEPTH);
    else if (stack_short())
        ERRMSG("Blocks and calls nested too deeply: out of stack after %d levels\n", V_depth);
    else {
        V_depth++;
        return 0;
    }
    // Only reached while an error page runs: make every runner unwind.
    unwind();
    return -1;
}

void V_leave_block() {
    V_depth--;   // every call follows a V_enter_block that succeeded
}

int V_notfound(V_FILE *fp, int compile, int ignore) {
    V_TRACE("V_notfound: compile: %d ignore: %d ## Continue: %d  Break: %d \n", compile, ignore,
            Continue, Break);
    if (!fp || V_enter_block() < 0) return 0;
    char *buff = line_buffer(V_depth);
    if (!buff) {
        V_leave_block();
        return 0;
    }
    V_LINE_NOTE *note;
    char *line;
    while (V_read_cut(fp, buff, &note, &line) > 0) {
        if (ContinueBreak || Continue) ignore = 1;
        if (V_text_note(note)) {
            if (!ignore) V_text_line(note, line, compile);
            continue;
        }
        if (V_command_cut(fp, line, note, &compile, ignore) == 0) continue;
        if (has_tag(line, "<@end>")) break;
        if (Loop_tag tag = loop_tag(line)) {
            take_loop_tag(tag, !ignore, "V_notfound");
            continue;
        }
        if (!ignore) V_text_line(note, line, compile);
    }
    V_leave_block();
    return 0;
}

int V_while(V_FILE *fp, char *buff, int compile, int ignore) {
    char buf[V_LINE_MAX];
    int go = command_entry(buff, "<@while>", compile, ignore, buf, {.form = ENTRY_BRACES_NARROW});
    if (go < 0) return go;
    if (go == 0) {
        skip_body(fp);
        return 0;
    }
    while_form form;
    if (!read_form(buf, &form)) {
        V_while_loop(fp, compile);
        return 0;
    }
    if (strcmp(form.keyword, "words") == 0) {
        V_while_words(fp, form.name, form.sep, compile);
        return 0;
    }
    if (strcmp(form.keyword, "values") == 0) {
        V_while_values(fp, form.name, compile);
        return 0;
    }
    ERRMSG("Unknown option: %s in WHILE...", form.keyword);
    skip_body(fp);   // only reached while an error page runs
    return 0;
}

int V_while_loop(V_FILE *fp, int compile) {
    V_TRACE("V_while_loop: compile: %d \n", compile);
    int start = fp->offset;
    loop_start();
    // A return left unwinding outside any call (ContinueBreak still set)
    // makes every pass skip its lines, the <@break> included: stop at once
    // instead of spinning for ever.
    while (!run_pass(fp, start, compile) && !ContinueBreak) {}
    loop_done();
    return 0;
}

int V_while_values(V_FILE *fp, const char *name, int compile) {
    V_TRACE("V_while_values: name: %s compile: %d \n", name, compile);
    int start = fp->offset;
    V_USER *u = loop_variable(fp, name);
    if (!u) return 0;
    V_var saved = u->var;
    V_heap *hp = V_heap_new();
    V_var *chain = hp ? copy_chain(hp, &saved) : nullptr;
    const char *shown = nullptr;
    V_var *tail = chain;
    while (tail && tail->next) tail = tail->next;
    for (V_var *v = chain; v;) {
        // The pass sees the copy as the variable's chain, so an <@add> in the
        // body links a node of the variable's own heap behind the copy, which
        // a later put or clear hands back: the copy is cut again before every
        // pass, and the passes follow only its own links.
        tail->next = nullptr;
        V_var *next = v->next;
        u->var.value = v->value;
        u->var.next = next;
        shown = v->value;
        if (run_pass(fp, start, compile)) break;
        v = next;
    }
    if (!chain) skip_body(fp);
    // Put the chain back unless the body gave the variable values of its own
    // (then the saved chain may be gone) or removed it.
    if (V_get_user(name) == u && u->var.value == shown) u->var = saved;
    V_heap_free(hp);
    loop_done();
    return 0;
}

int V_while_words(V_FILE *fp, const char *name, const char *sep, int compile) {
    V_TRACE("V_while_words: name: %s sep: {%s} compile: %d \n", name, sep, compile);
    int start = fp->offset;
    V_USER *u = loop_variable(fp, name);
    if (!u) return 0;
    // The text is split from a copy and each piece gets its own buffer, so the
    // body may change or clear the variable without pulling the text away.
    char *saved = u->var.value;
    int len = static_cast<int>(strlen(saved));
    int size = len + 1 > V_LINE_MAX ? len + 1 : V_LINE_MAX;
    V_heap *hp = V_heap_new();
    char *text = hp ? static_cast<char *>(V_heap_alloc(hp, len + 1)) : nullptr;
    char *piece = hp ? static_cast<char *>(V_heap_alloc(hp, size)) : nullptr;
    bool passes = false;
    if (text && piece) {
        memcpy(text, saved, static_cast<size_t>(len) + 1);
        for (const char *p = text;;) {
            int n = V_arg_string_sep(p, piece, sep);
            if (n < 1) break;
            p += n;
            passes = true;
            u->var.value = piece;
            if (run_pass(fp, start, compile)) break;
        }
    }
    if (!passes) skip_body(fp);
    if (passes && V_get_user(name) == u && u->var.value == piece) u->var.value = saved;
    V_heap_free(hp);
    loop_done();
    return 0;
}
