// Placeholder bodies until this module is written.
#include "driver/cookies.h"

int V_cookie(char *buff, int compile, int ignore) { return -1; }
void V_set_cookies() {}
