// The argument scanners of the command handlers: blank-separated words,
// quoted arguments with their closing delimiters, separator-ended fields.
#include "values/arguments.h"

#include <cstring>

namespace {

int skip_blanks(const char *text) {
    int i = 0;
    while (text[i] == ' ') i++;
    return i;
}

char closing_of(char open) {
    switch (open) {
    case '"':
    case '\'':
    case '`':
    case '^':
    case '~': return open;
    case '{': return '}';
    case '[': return ']';
    default: return 0;
    }
}

// Copies from text[i] up to the delimiter; a backslash right before the
// delimiter is dropped and the delimiter kept. Returns the delimiter's
// position (or the end's).
int copy_until(const char *text, int i, char delim, char *out, int *len) {
    int n = 0;
    while (text[i] && text[i] != delim) {
        if (text[i] == '\\' && text[i + 1] == delim) i++;
        out[n++] = text[i++];
    }
    out[n] = '\0';
    *len = n;
    return i;
}

}   // namespace

int V_take_string(const char *text, char *out) {
    int i = skip_blanks(text);
    int n = 0;
    while (text[i] && text[i] != ' ') out[n++] = text[i++];
    out[n] = '\0';
    return n ? i : 0;
}

int V_arg_string(const char *text, char *out) {
    int i = skip_blanks(text);
    char delim = closing_of(text[i]);
    int len = 0;
    if (!delim) {
        i = copy_until(text, i, ' ', out, &len);
        return len ? i : 0;
    }
    i = copy_until(text, i + 1, delim, out, &len);
    // Behind the closing delimiter; an unclosed argument stops at the end so
    // that a caller stepping on never walks past the terminator.
    return text[i] ? i + 1 : i;
}

int V_arg_string_sep(const char *text, char *out, const char *sep) {
    if (!sep || !*sep) return V_arg_string(text, out);
    int i = 0;
    while (text[i] && strchr(sep, text[i])) i++;
    int n = 0;
    while (text[i] && !strchr(sep, text[i])) out[n++] = text[i++];
    out[n] = '\0';
    return (n || text[i]) ? i : 0;
}

int V_int_text(int v, char *out) {
    char digits[V_INT_TEXT];
    int n = 0;
    // unsigned, so that INT_MIN negates without overflow
    unsigned u = v < 0 ? 0u - (unsigned)v : (unsigned)v;
    do {
        digits[n++] = (char)('0' + u % 10);
        u /= 10;
    } while (u);
    int len = 0;
    if (v < 0) out[len++] = '-';
    while (n) out[len++] = digits[--n];
    out[len] = 0;
    return len;
}

void V_copy_cut(char *dst, const char *src, int size) {
    if (size <= 0) return;
    size_t len = strnlen(src, (size_t)size - 1);
    memcpy(dst, src, len);
    dst[len] = '\0';
}
