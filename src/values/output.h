// Output of page text and values: the current stream, Latin-1 letters as
// HTML entities, the length cut of one value, and flushing.
#pragma once
#include <cstdio>

extern int HTML;          // [1] Latin-1 letters written as entities
extern int V_len;         // [-1] length limit of the next written value
extern int DO_fflush;     // [1] flush after every written piece
extern int IgnoreEmpty;   // [1] lines left empty by commands are dropped
extern FILE *V_stdout;    // output of a <@file>/<@xfile> block; wins over V_fp
extern FILE *V_fp;        // page output stream; null means standard output

struct HTML_code {
    const char *html;
    const char *text;
};
extern const HTML_code HTML_tab[];

// V_stdout, else V_fp, else stdout; a deferred header block ends before
// stdout is handed out.
FILE *V_out();
int transvalue(const char *value, char *buff);
// Writes n bytes of text to the current stream, entity-encoded when HTML is on.
void V_write_text(const char *text, int n);
// Writes text to fp with the markup characters & < > " as entities, so that
// text from a request shows as text inside a built-in HTML message.
void V_write_escaped(FILE *fp, const char *text);
