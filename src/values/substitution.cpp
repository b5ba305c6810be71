// Value substitution: finds $(...) references in a line, expands nested ones
// first, and resolves each reference through the modifiers and system names.
// Names whose value comes from above this layer (a user function, the
// database, a stream, the page run) are rows installed at start-up.
#include "values/substitution.h"

#include <cctype>
#include <climits>
#include <crypt.h>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <sys/time.h>
#include <unistd.h>

#include "base/hot_data.h"
#include "driver/diagnostics.h"
#include "form/url_codec.h"
#include "values/arguments.h"
#include "values/buffers.h"
#include "values/dates.h"
#include "values/escapes.h"
#include "values/expressions.h"
#include "values/output.h"
#include "values/variables.h"

namespace {

// Where a translation goes: the page (buf null) or a bounded buffer that is
// filled from pos and always kept NUL-terminated.
struct V_sink {
    char *buf;
    int size;
    int pos;
};

constexpr int FORMAT_MAX = 80;       // printf:/int: formats beyond 79 characters are cut
constexpr int DATE_NAME_MAX = 100;   // dt2str:/str2dt: operands must stay shorter
constexpr int NUM_MAX = 64;

V_HOT const V_VALUE_ROW *value_rows;   // the names resolved above this layer

// Work buffers come from one arena used as a stack: modifiers chain and
// references nest, and a hostile page could otherwise stack thousands of
// 8 KB frames. Every buffer is scoped, so they are handed back in the
// reverse order; a chain deeper than the arena takes the rest from the
// heap. Nothing is allocated per reference in the usual case, and the
// arena's pages are touched only as deep as a page's chains go.
constexpr size_t ARENA_SIZE = 256 * 1024;

// Every name, builtin or installed, goes into the list of its first byte,
// keeping its order of precedence (the builtins first, then the installed
// rows in their own order). A reference is compared only with the names of
// its own first byte; most variable names meet none or one and go straight
// to the variable tree.
constexpr int NAMES_MAX = 255;   // builtins and installed rows together

struct NameEntry {
    unsigned short len;
    short which;   // index into builtins, or BUILTINS + installed row
    bool prefix;
};

struct NameIndex {
    bool built;
    int count;
    short first[257];   // names of byte c: order[first[c]] .. order[first[c + 1] - 1]
    unsigned char order[NAMES_MAX];
    NameEntry entry[NAMES_MAX];   // the name itself is its row's
};

// Every request builds the index and takes its first buffers from the
// arena: the two share the first page of one block, so that together
// they cost the process one page fault.
struct alignas(4096) Workspace {
    NameIndex names;
    alignas(16) char arena[ARENA_SIZE];
};
static_assert(sizeof(NameIndex) <= 3 * 1024, "the index leaves room for the arena's start");
V_PAGE_BLOCK Workspace workspace;
constinit NameIndex &names = workspace.names;
constinit char *const arena = workspace.arena;
V_HOT size_t arena_top;

class Scratch {
public:
    explicit Scratch(int n) : size_(static_cast<size_t>(n)), mark_(arena_top) {
        if (ARENA_SIZE - arena_top >= size_) {
            p_ = arena + arena_top;
            arena_top += size_;
        } else {
            p_ = new char[size_];
            heap_ = true;
        }
        p_[0] = '\0';
    }
    ~Scratch() {
        if (heap_)
            delete[] p_;
        else
            arena_top = mark_;
    }
    Scratch(const Scratch &) = delete;
    Scratch &operator=(const Scratch &) = delete;
    char *get() { return p_; }
    char &operator[](size_t i) { return p_[i]; }

private:
    char *p_;
    size_t size_;
    size_t mark_;
    bool heap_ = false;
};

void sink_bytes(V_sink &s, const char *text, int n) {
    if (!s.buf) {
        V_write_text(text, n);
        return;
    }
    int room = s.size - 1 - s.pos;
    if (n > room) n = room;
    if (n > 0) {
        memcpy(s.buf + s.pos, text, n);
        s.pos += n;
    }
    s.buf[s.pos] = '\0';
}

// One resolved value: to the page through transvalue (encoding, V_len cut,
// flush), or copied into the buffer with the same V_len cut but unencoded.
void sink_value(V_sink &s, const char *value) {
    if (!s.buf) {
        transvalue(value, nullptr);
        return;
    }
    if (!value) value = "";
    int n = (int)strlen(value);
    if (V_len > 0 && n > V_len) n = V_len;
    int room = s.size - 1 - s.pos;
    if (n > room) n = room;
    if (n > 0) {
        memcpy(s.buf + s.pos, value, n);
        s.pos += n;
    }
    s.buf[s.pos] = '\0';
}

void sink_int(V_sink &s, int v) {
    char num[V_INT_TEXT];
    V_int_text(v, num);
    sink_value(s, num);
}

void sink_printf(V_sink &s, const char *fmt, ...) __attribute__((format(printf, 2, 3)));
void sink_printf(V_sink &s, const char *fmt, ...) {
    char num[NUM_MAX];
    va_list ap;
    va_start(ap, fmt);
    vsnprintf(num, sizeof num, fmt, ap);
    va_end(ap);
    sink_value(s, num);
}

// strtol clamped to int: page numbers are hostile and must not overflow.
int to_int(const char *text) {
    long v = strtol(text, nullptr, 10);
    if (v > INT_MAX) return INT_MAX;
    if (v < INT_MIN) return INT_MIN;
    return (int)v;
}

// Copies at most n characters of text (and a NUL) into out of size bytes.
void copy_n(char *out, int size, const char *text, int n) {
    if (n > size - 1) n = size - 1;
    if (n < 0) n = 0;
    memcpy(out, text, n);
    out[n] = '\0';
}

void resolve(const char *ref, V_sink &out);

// The value of a further reference, resolved into work (V_LINE_MAX bytes).
void value_of(const char *ref, char *work) {
    V_sink w{work, V_LINE_MAX, 0};
    work[0] = '\0';
    resolve(ref, w);
}

// Leading blanks go, runs of blanks become one, one trailing blank goes.
// Tabs are ordinary characters here.
void trim_buff(char *text) {
    V_TRACE("trim_buff: IN= {%s}", text);
    char *w = text;
    const char *r = text;
    while (*r == ' ') r++;
    for (; *r; r++) {
        // the first byte written is no blank, so a blank always has one before
        if (*r == ' ' && w[-1] == ' ') continue;
        *w++ = *r;
    }
    if (w > text && w[-1] == ' ') w--;
    *w = '\0';
    V_TRACE("trim_buff: OUT= {%s}", text);
}

void row_txt2url(const char *rest, V_sink &out) {
    Scratch value(V_LINE_MAX);
    value_of(rest, value.get());
    Scratch coded(3 * V_LINE_MAX + 1);
    escape_url(value.get(), coded.get());
    sink_value(out, coded.get());
}

enum { ESC_HTML, ESC_JS };

// html: and js: write the value of R escaped for where it stands. The text
// is cut before the first entity or escape that would not fit whole: in the
// work buffer, under a cut: length, or in what is left of the caller's buffer.
void row_escape(int kind, const char *rest, V_sink &out) {
    Scratch value(V_LINE_MAX);
    value_of(rest, value.get());
    int size = V_LINE_MAX;
    if (V_len > 0 && V_len < size - 1) size = V_len + 1;
    if (out.buf && out.size - out.pos < size) size = out.size - out.pos;
    Scratch coded(V_LINE_MAX);
    if (kind == ESC_HTML)
        V_escape_html(value.get(), coded.get(), size);
    else
        V_escape_js(value.get(), coded.get(), size);
    sink_value(out, coded.get());
}

// The salt is "%02x" of the byte sum (signed chars) % 256, as the int
// arithmetic always did it: C++ '%' truncates toward zero, so a negative sum
// gives a remainder in -255..0, and "%02x" of that int prints eight hex
// digits ("ffffff80"). crypt only reads the first two salt characters, so
// such values all salt with "ff"; the salt is kept as it always was.
void row_crypt(const char *rest, V_sink &out) {
    Scratch value(V_LINE_MAX);
    value_of(rest, value.get());
    int sum = 0;
    for (const char *p = value.get(); *p; p++) sum += (signed char)*p;
    char salt[16];
    snprintf(salt, sizeof salt, "%02x", (unsigned)(sum % 256));
    const char *hash = crypt(value.get(), salt);
    if (!hash || hash[0] == '*') hash = "";
    sink_value(out, hash);
}

// Splits "N:F" of dt2str:/str2dt: into two bounded names; 0 on success,
// else the error has been reported.
int date_operands(const char *ref, const char *rest, const char *what, char *n, char *f) {
    const char *colon = strchr(rest, ':');
    if (!colon) {
        ERRMSG("Bad format for %s: %s \n", what, ref);
        return -1;
    }
    int nlen = (int)(colon - rest);
    int flen = (int)strlen(colon + 1);
    if (nlen >= DATE_NAME_MAX || flen >= DATE_NAME_MAX) {
        ERRMSG("Too long name(s) for %s: %s \n", what, ref);
        return -1;
    }
    copy_n(n, DATE_NAME_MAX, rest, nlen);
    copy_n(f, DATE_NAME_MAX, colon + 1, flen);
    return 0;
}

void row_dt2str(const char *ref, const char *rest, V_sink &out) {
    char n[DATE_NAME_MAX], f[DATE_NAME_MAX];
    if (date_operands(ref, rest, "dt2str", n, f) < 0) return;
    Scratch value(V_LINE_MAX);
    value_of(n, value.get());
    long dt = strtol(value.get(), nullptr, 10);
    Scratch text(V_LINE_MAX);
    V_dt2str(dt, f, text.get());
    text[V_LINE_MAX - 1] = '\0';
    V_TRACE("### dt2str ==> %s \n", text.get());
    sink_value(out, text.get());
}

void row_str2dt(const char *ref, const char *rest, V_sink &out) {
    char n[DATE_NAME_MAX], f[DATE_NAME_MAX];
    if (date_operands(ref, rest, "str2dt", n, f) < 0) return;
    Scratch value(V_LINE_MAX);
    value_of(n, value.get());
    long dt = 0;
    V_str2dt(value.get(), f, &dt);
    sink_printf(out, "%ld", dt);
}

// year:/month:/day: take a piece of a "yyyy-mm-dd" text; shorter values pass.
void row_date_part(const char *rest, int at, int n, const char *trace, V_sink &out) {
    Scratch value(V_LINE_MAX);
    value_of(rest, value.get());
    if (strlen(value.get()) >= 10) {
        memmove(value.get(), value.get() + at, n);
        value[n] = '\0';
    }
    V_TRACE(trace, value.get());
    sink_value(out, value.get());
}

void row_cut(const char *rest, V_sink &out) {
    const char *colon = strchr(rest, ':');
    if (!colon) return;
    V_len = to_int(rest);
    resolve(colon + 1, out);
    V_len = -1;
}

// A UTF-8 character is its lead byte and the continuation bytes
// (10xxxxxx) after it; a stray continuation byte goes with the character
// before it, so no count or cut ever splits a sequence.
bool starts_char(const char *text, const char *p) {
    return p == text || ((unsigned char)*p & 0xC0) != 0x80;
}

int count_chars(const char *text) {
    int n = 0;
    for (const char *p = text; *p; p++) n += starts_char(text, p);
    return n;
}

// ucut:K:R is cut: counting characters: at most K whole characters of the
// value; K below 1 cuts nothing, as with cut:.
void row_ucut(const char *rest, V_sink &out) {
    const char *colon = strchr(rest, ':');
    if (!colon) return;
    int k = to_int(rest);
    Scratch value(V_LINE_MAX);
    char *text = value.get();
    value_of(colon + 1, text);
    int index = 0;
    for (char *p = text; k > 0 && *p; p++) {
        if (starts_char(text, p) && index++ == k) {
            *p = '\0';
            break;
        }
    }
    sink_value(out, text);
}

// str:A:B:R, characters A..B counted from 1; every odd case writes nothing.
void row_str(const char *rest, V_sink &out) {
    if (!*rest) return;
    const char *c1 = strchr(rest, ':');
    if (!c1) return;
    const char *c2 = strchr(c1 + 1, ':');
    if (!c2) return;
    int a = to_int(rest), b = to_int(c1 + 1);
    if (a < 1 || b < 1 || a > b) return;
    Scratch value(V_LINE_MAX);
    value_of(c2 + 1, value.get());
    int len = (int)strlen(value.get());
    if (len < a - 1) return;
    int n = b - a + 1;
    if (n > len - (a - 1)) n = len - (a - 1);
    value[a - 1 + n] = '\0';
    sink_value(out, value.get() + a - 1);
}

// word:R:K, the K-th word of the trimmed value; every blank or tab starts a
// new word, so two tabs in a row hold an empty word between them.
void row_word(const char *rest, V_sink &out) {
    const char *colon = strrchr(rest, ':');
    if (!colon) return;
    int k = to_int(colon + 1);
    if (k < 1) return;
    Scratch name(V_LINE_MAX);
    copy_n(name.get(), V_LINE_MAX, rest, (int)(colon - rest));
    Scratch value(V_LINE_MAX);
    value_of(name.get(), value.get());
    trim_buff(value.get());
    char *p = value.get();
    for (int i = 1; i < k; i++) {
        p += strcspn(p, " \t");
        if (!*p) return;
        p++;
    }
    p[strcspn(p, " \t")] = '\0';
    sink_value(out, p);
}

// A page-supplied format may hold at most one conversion (and any number
// of "%%"): flags, at most four digits of width and of precision, no '*',
// no length modifier. Returns the conversion character, 'n' for a format
// without one (written as its text), or 0 when the format is refused; a
// refused format writes nothing.
char format_conversion(const char *fmt) {
    char conv = 0;
    for (const char *p = fmt; *p; p++) {
        if (*p != '%') continue;
        if (p[1] == '%') {
            p++;
            continue;
        }
        if (conv) return 0;
        p++;
        while (*p && strchr("-+ #0", *p)) p++;
        int digits = 0;
        while (isdigit((unsigned char)*p)) p++, digits++;
        if (digits > 4) return 0;
        if (*p == '.') {
            p++;
            digits = 0;
            while (isdigit((unsigned char)*p)) p++, digits++;
            if (digits > 4) return 0;
        }
        if (!*p || !strchr("diouxXcsfeEgG", *p)) return 0;
        conv = *p;
    }
    return conv ? conv : 'n';
}

// The checked format may be any text; its one conversion (if any) matches
// the argument type passed, so this is safe despite the non-literal format.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
void format_int(V_sink &out, const char *fmt, char conv, int v) {
    Scratch text(V_LINE_MAX);
    if (strchr("ouxX", conv))
        snprintf(text.get(), V_LINE_MAX, fmt, (unsigned)v);
    else
        snprintf(text.get(), V_LINE_MAX, fmt, v);
    sink_value(out, text.get());
}

void format_double(V_sink &out, const char *fmt, double v) {
    Scratch text(V_LINE_MAX);
    snprintf(text.get(), V_LINE_MAX, fmt, v);
    sink_value(out, text.get());
}

void format_text(V_sink &out, const char *fmt, const char *v) {
    Scratch text(V_LINE_MAX);
    snprintf(text.get(), V_LINE_MAX, fmt, v);
    sink_value(out, text.get());
}
#pragma GCC diagnostic pop

// int:F:K, the literal integer K through the format F; F ends at the last
// ':' so that a format may itself hold a colon.
void row_int(const char *rest, V_sink &out) {
    const char *colon = strrchr(rest, ':');
    if (!colon) return;
    char fmt[FORMAT_MAX];
    copy_n(fmt, FORMAT_MAX, rest, (int)(colon - rest));
    char conv = format_conversion(fmt);
    if (!conv || !strchr("diouxXcn", conv)) return;
    format_int(out, fmt, conv, to_int(colon + 1));
}

// printf:F:N, the first value of variable N through F. The argument type is
// chosen by the format's own conversion character (s and c take the text, c
// its first byte; f, e, g a number read as floating; the others an integer),
// so a letter in the literal part of the format cannot mismatch the type.
void row_printf(const char *rest, V_sink &out) {
    const char *colon = strrchr(rest, ':');
    if (!colon) return;
    char fmt[FORMAT_MAX];
    copy_n(fmt, FORMAT_MAX, rest, (int)(colon - rest));
    const char *value = V_get_value(colon + 1);
    if (!value) value = "";
    char conv = format_conversion(fmt);
    if (!conv) return;
    if (conv == 'n') return format_int(out, fmt, conv, 0);
    if (conv == 's') return format_text(out, fmt, value);
    if (conv == 'c') return format_int(out, fmt, conv, (unsigned char)value[0]);
    if (strchr("feEgG", conv)) return format_double(out, fmt, strtod(value, nullptr));
    format_int(out, fmt, conv, to_int(value));
}

// EXPR_parser answers 1 or 2 only: an invalid expression is no error.
void row_expr(const char *rest, V_sink &out) {
    int vi = 0;
    float vf = 0;
    if (EXPR_parser(rest, &vi, &vf) == 1)
        sink_int(out, vi);
    else
        sink_printf(out, "%f", (double)vf);
}

void row_today(V_sink &out) {
    char today[V_TODAY_SIZE];
    V_today(today, sizeof today);
    sink_value(out, today);
}

void row_udt(V_sink &out) {
    struct timeval tv;
    gettimeofday(&tv, nullptr);
    sink_printf(out, "%ld.%06d", (long)tv.tv_sec, (int)tv.tv_usec);
}

// Microseconds since the previous V_DDT of this process; 0 the first time.
void row_ddt(V_sink &out) {
    static struct timeval last;
    static int seen;
    struct timeval now;
    gettimeofday(&now, nullptr);
    long long us = 0;
    if (seen) us = (long long)(now.tv_sec - last.tv_sec) * 1000000 + (now.tv_usec - last.tv_usec);
    seen = 1;
    last = now;
    if (us > INT_MAX) us = INT_MAX;
    sink_printf(out, "%d", (int)us);
}

// Seeds through srand while the numbers come from random(): the pages have
// always seen this pairing, so it stays.
void row_random(V_sink &out) {
    static int seeded;
    if (!seeded) {
        srand((unsigned)getpid());
        seeded = 1;
    }
    sink_printf(out, "%ld", random());
}

void row_count(avl_tree_t &tree, V_sink &out) {
    int maxlen = 0;
    int n = count_tree(tree.root, &maxlen);
    sink_printf(out, "%d [%d]", n, maxlen);
}

void row_variable(const char *ref, V_sink &out) {
    const char *value = V_get_value(ref);
    if (!value) {
        V_TRACE("V_transvalue: no value for: [%s]", ref);
        value = "";
    }
    sink_value(out, value);
}

// The string modifiers that take the value of R and rewrite it in place.
enum { IN_SH, IN_URL2TXT, IN_TRIM, IN_LOWER, IN_UPPER };

void row_inplace(int kind, const char *rest, V_sink &out) {
    Scratch value(V_LINE_MAX);
    value_of(rest, value.get());
    char *v = value.get();
    if (kind == IN_SH) {
        // Under cut: the escape cuts its own text to the limit, whole pairs
        // and quoted runs only; cutting after it could leave a lone
        // backslash or an open quote on the command line.
        int limit = V_len > 0 && V_len < V_LINE_MAX ? V_len + 1 : V_LINE_MAX;
        escape_shell_cmd(v, limit);
    }
    if (kind == IN_URL2TXT) unescape_url(v);
    if (kind == IN_TRIM) trim_buff(v);
    if (kind == IN_LOWER)
        for (char *p = v; *p; p++) *p = (char)tolower((unsigned char)*p);
    if (kind == IN_UPPER)
        for (char *p = v; *p; p++) *p = (char)toupper((unsigned char)*p);
    sink_value(out, v);
}

void row_len(const char *rest, V_sink &out) {
    Scratch value(V_LINE_MAX);
    value_of(rest, value.get());
    sink_int(out, (int)strlen(value.get()));
}

void row_ulen(const char *rest, V_sink &out) {
    Scratch value(V_LINE_MAX);
    value_of(rest, value.get());
    sink_int(out, count_chars(value.get()));
}

void row_env(const char *rest, V_sink &out) {
    const char *env = getenv(rest);
    sink_value(out, env ? env : "");
}

// A name the value layer answers itself: the whole reference (prefix
// false) or any reference that begins with it (prefix true), which pages
// rely on for the system names.
using Answer = void (*)(const char *ref, const char *rest, V_sink &out);
struct Builtin {
    const char *name;
    bool prefix;
    Answer answer;
};

#define ANSWER(...) [](const char *ref, const char *rest, V_sink &out) { __VA_ARGS__; }

// The names in their order of precedence, the first match deciding: the
// control characters (the two-character escape a page writes, or the
// character itself), the modifiers, then the system names. The order
// matters because some names are prefixes of others and of variable names.
const Builtin builtins[] = {
    {"\\t", false, ANSWER((void)ref, (void)rest, sink_value(out, "\t"))},
    {"\t", false, ANSWER((void)ref, (void)rest, sink_value(out, "\t"))},
    {"\\n", false, ANSWER((void)ref, (void)rest, sink_value(out, "\n"))},
    {"\n", false, ANSWER((void)ref, (void)rest, sink_value(out, "\n"))},
    {"\\r", false, ANSWER((void)ref, (void)rest, sink_value(out, "\r"))},
    {"\r", false, ANSWER((void)ref, (void)rest, sink_value(out, "\r"))},
    {"sh:", true, ANSWER((void)ref, row_inplace(IN_SH, rest, out))},
    {"txt2url:", true, ANSWER((void)ref, row_txt2url(rest, out))},
    {"url2txt:", true, ANSWER((void)ref, row_inplace(IN_URL2TXT, rest, out))},
    {"html:", true, ANSWER((void)ref, row_escape(ESC_HTML, rest, out))},
    {"js:", true, ANSWER((void)ref, row_escape(ESC_JS, rest, out))},
    {"trim:", true, ANSWER((void)ref, row_inplace(IN_TRIM, rest, out))},
    {"lower:", true, ANSWER((void)ref, row_inplace(IN_LOWER, rest, out))},
    {"upper:", true, ANSWER((void)ref, row_inplace(IN_UPPER, rest, out))},
    {"crypt:", true, ANSWER((void)ref, row_crypt(rest, out))},
    {"dt2str:", true, ANSWER(row_dt2str(ref, rest, out))},
    {"str2dt:", true, ANSWER(row_str2dt(ref, rest, out))},
    {"year:", true, ANSWER((void)ref, row_date_part(rest, 0, 4, "date_YEAR: %s", out))},
    {"month:", true, ANSWER((void)ref, row_date_part(rest, 5, 2, "date_MONTH: %s", out))},
    {"day:", true, ANSWER((void)ref, row_date_part(rest, 8, 2, "date_DAY: %s", out))},
    {"len:", true, ANSWER((void)ref, row_len(rest, out))},
    {"cut:", true, ANSWER((void)ref, row_cut(rest, out))},
    {"ulen:", true, ANSWER((void)ref, row_ulen(rest, out))},
    {"ucut:", true, ANSWER((void)ref, row_ucut(rest, out))},
    {"str:", true, ANSWER((void)ref, row_str(rest, out))},
    {"word:", true, ANSWER((void)ref, row_word(rest, out))},
    {"int:", true, ANSWER((void)ref, row_int(rest, out))},
    {"printf:", true, ANSWER((void)ref, row_printf(rest, out))},
    {"expr:", true, ANSWER((void)ref, row_expr(rest, out))},
    {"env:", true, ANSWER((void)ref, row_env(rest, out))},
    {"today", false, ANSWER((void)ref, (void)rest, row_today(out))},
    {"V_DT", true, ANSWER((void)ref, (void)rest, sink_printf(out, "%ld", (long)time(nullptr)))},
    {"V_UDT", true, ANSWER((void)ref, (void)rest, row_udt(out))},
    {"V_DDT", true, ANSWER((void)ref, (void)rest, row_ddt(out))},
    {"V_RANDOM", true, ANSWER((void)ref, (void)rest, row_random(out))},
    {"V_VERSION", true, ANSWER((void)ref, (void)rest, sink_printf(out, "%d", 670))},
    {"V_NVAL", true, ANSWER((void)ref, (void)rest, row_count(v_BUFFERS.vtree, out))},
    {"V_NFUN", true, ANSWER((void)ref, (void)rest, row_count(v_BUFFERS.ftree, out))},
    {"V_ERRMSG", false, ANSWER((void)ref, (void)rest, sink_value(out, V_ERRMSG))},
};
#undef ANSWER

constexpr int BUILTINS = (int)(sizeof builtins / sizeof builtins[0]);
const char *name_of(const NameEntry &e) {
    return e.which < BUILTINS ? builtins[e.which].name : value_rows[e.which - BUILTINS].name;
}


void index_name(const char *name, bool prefix, int which) {
    // an empty name is never looked for: it would begin every reference
    size_t len = strlen(name);
    if (names.count >= NAMES_MAX || len == 0 || len > USHRT_MAX) return;
    names.entry[names.count++] = {(unsigned short)len, (short)which, prefix};
}

void build_names() {
    names.count = 0;
    for (int i = 0; i < BUILTINS; i++) index_name(builtins[i].name, builtins[i].prefix, i);
    for (int r = 0; value_rows && value_rows[r].name; r++)
        index_name(value_rows[r].name, value_rows[r].prefix, BUILTINS + r);
    int counts[256] = {};
    for (int i = 0; i < names.count; i++) counts[(unsigned char)name_of(names.entry[i])[0]]++;
    names.first[0] = 0;
    for (int c = 0; c < 256; c++) names.first[c + 1] = (short)(names.first[c] + counts[c]);
    short fill[256];
    memcpy(fill, names.first, sizeof fill);
    for (int i = 0; i < names.count; i++)   // stable: precedence kept within a byte
        names.order[fill[(unsigned char)name_of(names.entry[i])[0]]++] = (unsigned char)i;
    names.built = true;
}

void answer_installed(const V_VALUE_ROW &row, const char *rest, V_sink &out) {
    Scratch value(V_LINE_MAX);
    row.value(rest, value.get());
    sink_value(out, value.get());
}

// Bumped whenever the installed rows change, so that a split made against
// the old names is not used with the new ones.
V_HOT int names_generation;

// The builtin or installed name that answers ref, as an index into builtins
// or BUILTINS + the installed row, with *rest the text behind it; -1 for a
// variable.
int match_name(const char *ref, const char **rest) {
    if (!names.built) build_names();
    unsigned char c = (unsigned char)ref[0];
    for (int k = names.first[c]; k < names.first[c + 1]; k++) {
        const NameEntry &e = names.entry[names.order[k]];
        if (strncmp(ref, name_of(e), e.len) != 0) continue;
        *rest = ref + e.len;
        if (!e.prefix && **rest) continue;
        return e.which;
    }
    return -1;
}

void answer(int which, const char *ref, const char *rest, V_sink &out) {
    if (which < BUILTINS)
        builtins[which].answer(ref, rest, out);
    else
        answer_installed(value_rows[which - BUILTINS], rest, out);
}

void resolve(const char *ref, V_sink &out) {
    V_TRACE("V_transvalue: [%s]", ref);
    const char *rest = nullptr;
    int which = match_name(ref, &rest);
    if (which >= 0)
        answer(which, ref, rest, out);
    else
        row_variable(ref, out);
}

// The next "$(" of text, or null.
const char *find_ref(const char *text) {
    for (const char *p = strchr(text, '$'); p; p = strchr(p + 1, '$'))
        if (p[1] == '(') return p;
    return nullptr;
}

// Collects the text of one reference starting behind "$(" up to its
// matching ')' (or the end of the line), cut at V_REF_MAX - 1 characters.
// Returns the position of the closing ')' or of the terminating NUL.
const char *collect_ref(const char *p, char *ref) {
    int depth = 0, n = 0;
    for (; *p; p++) {
        if (*p == ')') {
            if (depth == 0) break;
            depth--;
        } else if (*p == '(') {
            depth++;
        }
        if (n < V_REF_MAX - 1) ref[n++] = *p;
    }
    ref[n] = '\0';
    return p;
}

// One piece of a split text: a literal run, or a reference with what
// answers it found once. A reference that holds others is split itself; its
// expanded text decides what answers it on every use.
enum SegKind : unsigned char { SEG_TEXT, SEG_VARIABLE, SEG_NAME, SEG_NESTED };

struct Segment {
    SegKind kind;
    bool ascii;           // SEG_TEXT: no byte above 127, so nothing to encode
    int which;            // SEG_NAME, SEG_NESTED: as match_name gives it
    int len;              // SEG_TEXT: bytes of the run
    int rest;             // SEG_NAME, SEG_NESTED: where the text behind the name begins
    const char *text;     // the run, or the reference's text with its NUL
    V_TEXT_FORM *inner;   // SEG_NESTED: the split of the reference's text
    V_MEMO memo;          // SEG_VARIABLE
};

}   // namespace

