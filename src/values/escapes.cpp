// Escapes of a value for HTML text and for script strings. Each input byte
// becomes one unit (itself, an entity or an escape) and a unit is written
// whole or not at all; the first unit that does not fit ends the output.
#include "values/escapes.h"

#include <cstdio>
#include <cstring>

namespace {

constexpr int UNIT_MAX = 8;   // the longest unit ("\u2028", "&quot;") and a NUL

// The separators U+2028 and U+2029 in UTF-8: E2 80 A8 and E2 80 A9. Older
// script engines take either as a line end, which a string may not hold.
constexpr unsigned char SEP_LEAD = 0xE2, SEP_MID = 0x80, LINE_SEP = 0xA8, PARA_SEP = 0xA9;
constexpr size_t SEP_LEN = 3;

// A bounded output that takes whole units until the first one that does
// not fit, and stays NUL-terminated throughout.
struct Units {
    char *out;
    int size;
    int pos = 0;
    bool full = false;

    Units(char *o, int s) : out(o), size(s) {
        if (size > 0) out[0] = '\0';
    }
    bool put(std::string_view unit) {
        if (full || size <= 0 || static_cast<int>(unit.size()) > size - 1 - pos) {
            full = true;
            return false;
        }
        memcpy(out + pos, unit.data(), unit.size());
        pos += static_cast<int>(unit.size());
        out[pos] = '\0';
        return true;
    }
};

std::string_view html_entity(char c) {
    switch (c) {
    case '&': return "&amp;";
    case '<': return "&lt;";
    case '>': return "&gt;";
    case '"': return "&quot;";
    case '\'': return "&#39;";
    default: return {};
    }
}

// The escape of one byte in a script string, or empty when it stands as
// itself; control bytes without a letter escape are written into num.
std::string_view js_escape(unsigned char c, char (&num)[UNIT_MAX]) {
    switch (c) {
    case '\\': return "\\\\";
    case '"': return "\\\"";
    case '\n': return "\\n";
    case '\r': return "\\r";
    case '\t': return "\\t";
    case '\b': return "\\b";
    case '\f': return "\\f";
    case '<': return "\\u003c";
    case '>': return "\\u003e";
    case '&': return "\\u0026";
    case '\'': return "\\u0027";
    default: break;
    }
    if (c >= ' ') return {};
    snprintf(num, sizeof num, "\\u%04x", static_cast<unsigned>(c));
    return num;
}

// The length of a line or paragraph separator at text[i], or 0.
size_t separator_at(std::string_view text, size_t i, std::string_view *escape) {
    if (text.size() - i < SEP_LEN) return 0;
    if (static_cast<unsigned char>(text[i]) != SEP_LEAD ||
        static_cast<unsigned char>(text[i + 1]) != SEP_MID)
        return 0;
    unsigned char last = static_cast<unsigned char>(text[i + 2]);
    if (last == LINE_SEP)
        *escape = "\\u2028";
    else if (last == PARA_SEP)
        *escape = "\\u2029";
    else
        return 0;
    return SEP_LEN;
}

}   // namespace

int V_escape_html(std::string_view text, char *out, int size) {
    Units u(out, size);
    for (size_t i = 0; i < text.size(); i++) {
        std::string_view unit = html_entity(text[i]);
        if (unit.empty()) unit = text.substr(i, 1);
        if (!u.put(unit)) break;
    }
    return u.pos;
}

int V_escape_js(std::string_view text, char *out, int size) {
    Units u(out, size);
    char num[UNIT_MAX];
    for (size_t i = 0; i < text.size(); i++) {
        std::string_view unit;
        if (size_t n = separator_at(text, i, &unit)) {
            if (!u.put(unit)) break;
            i += n - 1;
            continue;
        }
        unit = js_escape(static_cast<unsigned char>(text[i]), num);
        if (unit.empty()) unit = text.substr(i, 1);
        if (!u.put(unit)) break;
    }
    return u.pos;
}
