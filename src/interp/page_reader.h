// The line reader over page files held whole in memory, and the lexical
// step that turns a raw line into a text line or one command line.
#pragma once
#include <sys/stat.h>

#include "values/substitution.h"

struct V_FILE {
    char *text;   // the whole file and a terminating zero
    int offset;   // read position
    int size;
    struct stat stat;   // identifies the file for reuse
    V_FILE *next;
    const char *name;   // the path it was loaded from; null for a text
                        // handed to the reader (the page check, tests)
};

int V_fgets(char *buff, int size, V_FILE *fp);
// The line last read from a loaded file (one with a name): its number,
// counted from 1, with the file's name in *name; 0 and null before any.
// A command continued over several lines gives its last line.
int V_reading_line(const char **name);
int cut_cmd(V_FILE *fp, char *buff);
// cut_cmd without the error routine, for readers that look at a page
// without running it: -1 when a continued command line would pass
// V_LINE_MAX - 1 bytes (the line stays as joined so far), else 0.
int V_cut_line(V_FILE *fp, char *buff);

// What the runners learn about a kept line on its first run and keep with
// it: the dispatcher's note of what the line is (-1 at first), the split of
// a text line (made on first writing; tried tells a line the split does not
// take from one not yet split), and a handler's parsed form of its argument
// text, whose meaning only that handler knows.
struct V_LINE_NOTE {
    int kind;
    bool shared;   // nothing writes into the line: the kept text itself is handed out
    bool text_tried;
    V_TEXT_FORM *text;
    void *parsed;
};

// Reads the line at fp->offset as V_fgets and then cut_cmd do, into buff
// (V_LINE_MAX bytes), leaving fp->offset and V_reading_line as they would.
// Returns 1, or 0 at the end of the file. The file's text never changes
// once loaded, so the cut text of each line is kept on first reading and
// copied on the next: then *note points at the V_LINE_NOTE kept with the
// line. Only loaded files (those with a name, which live as long as the
// process) keep their lines. *note is null when the line was cut afresh: in
// a text handed to the reader, while tracing (the reader's trace lines then
// appear as before), or for a line too long to join. *line is the line to
// run: buff, or the kept text itself for a line whose note is shared.
int V_read_cut(V_FILE *fp, char *buff, V_LINE_NOTE **note, char **line);

// Writes the text line in buff as V_transline(buff, nullptr, compile) does;
// with the line's note, through the split kept in it.
void V_text_line(V_LINE_NOTE *note, const char *buff, int compile);
