// Decoding of multipart/form-data POST bodies: fields into the form table,
// uploads written byte-exact to files of their own in the temporary directory.
#include "form/form_data.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>
#include <vector>

#include "base/owners.h"
#include "base/tmp_files.h"
#include "driver/diagnostics.h"
#include "form/url_codec.h"
#include "form/urlencoded.h"

namespace {

constexpr int LINE_MAX_BYTES = 500;   // header lines, and the boundary line
constexpr int BOUNDARY_MAX = 297;
constexpr int READ_CHUNK = 64 * 1024;

// The body is read through one buffer so that the separator scan can look
// ahead without copying a part into memory. No byte past CONTENT_LENGTH is
// ever asked for: a server need not close the input after the body, and
// whatever follows it is not the client's form.
struct Input {
    FILE *f;
    unsigned char buf[READ_CHUNK + LINE_MAX_BYTES];
    int pos, len;
    bool eof;
    long left;   // bytes of the declared length not yet read
};

Input in;

char message[512];

int broken() {
    POST_errmsg = "Broken Input...";
    return -1;
}

int fail(const char *fmt, const char *arg) {
    // a long name or system message is cut at the message's size
    if (snprintf(message, sizeof message, fmt, arg) >= (int)sizeof message)
        V_TRACE("multipart: message cut \n");
    POST_errmsg = message;
    return -1;
}

// Tops the buffer up so that at least `want` unread bytes are held, unless
// the input ends first. Returns the number of unread bytes.
int fill(int want) {
    while (in.len - in.pos < want && !in.eof) {
        if (in.pos > 0) {
            memmove(in.buf, in.buf + in.pos, (size_t)(in.len - in.pos));
            in.len -= in.pos;
            in.pos = 0;
        }
        size_t want_now = sizeof in.buf - (size_t)in.len;
        if ((unsigned long)in.left < want_now) want_now = (size_t)in.left;
        size_t n = want_now ? fread(in.buf + in.len, 1, want_now, in.f) : 0;
        if (n == 0) in.eof = true;
        in.len += (int)n;
        in.left -= (long)n;
    }
    return in.len - in.pos;
}

int next_byte() {
    if (fill(1) < 1) return EOF;
    return in.buf[in.pos++];
}

// One line without its CR bytes and LF, at most size - 1 bytes. True when
// the read ran into the end of the input.
bool read_line(char *s, int size) {
    int i = 0;
    for (;;) {
        int c = next_byte();
        if (c == EOF) break;
        if (c == '\r') continue;
        if (c == '\n') break;
        s[i++] = (char)c;
        if (i == size - 1) break;
    }
    s[i] = '\0';
    return in.eof && in.pos >= in.len;
}

// Skips the part's headers, up to and including the first empty line.
void skip_headers() {
    char line[LINE_MAX_BYTES];
    while (!read_line(line, sizeof line) && line[0] != '\0') {}
}

// Copies content up to the separator into out (may be null) and steps over
// the separator. Returns the byte count, or -1 when the input ends first.
long copy_until(const char *sep, int seplen, FILE *out) {
    long count = 0;
    for (;;) {
        int avail = fill(seplen);
        if (avail < seplen) {
            if (out) fwrite(in.buf + in.pos, 1, (size_t)avail, out);
            in.pos = in.len;
            return -1;
        }
        const unsigned char *start = in.buf + in.pos;
        const void *hit = memmem(start, (size_t)avail, sep, (size_t)seplen);
        int take = hit ? (int)((const unsigned char *)hit - start) : avail - seplen + 1;
        if (out && take > 0 && fwrite(start, 1, (size_t)take, out) != (size_t)take)
            out = nullptr;   // a full disk ends the copy, not the decoding
        count += take;
        in.pos += take;
        if (hit) {
            in.pos += seplen;
            return count;
        }
    }
}

// The text between marker and the next double quote, or false.
bool quoted_after(const char *line, const char *marker, char *out, int size) {
    const char *at = strstr(line, marker);
    if (!at) return false;
    at += strlen(marker);
    int n = (int)strcspn(at, "\"");
    if (n > size - 1) n = size - 1;
    memcpy(out, at, (size_t)n);
    out[n] = '\0';
    return true;
}

char *copy_string(const char *s) {
    size_t n = strlen(s) + 1;
    char *p = (char *)malloc(n);
    if (p) memcpy(p, s, n);
    return p;
}

// An ordinary field: its content passes through the work file and comes
// back as one string.
int read_field(entry *e, const char *sep, int seplen, FILE *work) {
    V_TRACE("VALUE... \n");
    rewind(work);
    skip_headers();
    long count = copy_until(sep, seplen, work);
    if (count < 0) return broken();
    e->val = nullptr;
    if (count > 0) {
        fflush(work);
        rewind(work);
        e->val = (char *)malloc((size_t)count + 1);
        if (!e->val || fread(e->val, 1, (size_t)count, work) != (size_t)count) return broken();
        e->val[count] = '\0';
    }
    V_TRACE("VALUE: [%s] \n", e->val ? e->val : "NULL");
    char rest[LINE_MAX_BYTES];
    read_line(rest, sizeof rest);
    return 0;
}

int read_upload(entry *e, int index, const char *line, const char *tmp, const char *sep,
                int seplen) {
    char file[LINE_MAX_BYTES];
    quoted_after(line, "filename=\"", file, sizeof file);
    V_TRACE("FILE-src: [%s] \n", file);
    strip_name(file);
    V_TRACE("FILE: [%s] \n", file);
    if (strchr(file, '/'))   // the upload must land inside the temporary directory
        return fail("Cannot create upload file: %s", file);
    char rest[LINE_MAX_BYTES];
    if (file[0] == '\0') {   // no file chosen
        skip_headers();
        read_line(rest, sizeof rest);
        read_line(rest, sizeof rest);
        e->val = nullptr;
        return 0;
    }
    char path[4096];
    if (snprintf(path, sizeof path, "%s/%s..%d.%d", tmp, file, (int)getpid(), index) >=
        (int)sizeof path)
        return fail("Cannot create upload file: %s", file);
    // never written through a file or link planted under the same name
    Fd fd(open(path, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW, 0600));
    File out(fd ? fdopen(fd.get(), "wb") : nullptr);
    if (!out) {
        char why[sizeof path + 64];
        snprintf(why, sizeof why, "%s (%s)", path, strerror(errno));
        return fail("Cannot create upload file: %s", why);
    }
    fd.release();   // the stream closes it now
    e->val = copy_string(path);
    skip_headers();
    long count = copy_until(sep, seplen, out.get());
    out.reset();
    if (count < 0) return broken();
    read_line(rest, sizeof rest);
    return 0;
}

// With tracing on the raw body (up to the declared length) is kept in
// post.input for diagnosis and read back from there. Null when no copy can be
// made: the body is then read from standard input as it comes, and a refused
// name is reported in the log.
FILE *traced_input(const char *tmp) {
    char path[4096];
    if (snprintf(path, sizeof path, "%s/post.input", tmp) >= (int)sizeof path) return nullptr;
    FILE *copy = V_open_tmp(path, TmpOpen::Truncate);
    if (!copy) {
        if (V_tmp_refused(errno)) V_tmp_report("trace copy", path, errno);
        return nullptr;
    }
    char block[500];
    size_t n;
    for (long left = in.left; left > 0; left -= (long)n) {
        n = fread(block, 1, left < (long)sizeof block ? (size_t)left : sizeof block, stdin);
        if (n == 0) break;
        fwrite(block, 1, n, copy);
    }
    rewind(copy);
    return copy;
}

// The work file of field values, unlinked as soon as it is open so that it
// is gone when the process ends. Null with errno set when it cannot be had.
FILE *work_file(const char *path) {
    FILE *work = V_open_tmp(path, TmpOpen::Truncate);
    if (work) unlink(path);
    return work;
}

}   // namespace

