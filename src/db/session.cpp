// The database session: engine choice and connect, Oracle-style transactions
// over any engine, statements without rows, and the ten cursor slots. Every
// entry may wait on the engine (a server, a lock), so each first sends the
// page output held for the response.
#include "db/session.h"

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/directories.h"
#include "base/hot_data.h"
#include "db/engine.h"
#include "driver/diagnostics.h"
#include "values/block_heap.h"
#include "values/output.h"

V_CURSOR v_CUR[V_MAX_CURSORS];

namespace {

V_HOT const V_ENGINE *engine;   // the open session's engine, null without a session
// Whether any cursor was ever opened: the end of a request that opened none
// (most pages) leaves the cursor table, and its pages, untouched.
V_HOT bool cursors_used;
char errbuf[512];         // message of the last failure, kept across cleanup statements

constexpr int PATH_SIZE = 4096;

void set_error(const char *msg) {
    V_engine_error(errbuf, sizeof errbuf, msg);
}

void keep_engine_error() {
    if (engine) set_error(engine->errmsg());
}

bool has_prefix(const char *s, const char *prefix) {
    return strncmp(s, prefix, strlen(prefix)) == 0;
}

// Oracle runs the text up to its last ";": a trailing one is not part of
// the statement. Cutting at the last one wherever it stands is kept so.
void cut_semicolon(char *query) {
    char *semi = strrchr(query, ';');
    if (semi) *semi = 0;
}

bool is_blank(const char *s) {
    for (; *s; s++)
        if (!isspace(static_cast<unsigned char>(*s))) return false;
    return true;
}

// A relative SQLite file lies in the home directory, never in the site
// root (the working directory): there a visitor could fetch the file, or
// name it as a page and have text stored in it run.
int sqlite_target(const char *path, char *target) {
    if (path[0] == '/' || !path[0] || strcmp(path, ":memory:") == 0)
        return snprintf(target, PATH_SIZE, "%s", path);
    const char *home = V_HOME && *V_HOME ? V_HOME : ".";
    return snprintf(target, PATH_SIZE, "%s/%s", home, path);
}

// The database name chooses the engine and what it opens.
int pick_engine(const char *dbname, const V_ENGINE **eng, char *target) {
    static const char sqlite_prefix[] = "sqlite:";
    int n;
    if (has_prefix(dbname, sqlite_prefix)) {
        *eng = &V_sqlite_engine;
        n = sqlite_target(dbname + sizeof sqlite_prefix - 1, target);
    } else if (has_prefix(dbname, "postgres:")) {
        *eng = &V_postgres_engine;
        n = snprintf(target, PATH_SIZE, "%s", dbname + 9);
    } else {
        const char *kind = getenv("VORN_DB");
        bool dash = strcmp(dbname, "-") == 0;
        if (!kind || !*kind || strcmp(kind, "sqlite") == 0) {
            *eng = &V_sqlite_engine;
            const char *home = V_HOME && *V_HOME ? V_HOME : ".";
            n = dash ? snprintf(target, PATH_SIZE, "%s/vorn.db", home)
                     : snprintf(target, PATH_SIZE, "%s/%s.db", home, dbname);
        } else if (strcmp(kind, "postgres") == 0) {
            *eng = &V_postgres_engine;
            n = snprintf(target, PATH_SIZE, "%s", dash ? "" : dbname);
        } else {
            char msg[200];
            snprintf(msg, sizeof msg, "unknown database engine in VORN_DB: %.100s", kind);
            set_error(msg);
            return -1;
        }
    }
    if (n < 0 || n >= PATH_SIZE) {
        set_error("database name too long");
        return -1;
    }
    if (*eng == &V_sqlite_engine && !*target) {
        set_error("no database file named");
        return -1;
    }
    return 0;
}

// Work begins with the first statement and lasts until commit or rollback.
int begin_work() {
    if (engine->in_transaction()) return 0;
    if (engine->begin() < 0) {
        keep_engine_error();
        return -1;
    }
    return 0;
}

// A failed statement undoes only itself: each one runs inside a savepoint.
int guard_enter() {
    if (begin_work() < 0) return -1;
    if (!engine->statement_savepoints) return 0;
    if (engine->exec("SAVEPOINT vorn_stmt") < 0) {
        keep_engine_error();
        return -1;
    }
    return 0;
}

void guard_leave(int failed) {
    if (failed) keep_engine_error();
    if (!engine->statement_savepoints) return;
    if (failed) engine->exec("ROLLBACK TO SAVEPOINT vorn_stmt");
    engine->exec("RELEASE SAVEPOINT vorn_stmt");
}

enum { STMT_PLAIN, STMT_BEGIN, STMT_COMMIT, STMT_ROLLBACK, STMT_UNGUARDED };

bool word_in(const char *w, const char *const *list) {
    for (; *list; list++)
        if (strcmp(w, *list) == 0) return true;
    return false;
}

// Transaction words are the session's own business; savepoint statements
// must not be wrapped in the statement savepoint, which they would undo.
int statement_kind(const char *sql) {
    char w[3][25] = {};
    int n = 0;
    const char *p = sql;
    for (;;) {
        while (isspace(static_cast<unsigned char>(*p))) p++;
        if (!*p) break;
        if (n == 3) break;   // longer texts are ordinary or savepoint statements
        int len = 0;
        for (; *p && !isspace(static_cast<unsigned char>(*p)); p++)
            if (len < 24) w[n][len++] = static_cast<char>(tolower(static_cast<unsigned char>(*p)));
        n++;
    }
    static const char *const commit_words[] = {"commit", "end", nullptr};
    static const char *const rollback_words[] = {"rollback", "abort", nullptr};
    static const char *const tail_words[] = {"work", "transaction", nullptr};
    static const char *const begin_tail[] = {"work",      "transaction", "deferred",
                                             "immediate", "exclusive",   nullptr};
    if (*p) n = 4;   // a fourth word: no transaction word has one
    bool short_form = n == 1 || (n == 2 && word_in(w[1], tail_words));
    if (word_in(w[0], commit_words) && short_form) return STMT_COMMIT;
    if (word_in(w[0], rollback_words) && short_form) return STMT_ROLLBACK;
    if (strcmp(w[0], "begin") == 0 && (n == 1 || (n == 2 && word_in(w[1], begin_tail))))
        return STMT_BEGIN;
    if (strcmp(w[0], "start") == 0 && n == 2 && strcmp(w[1], "transaction") == 0) return STMT_BEGIN;
    if (strcmp(w[0], "savepoint") == 0 || strcmp(w[0], "release") == 0 ||
        strcmp(w[0], "rollback") == 0)
        return STMT_UNGUARDED;
    return STMT_PLAIN;
}

int run_statement(const char *sql) {
    if (!engine) {
        set_error("not connected to a database");
        return -1;
    }
    if (is_blank(sql)) {
        set_error("empty statement");
        return -1;
    }
    int rc = 0;
    switch (statement_kind(sql)) {
    case STMT_BEGIN: return begin_work();
    case STMT_COMMIT: rc = engine->in_transaction() ? engine->commit() : 0; break;
    case STMT_ROLLBACK: rc = engine->in_transaction() ? engine->rollback() : 0; break;
    case STMT_UNGUARDED:
        if (begin_work() < 0) return -1;
        rc = engine->exec(sql);
        break;
    default:
        if (guard_enter() < 0) return -1;
        rc = engine->exec(sql);
        guard_leave(rc < 0);
        return rc < 0 ? -1 : 0;
    }
    if (rc < 0) keep_engine_error();
    return rc < 0 ? -1 : 0;
}

void *open_query(const char *sql, int *ncols) {
    if (!engine) {
        set_error("not connected to a database");
        return nullptr;
    }
    if (guard_enter() < 0) return nullptr;
    void *st = engine->prepare(sql, ncols);
    guard_leave(st == nullptr);
    return st;
}

void release_slot(V_CURSOR *cur) {
    if (engine && cur->sp) engine->finish(cur->sp);
    V_heap_free(cur->hp);
    cur->sp = nullptr;
    cur->hp = nullptr;
    cur->cid[0] = 0;
    cur->ncols = 0;
}

// Column names are kept to 30 characters without trailing blanks.
char *keep_name(V_heap *hp, const char *name) {
    char cut[V_COLUMN_NAME_MAX + 1];
    snprintf(cut, sizeof cut, "%s", name);
    int len = static_cast<int>(strlen(cut));
    while (len > 0 && cut[len - 1] == ' ') cut[--len] = 0;
    char *copy = static_cast<char *>(V_heap_alloc(hp, len + 2));
    if (copy) memcpy(copy, cut, static_cast<size_t>(len) + 1);
    return copy;
}

int select_open(int slot, const char *cid, char *query) {
    V_CURSOR *cur = &v_CUR[slot];
    V_TRACE("PREPARE QUERY: %s", query ? query : "");
    if (cur->sp) {
        V_TRACE("### CURSOR ID: %d is already used...", slot);
        set_error("cursor is already in use");
        return -1;
    }
    if (!query) {
        set_error("empty statement");
        return -1;
    }
    V_heap *hp = V_heap_new();
    if (!hp) {
        V_TRACE("### NO MEMORY!!!");
        set_error("out of memory");
        return -1;
    }
    cut_semicolon(query);
    int ncols = 0;
    void *st = open_query(query, &ncols);
    if (!st) {
        V_heap_free(hp);
        return -1;
    }
    if (ncols > V_MAX_COLUMNS) {
        V_TRACE("### Too many select-list items (%d), maximum is %d\n", ncols, V_MAX_COLUMNS);
        char msg[100];
        snprintf(msg, sizeof msg, "too many select-list items (%d), maximum is %d", ncols,
                 V_MAX_COLUMNS);
        set_error(msg);
        engine->finish(st);
        V_heap_free(hp);
        return -1;
    }
    cur->sp = st;
    cursors_used = true;
    cur->hp = hp;
    cur->ncols = ncols;
    snprintf(cur->cid, sizeof cur->cid, "%s", cid);
    for (int i = 0; i < ncols; i++) {
        cur->names[i] = keep_name(hp, engine->column_name(st, i));
        if (!cur->names[i]) {
            V_TRACE("### No memory!!!");
            set_error("out of memory");
            release_slot(cur);
            return -1;
        }
    }
    return 0;
}

int select_fetch(int slot, V_heap *dalloc, int *numb, V_val *val) {
    V_CURSOR *cur = &v_CUR[slot];
    if (!cur->sp || !engine) {
        V_TRACE("### UNUSED CURSOR ID: %d", slot);
        set_error("cursor is not open");
        return -1;
    }
    int rc = engine->step(cur->sp);
    if (rc == 1) return 1;
    if (rc < 0) {
        keep_engine_error();
        return -1;
    }
    *numb = cur->ncols;
    for (int i = 0; i < cur->ncols; i++) {
        val[i].name = cur->names[i];
        int len = -1;
        const char *v = engine->column(cur->sp, i, &len);
        if (!v || len < 0) {
            val[i].len = -1;
            continue;
        }
        if (!dalloc) {
            val[i].value = const_cast<char *>(v);
            val[i].len = len;
            continue;
        }
        char *copy = static_cast<char *>(V_heap_alloc(dalloc, len + 1));
        if (!copy) {
            V_TRACE("### No memory VVAL: %s\n", cur->names[i]);
            set_error("out of memory");
            return -1;
        }
        memcpy(copy, v, static_cast<size_t>(len));
        copy[len] = 0;
        val[i].value = copy;
        val[i].len = len;
    }
    return 0;
}

}   // namespace

