// Placeholder bodies until this module is written.
#include "values/assignments.h"

int V_set(char *buff, int compile, int ignore) { return -1; }
int V_add(char *buff, int compile, int ignore) { return -1; }
int V_clear(char *buff, int compile, int ignore) { return -1; }
int V_replace(char *buff, int compile, int ignore) { return -1; }
int V_error(char *buff, int compile, int ignore) { return -1; }
int V_let(char *buff, int compile, int ignore) { return -1; }
