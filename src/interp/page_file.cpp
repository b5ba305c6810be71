// Placeholder bodies until this module is written.
#include "interp/page_file.h"

const char *DIR;
int V_printfile(const char *fname, int compile) { return -1; }
int V_fgets(char *buff, int size, V_FILE *fp) { return -1; }
int cut_cmd(V_FILE *fp, char *buff) { return -1; }
int V_include(char *buff, int compile, int ignore) { return -1; }
int V_trans_printfile(const char *name, int compile) { return -1; }
int V_quit(char *buff, int compile, int ignore) { return -1; }
void V_fflush(FILE *fp) {}
