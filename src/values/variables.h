// The variable store: named chains of string values kept in the variable
// tree, each variable owning a private heap for its values.
#pragma once
#include "values/avl_tree.h"
#include "values/block_heap.h"

struct V_var {
    V_var *next;
    char *value;
};

struct V_USER {
    avl_t avl;   // key points at name
    char *name;
    V_var var;      // first value, inline
    short fixed;    // 0 ordinary, 1 write-protected, 2 foreign fixed-size buffer
    short cookie;   // cookie flag, or the buffer size when fixed == 2
    short clean;    // next append replaces instead of appending
    V_heap *hp;     // owns every value text and extra V_var
    V_USER *next;   // link used while a tree walk collects variables
};

V_USER *V_USER_new(V_heap *hp, const char *name, const char *value);
int V_put_value(const char *name, const char *value, int fixed, int cookie);
// V_put_value(u->name, value, 0, 0) for a record V_get_user found, while it
// is still in the tree (no node has entered or left a tree since).
int V_put_user(V_USER *u, const char *value);
int V_add_value(const char *name, const char *value);
char *V_get_value(const char *name);
// What a place that reads the same name again and again remembers of it:
// the record, good while no node has entered or left a tree. Zeroed at first.
struct V_MEMO {
    V_USER *user;
    unsigned long changes;
};
// V_get_value(name) through memo, which it keeps up to date. While tracing
// every look-up goes by name, as with V_get_value.
char *V_get_value_memo(const char *name, V_MEMO *memo);
// V_get_user(name) through memo, in the same way.
V_USER *V_get_user_memo(const char *name, V_MEMO *memo);
V_USER *V_get_user(const char *name);   // the record itself, or null
int V_clear_value(const char *name_patt);
int count_tree(avl_t *node, int *maxlen);
V_USER *scan_tree(avl_t *node, const char *name_patt);
