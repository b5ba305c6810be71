// A request's environment laid out once, in the connection process, in a
// fixed block: the request process then points `environ` at it instead of
// copying every entry through clearenv and setenv (a malloc per entry, and
// pages of the connection process's heap written again after each fork).
#include "fcgi/request_env.h"

#include <cstring>

namespace {

// The slot of env[0..n) whose entry is "NAME=..." with NAME = name[0..len)
// (no NUL in it), or -1. Empty slots are passed over.
int find_name(char *const *env, int n, const char *name, size_t len) {
    for (int i = 0; i < n; i++) {
        if (env[i] && !strncmp(env[i], name, len) && env[i][len] == '=') return i;
    }
    return -1;
}

struct Layout {
    char **slots;   // the server entries first, then the parameters
    int server;     // slots of server entries (null once the request names one)
    int used;
    char *text;   // where the next "NAME=value" goes
};

void count_pair(const unsigned char *, size_t, const unsigned char *, size_t, void *ctx) {
    ++*static_cast<int *>(ctx);
}

// A pair takes at most nl + vl + 2 bytes of text, never more than its two
// length bytes and its name and value take in the stream.
void add_pair(const unsigned char *name, size_t nl, const unsigned char *value, size_t vl,
              void *ctx) {
    auto *l = static_cast<Layout *>(ctx);
    if (!nl || memchr(name, '=', nl) || memchr(name, 0, nl)) return;
    vl = strnlen(reinterpret_cast<const char *>(value), vl);
    char *entry = l->text;
    memcpy(entry, name, nl);
    entry[nl] = '=';
    memcpy(entry + nl + 1, value, vl);
    entry[nl + 1 + vl] = 0;
    l->text += nl + vl + 2;
    int at = find_name(l->slots + l->server, l->used - l->server, entry, nl);
    if (at >= 0) {
        l->slots[l->server + at] = entry;
        return;
    }
    at = find_name(l->slots, l->server, entry, nl);
    if (at >= 0) l->slots[at] = nullptr;
    l->slots[l->used++] = entry;
}

}   // namespace

bool fcgi_is_request_name(const char *name, size_t len) {
    static const char *const NAMES[] = {
        "AUTH_TYPE",       "CONTENT_LENGTH",    "CONTENT_TYPE",    "DOCUMENT_ROOT",
        "DOCUMENT_URI",    "GATEWAY_INTERFACE", "HTTPS",           "PATH_INFO",
        "PATH_TRANSLATED", "QUERY_STRING",      "REDIRECT_STATUS", "REMOTE_ADDR",
        "REMOTE_HOST",     "REMOTE_IDENT",      "REMOTE_PORT",     "REMOTE_USER",
        "REQUEST_METHOD",  "REQUEST_SCHEME",    "REQUEST_URI",     "SCRIPT_FILENAME",
        "SCRIPT_NAME",     "SERVER_ADDR",       "SERVER_NAME",     "SERVER_PORT",
        "SERVER_PROTOCOL", "SERVER_SOFTWARE",   "FCGI_ROLE"};
    if (len >= 5 && !memcmp(name, "HTTP_", 5)) return true;
    for (const char *n : NAMES) {
        if (strlen(n) == len && !memcmp(name, n, len)) return true;
    }
    return false;
}

int fcgi_server_entries(char *const *env, char **out, int max) {
    int n = 0;
    for (; env && *env; env++) {
        const char *eq = strchr(*env, '=');
        if (!eq || eq == *env) continue;   // no name: setenv would refuse it
        size_t len = (size_t)(eq - *env);
        if (fcgi_is_request_name(*env, len)) continue;
        int at = find_name(out, n, *env, len);
        if (at >= 0)
            out[at] = *env;
        else if (n < max)
            out[n++] = *env;
    }
    return n;
}

int fcgi_request_environment(const unsigned char *params, size_t size, char *const *server,
                             int count, unsigned char *space, char ***env, const char **error) {
    count = count < 0 ? 0 : count > FCGI_SERVER_ENV_MAX ? FCGI_SERVER_ENV_MAX : count;
    bool too_long = size > FCGI_PARAMS_MAX;
    if (too_long) size = 0;
    // the first reading counts the pairs, so that the strings can follow
    // the pointer array directly: a small request's environment is then
    // one page
    int pairs = 0;
    const char *fault = nullptr;
    bool whole = fcgi_pairs(params, size, count_pair, &pairs, &fault) >= 0;
    Layout l;
    l.slots = reinterpret_cast<char **>(space);
    for (int i = 0; i < count; i++) l.slots[i] = server[i];
    l.server = l.used = count;
    l.text = reinterpret_cast<char *>(space + (size_t)(count + pairs + 1) * sizeof(char *));
    const char *again = nullptr;
    fcgi_pairs(params, size, add_pair, &l, &again);   // the same pairs, the same fault
    // the server entries the request gave again leave their places
    int kept = 0;
    for (int i = 0; i < l.used; i++) {
        if (l.slots[i]) l.slots[kept++] = l.slots[i];
    }
    l.slots[kept] = nullptr;
    *env = l.slots;
    if (too_long) {
        *error = "FastCGI request parameters too long";
        return -1;
    }
    if (!whole) {
        *error = fault;
        return -1;
    }
    return 0;
}

const char *fcgi_env_value(char *const *env, const char *name) {
    size_t len = strlen(name);
    for (; *env; env++) {
        if (!strncmp(*env, name, len) && (*env)[len] == '=') return *env + len + 1;
    }
    return nullptr;
}
