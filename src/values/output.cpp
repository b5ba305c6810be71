// Output of page text and values: the current stream, the Latin-1 entity
// table and its byte look-up, the value length cut, and the hold buffer of
// the response. Sending after every piece cost a write call per line and
// value; held bytes keep their order because every writer goes through the
// one stdio stream, and the flush points send them before any other process
// can write to the same descriptor.
#include "values/output.h"

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <ctime>
#include <stdio_ext.h>
#include <unistd.h>

#include "base/hot_data.h"
#include "values/response.h"

int HTML = 1;
int V_len = -1;
int DO_fflush = 1;
int IgnoreEmpty = 1;
V_HOT FILE *V_stdout;

const HTML_code HTML_tab[] = {
    {"&aacute;", "\xE1"},
    {"&eacute;", "\xE9"},
    {"&iacute;", "\xED"},
    {"&oacute;", "\xF3"},
    {"&uacute;", "\xFA"},
    {"&yacute;", "\xFD"},
    {"&Oacute;", "\xD3"},
    {"&Aacute;", "\xC1"},
    {"&Iacute;", "\xCD"},
    {"&Eacute;", "\xC9"},
    {"&Uacute;", "\xDA"},
    {"&Yacute;", "\xDD"},
    {"&agrave;", "\xE0"},
    {"&egrave;", "\xE8"},
    {"&igrave;", "\xEC"},
    {"&ograve;", "\xF2"},
    {"&ugrave;", "\xF9"},
    {"&Agrave;", "\xC0"},
    {"&Egrave;", "\xC8"},
    {"&Igrave;", "\xCC"},
    {"&Ograve;", "\xD2"},
    {"&Ugrave;", "\xD9"},
    {"&auml;", "\xE4"},
    {"&euml;", "\xEB"},
    {"&iuml;", "\xEF"},
    {"&ouml;", "\xF6"},
    {"&uuml;", "\xFC"},
    {"&Auml;", "\xC4"},
    {"&Euml;", "\xCB"},
    {"&Iuml;", "\xCF"},
    {"&Ouml;", "\xD6"},
    {"&Uuml;", "\xDC"},
    {"&acirc;", "\xE2"},
    {"&ecirc;", "\xEA"},
    {"&icirc;", "\xEE"},
    {"&ocirc;", "\xF4"},
    {"&ucirc;", "\xFB"},
    {"&Acirc;", "\xC2"},
    {"&Ecirc;", "\xCA"},
    {"&Icirc;", "\xCE"},
    {"&Ocirc;", "\xD4"},
    {"&Ucirc;", "\xDB"},
    {"&atilde;", "\xE3"},
    {"&ntilde;", "\xF1"},
    {"&otilde;", "\xF5"},
    {"&Atilde;", "\xC3"},
    {"&Ntilde;", "\xD1"},
    {"&Otilde;", "\xD5"},
    {"&ccedil;", "\xE7"},
    {"&Ccedil;", "\xC7"},
    // These two names are what the sites' pages expect; they are not the
    // standard entity names and must stay as they are.
    {"&ordmas;", "\xF8"},
    {"&questi;", "\xBF"},
    {nullptr, nullptr},
};

namespace {

constexpr size_t HOLD_SIZE = 64 * 1024;   // the pipe's usual capacity
constexpr long SEND_INTERVAL_NS = 50L * 1000 * 1000;

char hold[HOLD_SIZE];
bool holding;   // stdout runs on hold (not in unit tests or a page check)
// When the response was last sent, or when the output started: a page done
// within the interval goes out in one piece, its header block with it.
timespec last_send;
// How many of the held bytes end with a finished piece: what flushing after
// every piece would have sent by now.
size_t piece_end;

// The coarse clock is read without a system call: cheap enough per piece.
timespec now() {
    timespec t{};
    clock_gettime(CLOCK_MONOTONIC_COARSE, &t);
    return t;
}

bool interval_passed() {
    timespec t = now();
    long long ns =
        (long long)(t.tv_sec - last_send.tv_sec) * 1000000000LL + (t.tv_nsec - last_send.tv_nsec);
    return ns >= SEND_INTERVAL_NS;
}

const char *const *entities() {
    static const char *table[256];
    static bool built = false;
    if (!built) {
        for (const HTML_code *row = HTML_tab; row->html; row++)
            table[static_cast<unsigned char>(row->text[0])] = row->html;
        built = true;
    }
    return table;
}

// Every entity stands for a byte with the high bit set, so text is scanned
// eight bytes at a time for such a byte; plain ASCII goes out in one write.
bool all_ascii(const char *text, size_t n) {
    constexpr uint64_t HIGH_BITS = 0x8080808080808080ULL;
    size_t i = 0;
    for (; i + sizeof(uint64_t) <= n; i += sizeof(uint64_t)) {
        uint64_t w;
        memcpy(&w, text + i, sizeof w);
        if (w & HIGH_BITS) return false;
    }
    for (; i < n; i++)
        if (text[i] & 0x80) return false;
    return true;
}

// fwrite for the short pieces a page is made of: copied straight into the
// stream's buffer while it has room, as putc_unlocked does byte by byte
// (a line-buffered or unbuffered stream never has room, so it still goes
// through stdio); stdio's own path otherwise.
void put_bytes(FILE *fp, const char *text, size_t n) {
    if (static_cast<size_t>(fp->_IO_write_end - fp->_IO_write_ptr) >= n) {
        memcpy(fp->_IO_write_ptr, text, n);
        fp->_IO_write_ptr += n;
        return;
    }
    fwrite(text, 1, n, fp);
}

// Runs of bytes without an entity go out in one write.
void write_encoded(FILE *fp, const char *text, size_t n) {
    if (all_ascii(text, n)) {
        put_bytes(fp, text, n);
        return;
    }
    const char *const *table = entities();
    size_t start = 0;
    for (size_t i = 0; i < n; i++) {
        const char *ent = table[static_cast<unsigned char>(text[i])];
        if (!ent) continue;
        if (i > start) fwrite(text + start, 1, i - start, fp);
        fputs(ent, fp);
        start = i + 1;
    }
    if (n > start) fwrite(text + start, 1, n - start, fp);
}

}   // namespace

