// Placeholder bodies until this module is written.
#include "values/avl_tree.h"

int V_avlcmp(const avl_t *a, const avl_t *b) { return -1; }
avl_t *avl_search(avl_tree_t *t, avl_t *probe) { return {}; }
int avl_insert(avl_tree_t *t, avl_t *a) { return -1; }
int avl_remove(avl_tree_t *t, avl_t *a) { return -1; }
avl_t *AVL_search(avl_tree_t *t, const char *key) { return {}; }
int AVL_insert(avl_tree_t *t, avl_t *a) { return -1; }
int AVL_remove(avl_tree_t *t, const char *key) { return -1; }
