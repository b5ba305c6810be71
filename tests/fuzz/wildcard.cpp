// Fuzz target: wildcard patterns. The first line of an input is the
// pattern, the rest the text matched against it.
#include <string>

#include "harness.h"
#include "patt/wildcard.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string patt, text;
    split_line(input_text(data, size), patt, text);
    PATTnode *p = kor_LOADpatt(patt.c_str());
    kor_EXEpatt(p, text.c_str());
    kor_FREEpatt(p);
    return 0;
}
