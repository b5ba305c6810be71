// Database sessions and statements: one session per process, statements
// without rows, and queries read through ten named cursors.
#pragma once

struct V_heap;
struct V_ENGINE;

struct V_val {
    char *name;
    char *value;
    int len;   // -1 for NULL
};

constexpr int V_MAX_CURSORS = 10;
constexpr int V_MAX_COLUMNS = 100;
constexpr int V_COLUMN_NAME_MAX = 30;   // longer column names are cut

enum { V_SQL_OPEN = 0, V_SQL_FETCH = 1, V_SQL_CLOSE = 2 };

// One cursor slot: free while sp is null.
struct V_CURSOR {
    void *sp;       // the engine's open query
    V_heap *hp;     // column names of the open query
    char cid[10];   // the cursor id that owns the slot
    char *names[V_MAX_COLUMNS];
    int ncols;
};

extern V_CURSOR v_CUR[V_MAX_CURSORS];

int V_database(const char *dbname, const char *user, const char *passwd);
void V_finish();
int V_noselect_sql(char *query, int *numb, V_val *val);
int get_cursor(const char *cid);
// Opens (query), fetches or closes the query of cursor cid. A fetch fills
// val with the row's columns and *numb with their number; returns 1 after
// the last row. With a heap dalloc the values are copied into it; with a
// null one they point into the engine's row, good until the next fetch or
// the close.
int V_select_sql(int cmd, const char *cid, char *query, V_heap *dalloc, int *numb, V_val *val);

// The message of the last failed database operation (one line, no prefix).
const char *V_db_errmsg();
// The engine of the open session, or null.
const V_ENGINE *V_db_engine();
