// FastCGI records: the eight-byte header, the name-value pairs of a
// parameter stream, and the records Vorn writes back. Everything here
// works on bounded memory and never trusts a length it reads: a record
// holds at most 65535 content bytes, a pair must lie inside its stream,
// and a request's parameters are held to FCGI_PARAMS_MAX bytes.
#pragma once
#include <cstddef>
#include <cstdint>

enum FcgiType {
    FCGI_BEGIN_REQUEST = 1,
    FCGI_ABORT_REQUEST = 2,
    FCGI_END_REQUEST = 3,
    FCGI_PARAMS = 4,
    FCGI_STDIN = 5,
    FCGI_STDOUT = 6,
    FCGI_STDERR = 7,
    FCGI_DATA = 8,
    FCGI_GET_VALUES = 9,
    FCGI_GET_VALUES_RESULT = 10,
    FCGI_UNKNOWN_TYPE = 11,
};

enum FcgiStatus {
    FCGI_REQUEST_COMPLETE = 0,
    FCGI_CANT_MPX_CONN = 1,
    FCGI_OVERLOADED = 2,
    FCGI_UNKNOWN_ROLE = 3,
};

constexpr int FCGI_VERSION = 1;
constexpr int FCGI_RESPONDER = 1;
constexpr int FCGI_KEEP_CONN = 1;
constexpr size_t FCGI_HEADER_SIZE = 8;
constexpr size_t FCGI_CONTENT_MAX = 65535;
constexpr size_t FCGI_PADDING_MAX = 255;
constexpr size_t FCGI_RECORD_MAX = FCGI_HEADER_SIZE + FCGI_CONTENT_MAX + FCGI_PADDING_MAX;
constexpr size_t FCGI_PARAMS_MAX = 128 * 1024;   // all parameters of one request
constexpr int FCGI_PAIRS_MAX = 1000;             // parameters of one request

struct FcgiHeader {
    int version;
    int type;
    int id;
    size_t content_length;
    size_t padding_length;
};

// Reads the header at data (FCGI_HEADER_SIZE bytes). Returns 0, or -1 with
// *error set when the version is not 1.
int fcgi_header(const unsigned char *data, FcgiHeader *h, const char **error);

// One whole record found at the front of data[0..size): 1 with the header,
// its content (pointing into data) and the bytes it takes, padding
// included; 0 when more bytes are needed; -1 with *error on a bad header.
struct FcgiRecord {
    FcgiHeader h;
    const unsigned char *content;
    size_t used;
};
int fcgi_next_record(const unsigned char *data, size_t size, FcgiRecord *rec, const char **error);

// Decodes the name-value pairs of a whole parameter stream, calling
// pair(name, name_len, value, value_len, ctx) for each. Returns the number
// of pairs, or -1 with *error when a length runs past the stream or there
// are more than FCGI_PAIRS_MAX pairs; pairs before the fault were passed on.
using FcgiPairFn = void (*)(const unsigned char *name, size_t name_len, const unsigned char *value,
                            size_t value_len, void *ctx);
int fcgi_pairs(const unsigned char *data, size_t size, FcgiPairFn pair, void *ctx,
               const char **error);

// Appends one pair to out (capacity size, used bytes in *used). Returns 0,
// or -1 (nothing written) when it does not fit.
int fcgi_put_pair(unsigned char *out, size_t size, size_t *used, const char *name,
                  const char *value);

// Writes a record header for content_length bytes into out and returns the
// padding that brings the record to a multiple of eight.
size_t fcgi_put_header(unsigned char *out, int type, int id, size_t content_length);

// The eight content bytes of an END_REQUEST record.
void fcgi_end_body(unsigned char *out, int app_status, int protocol_status);
