// Starting vorn-pq, the helper that holds the PostgreSQL connection: the
// interpreter is linked fully static and cannot load libpq itself, so the
// helper, linked against libpq the usual way, is started at the first
// connect and spoken to over a socketpair (db/pq_wire).
#pragma once

// The helper's file name; it is installed beside the interpreter.
constexpr const char V_PQ_HELPER_NAME[] = "vorn-pq";

// Writes the helper's path, the running program's directory and
// V_PQ_HELPER_NAME, into path (size bytes). Returns 0, or -1 with the
// reason in err (esize bytes) when the program cannot be found or the path
// does not fit.
int V_pq_helper_path(char *path, int size, char *err, int esize);

// Starts the helper at path and waits for its greeting. The helper is the
// child of a child that has already ended, so no process of ours waits for
// it; it gets /dev/null as standard input and output, this process's
// standard error and environment, and nothing else of ours. It ends when
// the returned socket (close-on-exec) is closed, at the latest when this
// process ends. Returns the socket, or -1 with one line in err (size bytes)
// naming what is missing: the helper itself, or the client library the
// helper could not load.
int V_pq_start(const char *path, char *err, int size);
