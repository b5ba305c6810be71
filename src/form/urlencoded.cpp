// GET and url-encoded POST decoding into the form table ent, and the
// request-method checks the driver chooses a decoder with.
#include "form/urlencoded.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/hot_data.h"
#include "driver/diagnostics.h"
#include "form/url_codec.h"

entry ent[V_ENT_MAX];
V_HOT const char *POST_errmsg;

namespace {

const char *or_null(const char *s) {
    return s ? s : "(null)";
}

char *copy_n(const char *text, int n) {
    char *s = (char *)malloc(n + 1);
    memcpy(s, text, n);
    s[n] = '\0';
    return s;
}

// Decodes one field in place and splits it at its first '=' into the
// entry. Escapes are decoded before the split, so an encoded '=' in a name
// splits there too; pages have always been served that way.
void split_field(entry *e, char *field) {
    plustospace(field);
    unescape_url(field);
    char *eq = strchr(field, '=');
    if (eq) {
        e->name = copy_n(field, (int)(eq - field));
        e->val = copy_n(eq + 1, (int)strlen(eq + 1));
    } else {
        e->name = copy_n(field, (int)strlen(field));
        e->val = nullptr;
    }
    V_TRACE("makeword: name= [%s], val= [%s]\n", e->name, or_null(e->val));
}

// Decodes a field into entry *x and frees it; false when the table is full.
// Entry V_ENT_MAX - 1 belongs to the terminator: a field that lands there is
// dropped, so at most V_ENT_MAX - 1 fields are kept.
bool add_field(entry *table, int *x, char *field) {
    split_field(&table[*x], field);
    free(field);
    if (*x == V_ENT_MAX - 1) {
        free(table[*x].name);
        free(table[*x].val);
        return false;
    }
    (*x)++;
    return true;
}

// Fills fields from text (fields separated by '&') starting at index x;
// returns the index of the terminator.
int get_fields(entry *table, int x, const char *text) {
    while (*text) {
        int n = (int)strcspn(text, "&");
        char *field = copy_n(text, n);
        text += n;
        if (*text) text++;
        if (!add_field(table, &x, field)) break;
    }
    return x;
}

}   // namespace

const char *GETenv(const char *name) {
    const char *v = getenv(name);
    return v ? v : "";
}

int GetMethod() {
    const char *m = GETenv("REQUEST_METHOD");
    if (!strcmp(m, "POST")) return 1;
    if (!strcmp(m, "GET")) return 2;
    return -1;
}

long content_length(long max) {
    const char *text = getenv("CONTENT_LENGTH");
    if (!text) return -1;
    errno = 0;
    long n = strtol(text, nullptr, 10);
    if (n < 0) return 0;
    return n > max || errno == ERANGE ? max : n;
}

int CheckEnctypeMethod() {
    return strcmp(GETenv("CONTENT_TYPE"), "application/x-www-form-urlencoded") ? 1 : 0;
}

// A negative CONTENT_LENGTH is taken as 0: the count would never reach 0
// and the body would be read to its end, past the declared length. One
// beyond the count's range is cut to it, never wrapped to a small length.
int POST_parser(entry *table) {
    if (strcmp(GETenv("REQUEST_METHOD"), "POST")) {
        POST_errmsg = "This script should be referenced with a METHOD of POST.\n";
        return -1;
    }
    if (CheckEnctypeMethod()) {
        POST_errmsg = "This script can only be used to decode form results. \n";
        return -1;
    }
    int cl = (int)content_length(INT_MAX);
    V_TRACE("POST: CONTENT_LENGTH= %d", cl);
    if (cl < 0) cl = 0;   // unset
    int x = 0;
    while (cl && !feof(stdin)) {
        char *field = fmakeword(stdin, '&', &cl);
        V_TRACE("fmakeword: [%s]\n", field);
        if (!add_field(table, &x, field)) break;
    }
    table[x].name = nullptr;
    table[x].val = nullptr;
    return 0;
}

// A HEAD request reaches here only when a web server sent it (the driver
// decides), and is decoded as the GET it stands for.
int GET_parser(entry *table, const char *name) {
    const char *method = GETenv("REQUEST_METHOD");
    if (strcmp(method, "GET") && strcmp(method, "HEAD")) {
        POST_errmsg = "This script should be referenced with a METHOD GET.\n";
        return -1;
    }
    const char *text = getenv("QUERY_STRING");
    int x = 0;
    if (!text) {
        const char *path = getenv("PATH_INFO");
        text = "";
        if (path) {
            int n = (int)strcspn(path, "&");
            table[0].name = copy_n(name, (int)strlen(name));
            table[0].val = copy_n(path, n);
            text = path[n] ? path + n + 1 : "";
            x = 1;
        }
    }
    x = get_fields(table, x, text);
    table[x].name = nullptr;
    table[x].val = nullptr;
    return 0;
}

// The whole PATH_INFO under name, replacing an earlier value. A full table
// has no room for one more entry and is left as it is.
int GET_path(entry *table, const char *name) {
    const char *path = getenv("PATH_INFO");
    if (!path) return 0;
    int x = 0;
    for (; x < V_ENT_MAX && table[x].name; x++) {
        if (strcmp(table[x].name, name)) continue;
        free(table[x].val);   // every table value comes from malloc
        table[x].val = copy_n(path, (int)strlen(path));
        return 0;
    }
    if (x >= V_ENT_MAX - 1) return 0;
    table[x].name = copy_n(name, (int)strlen(name));
    table[x].val = copy_n(path, (int)strlen(path));
    table[x + 1].name = nullptr;
    table[x + 1].val = nullptr;
    return 0;
}
