// Wildcard patterns: compiling a pattern text into a node list, matching
// whole strings against it, and the collation ranks that order set ranges.
// Matching fills a table over element and text position rather than
// backtracking, so its time is bounded by pattern size x text size.
#include "patt/wildcard.h"

#include <climits>
#include <cstdlib>
#include <cstring>
#include <memory>

namespace {

int rank_of(unsigned char c) {
    static int rank[256];
    static bool built = false;
    if (!built) {
        for (int i = 0; i < PATT_ALPHABET_LEN; i++) rank[SYMalphabet[i]] = i + 1;
        built = true;
    }
    return rank[c];
}

PATTnode *new_node(int type, unsigned char c1, unsigned char c2) {
    PATTnode *n = (PATTnode *)calloc(1, sizeof(PATTnode));
    if (!n) return nullptr;
    n->type = type;
    n->c1 = c1;
    n->c2 = c2;
    return n;
}

bool is_escapable(char c) {
    return c && strchr("*![]^-\\", c);
}

// Reads one bracket set starting after its "["; returns the chain head (null
// for an empty set) and moves *pp behind the set. *failed reports a failed
// allocation, the chain made so far being freed already.
PATTnode *load_set(const char **pp, bool *failed) {
    const char *p = *pp;
    bool neg = (*p == '^');
    if (neg) p++;
    PATTnode *head = nullptr, *last = nullptr;
    while (*p && *p != ']') {
        PATTnode *n;
        if (p[1] == '-' && p[2]) {
            n = new_node(neg ? PATT_NOT_RANGE : PATT_RANGE, p[0], p[2]);
            p += 3;
        } else {
            n = new_node(neg ? PATT_NOT_CHAR : PATT_CHAR, p[0], 0);
            p += 1;
        }
        if (!n) {
            kor_FREEpatt(head);
            *failed = true;
            return nullptr;
        }
        if (last)
            last->alt = n;
        else
            head = n;
        last = n;
    }
    if (*p == ']') p++;
    *pp = p;
    return head;
}

// Reads one element at *pp. Returns the node (null for an empty set), moving
// *pp behind the element.
PATTnode *load_one(const char **pp, bool *failed) {
    const char *p = *pp;
    int type = PATT_CHAR;
    unsigned char c = (unsigned char)*p;
    switch (*p) {
    case '*': type = PATT_ANY_RUN; break;
    case '?': type = PATT_ONE; break;
    case '!': type = PATT_NOWHERE; break;
    case '[': *pp = p + 1; return load_set(pp, failed);
    case '\\':
        // Only the pattern's own special characters can be escaped; "\?"
        // stays a backslash followed by the one-character wildcard.
        if (is_escapable(p[1])) c = (unsigned char)*++p;
        break;
    default: break;
    }
    *pp = p + 1;
    PATTnode *n = new_node(type, type == PATT_CHAR ? c : 0, 0);
    if (!n) *failed = true;
    return n;
}

bool in_range(unsigned char c, unsigned char lo, unsigned char hi) {
    const char cs[2] = {(char)c, 0};
    const char los[2] = {(char)lo, 0};
    const char his[2] = {(char)hi, 0};
    return vp_SYMcmp(cs, los, 1) >= 0 && vp_SYMcmp(cs, his, 1) <= 0;
}

// Matching fills a table over (pattern element, text position) instead of
// backtracking: a "*" or "!" asks whether the rest of the pattern matches
// some tail from here on, and trying every tail anew for each of them made
// a pattern like "*!!!!!!a" take exponential time. The table is built from
// the last element to the first, one row at a time: row[p] says whether
// the pattern from this element on matches the text from position p. Time
// is elements x positions; memory is one row and the element list.

bool consumes(const PATTnode *node) {
    return node->type != PATT_ANY_RUN && node->type != PATT_NOWHERE;
}

// Turns row (len + 1 flags over text t) from the row of the element after
// node into the row of node itself; last says node has no element after it.
void fold_row(const PATTnode *node, bool last, const char *t, int len, unsigned char *row) {
    if (consumes(node)) {
        // One character here, then the rest right after it; after the last
        // element nothing may be left of the text.
        for (int p = 0; p < len; p++) {
            bool rest = last ? p == len - 1 : row[p + 1] != 0;
            row[p] = rest && kor_ORpatt(node, (unsigned char)t[p]) == 0;
        }
        row[len] = 0;
        return;
    }
    if (last) {
        // A trailing "*" takes any tail; a trailing "!" only the empty one.
        for (int p = 0; p < len; p++) row[p] = node->type == PATT_ANY_RUN;
        row[len] = 1;
        return;
    }
    // Whether the rest matches some tail from p on: "*" needs one, "!" none.
    bool further = false;
    for (int p = len; p >= 0; p--) {
        further = further || row[p];
        row[p] = node->type == PATT_ANY_RUN ? further : !further;
    }
}

// Matches the list from first (a "*" or "!") against the len bytes of t.
int match_table(const PATTnode *first, const char *t, int len) {
    size_t count = 0;
    for (const PATTnode *n = first; n; n = n->next) count++;
    std::unique_ptr<const PATTnode *[]> nodes(new const PATTnode *[count]);
    size_t i = 0;
    for (const PATTnode *n = first; n; n = n->next) nodes[i++] = n;
    std::unique_ptr<unsigned char[]> row(new unsigned char[(size_t)len + 1]);
    for (i = count; i-- > 0;) fold_row(nodes[i], i == count - 1, t, len, row.get());
    return row[0] ? 0 : -1;
}

}   // namespace

