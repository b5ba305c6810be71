// Placeholder bodies until this module is written.
#include "form/urlencoded.h"

entry ent[V_ENT_MAX];
const char *POST_errmsg;
const char *GETenv(const char *name) { return {}; }
int GetMethod() { return -1; }
int CheckEnctypeMethod() { return -1; }
int POST_parser(entry *ent) { return -1; }
int GET_parser(entry *ent, const char *name) { return -1; }
int GET_path(entry *ent, const char *name) { return -1; }
