// Placeholder bodies until this module is written.
#include "driver/request.h"
#include <unistd.h>

V_BUFFERS v_BUFFERS;
int V_main(int argc, char **argv) { return -1; }
void V_start() {}
void V_header() {}
int V_checkpage(const char *page) { return -1; }
int V_action() { return -1; }
void V_exit(int code) { _exit(code); }
