// Named streams and pipes, and the <@file>/<@xfile> blocks that send page
// output into a file.
#pragma once
#include <cstdio>

struct V_FILE;

extern int V_eof;   // set by <@fgets> and the SQL row loop

int V_io_fopen(char *buff, int compile, int ignore);
int V_io_popen(char *buff, int compile, int ignore);
int V_io_fclose(char *buff, int compile, int ignore);
int V_io_pclose(char *buff, int compile, int ignore);
int V_io_fgets(char *buff, int compile, int ignore);
int V_io_fputs(char *buff, int compile, int ignore);
int V_io_fseek(char *buff, int compile, int ignore);
int V_File(V_FILE *fp, char *buff, int compile, int ignore);
int V_xFile(V_FILE *fp, char *buff, int compile, int ignore);
long V_ftell(const char *name);   // -1 when no open stream has that name
