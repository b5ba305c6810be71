// Page files: loaded whole into memory (and reused while unchanged), their
// lines run through the dispatcher, <@include> and <@quit>. The lines are
// read through interp/page_reader.
#pragma once
#include <cstdio>
#include <sys/stat.h>

extern const char *DIR;   // directory of the file being run

int V_printfile(const char *fname, int compile);
// The whole text of a page file, loaded as V_printfile loads it (which then
// reuses it); null when the file cannot be read, which V_printfile reports.
// The next V_printfile of the same name takes the file as found here,
// without looking at it again. seen, when given, is what stat has just
// said of the file: it is not asked again.
const char *V_page_text(const char *fname, const struct stat *seen = nullptr);
// Makes the next V_printfile look at its file again: a request process that
// inherited loaded files (a FastCGI child) calls it before its first run.
void V_page_forget();
int V_include(char *buff, int compile, int ignore);
int V_quit(char *buff, int compile, int ignore);
