// The height-balanced tree behind the variable, function and command-word
// look-ups: recursive workers plus the traced entry points that keep keys unique.
#include "values/avl_tree.h"

#include <cstring>

#include "base/hot_data.h"
#include "driver/diagnostics.h"

namespace {

avl_t *rotate_left(avl_t *r) {
    avl_t *p = r->right;
    r->right = p->left;
    p->left = r;
    return p;
}

avl_t *rotate_right(avl_t *r) {
    avl_t *p = r->left;
    r->left = p->right;
    p->right = r;
    return p;
}

// Balances of the two children after a double rotation, from the balance of
// the grandchild that became the new root.
void double_balance(avl_t *lchild, avl_t *rchild, avl_t *g) {
    lchild->balance = g->balance > 0 ? -1 : 0;
    rchild->balance = g->balance < 0 ? 1 : 0;
    g->balance = 0;
}

// r leans right by two: bring its right child (or grandchild) up.
avl_t *fix_right_heavy(avl_t *r) {
    avl_t *p = r->right;
    if (p->balance > 0) {
        avl_t *n = rotate_left(r);
        r->balance = 0;
        p->balance = 0;
        return n;
    }
    avl_t *g = p->left;
    r->right = rotate_right(p);
    avl_t *n = rotate_left(r);
    double_balance(r, p, g);
    return n;
}

avl_t *fix_left_heavy(avl_t *r) {
    avl_t *p = r->left;
    if (p->balance < 0) {
        avl_t *n = rotate_right(r);
        r->balance = 0;
        p->balance = 0;
        return n;
    }
    avl_t *g = p->right;
    r->left = rotate_left(p);
    avl_t *n = rotate_right(r);
    double_balance(p, r, g);
    return n;
}

// After the right (right_side) or left subtree of *root shrank; returns -1
// when the whole subtree shrank.
int shrunk(avl_t **root, bool right_side) {
    avl_t *r = *root;
    int delta = right_side ? -1 : 1;
    if (r->balance == -delta) {
        r->balance = 0;
        return -1;
    }
    if (r->balance == 0) {
        r->balance = static_cast<int8_t>(delta);
        return 0;
    }
    avl_t *heavy = right_side ? r->left : r->right;
    if (heavy->balance == 0) {
        // single rotation towards the removed side; height unchanged
        *root = right_side ? rotate_right(r) : rotate_left(r);
        heavy->balance = static_cast<int8_t>(-delta);
        r->balance = static_cast<int8_t>(delta);
        return 0;
    }
    *root = right_side ? fix_left_heavy(r) : fix_right_heavy(r);
    return -1;
}

int insert_side(avl_tree_t *t, avl_t *a, bool right_side) {
    avl_t *r = t->root;
    avl_t **slot = right_side ? &r->right : &r->left;
    int delta = right_side ? 1 : -1;
    if (!*slot) {
        *slot = a;
        r->balance = static_cast<int8_t>(r->balance + delta);
        return r->balance != 0 ? 1 : 0;
    }
    avl_tree_t sub = {*slot, t->cmp};
    int grew = avl_insert(&sub, a);
    *slot = sub.root;
    if (!grew) return 0;
    if (r->balance == -delta) {
        r->balance = 0;
        return 0;
    }
    if (r->balance == 0) {
        r->balance = static_cast<int8_t>(delta);
        return 1;
    }
    t->root = right_side ? fix_right_heavy(r) : fix_left_heavy(r);
    return 0;
}

// a has both children: the replacement comes from the taller side (the
// right one when balanced), so taking it out never rotates at a.
int remove_inner(avl_tree_t *t, avl_t *a) {
    avl_t *rep;
    if (a->balance < 0) {
        for (rep = a->left; rep->right; rep = rep->right) {}
    } else {
        for (rep = a->right; rep->left; rep = rep->left) {}
    }
    avl_tree_t sub = {a, t->cmp};
    int s = avl_remove(&sub, rep);
    rep->left = a->left;
    rep->right = a->right;
    rep->balance = a->balance;
    t->root = rep;
    return (s && rep->balance == 0) ? -1 : 0;
}

}   // namespace

V_HOT unsigned long V_tree_changes;

int V_avlcmp(const avl_t *a, const avl_t *b) {
    return strcmp(static_cast<const char *>(a->key), static_cast<const char *>(b->key));
}

// Iterative: the look-up runs on every variable read, and the walk is the
// same one the recursion would take.
avl_t *avl_search(avl_tree_t *t, avl_t *probe) {
    avl_t *n = t->root;
    while (n) {
        int c = t->cmp(n, probe);
        if (c == 0) return n;
        n = c < 0 ? n->right : n->left;
    }
    return nullptr;
}

int avl_insert(avl_tree_t *t, avl_t *a) {
    if (!t->root) {
        t->root = a;
        return 1;
    }
    return insert_side(t, a, t->cmp(t->root, a) <= 0);
}

int avl_remove(avl_tree_t *t, avl_t *a) {
    avl_t *r = t->root;
    if (!r) return 0;
    if (r == a) {
        if (!r->left) {
            t->root = r->right;
            return -1;
        }
        if (!r->right) {
            t->root = r->left;
            return -1;
        }
        return remove_inner(t, a);
    }
    // An equal key may sit on either side, so look left first, then right.
    int c = t->cmp(r, a);
    if (c >= 0 && r->left) {
        avl_tree_t sub = {r->left, t->cmp};
        int s = avl_remove(&sub, a);
        r->left = sub.root;
        if (s) return shrunk(&t->root, false);
    }
    if (c > 0 || !r->right) return 0;
    avl_tree_t sub = {r->right, t->cmp};
    int s = avl_remove(&sub, a);
    r->right = sub.root;
    return s ? shrunk(&t->root, true) : 0;
}

avl_t *AVL_search(avl_tree_t *t, const char *key) {
    V_TRACE("AVL_search key: [%s] ", key);
    avl_t probe = {};
    probe.key = const_cast<char *>(key);
    return avl_search(t, &probe);
}

int AVL_insert(avl_tree_t *t, avl_t *a) {
    const char *key = static_cast<const char *>(a->key);
    V_TRACE("AVL_insert key: [%s] ", key);
    V_TRACE("AVL_search key: [%s] ", key);
    if (avl_search(t, a)) return -1;
    a->left = nullptr;
    a->right = nullptr;
    a->balance = 0;
    avl_insert(t, a);
    V_tree_changes++;
    return 0;
}

int AVL_remove(avl_tree_t *t, const char *key) {
    V_TRACE("AVL_remove key: [%s] ", key);
    avl_t *found = AVL_search(t, key);
    if (!found) return -1;
    avl_remove(t, found);
    V_tree_changes++;
    return 0;
}
