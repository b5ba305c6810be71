// The like-pattern expressions and the cache of their compiled patterns. A
// full cache gives up its oldest entry, however recently that was used.
#include "patt/like.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include "driver/diagnostics.h"
#include "patt/wildcard.h"

pattCACHE v_pattCACHE[V_PATT_CACHE];

namespace {

int curr;   // the cache slot filled last

}   // namespace

int V_CMPexec(const char *patt, const char *val) {
    if (!patt) patt = "";
    if (!val) val = "";
    int i = 0;
    for (; i < V_PATT_CACHE && v_pattCACHE[i].patt; i++)
        if (!strcmp(v_pattCACHE[i].patt, patt)) return kor_EXEpatt(v_pattCACHE[i].korPATT, val);
    if (i < V_PATT_CACHE) {
        curr = i;
    } else {
        // Full: evict in insertion order, whatever was used recently.
        curr = (curr + 1) % V_PATT_CACHE;
        kor_FREEpatt(v_pattCACHE[curr].korPATT);
        free(v_pattCACHE[curr].patt);
        v_pattCACHE[curr] = {};
    }
    pattCACHE *e = &v_pattCACHE[curr];
    e->patt = strdup(patt);
    if (!e->patt) {
        ERRMSG("### No memory...");
        return -1;
    }
    // A null list is also the compiled form of a pattern without elements
    // ("" or "[]"); only a failed allocation is an error.
    errno = 0;
    e->korPATT = kor_LOADpatt(patt);
    if (!e->korPATT && errno == ENOMEM) {
        free(e->patt);
        e->patt = nullptr;
        ERRMSG("### No memory...");
        return -1;
    }
    return kor_EXEpatt(e->korPATT, val);
}

// "||" binds weaker than "&&", but a part before "||" is taken whole: a&&b||c
// is the single pattern "a&&b" or the pattern "c".
int V_CMPpatt(const char *patt, const char *val) {
    if (!patt) patt = "";
    char *copy = strdup(patt);
    if (!copy) {
        ERRMSG("### No memory...");
        return -1;
    }
    char *p = copy;
    int result;
    for (;;) {
        char *sep = strstr(p, "||");
        if (!sep) break;
        *sep = 0;
        if (V_CMPexec(p, val) != -1) {
            free(copy);
            return 0;
        }
        p = sep + 2;
    }
    for (;;) {
        char *sep = strstr(p, "&&");
        if (!sep) break;
        *sep = 0;
        if (V_CMPexec(p, val) == -1) {
            free(copy);
            return -1;
        }
        p = sep + 2;
    }
    result = V_CMPexec(p, val);
    free(copy);
    return result;
}