void V_engine_error(char *dst, int size, const char *msg) {
    if (!msg) msg = "";
    int len = static_cast<int>(strcspn(msg, "\r\n"));
    snprintf(dst, static_cast<size_t>(size), "%.*s", len, msg);
}

const char *V_db_errmsg() {
    return errbuf;
}

const V_ENGINE *V_db_engine() {
    return engine;
}

int V_database(const char *dbname, const char *user, const char *passwd) {
    if (!dbname) dbname = "-";
    char connect[200];
    if (user && passwd)
        snprintf(connect, sizeof connect, "%s/%s", user, passwd);
    else
        snprintf(connect, sizeof connect, "/");
    if (strcmp(dbname, "-") != 0) {
        size_t used = strlen(connect);
        snprintf(connect + used, sizeof connect - used, "@%s", dbname);
    }
    V_TRACE("V_database: CONNECT \"%s\"", connect);
    V_flush_output();
    if (engine) V_finish();

    const V_ENGINE *eng = nullptr;
    char *target = static_cast<char *>(malloc(PATH_SIZE));
    if (!target) {
        set_error("out of memory");
        return -1;
    }
    if (pick_engine(dbname, &eng, target) < 0 || eng->connect(target, user, passwd) < 0) {
        if (eng) set_error(eng->errmsg());
        V_TRACE("### %s", errbuf);
        free(target);
        return -1;
    }
    free(target);
    engine = eng;
    return 0;
}

