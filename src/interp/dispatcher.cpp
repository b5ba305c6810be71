// Placeholder bodies until this module is written.
#include "interp/dispatcher.h"

const cmd_t v_CMD[V_CMD_COUNT] = {};
int V_command(V_FILE *fp, char *buff, int *compile, int ignore) { return -1; }
int V_search_command(const char *name) { return -1; }
