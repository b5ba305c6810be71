// Fuzz target: value substitution. An input is a line whose $(...)
// references, nested and with any modifier, are expanded against a few
// variables set here: into a full line buffer and into a short one, both on
// the heap so that a write past the end is seen, and to the page (standard
// output, sent to /dev/null) with HTML entities on. Errors are held as while
// an error page runs, so a bad reference does not end the process.
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string>

#include "driver/diagnostics.h"
#include "driver/request.h"
#include "harness.h"
#include "values/output.h"
#include "values/substitution.h"
#include "values/variables.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    if (!freopen("/dev/null", "w", stdout)) abort();
    HTML = 1;
    V_install_hooks();
    V_hold_errors();
    hold_divide_fault();
    V_put_value("v", "Hello, World & <friends> 100%", 0, 0);
    V_put_value("n", "42", 0, 0);
    V_put_value("f", "-3.25e2", 0, 0);
    V_put_value("date", "2024-02-29 13:45:10", 0, 0);
    V_put_value("dt", "1709214310", 0, 0);
    V_put_value("sp", "  two  words\tand  tabs ", 0, 0);
    V_put_value("url", "a%20b%2", 0, 0);
    V_put_value("ref", "n", 0, 0);
    V_put_value("long", std::string(V_LINE_MAX - 1, 'x').c_str(), 0, 0);
    V_add_value("list", "one");
    V_add_value("list", "two");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    constexpr int SHORT = 24;
    std::string line = input_text(data, size);
    auto full = std::make_unique<char[]>(V_LINE_MAX);
    V_transline(line.c_str(), full.get(), 1);
    auto part = std::make_unique<char[]>(SHORT);
    V_transline_n(line.c_str(), part.get(), SHORT, 1);
    V_transline(line.c_str(), nullptr, 1);
    return 0;
}
