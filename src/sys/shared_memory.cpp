// Placeholder bodies until this module is written.
#include "sys/shared_memory.h"

int V_shmat(char *buff, int compile, int ignore) { return -1; }
int V_shmdt(char *buff, int compile, int ignore) { return -1; }
