// Placeholder bodies until this module is written.
#include "sys/processes.h"

int V_shell(char *buff, int compile, int ignore) { return -1; }
int V_fork(char *buff, int compile, int ignore) { return -1; }
int V_unlink(char *buff, int compile, int ignore) { return -1; }
int V_chdir(char *buff, int compile, int ignore) { return -1; }
int V_sleep(char *buff, int compile, int ignore) { return -1; }
int V_usleep(char *buff, int compile, int ignore) { return -1; }
