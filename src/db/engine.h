// The database engines beneath the session: one record of entry points per
// engine, so the session speaks to SQLite and PostgreSQL the same way.
#pragma once

// Every entry reports failure as -1 (or a null statement) and leaves the
// engine's message for errmsg(); values always cross as text.
struct V_ENGINE {
    const char *name;
    // 1: the session wraps each statement in a savepoint so that a failure
    // undoes only that statement; 0: the engine does so itself (SQLite's
    // statement journal, which unlike a savepoint rollback keeps open
    // queries running).
    int statement_savepoints;
    // target: a file path (SQLite) or a connection string, URI or database
    // name (PostgreSQL); user and password may be null.
    int (*connect)(const char *target, const char *user, const char *passwd);
    void (*disconnect)();
    int (*exec)(const char *sql);                    // one statement, rows discarded
    void *(*prepare)(const char *sql, int *ncols);   // a query ready to step
    int (*step)(void *st);                           // 0 row, 1 no more rows, -1 error
    const char *(*column_name)(void *st, int i);
    const char *(*column)(void *st, int i, int *len);   // null for NULL
    void (*finish)(void *st);
    int (*begin)();
    int (*commit)();
    int (*rollback)();
    int (*in_transaction)();
    const char *(*errmsg)();
};

extern const V_ENGINE V_sqlite_engine;
extern const V_ENGINE V_postgres_engine;

// Copies the first line of msg, bounded, into an engine's message buffer.
void V_engine_error(char *dst, int size, const char *msg);
