// The variable store: create, replace, append, read and clear script
// variables in the variable tree; every value lives in its variable's heap.
#include "values/variables.h"

#include <cstdio>
#include <cstring>

#include "base/hot_data.h"
#include "driver/diagnostics.h"
#include "patt/like.h"
#include "values/buffers.h"

namespace {

// Start-up sets these; a store used before it (tests, early start-up
// code) still gets a working tree and heap.
avl_tree_t *vtree() {
    avl_tree_t *t = &v_BUFFERS.vtree;
    if (!t->cmp) t->cmp = V_avlcmp;
    return t;
}

V_heap *global_heap() {
    if (!v_BUFFERS.hp) v_BUFFERS.hp = V_heap_new();
    return v_BUFFERS.hp;
}

// The last look-ups, by a hash of the name: a page reads the same few
// variables over and over, and a remembered record stays good while no
// tree has changed. While tracing every look-up goes to the tree, whose
// trace line shows it.
struct Lookup {
    unsigned long changes;
    V_USER *user;
};
constexpr int LOOKUPS = 64;   // a power of two
V_HOT Lookup lookups[LOOKUPS];

unsigned name_hash(const char *name) {
    unsigned h = 2166136261u;
    for (const unsigned char *p = (const unsigned char *)name; *p; p++) h = (h ^ *p) * 16777619u;
    return h;
}

V_USER *find(const char *name) {
    if (Trace || !V_trace_ready) return reinterpret_cast<V_USER *>(AVL_search(vtree(), name));
    Lookup &seen = lookups[name_hash(name) & (LOOKUPS - 1)];
    if (seen.user && seen.changes == V_tree_changes && strcmp(seen.user->name, name) == 0)
        return seen.user;
    V_USER *u = reinterpret_cast<V_USER *>(AVL_search(vtree(), name));
    if (u) seen = {V_tree_changes, u};
    return u;
}

char *copy_text(V_heap *hp, const char *text) {
    if (!text) return nullptr;
    size_t n = strlen(text);
    char *p = static_cast<char *>(V_heap_alloc(hp, static_cast<int>(n + 1)));
    if (p) memcpy(p, text, n + 1);
    return p;
}

const char *show(const char *s) {
    return s ? s : "";
}

// A fixed == 2 variable lives in a foreign buffer of `cookie` bytes. The
// shared-memory binding points avl.data at that buffer and gives var.value a
// private cookie+1 byte mirror, so that a stretch without a NUL still reads
// as a terminated string; a binding that points var.value straight at the
// buffer (avl.data left at the record) is served in place.
char *foreign_buffer(V_USER *u) {
    if (u->avl.data && u->avl.data != u) return static_cast<char *>(u->avl.data);
    return u->var.value;
}

void refresh_mirror(V_USER *u) {
    char *seg = foreign_buffer(u);
    if (!seg || seg == u->var.value || !u->var.value || u->cookie <= 0) return;
    memcpy(u->var.value, seg, static_cast<size_t>(u->cookie));
    u->var.value[u->cookie] = '\0';
}

void put_foreign(V_USER *u, const char *value) {
    char *seg = foreign_buffer(u);
    if (!seg || u->cookie <= 0) return;
    // cut at the buffer size, padded with NULs; no terminator when it is full
    strncpy(seg, show(value), static_cast<size_t>(u->cookie));
    refresh_mirror(u);
}

// A record whose heap was handed back by its owner gets a fresh one.
bool own_heap(V_USER *u) {
    if (!u->hp) u->hp = V_heap_new();
    return u->hp != nullptr;
}

void replace_value(V_USER *u, const char *value) {
    if (!own_heap(u)) return;
    if (value) {
        size_t n = strlen(value);
        char *p = static_cast<char *>(V_heap_renew(u->hp, static_cast<int>(n + 1)));
        if (p) memcpy(p, value, n + 1);
        u->var.value = p;
    } else {
        V_heap_reduce(u->hp);
        u->var.value = nullptr;
    }
    u->var.next = nullptr;
    u->clean = 0;
}

int create(const char *name, const char *value, int fixed, int cookie) {
    V_USER *u = V_USER_new(global_heap(), name, value);
    if (!u) return -1;
    if (fixed) u->fixed = static_cast<short>(fixed);
    if (cookie) u->cookie = static_cast<short>(cookie);
    AVL_insert(vtree(), &u->avl);
    return 0;
}

// The work of V_put_value once the record u of name (or null) is found.
int store(V_USER *u, const char *name, const char *value, int fixed, int cookie) {
    if (u && u->fixed == 2) {
        put_foreign(u, value);
        return 0;
    }
    if (u && u->fixed) {
        snprintf(V_ERRMSG, sizeof V_ERRMSG, "## Fixed Value: %s", name);
        return -1;
    }
    if (u) {
        if (cookie) u->cookie = static_cast<short>(cookie);
        if (fixed) u->fixed = static_cast<short>(fixed);
        replace_value(u, value);
    } else if (create(name, value, fixed, cookie) != 0) {
        return -1;
    }
    V_DEBUG("  ** %s := %s \n", name, show(value));
    return 0;
}

}   // namespace

