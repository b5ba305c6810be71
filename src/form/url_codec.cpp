// Small text utilities of form decoding: word cutting, URL escapes, shell
// escapes and file-name stripping, shared with value substitution.
#include "form/url_codec.h"

#include <cstdlib>
#include <cstring>
#include <memory>

#include "base/hot_data.h"
#include "driver/diagnostics.h"

namespace {

V_HOT int cut_fields;   // fields fmakeword has cut in this process

// Bytes that mean something to the shell somewhere in a word: operators,
// quotes, globs, expansions, and the word-start specials (# comment, ~ home,
// = assignment, ! negation, % job names). A backslash makes each an
// ordinary character.
constexpr char SHELL_SPECIAL[] = "&;`'\"|*?~<>^()[]{}$\\#=!%";
constexpr char SHELL_QUOTE = '\'';
constexpr unsigned char FIRST_PRINTABLE = 0x20;   // the blank
constexpr unsigned char DELETE = 0x7f;

// Bytes a backslash cannot carry: a backslash before a line feed joins two
// lines and drops both, and in a multibyte locale a shell may take a byte
// above 127 and the backslash after it for one character. Inside single
// quotes every byte but the quote itself stands for itself.
bool needs_quotes(unsigned char c) {
    return c < FIRST_PRINTABLE || c >= DELETE;
}

}   // namespace

// Reads one field of the body up to stop, counting every byte read against
// *cl. A field beyond V_FIELD_MAX characters keeps its first V_FIELD_MAX;
// later characters all land on the next slot, so a field ended by the
// length (not by stop) also keeps its final character. A cut is only
// counted here: the body is decoded while the header block is still open,
// where any text would break the response (see fmakeword_warning).
char *fmakeword(FILE *f, char stop, int *cl) {
    static char word[V_FIELD_MAX + 2];
    int ll = 0, cut = 0, stopped = 0;
    for (;;) {
        int c = fgetc(f);
        if (c == EOF) break;
        --(*cl);
        if (c == stop) {
            stopped = 1;
            break;
        }
        if (ll == V_FIELD_MAX) cut = 1;
        word[ll] = (char)c;
        if (ll < V_FIELD_MAX) ll++;
        if (*cl == 0) break;
    }
    if (cut && !stopped) ll++;
    word[ll] = '\0';
    if (cut) {
        cut_fields++;
        V_TRACE("fmakeword: field cut at %d characters\n", V_FIELD_MAX);
    }
    char *copy = (char *)malloc(ll + 1);
    memcpy(copy, word, ll + 1);
    return copy;
}

int fmakeword_cuts() {
    return cut_fields;
}

void fmakeword_warning(FILE *out) {
    if (cut_fields)
        fprintf(out, "<hr> WARNING: Value value size is over %d!!! [cut]... <hr>", V_FIELD_MAX);
}

// No validation: any digit at or above 'A' counts as a letter.
char x2c(const char *what) {
    int hi = (unsigned char)what[0], lo = (unsigned char)what[1];
    hi = hi >= 'A' ? (hi & 0xdf) - 'A' + 10 : hi - '0';
    lo = lo >= 'A' ? (lo & 0xdf) - 'A' + 10 : lo - '0';
    return (char)(unsigned char)(hi * 16 + lo);
}

// A '%' without two characters behind it is kept as it stands.
void unescape_url(char *url) {
    char *w = url;
    for (const char *r = url; *r; r++) {
        if (r[0] == '%' && r[1] && r[2]) {
            *w++ = x2c(r + 1);
            r += 2;
        } else {
            *w++ = *r;
        }
    }
    *w = '\0';
}

void escape_url(const char *text, char *out) {
    static const char hex[] = "0123456789abcdef";
    for (; *text; text++) {
        unsigned char c = (unsigned char)*text;
        if ((c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9')) {
            *out++ = (char)c;
            continue;
        }
        *out++ = '%';
        *out++ = hex[c >> 4];
        *out++ = hex[c & 15];
    }
    *out = '\0';
}

void plustospace(char *str) {
    for (; *str; str++)
        if (*str == '+') *str = ' ';
}

int rind(const char *s, char c) {
    const char *p = strrchr(s, c);
    return p && c ? (int)(p - s) : -1;
}

// Makes the text one shell word per blank-separated part, whatever its
// bytes: a blank stays a word separator, as pages have always used it; a
// special character gets a backslash; control bytes and bytes above 127 go
// inside single quotes, a run of them in one pair ('<LF>' is a newline kept
// inside the word). The grown text stops at size - 1 bytes; a unit that
// does not fit whole (a backslash pair, a quoted byte with its closing
// quote) is left out, so a cut never leaves a lone backslash or an open
// quote to act on whatever follows on the command.
void escape_shell_cmd(char *cmd, int size) {
    if (size <= 0) return;
    std::unique_ptr<char[]> out(new char[size]);
    const int room = size - 1;
    int o = 0;
    bool quoted = false;
    for (const char *p = cmd; *p; p++) {
        unsigned char c = (unsigned char)*p;
        bool quote = needs_quotes(c);
        bool backslash = !quote && strchr(SHELL_SPECIAL, c);
        // A quoted byte keeps room for the closing quote; the first one
        // also opens the pair, the first bare byte after it closes it.
        int need = 1 + (backslash ? 1 : 0);
        if (quote)
            need += quoted ? 1 : 2;
        else if (quoted)
            need += 1;
        if (o + need > room) break;
        if (quote != quoted) out[o++] = SHELL_QUOTE;
        quoted = quote;
        if (backslash) out[o++] = '\\';
        out[o++] = (char)c;
    }
    if (quoted) out[o++] = SHELL_QUOTE;
    out[o] = '\0';
    memcpy(cmd, out.get(), o + 1);
}

void strip_name(char *name) {
    int slash = rind(name, '/');
    if (slash >= 0) memmove(name, name + slash + 1, strlen(name + slash + 1) + 1);
    int back = rind(name, '\\');
    if (back >= 0) memmove(name, name + back + 1, strlen(name + back + 1) + 1);
}
