// Placeholder bodies until this module is written.
#include "interp/loops.h"

int Continue;
int Break;
int ContinueBreak;
int V_notfound(V_FILE *fp, int compile, int ignore) { return -1; }
int V_while(V_FILE *fp, char *buff, int compile, int ignore) { return -1; }
int V_while_loop(V_FILE *fp, int compile) { return -1; }
int V_while_values(V_FILE *fp, const char *name, int compile) { return -1; }
int V_while_words(V_FILE *fp, const char *name, const char *sep, int compile) { return -1; }
