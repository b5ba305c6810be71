// Page files held whole in memory, the line reader over them, and the
// lexical step that turns a raw line into a text line or one command line.
#pragma once
#include <cstdio>
#include <sys/stat.h>

struct V_FILE {
    char *text;          // the whole file and a terminating zero
    int offset;          // read position
    int size;
    struct stat stat;    // identifies the file for reuse
    V_FILE *next;
};

extern const char *DIR;  // directory of the file being run

int V_printfile(const char *fname, int compile);
int V_fgets(char *buff, int size, V_FILE *fp);
int cut_cmd(V_FILE *fp, char *buff);
// cut_cmd without the error routine, for readers that look at a page
// without running it: -1 when a continued command line would pass
// V_LINE_MAX - 1 bytes (the line stays as joined so far), else 0.
int V_cut_line(V_FILE *fp, char *buff);
int V_include(char *buff, int compile, int ignore);
int V_quit(char *buff, int compile, int ignore);
void V_fflush(FILE *fp);
