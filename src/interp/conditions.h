// Conditions: <@if>/<@elif>/<@else>/<@end>, the comparison operators and
// the form tests of values.
#pragma once

struct V_FILE;
struct V_heap;
struct PATTnode;

// One slot of the cache of compiled like-patterns; patt null marks a free
// slot, and free slots only ever follow the used ones.
struct pattCACHE {
    char *patt;          // heap copy of the pattern text
    PATTnode *korPATT;   // its compiled form (null for an empty pattern)
};

constexpr int V_PATT_CACHE = 128;
extern pattCACHE v_pattCACHE[V_PATT_CACHE];

int V_if(V_FILE *fp, char *buff, int compile, int ignore);
// The command that follows the condition of an <@if> or <@elif> line on the
// line itself (the one-line form), or null: for an <@if>, null means that the
// line opens a block.
const char *V_if_inline(const char *line);
// True for an <@else> line, the last branch of the <@if> around it.
bool V_is_else(const char *line);
int V_user_cmp(const char *left, const char *op, const char *right);
int V_user_icmp(int left, const char *op, int right);
int V_user_fcmp(double left, const char *op, double right);
int V_CMPpatt(const char *patt, const char *val);
int V_CMPexec(const char *patt, const char *val);
int V_check_int(const char *text);
int V_check_float(const char *text);
int V_check_date(const char *text);
int V_get_int(const char *src, char *dst, int n);
char *V_today(V_heap *hp);
