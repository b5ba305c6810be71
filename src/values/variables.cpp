// Placeholder bodies until this module is written.
#include "values/variables.h"

V_USER *V_USER_new(V_heap *hp, const char *name, const char *value) { return {}; }
int V_put_value(const char *name, const char *value, int fixed, int cookie) { return -1; }
int V_add_value(const char *name, const char *value) { return -1; }
char *V_get_value(const char *name) { return {}; }
V_USER *V_get_user(const char *name) { return {}; }
int V_clear_value(const char *name_patt) { return -1; }
int count_tree(avl_t *node, int *maxlen) { return -1; }
V_USER *scan_tree(avl_t *node, const char *name_patt) { return {}; }
