// Fuzz target: the arithmetic of $(expr:...). An input is the expression
// text. A division by zero leaves its signal pending (see harness.h).
#include <string>

#include "harness.h"
#include "values/expressions.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    hold_divide_fault();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string text = input_text(data, size);
    int i = 0;
    float f = 0;
    int rc = EXPR_parser(text.c_str(), &i, &f);
    if (rc != 1 && rc != 2) __builtin_trap();
    return 0;
}
