// The environment of a FastCGI request process: the server's own entries
// that are not request names, then the request's parameters, laid out as
// "NAME=value" strings and a pointer array in one fixed block, so that the
// request process takes it as `environ` without copying or allocating.
#pragma once
#include <cstddef>

#include "fcgi/records.h"

constexpr int FCGI_SERVER_ENV_MAX = 512;   // server entries a request inherits

// The most bytes one request's environment takes: the pointer array
// (server entries, parameters, the closing null) and after it the strings,
// which never take more bytes than the parameter stream they come from.
constexpr size_t FCGI_ENV_SPACE =
    (FCGI_SERVER_ENV_MAX + FCGI_PAIRS_MAX + 1) * sizeof(char *) + FCGI_PARAMS_MAX;

// The names a web server sets for a CGI request: those in the server's own
// environment would belong to some other request.
bool fcgi_is_request_name(const char *name, size_t len);

// Picks from env (a null-terminated array of "NAME=value") the entries a
// request inherits into out (max slots): not a request name, a non-empty
// name, an "=". A name given twice keeps its first place and its last
// value. Returns the count; entries past max are dropped.
int fcgi_server_entries(char *const *env, char **out, int max);

// Lays out in space (FCGI_ENV_SPACE bytes, aligned for a pointer) the
// environment of the request whose parameter stream is params[0..size)
// and sets *env to its null-terminated array: the server entries (count
// of them, from fcgi_server_entries) that the request does not name again,
// then each parameter as "NAME=value". A name holding "=" or NUL, or
// empty, is dropped; a value ends at its first NUL; a name the request
// gives twice keeps its first place and its last value. Returns 0, or -1
// with *error when the stream is broken, longer than FCGI_PARAMS_MAX or
// holds too many parameters: *env then holds the parameters before the
// fault.
int fcgi_request_environment(const unsigned char *params, size_t size, char *const *server,
                             int count, unsigned char *space, char ***env, const char **error);

// The value of name in the null-terminated array env, or nullptr.
const char *fcgi_env_value(char *const *env, const char *name);
