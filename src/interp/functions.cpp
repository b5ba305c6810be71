// User functions (definition, call with bound and shadowed arguments, return
// into the caller's receiver) and the built-ins strcut, chchar and strlen.
#include "interp/functions.h"

#include <cstdio>
#include <cstring>

#include "driver/diagnostics.h"
#include "interp/flow.h"
#include "interp/loops.h"
#include "interp/page_reader.h"
#include "values/arguments.h"
#include "values/buffers.h"
#include "values/command_entry.h"
#include "values/substitution.h"
#include "values/variables.h"

namespace {

constexpr int FUN_NAME_MAX = 60;   // function names
constexpr int EXEC_ARG = 100;      // each argument of a built-in

// Helpers with line-sized buffers are kept out of line: V_call and
// V_function sit on the recursion of nested calls, and their own frames
// should hold no more than the substituted line.

char *heap_copy(V_heap *hp, const char *s) {
    size_t n = strlen(s) + 1;
    char *c = static_cast<char *>(V_heap_alloc(hp, static_cast<int>(n)));
    if (c) memcpy(c, s, n);
    return c;
}

// The first word of the substituted text, cut at "(", as a function name.
[[gnu::noinline]] void function_name(const char *text, char *name) {
    char word[V_LINE_MAX];
    V_arg_string(text, word);
    char *paren = strchr(word, '(');
    if (paren) *paren = '\0';
    V_copy_cut(name, word, FUN_NAME_MAX);
}

avl_tree_t *ftree() {
    avl_tree_t *t = &v_BUFFERS.ftree;
    if (!t->cmp) t->cmp = V_avlcmp;
    return t;
}

V_FUN *find_function(const char *name) {
    return reinterpret_cast<V_FUN *>(AVL_search(ftree(), name));
}

V_FUN *new_function(const char *name) {
    if (!v_BUFFERS.hp) v_BUFFERS.hp = V_heap_new();
    V_heap *hp = v_BUFFERS.hp;
    V_FUN *f = static_cast<V_FUN *>(V_heap_alloc(hp, sizeof(V_FUN)));
    if (!f) return nullptr;
    f->name = heap_copy(hp, name);
    if (!f->name) return nullptr;
    f->avl.key = f->name;
    f->avl.data = f;
    AVL_insert(ftree(), &f->avl);
    f->next = v_BUFFERS.functions;
    v_BUFFERS.functions = f;
    return f;
}

// Appends the names between "(" and ")" of a definition, each piece trimmed
// to its first blank-separated word.
[[gnu::noinline]] void read_arg_names(V_FUN *f, const char *args) {
    V_var **tail = &f->var;
    char piece[V_LINE_MAX], word[V_LINE_MAX];
    for (const char *p = args;;) {
        int n = V_arg_string_sep(p, piece, ",)");
        if (n < 1) return;
        p += n;
        V_take_string(piece, word);
        V_var *v = static_cast<V_var *>(V_heap_alloc(v_BUFFERS.hp, sizeof(V_var)));
        if (!v) return;
        v->value = heap_copy(v_BUFFERS.hp, word);
        *tail = v;
        tail = &v->next;
        V_TRACE("V_function: add argname: %s \n", word);
    }
}

// Takes every existing variable named like an argument out of the tree and
// chains it through its `next` link; they come back after the call.
V_USER *shadow_arguments(const V_FUN *f) {
    V_USER *shadowed = nullptr;
    for (const V_var *a = f->var; a; a = a->next) {
        V_USER *u = V_get_user(a->value);
        if (!u) continue;
        AVL_remove(&v_BUFFERS.vtree, a->value);
        u->next = shadowed;
        shadowed = u;
    }
    return shadowed;
}

// Binds the values of "name(v1, v2, ...)" (text behind the "(", already cut
// at the last ")") to the argument names, as variables on heap hp. Returns
// the number of variables bound.
[[gnu::noinline]] int bind_arguments(const V_FUN *f, char *text, V_heap *hp) {
    char value[V_LINE_MAX], follow[V_LINE_MAX];
    const char *p = text;
    int bound = 0;
    for (const V_var *a = f->var; a; a = a->next) {
        V_TRACE("V_call: analyse arg_string: %s", p);
        int n = V_arg_string(p, value);
        if (n < 1) {
            V_TRACE("V_call: no more values...");
            return bound;
        }
        p += n;
        int m = V_arg_string(p, follow);
        if (m > 0 && strcmp(follow, ",") == 0) {
            p += m;
        } else if (m > 0) {
            char *comma = strrchr(value, ',');
            if (comma) *comma = '\0';
        }
        V_USER *u = V_USER_new(hp, a->value, value);
        if (!u) return bound;
        if (AVL_insert(&v_BUFFERS.vtree, &u->avl) == 0) bound++;
        V_TRACE("V_call: add argument name: %s value: {%s} \n", a->value, value);
    }
    return bound;
}

// After a call that shadowed variables: the argument variables go, the
// shadowed ones come back.
void unbind_arguments(const V_FUN *f, V_USER *shadowed, V_heap *hp) {
    for (const V_var *a = f->var; a; a = a->next) {
        V_USER *u = V_get_user(a->value);
        if (!u) continue;
        AVL_remove(&v_BUFFERS.vtree, a->value);
        V_heap_free(u->hp);
        u->hp = nullptr;
    }
    V_heap_free(hp);
    while (shadowed) {
        V_USER *next = shadowed->next;
        shadowed->next = nullptr;
        AVL_insert(&v_BUFFERS.vtree, &shadowed->avl);
        shadowed = next;
    }
}

// The heap of a call whose argument variables outlive it stays for the rest
// of the run; it is chained from the global heap so it is never lost.
struct kept_heap {
    V_heap *hp;
    kept_heap *next;
};
kept_heap *kept_heaps;

void keep_heap(V_heap *hp) {
    kept_heap *k = static_cast<kept_heap *>(V_heap_alloc(v_BUFFERS.hp, sizeof(kept_heap)));
    if (!k) return;
    k->hp = hp;
    k->next = kept_heaps;
    kept_heaps = k;
}

// Two argument words of a built-in, each cut to EXEC_ARG bytes.
void two_args(const char *args, char *a, char *b) {
    char word[V_LINE_MAX];
    int n = V_arg_string(args, word);
    V_copy_cut(a, word, EXEC_ARG);
    word[0] = '\0';
    if (n > 0) V_arg_string(args + n, word);
    V_copy_cut(b, word, EXEC_ARG);
}

int strcut(const char *fname, const char *args) {
    V_TRACE("cutstr: fname= %s args= %s \n", fname, args);
    char name[EXEC_ARG], str[EXEC_ARG];
    two_args(args, name, str);
    V_TRACE("cutstr: name= [%s] str= [%s] \n", name, str);
    V_USER *u = V_get_user(name);
    if (!u || !u->var.value) return 0;
    char *at = strstr(u->var.value, str);
    if (at) *at = '\0';
    return 0;
}

int chchar(const char *fname, const char *args) {
    V_TRACE("chchar: fname= %s args= %s \n", fname, args);
    char name[EXEC_ARG], xyz[EXEC_ARG];
    two_args(args, name, xyz);
    V_TRACE("cutstr: name= [%s] str= [%s] \n", name, xyz);
    if (strlen(xyz) != 3) return -1;
    V_USER *u = V_get_user(name);
    if (!u || !u->var.value) return 0;
    for (char *c = u->var.value; *c; c++)
        if (*c == xyz[0]) *c = xyz[2];
    return 0;
}

int StrLen(const char *fname, const char *args) {
    V_TRACE("strlen: fname= %s args= %s \n", fname, args);
    char name[EXEC_ARG], lenname[EXEC_ARG];
    two_args(args, name, lenname);
    V_TRACE("strlen: STRname= [%s] LENname= [%s] \n", name, lenname);
    V_USER *u = V_get_user(name);
    if (!u) return 0;
    char num[16];
    snprintf(num, sizeof num, "%d", u->var.value ? static_cast<int>(strlen(u->var.value)) : 0);
    V_put_value(lenname, num, 0, 0);
    return 0;
}

struct exec_entry {
    const char *name;
    int (*fn)(const char *fname, const char *args);
};

const exec_entry V_EXEC[] = {
    {"strcut", strcut},
    {"chchar", chchar},
    {"strlen", StrLen},
    {nullptr, nullptr},
};

// Splits "<@exec>" text into the built-in's name and its argument text.
[[gnu::noinline]] void exec_line(const char *buf) {
    char name[V_LINE_MAX];
    int n = V_arg_string(buf, name);
    V_exec_call(name, buf + (n > 0 ? n : 0));
}

// The function commands trace with one blank before "ignore".
constexpr Entry FUNCTION_ENTRY = {.form = ENTRY_BRACES_NARROW};

}   // namespace

