// Placeholder bodies until this module is written.
#include "db/session.h"

int V_database(const char *dbname, const char *user, const char *passwd) { return -1; }
void V_finish() {}
int V_noselect_sql(char *query, int *numb, V_val *val) { return -1; }
int get_cursor(const char *cid) { return -1; }
int V_select_sql(int cmd, const char *cid, char *query, V_heap *dalloc, int *numb, V_val *val) { return -1; }
