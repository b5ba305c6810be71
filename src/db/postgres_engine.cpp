// The PostgreSQL engine: one libpq connection per session; a query's rows
// are read whole at open, so cursors outlive commits and nest freely. libpq
// itself is loaded at the first connect (db/libpq_loader), and every other
// entry needs a connection, so none calls into it before it is there.
#include <cstdlib>
#include <cstring>
#include <libpq-fe.h>

#include "db/engine.h"
#include "db/libpq_loader.h"
#include "driver/diagnostics.h"

namespace {

struct pg_stmt_t {
    PGresult *res;
    int row;   // the row the last step stood on, -1 before the first
    int nrows;
};

V_LIBPQ pq;
bool pq_loaded;
PGconn *conn;
char err[512];

void set_error(const char *msg) {
    V_engine_error(err, sizeof err, msg);
}

void set_conn_error() {
    set_error(conn ? pq.PQerrorMessage(conn) : "not connected to a database");
}

void set_result_error(const PGresult *res) {
    const char *msg = res ? pq.PQresultErrorMessage(res) : "";
    if (!msg || !*msg) {
        set_conn_error();
        return;
    }
    set_error(msg);
}

// Server notices would otherwise go to stderr, which is the web server's log.
void notice(void *, const char *message) {
    V_TRACE("postgres notice: %s", message);
}

// One statement through the extended protocol, which refuses a second one.
PGresult *run(const char *sql) {
    if (!conn) {
        set_conn_error();
        return nullptr;
    }
    PGresult *res = pq.PQexecParams(conn, sql, 0, nullptr, nullptr, nullptr, nullptr, 0);
    ExecStatusType status = res ? pq.PQresultStatus(res) : PGRES_FATAL_ERROR;
    if (status == PGRES_COMMAND_OK || status == PGRES_TUPLES_OK) return res;
    if (status == PGRES_EMPTY_QUERY)
        set_error("empty statement");
    else
        set_result_error(res);
    pq.PQclear(res);
    return nullptr;
}

// A missing library is the site's installation fault, not the page's: the
// reason also goes to the error log, where the page's error shows only that
// the database could not be opened.
int load_library() {
    if (pq_loaded) return 0;
    char why[sizeof err];
    if (V_libpq_load(V_LIBPQ_NAME, &pq, why, sizeof why) < 0) {
        set_error(why);
        V_log_error(err);
        return -1;
    }
    pq_loaded = true;
    return 0;
}

int pg_connect(const char *target, const char *user, const char *passwd) {
    if (load_library() < 0) return -1;
    if (conn) {
        pq.PQfinish(conn);
        conn = nullptr;
    }
    const char *keys[5];
    const char *values[5];
    int n = 0;
    // dbname first: a connection string or URI in it is expanded, and the
    // user and password given by the page then take precedence
    if (target && *target) {
        keys[n] = "dbname";
        values[n++] = target;
    }
    if (user && *user) {
        keys[n] = "user";
        values[n++] = user;
    }
    if (passwd && *passwd) {
        keys[n] = "password";
        values[n++] = passwd;
    }
    keys[n] = "fallback_application_name";
    values[n++] = "vorn";
    keys[n] = nullptr;
    values[n] = nullptr;
    PGconn *c = pq.PQconnectdbParams(keys, values, 1);
    if (!c) {
        set_error("out of memory");
        return -1;
    }
    if (pq.PQstatus(c) != CONNECTION_OK) {
        set_error(pq.PQerrorMessage(c));
        pq.PQfinish(c);
        return -1;
    }
    pq.PQsetNoticeProcessor(c, notice, nullptr);
    conn = c;
    return 0;
}

void pg_disconnect() {
    if (!conn) return;
    pq.PQfinish(conn);
    conn = nullptr;
}

int pg_exec(const char *sql) {
    PGresult *res = run(sql);
    if (!res) return -1;
    pq.PQclear(res);
    return 0;
}

void *pg_prepare(const char *sql, int *ncols) {
    PGresult *res = run(sql);
    if (!res) return nullptr;
    pg_stmt_t *st = static_cast<pg_stmt_t *>(calloc(1, sizeof(pg_stmt_t)));
    if (!st) {
        pq.PQclear(res);
        set_error("out of memory");
        return nullptr;
    }
    st->res = res;
    st->row = -1;
    st->nrows = pq.PQntuples(res);
    *ncols = pq.PQnfields(res);
    return st;
}

int pg_step(void *p) {
    pg_stmt_t *st = static_cast<pg_stmt_t *>(p);
    if (st->row + 1 >= st->nrows) {
        st->row = st->nrows;
        return 1;
    }
    st->row++;
    return 0;
}

const char *pg_column_name(void *p, int i) {
    const char *name = pq.PQfname(static_cast<pg_stmt_t *>(p)->res, i);
    return name ? name : "";
}

const char *pg_column(void *p, int i, int *len) {
    pg_stmt_t *st = static_cast<pg_stmt_t *>(p);
    if (st->row < 0 || st->row >= st->nrows || pq.PQgetisnull(st->res, st->row, i)) {
        *len = -1;
        return nullptr;
    }
    *len = pq.PQgetlength(st->res, st->row, i);
    return pq.PQgetvalue(st->res, st->row, i);
}

void pg_finish(void *p) {
    pg_stmt_t *st = static_cast<pg_stmt_t *>(p);
    if (!st) return;
    pq.PQclear(st->res);
    free(st);
}

int pg_begin() {
    return pg_exec("BEGIN");
}

// A transaction the server has marked failed would only roll back on COMMIT;
// say so instead of reporting success.
int pg_commit() {
    if (conn && pq.PQtransactionStatus(conn) == PQTRANS_INERROR) {
        pg_exec("ROLLBACK");
        set_error("the transaction had failed and was rolled back");
        return -1;
    }
    return pg_exec("COMMIT");
}

int pg_rollback() {
    return pg_exec("ROLLBACK");
}

int pg_in_transaction() {
    if (!conn) return 0;
    PGTransactionStatusType s = pq.PQtransactionStatus(conn);
    return s == PQTRANS_INTRANS || s == PQTRANS_INERROR || s == PQTRANS_ACTIVE;
}

const char *pg_errmsg() {
    return err;
}

}   // namespace

const V_ENGINE V_postgres_engine = {
    "postgres", 1,         pg_connect,     pg_disconnect,     pg_exec,
    pg_prepare, pg_step,   pg_column_name, pg_column,         pg_finish,
    pg_begin,   pg_commit, pg_rollback,    pg_in_transaction, pg_errmsg,
};
