// The messages between the PostgreSQL engine and its helper process
// vorn-pq, over a socketpair: a frame is a 4-byte length (host order, both
// ends run on one machine) and that many bytes. Each side treats the other's
// lengths as untrusted: a frame over the limit, a short read or a field that
// runs past its frame is refused, never followed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

// The largest frame either side accepts: a query's whole result travels in
// one, as the engine holds it whole.
constexpr uint32_t V_PQ_FRAME_MAX = 1u << 30;
// The largest request the helper takes: one statement, or the login.
constexpr uint32_t V_PQ_REQUEST_MAX = 64u << 20;

// The helper's descriptors when it starts: the socket, and the error log
// while its standard error is still a pipe that reports a failed start.
constexpr int V_PQ_SOCKET_FD = 3;
constexpr int V_PQ_LOG_FD = 4;

// What the engine asks; the first byte of a request.
enum V_PQ_REQUEST : uint8_t {
    V_PQ_CONNECT = 1,   // three strings, each may be null: target, user, password
    V_PQ_DISCONNECT,    // nothing
    V_PQ_EXEC,          // the statement; rows discarded
    V_PQ_QUERY,         // the statement; the reply carries the rows
};

// The connection's transaction state after a request, as the reply gives it.
enum V_PQ_TRANSACTION : uint8_t {
    V_PQ_IDLE,
    V_PQ_ACTIVE,
    V_PQ_INTRANS,
    V_PQ_INERROR,
    V_PQ_UNKNOWN,   // also: no connection
};

// The helper's first frame, sent once libpq is loaded and it is ready.
constexpr const char V_PQ_HELLO[] = "vorn-pq 1";

// Every reply begins: the transaction state (u8), 0 done or 1 failed (u8),
// the message (a string, empty when done), the number of server notices
// (u32) and the notices. A query that is done goes on: the number of
// columns (u32), their names, the number of rows (u32), and row by row each
// cell as a string, null for NULL. A string is a u32 length (all ones for
// null), the bytes and a zero byte, so the receiver can hand out pointers
// into the frame as C strings.
constexpr uint32_t V_PQ_NULL = 0xffffffffu;

// Builds one frame: space for the length first, filled in by finish().
class V_PQ_OUT {
public:
    V_PQ_OUT() : buf(sizeof(uint32_t), '\0') {}
    void u8(uint8_t v) { buf.push_back((char)v); }
    void u32(uint32_t v);
    // A null s is sent as null; len is strlen(s) when negative.
    void str(const char *s, long len = -1);
    // Fills in the length. Returns false when the frame is over the limit.
    bool finish();
    const std::string &bytes() const { return buf; }
    size_t size() const { return buf.size() - sizeof(uint32_t); }

private:
    std::string buf;
    bool over = false;   // a string did not fit under the limit
};

// Reads the fields of one received frame in order. A read past the end, or
// a string without its terminator, sets bad and yields zero or null from
// then on, so a caller checks once at the end.
struct V_PQ_IN {
    const char *at;
    const char *end;
    bool bad = false;

    V_PQ_IN(const char *data, size_t size) : at(data), end(data + size) {}
    uint8_t u8();
    uint32_t u32();
    // Returns the string (null for null) and its length in len (-1 for null).
    const char *str(int *len);
    size_t left() const { return (size_t)(end - at); }
};

// A query's rows as decoded from its reply: names and cells point into the
// frame, which must outlive them.
struct V_PQ_CELL {
    const char *text;   // null for NULL
    int len;
};
struct V_PQ_ROWS {
    int ncols = 0;
    int nrows = 0;
    const char **names = nullptr;   // ncols of them
    V_PQ_CELL *cells = nullptr;     // nrows * ncols, row by row
    V_PQ_ROWS() = default;
    V_PQ_ROWS(const V_PQ_ROWS &) = delete;
    V_PQ_ROWS &operator=(const V_PQ_ROWS &) = delete;
    ~V_PQ_ROWS();
};

// Decodes the columns and rows that follow a query reply's head, to the end
// of the frame. The counts are checked against what is left of the frame
// before anything is allocated for them. Returns false, rows half filled,
// when the bytes are malformed or memory runs out.
bool V_pq_read_rows(V_PQ_IN *in, V_PQ_ROWS *rows);

// One frame as received; data holds size bytes and one more zero byte.
struct V_PQ_FRAME {
    std::unique_ptr<char[]> data;
    uint32_t size = 0;
};

// Sends the finished frame out on fd, whole. Returns 0, or -1 with the
// reason in err (size bytes): "ended" when the other side is gone. Never
// raises SIGPIPE.
int V_pq_send(int fd, const V_PQ_OUT &out, char *err, int size);
// Receives one frame of at most limit bytes. Returns 1 with the frame, 0 at
// end of file before a frame begins, or -1 with the reason in err: a frame
// over the limit, cut short, or no memory for it.
int V_pq_receive(int fd, uint32_t limit, V_PQ_FRAME *frame, char *err, int size);
