// The PostgreSQL engine: one connection per session, held by the helper
// process vorn-pq (db/pq_process), which is started at the first connect.
// Every entry is one request and one reply (db/pq_wire); a query's reply
// carries its whole result, which is stepped here, so cursors outlive
// commits and nest freely. Every other entry needs a connection, so none
// talks to a helper that is not there.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <unistd.h>

#include "db/engine.h"
#include "db/pq_process.h"
#include "db/pq_wire.h"
#include "driver/diagnostics.h"

namespace {

// A query's reply, kept whole: names and cells point into the frame.
struct pg_stmt_t {
    V_PQ_FRAME frame;
    V_PQ_ROWS rows;
    int row;   // the row the last step stood on, -1 before the first
};

int helper = -1;   // the socket to vorn-pq
bool connected;
uint8_t transaction = V_PQ_UNKNOWN;   // as the last reply gave it
char err[512];

void set_error(const char *msg) {
    V_engine_error(err, sizeof err, msg);
}

// A helper that is gone or talks nonsense is the site's fault, not the
// page's: the reason goes to the error log too, and the connection with it.
void helper_failed(const char *why) {
    char line[sizeof err];
    snprintf(line, sizeof line, "PostgreSQL helper %s: %s", V_PQ_HELPER_NAME, why);
    set_error(line);
    V_log_error(err);
    close(helper);
    helper = -1;
    connected = false;
    transaction = V_PQ_UNKNOWN;
}

// Sends request and reads the head of the reply into *frame and *in.
// Returns 0 when the request was done, -1 when it failed (the message set,
// from the helper or about it; *in is usable only after the helper's own).
int call(const V_PQ_OUT &request, V_PQ_FRAME *frame, V_PQ_IN *in) {
    char why[256];
    int got = V_pq_send(helper, request, why, sizeof why) < 0
                  ? -1
                  : V_pq_receive(helper, V_PQ_FRAME_MAX, frame, why, sizeof why);
    if (got <= 0) {
        helper_failed(got == 0 ? "ended" : why);
        return -1;
    }
    *in = V_PQ_IN(frame->data.get(), frame->size);
    uint8_t state = in->u8();
    uint8_t failed = in->u8();
    int len;
    const char *message = in->str(&len);
    uint32_t count = in->u32();
    for (uint32_t i = 0; i < count && !in->bad; i++) {
        const char *notice = in->str(&len);
        // server notices would otherwise go to stderr, the web server's log
        if (notice) V_TRACE("postgres notice: %s", notice);
    }
    if (in->bad || !message || state > V_PQ_UNKNOWN || failed > 1) {
        helper_failed("malformed reply");
        return -1;
    }
    transaction = state;
    if (failed) {
        set_error(message);
        return -1;
    }
    return 0;
}

// A request that carries one statement. Returns as call() does; a missing
// connection fails without asking.
int statement(V_PQ_REQUEST kind, const char *sql, V_PQ_FRAME *frame, V_PQ_IN *in) {
    if (!connected) {
        set_error("not connected to a database");
        return -1;
    }
    V_PQ_OUT request;
    request.u8(kind);
    request.str(sql);
    if (!request.finish() || request.size() > V_PQ_REQUEST_MAX) {
        set_error("statement too long");
        return -1;
    }
    return call(request, frame, in);
}

// A missing helper or library is the site's installation fault, not the
// page's: the reason also goes to the error log, where the page's error
// shows only that the database could not be opened.
int start_helper() {
    if (helper >= 0) return 0;
    char path[4096];
    char why[sizeof err];
    if (V_pq_helper_path(path, sizeof path, why, sizeof why) < 0 ||
        (helper = V_pq_start(path, why, sizeof why)) < 0) {
        set_error(why);
        V_log_error(err);
        return -1;
    }
    return 0;
}

int pg_connect(const char *target, const char *user, const char *passwd) {
    if (start_helper() < 0) return -1;
    connected = false;
    V_PQ_OUT request;
    request.u8(V_PQ_CONNECT);
    request.str(target);
    request.str(user);
    request.str(passwd);
    if (!request.finish() || request.size() > V_PQ_REQUEST_MAX) {
        set_error("connection string too long");
        return -1;
    }
    V_PQ_FRAME frame;
    V_PQ_IN in(nullptr, 0);
    if (call(request, &frame, &in) < 0) return -1;
    connected = true;
    return 0;
}

void pg_disconnect() {
    if (!connected) return;
    V_PQ_OUT request;
    request.u8(V_PQ_DISCONNECT);
    request.finish();
    V_PQ_FRAME frame;
    V_PQ_IN in(nullptr, 0);
    call(request, &frame, &in);
    connected = false;
}

int pg_exec(const char *sql) {
    V_PQ_FRAME frame;
    V_PQ_IN in(nullptr, 0);
    return statement(V_PQ_EXEC, sql, &frame, &in);
}

void *pg_prepare(const char *sql, int *ncols) {
    pg_stmt_t *st = new (std::nothrow) pg_stmt_t();
    if (!st) {
        set_error("out of memory");
        return nullptr;
    }
    V_PQ_IN in(nullptr, 0);
    if (statement(V_PQ_QUERY, sql, &st->frame, &in) < 0) {
        delete st;
        return nullptr;
    }
    if (!V_pq_read_rows(&in, &st->rows)) {
        delete st;
        helper_failed("malformed rows, or no memory for them");
        return nullptr;
    }
    st->row = -1;
    *ncols = st->rows.ncols;
    return st;
}

int pg_step(void *p) {
    pg_stmt_t *st = static_cast<pg_stmt_t *>(p);
    if (st->row + 1 >= st->rows.nrows) {
        st->row = st->rows.nrows;
        return 1;
    }
    st->row++;
    return 0;
}

const char *pg_column_name(void *p, int i) {
    pg_stmt_t *st = static_cast<pg_stmt_t *>(p);
    return i >= 0 && i < st->rows.ncols ? st->rows.names[i] : "";
}

const char *pg_column(void *p, int i, int *len) {
    pg_stmt_t *st = static_cast<pg_stmt_t *>(p);
    const V_PQ_ROWS &rows = st->rows;
    if (st->row < 0 || st->row >= rows.nrows || i < 0 || i >= rows.ncols) {
        *len = -1;
        return nullptr;
    }
    const V_PQ_CELL &cell = rows.cells[(size_t)st->row * rows.ncols + i];
    *len = cell.text ? cell.len : -1;
    return cell.text;
}

void pg_finish(void *p) {
    delete static_cast<pg_stmt_t *>(p);
}

int pg_begin() {
    return pg_exec("BEGIN");
}

// A transaction the server has marked failed would only roll back on COMMIT;
// say so instead of reporting success.
int pg_commit() {
    if (connected && transaction == V_PQ_INERROR) {
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
    if (!connected) return 0;
    return transaction == V_PQ_INTRANS || transaction == V_PQ_INERROR ||
           transaction == V_PQ_ACTIVE;
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
