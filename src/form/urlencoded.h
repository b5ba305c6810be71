// GET and url-encoded POST decoding into the form table ent.
#pragma once

struct entry {
    char *name;
    char *val;
};

constexpr int V_ENT_MAX = 10000;

extern entry ent[V_ENT_MAX];
extern const char *POST_errmsg;

const char *GETenv(const char *name);   // "" for an unset variable
int GetMethod();
// CONTENT_LENGTH read as atoi reads it (blanks, a sign, digits) but without
// its overflow: a value beyond max gives max, a negative one or one that
// is no number 0. -1 when the variable is unset.
long content_length(long max);
int CheckEnctypeMethod();
int POST_parser(entry *ent);
int GET_parser(entry *ent, const char *name);
int GET_path(entry *ent, const char *name);
