// The ordered tree behind every name look-up: variables, functions and
// command words. Nodes are embedded first in their owners' records.
#pragma once
#include <cstdint>

struct avl_t {
    avl_t *left;
    avl_t *right;
    int8_t balance;   // height(right) - height(left)
    void *key;        // a NUL-terminated name in every tree of the program
    void *data;
};

typedef int (*avl_cmp_t)(const avl_t *a, const avl_t *b);

struct avl_tree_t {
    avl_t *root;
    avl_cmp_t cmp;
};

// strcmp of the two nodes' keys; the comparison of all three trees.
int V_avlcmp(const avl_t *a, const avl_t *b);

avl_t *avl_search(avl_tree_t *t, avl_t *probe);
int avl_insert(avl_tree_t *t, avl_t *a);
int avl_remove(avl_tree_t *t, avl_t *a);

// Counts every node AVL_insert or AVL_remove has put into or taken out of
// any tree, so that a look-up remembered at one count is still good while
// the count stays (the nodes then stay where they were, under their keys).
extern unsigned long V_tree_changes;

avl_t *AVL_search(avl_tree_t *t, const char *key);
int AVL_insert(avl_tree_t *t, avl_t *a);
int AVL_remove(avl_tree_t *t, const char *key);
