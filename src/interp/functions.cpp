// Placeholder bodies until this module is written.
#include "interp/functions.h"

char *Return;
int V_function(V_FILE *fp, char *buff, int compile, int ignore) { return -1; }
int V_call(char *buff, int compile, int ignore, char *receiver) { return -1; }
int V_return(char *buff, int compile, int ignore) { return -1; }
int V_exec(char *buff, int compile, int ignore) { return -1; }
int V_exec_call(const char *name, const char *args) { return -1; }