int E_POST_parser(entry *ent) {
    V_TRACE("E_POST_parser: ");
    const char *tmp = getenv("TMP_DIR");
    if (!tmp || !*tmp) tmp = "/tmp";
    // without a declared length the body runs to the end of the input
    long declared = content_length(LONG_MAX);
    in.left = declared < 0 ? LONG_MAX : declared;
    File copy(Trace ? traced_input(tmp) : nullptr);
    in.f = copy ? copy.get() : stdin;
    in.pos = in.len = 0;
    in.eof = false;

    char boundary[BOUNDARY_MAX + 1];
    read_line(boundary, sizeof boundary);
    char sep[BOUNDARY_MAX + 3];
    int seplen = snprintf(sep, sizeof sep, "\r\n%s", boundary);
    V_TRACE("SEP: %s \nSIZE: %d\n", boundary, seplen);

    char path[4096];
    if (snprintf(path, sizeof path, "%s/post.buff.%d", tmp, (int)getpid()) >= (int)sizeof path)
        return fail("Cannot create work file in %s", tmp);
    File work(work_file(path));
    if (!work) {
        char why[sizeof path + 64];
        snprintf(why, sizeof why, "%s (%s)", path, V_tmp_reason(errno));
        return fail("Cannot create work file %s", why);
    }

    int x = 0;
    std::vector<const char *> uploads;   // the files this request created
    char line[LINE_MAX_BYTES];
    for (bool end = read_line(line, sizeof line); !end && x < V_ENT_MAX - 1;
         end = read_line(line, sizeof line)) {
        V_TRACE("TAKE: %s \n", line);
        char name[LINE_MAX_BYTES];
        if (!quoted_after(line, "name=\"", name, sizeof name)) continue;
        ent[x].name = copy_string(name);
        ent[x].val = nullptr;
        V_TRACE("NAME: %s \n", name);
        bool file = strstr(line, "filename=\"") != nullptr;
        int r = file ? read_upload(&ent[x], x, line, tmp, sep, seplen)
                     : read_field(&ent[x], sep, seplen, work.get());
        if (file && ent[x].val) uploads.push_back(ent[x].val);
        x++;
        if (r != 0) {
            // No page runs after a failed decoding, and only a page moves or
            // removes an upload: the files of this request go now.
            for (const char *path : uploads) unlink(path);
            ent[x].name = ent[x].val = nullptr;
            return r;
        }
    }
    ent[x].name = ent[x].val = nullptr;
    V_TRACE("END: %d values\n", x);
    return 0;
}
