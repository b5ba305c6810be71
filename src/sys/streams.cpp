// Placeholder bodies until this module is written.
#include "sys/streams.h"

int V_eof;
int V_io_fopen(char *buff, int compile, int ignore) { return -1; }
int V_io_popen(char *buff, int compile, int ignore) { return -1; }
int V_io_fclose(char *buff, int compile, int ignore) { return -1; }
int V_io_pclose(char *buff, int compile, int ignore) { return -1; }
int V_io_fgets(char *buff, int compile, int ignore) { return -1; }
int V_io_fputs(char *buff, int compile, int ignore) { return -1; }
int V_io_fseek(char *buff, int compile, int ignore) { return -1; }
int V_File(V_FILE *fp, char *buff, int compile, int ignore) { return -1; }
int V_xFile(V_FILE *fp, char *buff, int compile, int ignore) { return -1; }
long V_ftell(const char *name) { return -1; }
