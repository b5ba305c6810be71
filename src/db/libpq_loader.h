// The PostgreSQL client library, loaded with dlopen when a request first
// connects to a PostgreSQL base: libpq brings some thirty shared libraries
// with it, and a page without one should not pay for loading them. The
// types still come from libpq-fe.h; only the calls go through the table.
#pragma once

#include <libpq-fe.h>

// The name the engine loads: the soname of every libpq since PostgreSQL 8.
constexpr const char *V_LIBPQ_NAME = "libpq.so.5";

// Every libpq function the engine calls; the table has one pointer each,
// of the function's own type.
#define V_LIBPQ_FUNCTIONS(X)                                                                       \
    X(PQconnectdbParams)                                                                           \
    X(PQstatus)                                                                                    \
    X(PQerrorMessage)                                                                              \
    X(PQfinish)                                                                                    \
    X(PQsetNoticeProcessor)                                                                        \
    X(PQexecParams)                                                                                \
    X(PQresultStatus)                                                                              \
    X(PQresultErrorMessage)                                                                        \
    X(PQclear)                                                                                     \
    X(PQntuples)                                                                                   \
    X(PQnfields)                                                                                   \
    X(PQfname)                                                                                     \
    X(PQgetisnull)                                                                                 \
    X(PQgetlength)                                                                                 \
    X(PQgetvalue)                                                                                  \
    X(PQtransactionStatus)

struct V_LIBPQ {
#define V_LIBPQ_POINTER(name) decltype(&::name) name;
    V_LIBPQ_FUNCTIONS(V_LIBPQ_POINTER)
#undef V_LIBPQ_POINTER
};

// Loads library and fills every pointer of table. Returns 0, or -1 with
// table untouched and the reason in err (size bytes, one line): the library
// is not installed, or it lacks one of the functions.
int V_libpq_load(const char *library, V_LIBPQ *table, char *err, int size);