struct V_TEXT_FORM {
    int generation;   // names_generation when it was made
    int count;
    Segment *seg;
    char *text;   // the runs and references, each with a NUL
};

namespace {

constexpr int NAME_UNDECIDED = -2;   // the expansion itself must be matched

// What answers a nested reference whose expansion begins with the literal
// lit (len bytes), followed by more text when more is set: as match_name
// gives it, with *rest the name's length, when the literal alone decides
// it; NAME_UNDECIDED when the text after it could still change the match.
int decide_name(const char *lit, int len, bool more, int *rest) {
    if (!names.built) build_names();
    unsigned char c = (unsigned char)lit[0];
    for (int k = names.first[c]; k < names.first[c + 1]; k++) {
        const NameEntry &e = names.entry[names.order[k]];
        int n = (int)e.len;
        if (strncmp(lit, name_of(e), (size_t)(n < len ? n : len)) != 0) continue;
        // the literal is this name's beginning, or the name is the literal's
        if (n > len || (!e.prefix && n == len && more)) return NAME_UNDECIDED;
        if (!e.prefix && n < len) continue;
        *rest = n;
        return e.which;
    }
    return -1;
}

// Splits text as V_transline_n walks it; null for what the split leaves to
// the walk: an unclosed reference, one cut at V_REF_MAX, or one holding a
// line end (whose meaning depends on IgnoreEmpty).
V_TEXT_FORM *split_text(const char *text) {
    int count = 0;
    for (const char *p = text, *mark; (mark = find_ref(p)) != nullptr;) {
        int depth = 0;
        const char *q = mark + 2;
        for (; *q; q++) {
            if (*q == '\n') return nullptr;
            if (*q == ')' && depth-- == 0) break;
            if (*q == '(') depth++;
        }
        if (!*q || q - (mark + 2) >= V_REF_MAX - 1) return nullptr;
        count += 2;
        p = q + 1;
    }
    count++;
    size_t len = strlen(text);
    auto *f = static_cast<V_TEXT_FORM *>(calloc(1, sizeof(V_TEXT_FORM)));
    auto *seg = static_cast<Segment *>(calloc((size_t)count, sizeof(Segment)));
    char *copy = static_cast<char *>(malloc(len + (size_t)count + 1));
    if (!f || !seg || !copy) {
        free(f);
        free(seg);
        free(copy);
        return nullptr;
    }
    f->seg = seg;
    f->text = copy;
    f->generation = names_generation;
    char *w = copy;
    auto add = [&](SegKind kind, const char *from, int n) -> Segment & {
        Segment &g = seg[f->count++];
        g.kind = kind;
        g.len = n;
        g.ascii = true;
        for (int k = 0; k < n; k++)
            if (from[k] & 0x80) g.ascii = false;
        g.text = w;
        memcpy(w, from, (size_t)n);
        w += n;
        *w++ = '\0';
        return g;
    };
    const char *p = text;
    for (const char *mark; (mark = find_ref(p)) != nullptr;) {
        if (mark > p) add(SEG_TEXT, p, (int)(mark - p));
        int depth = 0;
        const char *q = mark + 2;
        for (; *q; q++) {
            if (*q == ')' && depth-- == 0) break;
            if (*q == '(') depth++;
        }
        Segment &g = add(SEG_VARIABLE, mark + 2, (int)(q - (mark + 2)));
        const char *rest = nullptr;
        if (find_ref(g.text)) {
            g.kind = SEG_NESTED;
            g.inner = split_text(g.text);
            if (!g.inner) {
                V_free_text_form(f);
                return nullptr;
            }
            const Segment &head = g.inner->seg[0];
            g.which = NAME_UNDECIDED;
            if (head.kind == SEG_TEXT)
                g.which = decide_name(head.text, head.len, g.inner->count > 1, &g.rest);
        } else if ((g.which = match_name(g.text, &rest)) >= 0) {
            g.kind = SEG_NAME;
            g.rest = (int)(rest - g.text);
        }
        p = q + 1;
    }
    if (*p) add(SEG_TEXT, p, (int)strlen(p));
    return f;
}

// The walk of V_transline_n over a split text, into out.
void run_form(const V_TEXT_FORM *f, V_sink &out) {
    for (int i = 0; i < f->count; i++) {
        Segment &g = f->seg[i];
        switch (g.kind) {
        case SEG_TEXT:
            if (!out.buf && g.ascii)
                V_write_ascii(g.text, g.len);
            else
                sink_bytes(out, g.text, g.len);
            break;
        case SEG_VARIABLE: {
            const char *value = V_get_value_memo(g.text, &g.memo);
            if (!value) {
                V_TRACE("V_transvalue: no value for: [%s]", g.text);
                value = "";
            }
            // a plain value runs no page code: the line's end reads the clock
            if (!out.buf)
                V_write_value(value);
            else
                sink_value(out, value);
            break;
        }
        case SEG_NAME: answer(g.which, g.text, g.text + g.rest, out); break;
        case SEG_NESTED: {
            Scratch expanded(V_REF_MAX);
            V_sink w{expanded.get(), V_REF_MAX, 0};
            run_form(g.inner, w);
            if (g.which >= 0)
                answer(g.which, expanded.get(), expanded.get() + g.rest, out);
            else if (g.which == -1)
                row_variable(expanded.get(), out);
            else
                resolve(expanded.get(), out);
            break;
        }
        }
    }
}

}   // namespace

