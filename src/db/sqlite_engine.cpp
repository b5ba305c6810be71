// The SQLite engine: one database file per session, statements compiled one
// at a time, query rows read step by step as text.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <sqlite3.h>

#include "db/engine.h"

namespace {

struct sqlite_stmt_t {
    sqlite3_stmt *stmt;
    int done;   // a finished statement must not be stepped again: it would restart
};

sqlite3 *db;
char err[512];

void set_error(const char *msg) {
    V_engine_error(err, sizeof err, msg);
}

void set_db_error() {
    set_error(db ? sqlite3_errmsg(db) : "not connected to a database");
}

// Compiles the one statement of sql; text after it other than blanks and
// comments is refused, so a page never runs more than it shows.
sqlite3_stmt *compile(const char *sql) {
    if (!db) {
        set_db_error();
        return nullptr;
    }
    sqlite3_stmt *stmt = nullptr;
    const char *tail = nullptr;
    if (sqlite3_prepare_v2(db, sql, -1, &stmt, &tail) != SQLITE_OK) {
        set_db_error();
        return nullptr;
    }
    if (!stmt) {
        set_error("empty statement");
        return nullptr;
    }
    sqlite3_stmt *more = nullptr;
    if (tail && *tail && (sqlite3_prepare_v2(db, tail, -1, &more, nullptr) != SQLITE_OK || more)) {
        sqlite3_finalize(more);
        sqlite3_finalize(stmt);
        set_error("only one statement can be run at a time");
        return nullptr;
    }
    return stmt;
}

int sq_connect(const char *target, const char *, const char *) {
    if (db) {
        sqlite3_close_v2(db);
        db = nullptr;
    }
    sqlite3 *handle = nullptr;
    // One thread uses the connection: no mutex around every column read.
    int rc = sqlite3_open_v2(target, &handle,
                             SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX,
                             nullptr);
    if (rc != SQLITE_OK) {
        char msg[600];
        snprintf(msg, sizeof msg, "%s: %s", handle ? sqlite3_errmsg(handle) : "out of memory",
                 target);
        set_error(msg);
        sqlite3_close_v2(handle);
        return -1;
    }
    db = handle;
    // other requests may hold the file for a moment
    sqlite3_busy_timeout(db, 5000);
    return 0;
}

void sq_disconnect() {
    if (!db) return;
    sqlite3_close_v2(db);
    db = nullptr;
}

int sq_exec(const char *sql) {
    sqlite3_stmt *stmt = compile(sql);
    if (!stmt) return -1;
    int rc;
    while ((rc = sqlite3_step(stmt)) == SQLITE_ROW) {}
    if (rc != SQLITE_DONE) {
        set_db_error();
        sqlite3_finalize(stmt);
        return -1;
    }
    sqlite3_finalize(stmt);
    return 0;
}

void *sq_prepare(const char *sql, int *ncols) {
    sqlite3_stmt *stmt = compile(sql);
    if (!stmt) return nullptr;
    sqlite_stmt_t *st = static_cast<sqlite_stmt_t *>(calloc(1, sizeof(sqlite_stmt_t)));
    if (!st) {
        sqlite3_finalize(stmt);
        set_error("out of memory");
        return nullptr;
    }
    st->stmt = stmt;
    *ncols = sqlite3_column_count(stmt);
    return st;
}

int sq_step(void *p) {
    sqlite_stmt_t *st = static_cast<sqlite_stmt_t *>(p);
    if (st->done) return 1;
    int rc = sqlite3_step(st->stmt);
    if (rc == SQLITE_ROW) return 0;
    st->done = 1;
    if (rc == SQLITE_DONE) return 1;
    set_db_error();
    return -1;
}

const char *sq_column_name(void *p, int i) {
    const char *name = sqlite3_column_name(static_cast<sqlite_stmt_t *>(p)->stmt, i);
    return name ? name : "";
}

const char *sq_column(void *p, int i, int *len) {
    sqlite3_stmt *stmt = static_cast<sqlite_stmt_t *>(p)->stmt;
    if (sqlite3_column_type(stmt, i) == SQLITE_NULL) {
        *len = -1;
        return nullptr;
    }
    const unsigned char *text = sqlite3_column_text(stmt, i);
    if (!text) {   // out of memory while converting
        *len = -1;
        return nullptr;
    }
    *len = sqlite3_column_bytes(stmt, i);
    return reinterpret_cast<const char *>(text);
}

void sq_finish(void *p) {
    sqlite_stmt_t *st = static_cast<sqlite_stmt_t *>(p);
    if (!st) return;
    sqlite3_finalize(st->stmt);
    free(st);
}

int sq_begin() {
    return sq_exec("BEGIN");
}
int sq_commit() {
    return sq_exec("COMMIT");
}
int sq_rollback() {
    return sq_exec("ROLLBACK");
}
int sq_in_transaction() {
    return db && !sqlite3_get_autocommit(db);
}
const char *sq_errmsg() {
    return err;
}

}   // namespace

const V_ENGINE V_sqlite_engine = {
    "sqlite",   0,         sq_connect,     sq_disconnect,     sq_exec,
    sq_prepare, sq_step,   sq_column_name, sq_column,         sq_finish,
    sq_begin,   sq_commit, sq_rollback,    sq_in_transaction, sq_errmsg,
};