int V_function(V_FILE *fp, char *buff, int compile, int ignore) {
    char buf[V_LINE_MAX];
    int go = command_entry(buff, "<@function>", compile, ignore, buf, FUNCTION_ENTRY);
    if (go < 0) return go;
    if (go == 0) {
        V_notfound(fp, 0, 1);
        return 0;
    }
    char name[FUN_NAME_MAX];
    function_name(buf, name);
    V_FUN *f = find_function(name);
    if (!f) f = new_function(name);
    if (f) {
        f->file = fp;
        f->offset = fp->offset;
        f->var = nullptr;
        const char *paren = strchr(buf, '(');
        if (paren) read_arg_names(f, paren + 1);
    }
    V_notfound(fp, 0, 1);
    return 0;
}

int V_call(char *buff, int compile, int ignore, char *receiver) {
    char buf[V_LINE_MAX];
    int go = command_entry(buff, "<@call>", compile, ignore, buf, FUNCTION_ENTRY);
    if (go <= 0) return go;
    // a call in the arguments installs and puts back its own receiver
    char *saved_return = call_receiver(receiver);
    char name[FUN_NAME_MAX];
    function_name(buf, name);
    V_FUN *f = find_function(name);
    if (!f || !f->file) {
        ERRMSG("CALL: Unknown function name: %s \n", name);
        call_receiver(saved_return);
        return 0;
    }
    int saved_offset = f->file->offset;
    f->file->offset = static_cast<int>(f->offset);
    V_USER *shadowed = shadow_arguments(f);
    // The call's heap holds the argument variables; a call that binds none
    // gives it back at once, so calls in long loops do not pile heaps up.
    V_heap *hp = nullptr;
    char *paren = strchr(buf, '(');
    if (paren && f->var) {
        hp = V_heap_new();
        char *close = strrchr(paren, ')');
        if (close) *close = '\0';
        if (hp && bind_arguments(f, paren + 1, hp) == 0 && !shadowed) {
            V_heap_free(hp);
            hp = nullptr;
        }
    }
    V_notfound(f->file, compile, 0);
    if (shadowed)
        unbind_arguments(f, shadowed, hp);
    else if (hp)
        keep_heap(hp);
    call_receiver(saved_return);
    f->file->offset = saved_offset;
    call_returned();
    return 0;
}

int V_return(char *buff, int compile, int ignore) {
    char buf[V_LINE_MAX];
    int go = command_entry(buff, "<@return>", compile, ignore, buf, FUNCTION_ENTRY);
    if (go <= 0) return go;
    V_TRACE("V_return: {%s}", buf);
    return_text(buf);
    return 0;
}

int V_exec(char *buff, int compile, int ignore) {
    char buf[V_LINE_MAX];
    int go = command_entry(buff, "<@exec>", compile, ignore, buf, FUNCTION_ENTRY);
    if (go <= 0) return go;
    exec_line(buf);
    return 0;
}

int V_exec_call(const char *name, const char *args) {
    V_TRACE("V_exec_call: name= %s args= %s \n", name, args);
    for (const exec_entry *e = V_EXEC; e->name; e++) {
        if (strcmp(e->name, name) != 0) continue;
        e->fn(name, args);
        return 0;
    }
    ERRMSG("EXEC: Unknown function name: %s \n", name);
    return -1;
}
