// Like-patterns: wildcard patterns joined by "||" and "&&", as <@if> like
// comparisons and <@clear> take them, matched through a cache of compiled
// patterns. The cache lives here, under the variable store that uses it, so
// that a pattern compiled by one user serves the other.
#pragma once

struct PATTnode;

// One slot of the cache of compiled like-patterns; patt null marks a free
// slot, and free slots only ever follow the used ones.
struct pattCACHE {
    char *patt;          // heap copy of the pattern text
    PATTnode *korPATT;   // its compiled form (null for an empty pattern)
};

constexpr int V_PATT_CACHE = 128;
extern pattCACHE v_pattCACHE[V_PATT_CACHE];

// 0 when val matches the pattern expression patt, -1 when it does not or
// memory ran out (then through the error routine).
int V_CMPpatt(const char *patt, const char *val);
// The same for one pattern without "||" or "&&", compiled once and cached.
int V_CMPexec(const char *patt, const char *val);