V_TEXT_FORM *V_text_form(const char *line) {
    if (!line) return nullptr;
    if (!names.built) build_names();
    return split_text(line);
}

void V_free_text_form(V_TEXT_FORM *form) {
    if (!form) return;
    for (int i = 0; i < form->count; i++)
        if (form->seg[i].kind == SEG_NESTED) V_free_text_form(form->seg[i].inner);
    free(form->seg);
    free(form->text);
    free(form);
}

void V_transline_form(const V_TEXT_FORM *form, const char *line, char *buff, int size,
                      int compile) {
    if (!form || !compile || (IgnoreEmpty && line[0] == '\n') || Trace || !V_trace_ready ||
        form->generation != names_generation) {
        V_transline_n(line, buff, size, compile);
        return;
    }
    if (buff && size <= 0) return;
    if (buff) buff[0] = '\0';
    V_sink out{buff, size, 0};
    run_form(form, out);
    if (!buff && DO_fflush) V_piece_written(V_out());
}

void V_transline_n(const char *line, char *buff, int size, int compile) {
    if (buff && size <= 0) return;
    if (buff) buff[0] = '\0';
    if (!line) return;
    if (IgnoreEmpty && line[0] == '\n') return;
    V_sink out{buff, size, 0};
    if (!compile) {
        sink_value(out, line);
        return;
    }
    const char *p = line;
    const char *mark = find_ref(p);
    if (!mark) {
        if (*p) sink_bytes(out, p, (int)strlen(p));
    } else {
        Scratch ref(V_REF_MAX);
        while (mark) {
            if (mark > p) sink_bytes(out, p, (int)(mark - p));
            const char *end = collect_ref(mark + 2, ref.get());
            if (!find_ref(ref.get())) {
                // Nothing nested: expanding would copy the text as it is, but
                // for the empty text it makes of a leading line end.
                resolve(IgnoreEmpty && ref[0] == '\n' ? "" : ref.get(), out);
            } else {
                Scratch expanded(V_REF_MAX);
                V_transline_n(ref.get(), expanded.get(), V_REF_MAX, 1);
                resolve(expanded.get(), out);
            }
            if (!*end) break;
            p = end + 1;
            mark = find_ref(p);
            if (!mark && *p) sink_bytes(out, p, (int)strlen(p));
        }
    }
    if (!buff && DO_fflush) V_piece_written(V_out());
}

void V_set_value_rows(const V_VALUE_ROW *rows) {
    value_rows = rows;
    names.built = false;
    names_generation++;
}

void V_transline(const char *line, char *buff, int compile) {
    V_transline_n(line, buff, V_LINE_MAX, compile);
}

void V_transvalue(const char *ref, char *buff) {
    V_sink out{buff, V_LINE_MAX, 0};
    if (buff) buff[0] = '\0';
    resolve(ref ? ref : "", out);
}
