// Fuzz target: the date conversions. The first line of an input is the
// format, the rest the date text; the text is read with the format and,
// as a number of seconds, written with it. The zone has summer time, so the
// standard-time correction of a read date is taken too.
#include <cstdlib>
#include <memory>
#include <string>

#include "harness.h"
#include "values/dates.h"

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
    setenv("TZ", "Europe/Paris", 1);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string format, text;
    split_line(input_text(data, size), format, text);
    long dt = 0;
    V_str2dt(text.c_str(), format.c_str(), &dt);
    auto out = std::make_unique<char[]>(V_DATE_TEXT_MAX);
    V_dt2str(strtol(text.c_str(), nullptr, 10), format.c_str(), out.get());
    V_dt2str(dt, format.c_str(), out.get());
    return 0;
}
