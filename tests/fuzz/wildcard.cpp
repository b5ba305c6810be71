// Fuzz target: wildcard patterns. The first line of an input is the
// pattern, the rest the text matched against it. The matcher still takes
// time exponential in the "!" of a pattern, so patterns and texts are cut
// short enough that the worst case stays well inside the fuzzer's timeout.
#include <string>

#include "harness.h"
#include "patt/wildcard.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    constexpr size_t PATTERN_MAX = 12, TEXT_MAX = 16;
    std::string patt, text;
    split_line(input_text(data, size), patt, text);
    PATTnode *p = kor_LOADpatt(patt.substr(0, PATTERN_MAX).c_str());
    kor_EXEpatt(p, text.substr(0, TEXT_MAX).c_str());
    kor_FREEpatt(p);
    return 0;
}
