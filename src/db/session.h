// Database sessions and statements: one session per process, statements
// without rows, and queries read through ten named cursors.
#pragma once

struct V_heap;

struct V_val {
    char *name;
    char *value;
    int len;         // -1 for NULL
};

constexpr int V_MAX_CURSORS = 10;
constexpr int V_MAX_COLUMNS = 100;

enum { V_SQL_OPEN = 0, V_SQL_FETCH = 1, V_SQL_CLOSE = 2 };

int V_database(const char *dbname, const char *user, const char *passwd);
void V_finish();
int V_noselect_sql(char *query, int *numb, V_val *val);
int get_cursor(const char *cid);
int V_select_sql(int cmd, const char *cid, char *query, V_heap *dalloc,
                 int *numb, V_val *val);
