// Fuzz target: the url-encoded form decoders. The first byte of an input
// picks the source of the rest: a POST body with its true length, a POST
// body whose declared length is off by a few bytes either way, the query
// string, or PATH_INFO (with the page entry that it also makes).
#include <cstdlib>
#include <string>

#include "form/urlencoded.h"
#include "harness.h"

namespace {

enum { POST_EXACT, POST_SKEWED, QUERY, PATH };

void clear_table() {
    for (int i = 0; i < V_ENT_MAX && ent[i].name; i++) {
        free(ent[i].name);
        free(ent[i].val);
        ent[i].name = ent[i].val = nullptr;
    }
}

}   // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size < 1) return 0;
    int source = data[0] % 4, skew = data[0] / 4 % 9 - 4;
    data++, size--;
    unsetenv("QUERY_STRING");
    unsetenv("PATH_INFO");
    if (source == POST_EXACT || source == POST_SKEWED) {
        setenv("REQUEST_METHOD", "POST", 1);
        setenv("CONTENT_TYPE", "application/x-www-form-urlencoded", 1);
        long length = (long)size + (source == POST_SKEWED ? skew : 0);
        static std::vector<char> declared;
        put_env(declared, "CONTENT_LENGTH", std::to_string(length));
        with_stdin(data, size, [] { POST_parser(ent); });
    } else {
        setenv("REQUEST_METHOD", "GET", 1);
        static std::vector<char> query, path;
        if (source == QUERY)
            put_env(query, "QUERY_STRING", input_text(data, size));
        else
            put_env(path, "PATH_INFO", input_text(data, size));
        if (GET_parser(ent, "V_PAGE") == 0) GET_path(ent, "V_PAGE");
    }
    clear_table();
    return 0;
}
