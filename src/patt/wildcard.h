// Compiled wildcard patterns with a fixed collation alphabet, used by the
// like comparisons and by <@clear>.
#pragma once

// One element of a compiled pattern. Members of a bracket set after the
// first hang off the first one's alt link; their own next links are null.
struct PATTnode {
    PATTnode *next;     // following element of the pattern
    PATTnode *alt;      // next member of the same bracket set
    unsigned char c1;   // the literal, or the low end of a range
    unsigned char c2;   // the high end of a range
    int type;           // one of the PATT_* kinds below
};

enum {
    PATT_ANY_RUN = 0,     // *
    PATT_ONE = 1,         // ?
    PATT_CHAR = 2,        // literal, or single member of a plain set
    PATT_NOT_CHAR = 3,    // single member of a negated set
    PATT_RANGE = 4,       // x-y in a plain set
    PATT_NOT_RANGE = 5,   // x-y in a negated set
    PATT_NOWHERE = 6,     // !  the rest matches no tail from here
};

constexpr int PATT_ALPHABET_LEN = 157;
extern const unsigned char SYMalphabet[PATT_ALPHABET_LEN + 1];

PATTnode *kor_LOADpatt(const char *patt);
int kor_EXEpatt(PATTnode *p, const char *s);
int kor_ORpatt(const PATTnode *p, int c);
int kor_FREEpatt(PATTnode *p);
int vp_SYMcmp(const char *a, const char *b, int n);
