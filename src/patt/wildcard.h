// Compiled wildcard patterns with a fixed collation alphabet, used by the
// like comparisons and by <@clear>.
#pragma once

struct V_PATT;   // one node of a compiled pattern

V_PATT *kor_LOADpatt(const char *patt);
int kor_EXEpatt(V_PATT *p, const char *s);
int kor_ORpatt(V_PATT *p, int c);
int kor_FREEpatt(V_PATT *p);
int vp_SYMcmp(const char *a, const char *b, int n);
