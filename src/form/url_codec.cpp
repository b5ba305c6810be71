// Small text utilities of form decoding: word cutting, URL escapes, shell
// escapes and file-name stripping, shared with value substitution.
#include "form/url_codec.h"

#include <cstdlib>
#include <cstring>

#include "driver/diagnostics.h"
#include "form/urlencoded.h"

char *makeword(char *line, char stop) {
    int n = 0;
    while (line[n] && line[n] != stop) n++;
    char *word = (char *)malloc(n + 1);
    memcpy(word, line, n);
    word[n] = '\0';
    return word;
}

namespace {

int cut_fields;   // fields fmakeword has cut in this process

}  // namespace

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

int fmakeword_cuts() { return cut_fields; }

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

int ind(const char *s, char c) {
    const char *p = strchr(s, c);
    return p && c ? (int)(p - s) : -1;
}

int rind(const char *s, char c) {
    const char *p = strrchr(s, c);
    return p && c ? (int)(p - s) : -1;
}

// A line ends at a line feed or a byte 4 (neither kept), at the end of the
// stream, or after n - 1 bytes; carriage returns are dropped. A full line
// looks at the next byte: its own end is consumed with it (so a line of
// exactly n - 1 bytes reads as one line), any other byte starts the next
// line, so nothing is lost. Returns 1 when the stream has ended.
int getline(char *s, int n, FILE *f) {
    if (n <= 0) return feof(f) ? 1 : 0;
    int i = 0, c = 0;
    while (i < n - 1) {
        c = fgetc(f);
        if (c == EOF || c == '\n' || c == 4) break;
        if (c == '\r') continue;
        s[i++] = (char)c;
    }
    s[i] = '\0';
    if (i == n - 1) {
        do c = fgetc(f);
        while (c == '\r');
        if (c != EOF && c != '\n' && c != 4) ungetc(c, f);
    }
    return feof(f) ? 1 : 0;
}

// A backslash goes before every shell metacharacter. The grown text stops
// at size - 1 bytes; a pair that does not fit whole is left out, so a cut
// never leaves a lone backslash escaping whatever follows on the command.
void escape_shell_cmd(char *cmd, int size) {
    static const char special[] = "&;`'\"|*?~<>^()[]{}$\\";
    if (size <= 0) return;
    int len = (int)strlen(cmd);
    char *out = (char *)malloc(size);
    int o = 0;
    for (int i = 0; i < len; i++) {
        int need = strchr(special, cmd[i]) ? 2 : 1;
        if (o + need > size - 1) break;
        if (need == 2) out[o++] = '\\';
        out[o++] = cmd[i];
    }
    out[o] = '\0';
    memcpy(cmd, out, o + 1);
    free(out);
}

void strip_name(char *name) {
    int slash = rind(name, '/');
    if (slash >= 0) memmove(name, name + slash + 1, strlen(name + slash + 1) + 1);
    int back = rind(name, '\\');
    if (back >= 0) memmove(name, name + back + 1, strlen(name + back + 1) + 1);
}
