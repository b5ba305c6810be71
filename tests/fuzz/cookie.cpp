// Fuzz target: cookies. The first line of an input is the argument of
// <@cookie> (the cookie name), the rest is HTTP_COOKIE. The line is then the
// list of cookies to set, so the value just read goes back out as a
// Set-Cookie line; every line written must be one whole header. The variable
// store is emptied after every input so that it stays small.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "harness.h"
#include "interp/cookies.h"
#include "values/buffers.h"
#include "values/substitution.h"
#include "values/variables.h"

namespace {

void free_values(avl_t *node) {
    if (!node) return;
    free_values(node->left);
    free_values(node->right);
    V_heap_free(reinterpret_cast<V_USER *>(node)->hp);
}

// Hands back every variable and the heap their records live in.
void empty_store() {
    free_values(v_BUFFERS.vtree.root);
    v_BUFFERS.vtree.root = nullptr;
    V_heap_free(v_BUFFERS.hp);
    v_BUFFERS.hp = nullptr;
}

}   // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string name, jar;
    split_line(input_text(data, size), name, jar);
    static std::vector<char> cookies;
    put_env(cookies, "HTTP_COOKIE", jar);
    // a command line never outgrows the line buffer it was read into
    std::string line = ("<@cookie> " + name).substr(0, V_LINE_MAX - 1);
    V_cookie(line.data(), 0, 0);
    V_put_value("V_ServerCOOKIES", name.c_str(), 0, 0);
    char *out = nullptr;
    size_t len = 0;
    FILE *saved = stdout;
    stdout = open_memstream(&out, &len);
    V_set_cookies();
    fclose(stdout);
    stdout = saved;
    for (std::string_view rest(out, len); !rest.empty(); rest.remove_prefix(rest.find('\n') + 1))
        if (!rest.starts_with("Set-Cookie: ") || rest.find('\n') == rest.npos) __builtin_trap();
    free(out);
    empty_store();
    return 0;
}
