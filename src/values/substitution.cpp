// Placeholder bodies until this module is written.
#include "values/substitution.h"

void V_transline(const char *line, char *buff, int compile) {}
void V_transline_n(const char *line, char *buff, int size, int compile) {}
void V_transvalue(const char *ref, char *buff) {}
