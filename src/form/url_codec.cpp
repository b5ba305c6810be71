// Placeholder bodies until this module is written.
#include "form/url_codec.h"

char *makeword(char *line, char stop) { return {}; }
char *fmakeword(FILE *f, char stop, int *cl) { return {}; }
char x2c(const char *what) { return {}; }
void unescape_url(char *url) {}
void escape_url(const char *text, char *out) {}
void plustospace(char *str) {}
int ind(const char *s, char c) { return -1; }
int rind(const char *s, char c) { return -1; }
int getline(char *s, int n, FILE *f) { return -1; }
void escape_shell_cmd(char *cmd, int size) {}
void strip_name(char *name) {}
