// FastCGI records, read and written in memory. The reader only looks at
// bytes it was given: lengths come from the peer and are checked against
// what is there before anything is read through them.
#include "fcgi/records.h"

#include <cstring>

namespace {

constexpr unsigned char LONG_LENGTH = 0x80;   // a four-byte length
constexpr size_t SHORT_LENGTH_MAX = 127;
constexpr size_t ALIGN = 8;

// Reads a one- or four-byte length at data[*pos]; -1 when it runs past size.
int take_length(const unsigned char *data, size_t size, size_t *pos, size_t *length) {
    if (*pos >= size) return -1;
    unsigned char first = data[*pos];
    if (!(first & LONG_LENGTH)) {
        *length = first;
        *pos += 1;
        return 0;
    }
    if (size - *pos < 4) return -1;
    *length = ((size_t)(first & 0x7f) << 24) | ((size_t)data[*pos + 1] << 16) |
              ((size_t)data[*pos + 2] << 8) | data[*pos + 3];
    *pos += 4;
    return 0;
}

size_t length_bytes(size_t length) {
    return length > SHORT_LENGTH_MAX ? 4 : 1;
}

void put_length(unsigned char *out, size_t length) {
    if (length <= SHORT_LENGTH_MAX) {
        out[0] = (unsigned char)length;
        return;
    }
    out[0] = (unsigned char)(LONG_LENGTH | (length >> 24));
    out[1] = (unsigned char)(length >> 16);
    out[2] = (unsigned char)(length >> 8);
    out[3] = (unsigned char)length;
}

}   // namespace

int fcgi_header(const unsigned char *data, FcgiHeader *h, const char **error) {
    h->version = data[0];
    h->type = data[1];
    h->id = (data[2] << 8) | data[3];
    h->content_length = ((size_t)data[4] << 8) | data[5];
    h->padding_length = data[6];
    if (h->version != FCGI_VERSION) {
        *error = "FastCGI record of an unknown version";
        return -1;
    }
    return 0;
}

int fcgi_next_record(const unsigned char *data, size_t size, FcgiRecord *rec, const char **error) {
    if (size < FCGI_HEADER_SIZE) return 0;
    if (fcgi_header(data, &rec->h, error)) return -1;
    size_t whole = FCGI_HEADER_SIZE + rec->h.content_length + rec->h.padding_length;
    if (size < whole) return 0;
    rec->content = data + FCGI_HEADER_SIZE;
    rec->used = whole;
    return 1;
}

int fcgi_pairs(const unsigned char *data, size_t size, FcgiPairFn pair, void *ctx,
               const char **error) {
    size_t pos = 0;
    int count = 0;
    while (pos < size) {
        size_t name_len, value_len;
        if (take_length(data, size, &pos, &name_len) || take_length(data, size, &pos, &value_len)) {
            *error = "FastCGI parameter length past the end of the parameters";
            return -1;
        }
        // compared one at a time, so that no sum of peer lengths can wrap
        if (name_len > size - pos || value_len > size - pos - name_len) {
            *error = "FastCGI parameter length past the end of the parameters";
            return -1;
        }
        if (++count > FCGI_PAIRS_MAX) {
            *error = "FastCGI request with too many parameters";
            return -1;
        }
        pair(data + pos, name_len, data + pos + name_len, value_len, ctx);
        pos += name_len + value_len;
    }
    return count;
}

int fcgi_put_pair(unsigned char *out, size_t size, size_t *used, const char *name,
                  const char *value) {
    size_t nl = strlen(name), vl = strlen(value);
    size_t need = length_bytes(nl) + length_bytes(vl) + nl + vl;
    if (*used > size || need > size - *used) return -1;
    unsigned char *p = out + *used;
    put_length(p, nl);
    p += length_bytes(nl);
    put_length(p, vl);
    p += length_bytes(vl);
    memcpy(p, name, nl);
    memcpy(p + nl, value, vl);
    *used += need;
    return 0;
}

size_t fcgi_put_header(unsigned char *out, int type, int id, size_t content_length) {
    size_t padding = (ALIGN - content_length % ALIGN) % ALIGN;
    out[0] = FCGI_VERSION;
    out[1] = (unsigned char)type;
    out[2] = (unsigned char)(id >> 8);
    out[3] = (unsigned char)id;
    out[4] = (unsigned char)(content_length >> 8);
    out[5] = (unsigned char)content_length;
    out[6] = (unsigned char)padding;
    out[7] = 0;
    return padding;
}

void fcgi_end_body(unsigned char *out, int app_status, int protocol_status) {
    unsigned status = (unsigned)app_status;
    out[0] = (unsigned char)(status >> 24);
    out[1] = (unsigned char)(status >> 16);
    out[2] = (unsigned char)(status >> 8);
    out[3] = (unsigned char)status;
    out[4] = (unsigned char)protocol_status;
    out[5] = out[6] = out[7] = 0;
}
