// vorn-pq: holds the PostgreSQL connection for one interpreter process,
// which is linked fully static and so cannot load libpq itself. It answers
// the requests of db/pq_wire on descriptor 3 one at a time until end of
// file, then closes the connection and ends. Its standard output is never
// written; its standard error is the interpreter's error log.
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <libpq-fe.h>
#include <string>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

#include "db/pq_wire.h"

namespace {

// Notices kept for the next reply; past these they are counted only.
constexpr size_t NOTICES_MAX = 64;
constexpr size_t NOTICE_LEN = 2048;

PGconn *conn;
std::vector<std::string> notices;
size_t notices_dropped;

// Server notices travel back with the reply; the interpreter traces them.
void notice(void *, const char *message) {
    if (notices.size() < NOTICES_MAX)
        notices.emplace_back(message, strnlen(message, NOTICE_LEN));
    else
        notices_dropped++;
}

uint8_t transaction_state() {
    if (!conn) return V_PQ_UNKNOWN;
    switch (PQtransactionStatus(conn)) {
    case PQTRANS_IDLE: return V_PQ_IDLE;
    case PQTRANS_ACTIVE: return V_PQ_ACTIVE;
    case PQTRANS_INTRANS: return V_PQ_INTRANS;
    case PQTRANS_INERROR: return V_PQ_INERROR;
    default: return V_PQ_UNKNOWN;
    }
}

// The head every reply starts with; message is null when the request is done.
void reply_head(V_PQ_OUT *out, const char *message) {
    out->u8(transaction_state());
    out->u8(message ? 1 : 0);
    out->str(message ? message : "");
    if (notices_dropped) {
        notices.back() = std::to_string(notices_dropped + 1) + " notices not shown";
        notices_dropped = 0;
    }
    out->u32((uint32_t)notices.size());
    for (const auto &n : notices) out->str(n.c_str(), (long)n.size());
    notices.clear();
}

const char *conn_error() {
    return conn ? PQerrorMessage(conn) : "not connected to a database";
}

const char *result_error(const PGresult *res) {
    const char *msg = res ? PQresultErrorMessage(res) : "";
    return msg && *msg ? msg : conn_error();
}

// One statement through the extended protocol, which refuses a second one.
// Returns the result, or null with the reason in *why.
PGresult *run(const char *sql, std::string *why) {
    if (!conn) {
        *why = conn_error();
        return nullptr;
    }
    PGresult *res = PQexecParams(conn, sql, 0, nullptr, nullptr, nullptr, nullptr, 0);
    ExecStatusType status = res ? PQresultStatus(res) : PGRES_FATAL_ERROR;
    if (status == PGRES_COMMAND_OK || status == PGRES_TUPLES_OK) return res;
    *why = status == PGRES_EMPTY_QUERY ? "empty statement" : result_error(res);
    PQclear(res);
    return nullptr;
}

void do_connect(V_PQ_IN *in, V_PQ_OUT *out) {
    int len;
    const char *target = in->str(&len);
    const char *user = in->str(&len);
    const char *passwd = in->str(&len);
    if (conn) {
        PQfinish(conn);
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
    PGconn *c = PQconnectdbParams(keys, values, 1);
    if (!c) return reply_head(out, "out of memory");
    if (PQstatus(c) != CONNECTION_OK) {
        std::string why = PQerrorMessage(c);
        PQfinish(c);
        return reply_head(out, why.c_str());
    }
    PQsetNoticeProcessor(c, notice, nullptr);
    conn = c;
    reply_head(out, nullptr);
}

void do_query(const char *sql, bool rows, V_PQ_OUT *out) {
    std::string why;
    PGresult *res = run(sql, &why);
    if (!res) return reply_head(out, why.c_str());
    reply_head(out, nullptr);
    if (rows) {
        int ncols = PQnfields(res), nrows = PQntuples(res);
        out->u32((uint32_t)ncols);
        for (int i = 0; i < ncols; i++) out->str(PQfname(res, i));
        out->u32((uint32_t)nrows);
        for (int r = 0; r < nrows; r++) {
            for (int i = 0; i < ncols; i++) {
                if (PQgetisnull(res, r, i))
                    out->str(nullptr);
                else
                    out->str(PQgetvalue(res, r, i), PQgetlength(res, r, i));
            }
        }
    }
    PQclear(res);
}

// Answers one request into out. False when the request is not one of ours.
bool answer(const V_PQ_FRAME &frame, V_PQ_OUT *out) {
    V_PQ_IN in(frame.data.get(), frame.size);
    uint8_t kind = in.u8();
    int len;
    switch (kind) {
    case V_PQ_CONNECT:
        do_connect(&in, out);
        break;
    case V_PQ_DISCONNECT:
        if (conn) PQfinish(conn);
        conn = nullptr;
        reply_head(out, nullptr);
        break;
    case V_PQ_EXEC:
    case V_PQ_QUERY: {
        const char *sql = in.str(&len);
        if (in.bad || !sql) return false;
        do_query(sql, kind == V_PQ_QUERY, out);
        break;
    }
    default: return false;
    }
    return !in.bad;
}

void log_line(const char *what, const char *why) {
    fprintf(stderr, "vorn-pq: %s: %s\n", what, why);
}

}   // namespace

int main() {
    // run by hand, or reached as a CGI program, it has no such socket
    int type = 0, domain = 0;
    socklen_t tlen = sizeof type, dlen = sizeof domain;
    if (getsockopt(V_PQ_SOCKET_FD, SOL_SOCKET, SO_TYPE, &type, &tlen) || type != SOCK_STREAM ||
        getsockopt(V_PQ_SOCKET_FD, SOL_SOCKET, SO_DOMAIN, &domain, &dlen) || domain != AF_UNIX) {
        fprintf(stderr, "vorn-pq is started by vorn for its PostgreSQL connections\n");
        return 2;
    }
    // libpq is loaded: from here on standard error is the error log
    if (dup2(V_PQ_LOG_FD, 2) < 0) return 2;
    close(V_PQ_LOG_FD);
    signal(SIGPIPE, SIG_IGN);

    char err[256];
    V_PQ_OUT hello;
    hello.str(V_PQ_HELLO);
    if (!hello.finish() || V_pq_send(V_PQ_SOCKET_FD, hello, err, sizeof err) < 0) return 1;
    int status = 0;
    for (;;) {
        V_PQ_FRAME request;
        int got = V_pq_receive(V_PQ_SOCKET_FD, V_PQ_REQUEST_MAX, &request, err, sizeof err);
        if (got == 0) break;
        if (got < 0) {
            log_line("request", err);
            status = 1;
            break;
        }
        V_PQ_OUT reply;
        if (!answer(request, &reply)) {
            log_line("request", "malformed");
            status = 1;
            break;
        }
        if (!reply.finish()) {
            // the rows do not fit one frame: say so in a reply of its own
            reply = V_PQ_OUT();
            char why[128];
            snprintf(why, sizeof why, "query result over %u bytes", V_PQ_FRAME_MAX);
            reply_head(&reply, why);
            reply.finish();
        }
        if (V_pq_send(V_PQ_SOCKET_FD, reply, err, sizeof err) < 0) {
            log_line("reply", err);
            status = 1;
            break;
        }
    }
    if (conn) PQfinish(conn);
    return status;
}
