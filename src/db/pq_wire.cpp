// Framing and field coding for the engine's talk with vorn-pq. Both ends
// read with V_PQ_IN, which checks every length against what is left of the
// frame before it moves, so a hostile or broken peer costs an error only.
#include "db/pq_wire.h"

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <sys/socket.h>
#include <unistd.h>

void V_PQ_OUT::u32(uint32_t v) {
    char b[sizeof v];
    memcpy(b, &v, sizeof v);
    buf.append(b, sizeof b);
}

void V_PQ_OUT::str(const char *s, long len) {
    if (!s) {
        u32(V_PQ_NULL);
        return;
    }
    size_t n = len < 0 ? strlen(s) : (size_t)len;
    // past the limit the frame is refused anyway: stop growing it
    if (over || size() >= V_PQ_FRAME_MAX || n >= V_PQ_FRAME_MAX - size()) {
        over = true;
        return;
    }
    u32((uint32_t)n);
    buf.append(s, n);
    buf.push_back('\0');
}

bool V_PQ_OUT::finish() {
    if (over || size() > V_PQ_FRAME_MAX) return false;
    uint32_t n = (uint32_t)size();
    memcpy(buf.data(), &n, sizeof n);
    return true;
}

uint8_t V_PQ_IN::u8() {
    if (bad || left() < 1) {
        bad = true;
        return 0;
    }
    return (uint8_t)*at++;
}

uint32_t V_PQ_IN::u32() {
    uint32_t v = 0;
    if (bad || left() < sizeof v) {
        bad = true;
        return 0;
    }
    memcpy(&v, at, sizeof v);
    at += sizeof v;
    return v;
}

const char *V_PQ_IN::str(int *len) {
    *len = -1;
    uint32_t n = u32();
    if (bad || n == V_PQ_NULL) return nullptr;
    // the bytes and their terminator must both lie in the frame
    if (n >= left() || at[n] != '\0') {
        bad = true;
        return nullptr;
    }
    const char *s = at;
    at += (size_t)n + 1;
    *len = (int)n;
    return s;
}

V_PQ_ROWS::~V_PQ_ROWS() {
    free(names);
    free(cells);
}

bool V_pq_read_rows(V_PQ_IN *in, V_PQ_ROWS *rows) {
    // every name and cell takes at least its length field, so a count
    // larger than the rest of the frame allows is a lie
    constexpr size_t MIN_FIELD = sizeof(uint32_t);
    uint32_t ncols = in->u32();
    if (in->bad || ncols > in->left() / MIN_FIELD) return false;
    rows->names = static_cast<const char **>(calloc(ncols ? ncols : 1, sizeof *rows->names));
    if (!rows->names) return false;
    rows->ncols = (int)ncols;
    int len;
    for (uint32_t i = 0; i < ncols; i++) {
        rows->names[i] = in->str(&len);
        if (!rows->names[i]) return false;
    }
    uint32_t nrows = in->u32();
    if (in->bad || nrows > in->left() / MIN_FIELD) return false;
    size_t ncells = (size_t)nrows * ncols;
    if (ncells > in->left() / MIN_FIELD) return false;
    rows->cells = static_cast<V_PQ_CELL *>(calloc(ncells ? ncells : 1, sizeof *rows->cells));
    if (!rows->cells) return false;
    rows->nrows = (int)nrows;
    for (size_t i = 0; i < ncells; i++) rows->cells[i].text = in->str(&rows->cells[i].len);
    return !in->bad && in->left() == 0;
}

namespace {

// Reads exactly n bytes. Returns n, fewer at end of file, or -1.
ssize_t read_full(int fd, char *p, size_t n) {
    size_t got = 0;
    while (got < n) {
        ssize_t r = read(fd, p + got, n - got);
        // a peer that ended with our bytes unread resets the connection
        if (r == 0 || (r < 0 && errno == ECONNRESET)) break;
        if (r < 0) {
            if (errno == EINTR) continue;
            return -1;
        }
        got += (size_t)r;
    }
    return (ssize_t)got;
}

}   // namespace

int V_pq_send(int fd, const V_PQ_OUT &out, char *err, int size) {
    const std::string &b = out.bytes();
    size_t sent = 0;
    while (sent < b.size()) {
        ssize_t w = send(fd, b.data() + sent, b.size() - sent, MSG_NOSIGNAL);
        if (w < 0) {
            if (errno == EINTR) continue;
            if (errno == EPIPE || errno == ECONNRESET)
                snprintf(err, size, "ended");
            else
                snprintf(err, size, "cannot send: %s", strerror(errno));
            return -1;
        }
        sent += (size_t)w;
    }
    return 0;
}

int V_pq_receive(int fd, uint32_t limit, V_PQ_FRAME *frame, char *err, int size) {
    uint32_t n;
    ssize_t r = read_full(fd, reinterpret_cast<char *>(&n), sizeof n);
    if (r == 0) return 0;
    if (r < 0) {
        snprintf(err, size, "cannot receive: %s", strerror(errno));
        return -1;
    }
    if ((size_t)r < sizeof n) {
        snprintf(err, size, "connection closed inside a message");
        return -1;
    }
    if (n > limit) {
        snprintf(err, size, "message of %u bytes is over the limit of %u", n, limit);
        return -1;
    }
    std::unique_ptr<char[]> data(new (std::nothrow) char[(size_t)n + 1]);
    if (!data) {
        snprintf(err, size, "out of memory for a message of %u bytes", n);
        return -1;
    }
    r = read_full(fd, data.get(), n);
    if (r < 0) {
        snprintf(err, size, "cannot receive: %s", strerror(errno));
        return -1;
    }
    if ((size_t)r < n) {
        snprintf(err, size, "connection closed inside a message");
        return -1;
    }
    data[n] = '\0';
    frame->data = std::move(data);
    frame->size = n;
    return 1;
}
