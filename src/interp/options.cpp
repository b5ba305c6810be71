// Placeholder bodies until this module is written.
#include "interp/options.h"

int IgnoreEmpty;
int V_option(char *buff, int *compile, int ignore) { return -1; }
int V_compile(char *buff, int *compile, int ignore) { return -1; }
int V_html(char *buff, int compile, int ignore) { return -1; }
