// Fuzz target: the FastCGI record reader. The input is a byte stream as a
// web server would send it; it is cut into records the way the server's
// connection reads them, the parameter records of each request are joined
// up to the parameter bound and decoded as name-value pairs, and a
// GET_VALUES content is decoded as it arrives.
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "fcgi/records.h"

namespace {

unsigned char params[FCGI_PARAMS_MAX];

void touch_pair(const unsigned char *name, size_t nl, const unsigned char *value, size_t vl,
                void *ctx) {
    // read every byte the decoder hands out, so a bad bound shows
    size_t *sum = (size_t *)ctx;
    for (size_t i = 0; i < nl; i++) *sum += name[i];
    for (size_t i = 0; i < vl; i++) *sum += value[i];
}

}   // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    size_t used = 0, sum = 0;
    const char *error = nullptr;
    FcgiRecord rec;
    while (fcgi_next_record(data, size, &rec, &error) == 1) {
        if (rec.h.type == FCGI_PARAMS && rec.h.content_length == 0) {
            fcgi_pairs(params, used, touch_pair, &sum, &error);
            used = 0;
        } else if (rec.h.type == FCGI_PARAMS) {
            if (rec.h.content_length <= sizeof params - used) {
                memcpy(params + used, rec.content, rec.h.content_length);
                used += rec.h.content_length;
            }
        } else if (rec.h.type == FCGI_GET_VALUES) {
            fcgi_pairs(rec.content, rec.h.content_length, touch_pair, &sum, &error);
        }
        data += rec.used;
        size -= rec.used;
    }
    return sum == 1 ? 1 : 0;   // keeps sum alive; libFuzzer ignores the value
}