V_USER *V_USER_new(V_heap *hp, const char *name, const char *value) {
    V_USER *u = static_cast<V_USER *>(V_heap_alloc(hp, sizeof(V_USER)));
    if (!u) return nullptr;
    u->name = copy_text(hp, name ? name : "");
    u->avl.key = u->name;
    u->avl.data = u;
    u->hp = V_heap_new();
    if (!u->name || !u->hp) return nullptr;
    u->var.value = copy_text(u->hp, value);
    return u;
}

int V_put_value(const char *name, const char *value, int fixed, int cookie) {
    V_TRACE("V_put_value: name: [%s] value: [%s] fixed: %d cookie: %d", show(name), show(value),
            fixed, cookie);
    if (!name) return -1;
    return store(find(name), name, value, fixed, cookie);
}

int V_put_user(V_USER *u, const char *value) {
    if (!u) return -1;
    V_TRACE("V_put_value: name: [%s] value: [%s] fixed: %d cookie: %d", u->name, show(value), 0, 0);
    return store(u, u->name, value, 0, 0);
}

int V_add_value(const char *name, const char *value) {
    if (!name) return -1;
    V_USER *u = find(name);
    if (!u || (!u->fixed && u->clean)) return V_put_value(name, value, 0, 0);
    if (u->fixed || !own_heap(u)) return -1;
    V_var *last = &u->var;
    while (last->next) last = last->next;
    if (last->value) {
        V_var *v = static_cast<V_var *>(V_heap_alloc(u->hp, sizeof(V_var)));
        if (!v) return -1;
        last->next = v;
        last = v;
    }
    last->value = copy_text(u->hp, show(value));
    V_DEBUG("  ** %s add:= %s \n", name, show(value));
    return 0;
}

char *V_get_value(const char *name) {
    V_USER *u = name ? find(name) : nullptr;
    if (u) {
        if (u->fixed == 2) refresh_mirror(u);   // another process may have written
        return u->var.value;
    }
    V_TRACE("V_get_value: not found {%s} \n", show(name));
    return nullptr;
}

V_USER *V_get_user_memo(const char *name, V_MEMO *memo) {
    bool quiet = !Trace && V_trace_ready;
    V_USER *u = memo->user;
    if (!u || memo->changes != V_tree_changes || !quiet) {
        u = find(name);
        *memo = {quiet ? u : nullptr, V_tree_changes};
    }
    if (u && u->fixed == 2) refresh_mirror(u);
    return u;
}

char *V_get_value_memo(const char *name, V_MEMO *memo) {
    if (V_USER *u = V_get_user_memo(name, memo)) return u->var.value;
    V_TRACE("V_get_value: not found {%s} \n", show(name));
    return nullptr;
}

V_USER *V_get_user(const char *name) {
    V_USER *u = name ? find(name) : nullptr;
    if (u && u->fixed == 2) refresh_mirror(u);
    return u;
}

int count_tree(avl_t *node, int *maxlen) {
    if (!node) return 0;
    int n = 1 + count_tree(node->right, maxlen) + count_tree(node->left, maxlen);
    int len = static_cast<int>(strlen(static_cast<const char *>(node->key)));
    if (maxlen && len > *maxlen) *maxlen = len;
    return n;
}

// Chain order: left subtree's matches, then the right subtree's, then the node.
V_USER *scan_tree(avl_t *node, const char *name_patt) {
    if (!node) return nullptr;
    V_USER *u = reinterpret_cast<V_USER *>(node);
    V_USER *chain = nullptr;
    if (!u->fixed && V_CMPpatt(name_patt, u->name) != -1) {
        u->next = nullptr;
        chain = u;
    }
    avl_t *sides[2] = {node->right, node->left};
    for (avl_t *side : sides) {
        V_USER *sub = scan_tree(side, name_patt);
        if (!sub) continue;
        V_USER *tail = sub;
        while (tail->next) tail = tail->next;
        tail->next = chain;
        chain = sub;
    }
    return chain;
}

int V_clear_value(const char *name_patt) {
    V_TRACE("V_clear_value: name_patt: [%s] ", show(name_patt));
    if (!name_patt) return -1;
    V_USER *chain = scan_tree(vtree()->root, name_patt);
    if (!chain) return -1;
    for (V_USER *u = chain; u; u = u->next) {
        if (AVL_remove(vtree(), u->name) != 0) continue;
        V_heap_free(u->hp);
        u->hp = nullptr;
        u->var.value = nullptr;
        u->var.next = nullptr;
    }
    return 0;
}