void V_finish() {
    V_TRACE("V_finish: COMMIT WORK RELEASE");
    V_flush_output();
    if (cursors_used)
        for (V_CURSOR &cur : v_CUR)
            if (cur.sp) release_slot(&cur);
    if (!engine) return;
    if (engine->in_transaction() && engine->commit() < 0) {
        keep_engine_error();
        V_TRACE("### ERROR: commit at the end failed: %s", errbuf);
    }
    engine->disconnect();
    engine = nullptr;
}

int V_noselect_sql(char *query, int *, V_val *) {
    if (!query) return -1;
    V_TRACE("V_noselect_sql: QUERY: %s", query);
    V_flush_output();
    cut_semicolon(query);
    if (run_statement(query) < 0) {
        V_TRACE("### ERROR: %d", -1);
        return -1;
    }
    return 0;
}

int get_cursor(const char *cid) {
    for (int i = 0; i < V_MAX_CURSORS; i++)
        if (cid && strcmp(v_CUR[i].cid, cid) == 0) return i;
    for (int i = 0; i < V_MAX_CURSORS; i++)
        if (!v_CUR[i].sp) return i;
    V_TRACE("### No more empty cursors!!! ");
    set_error("no more empty cursors");
    return -1;
}

int V_select_sql(int cmd, const char *cid, char *query, V_heap *dalloc, int *numb, V_val *val) {
    V_TRACE("V_select_sql: cursor: %s cmd: %d ", cid ? cid : "", cmd);
    int slot = get_cursor(cid);
    if (slot < 0 || slot >= V_MAX_CURSORS) {
        V_TRACE("V_select_sql: ### Invalid Cursor ID: %d ", slot);
        return -1;
    }
    // The engine does a query's work on opening it and on its first row;
    // later rows come at once, so they leave the output to the interval
    // instead of costing a write call per row.
    static bool stepped[V_MAX_CURSORS];
    if (cmd != V_SQL_FETCH || !stepped[slot]) V_flush_output();
    stepped[slot] = cmd == V_SQL_FETCH;
    switch (cmd) {
    case V_SQL_OPEN: return select_open(slot, cid ? cid : "", query);
    case V_SQL_FETCH:
        if (!numb || !val) return -1;
        return select_fetch(slot, dalloc, numb, val);
    case V_SQL_CLOSE:
        if (!v_CUR[slot].sp) return -1;
        release_slot(&v_CUR[slot]);
        return 0;
    default: return -1;
    }
}