void V_output_start() {
    last_send = now();
    holding = setvbuf(stdout, hold, _IOFBF, sizeof hold) == 0;
    // The process runs one thread: stdio need not lock the stream for
    // every write.
    __fsetlocking(stdout, FSETLOCKING_BYCALLER);
}

void V_flush_output(Flush what) {
    if (what == Flush::Fork) {
        fflush(nullptr);
    } else {
        if (what == Flush::Handover && V_stdout) fflush(V_stdout);
        fflush(stdout);
    }
    last_send = now();
    piece_end = 0;
}

namespace {

// What __fpending(stdout) gives, without the call.
size_t held_bytes() {
    return static_cast<size_t>(stdout->_IO_write_ptr - stdout->_IO_write_base);
}

// A finished piece without the interval: another stream is flushed as every
// piece always was; for the response the end of the piece is noted.
void mark_piece(FILE *fp) {
    if (fp != stdout)
        fflush(fp);
    else
        piece_end = held_bytes();
}

}   // namespace

void V_piece_written(FILE *fp) {
    if (fp != stdout) {
        fflush(fp);
        return;
    }
    if (interval_passed()) V_flush_output();
    piece_end = held_bytes();
}

// stdio keeps the held bytes from the start of its buffer, which is ours.
// Fewer held bytes than the mark mean the buffer filled and went out since:
// the finished pieces have been sent with it.
void V_output_fault() {
    size_t held = __fpending(stdout);
    if (!holding || held > sizeof hold) {
        V_flush_output();
        return;
    }
    if (held < piece_end) return;
    static char tail[HOLD_SIZE];
    size_t rest = held - piece_end;
    memcpy(tail, hold + piece_end, rest);
    for (size_t sent = 0; sent < piece_end;) {
        ssize_t n = write(STDOUT_FILENO, hold + sent, piece_end - sent);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;   // the reader is gone: nothing more can be sent
        sent += (size_t)n;
    }
    // Held as before, should the process go on (a blocked signal)
    __fpurge(stdout);
    fwrite(tail, 1, rest, stdout);
    piece_end = 0;
}

FILE *V_out() {
    if (V_stdout) return V_stdout;
    // page output is about to reach the response: a deferred header block
    // ends first
    V_response_settle();
    return stdout;
}

// The V_len cut is a bounded length, so the caller's text is never touched.
int transvalue(const char *value, char *buff) {
    if (!value) value = "";
    size_t n = strlen(value);
    if (V_len > 0 && n > static_cast<size_t>(V_len)) n = static_cast<size_t>(V_len);
    if (buff) {
        memcpy(buff, value, n);
        buff[n] = '\0';
        return V_len;
    }
    FILE *fp = V_out();
    if (HTML)
        write_encoded(fp, value, n);
    else
        put_bytes(fp, value, n);
    if (DO_fflush) V_piece_written(fp);
    return V_len;
}

void V_write_value(const char *value) {
    if (!value) value = "";
    size_t n = strlen(value);
    if (V_len > 0 && n > static_cast<size_t>(V_len)) n = static_cast<size_t>(V_len);
    FILE *fp = V_out();
    if (HTML)
        write_encoded(fp, value, n);
    else
        put_bytes(fp, value, n);
    if (DO_fflush) mark_piece(fp);
}

void V_write_text(const char *text, int n) {
    if (!text || n <= 0) return;
    FILE *fp = V_out();
    if (HTML)
        write_encoded(fp, text, static_cast<size_t>(n));
    else
        put_bytes(fp, text, static_cast<size_t>(n));
}

void V_write_ascii(const char *text, int n) {
    if (n > 0) put_bytes(V_out(), text, static_cast<size_t>(n));
}

void V_write_escaped(FILE *fp, const char *text) {
    if (!text) return;
    const char *run = text;
    for (; *text; text++) {
        const char *ent = nullptr;
        switch (*text) {
        case '&': ent = "&amp;"; break;
        case '<': ent = "&lt;"; break;
        case '>': ent = "&gt;"; break;
        case '"': ent = "&quot;"; break;
        default: continue;
        }
        if (text > run) fwrite(run, 1, static_cast<size_t>(text - run), fp);
        fputs(ent, fp);
        run = text + 1;
    }
    if (text > run) fwrite(run, 1, static_cast<size_t>(text - run), fp);
}
