// Small text utilities of form decoding: word cutting, URL escapes, shell
// escapes and file-name stripping.
#pragma once
#include <cstdio>

constexpr int V_FIELD_MAX = 50000;   // a longer form field is cut to this

char *fmakeword(FILE *f, char stop, int *cl);
int fmakeword_cuts();   // fields cut at V_FIELD_MAX so far
// Writes the one warning of a request whose fields were cut, if any were.
void fmakeword_warning(FILE *out);
char x2c(const char *what);
void unescape_url(char *url);
void escape_url(const char *text, char *out);   // out needs 3 * strlen + 1
void plustospace(char *str);
int rind(const char *s, char c);
void escape_shell_cmd(char *cmd, int size);   // size bounds the grown text
void strip_name(char *name);