// Printable ASCII in code order without the underscore, then the Russian
// lower-case and upper-case letters of KOI8-R in alphabetical order. The
// hard signs stand as AC/AE and the upper-case E8 is missing: ranges written
// by existing pages depend on exactly this table.
const unsigned char SYMalphabet[PATT_ALPHABET_LEN + 1] =
    " !\"#$%&'()*+,-./0123456789:;<=>?@ABCDEFGHIJKLMNOPQRSTUVWXYZ[\\]^`"
    "abcdefghijklmnopqrstuvwxyz{|}~"
    "\xC1\xC2\xD7\xC7\xC4\xC5\xD6\xDA\xC9\xCA\xCB\xCC\xCD\xCE\xCF\xD0"
    "\xD2\xD3\xD4\xD5\xC6\xC8\xC3\xDE\xDB\xDD\xAC\xD9\xD8\xDC\xC0\xD1"
    "\xE1\xE2\xF7\xE7\xE4\xE5\xF6\xFA\xE9\xEA\xEB\xEC\xED\xEE\xEF\xF0"
    "\xF2\xF3\xF4\xF5\xE6\xE3\xFE\xFB\xFD\xAE\xF9\xF8\xFC\xE0\xF1";

int vp_SYMcmp(const char *a, const char *b, int n) {
    for (int i = 0; i < n; i++) {
        int d = rank_of((unsigned char)a[i]) - rank_of((unsigned char)b[i]);
        if (d) return d;
        if (!a[i]) return 0;
    }
    return 0;
}

/* ---- compiling ---- */

PATTnode *kor_LOADpatt(const char *patt) {
    if (!patt) return nullptr;
    PATTnode *head = nullptr, *last = nullptr;
    const char *p = patt;
    while (*p) {
        bool failed = false;
        PATTnode *n = load_one(&p, &failed);
        if (failed) {
            kor_FREEpatt(head);
            return nullptr;
        }
        if (!n) continue;
        if (last)
            last->next = n;
        else
            head = n;
        last = n;
    }
    return head;
}

int kor_FREEpatt(PATTnode *p) {
    // Iterative along both links: a hostile pattern may be very long.
    while (p) {
        PATTnode *next = p->next;
        PATTnode *a = p->alt;
        while (a) {
            PATTnode *an = a->alt;
            kor_FREEpatt(a->next);
            free(a);
            a = an;
        }
        free(p);
        p = next;
    }
    return 0;
}

/* ---- matching ---- */

int kor_ORpatt(const PATTnode *p, int c) {
    c &= 0xFF;
    while (p) {
        switch (p->type) {
        case PATT_ONE:
            if (c) return 0;
            break;
        case PATT_CHAR:
            if (c == p->c1) return 0;
            break;
        case PATT_NOT_CHAR:
            if (c == p->c1) return -1;
            if (!p->alt) return 0;
            break;
        case PATT_RANGE:
            if (in_range(c, p->c1, p->c2)) return 0;
            break;
        case PATT_NOT_RANGE:
            if (in_range(c, p->c1, p->c2)) return -1;
            if (!p->alt) return 0;
            break;
        default: return -1;
        }
        p = p->alt;
    }
    return -1;
}

int kor_EXEpatt(PATTnode *p, const char *s) {
    if (!s) s = "";
    int n = (int)strnlen(s, INT_MAX);
    // The elements before the first "*" or "!" take one character each and
    // need no table; most patterns end or fail here.
    int pos = 0;
    for (; p && consumes(p); p = p->next, pos++) {
        if (pos >= n || kor_ORpatt(p, (unsigned char)s[pos]) != 0) return -1;
        if (!p->next) return pos == n - 1 ? 0 : -1;
    }
    if (!p) return 0;   // an empty list matches every string
    return match_table(p, s + pos, n - pos);
}
