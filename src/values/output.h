// Output of page text and values: the current stream, Latin-1 letters as
// HTML entities, the length cut of one value, and when the response's bytes
// are sent. Standard output is held in one large buffer and sent at the flush
// points (V_flush_output), when the buffer fills, or when a written piece
// finds the last send older than a short interval.
#pragma once
#include <cstdio>

extern int HTML;          // [1] Latin-1 letters written as entities
extern int V_len;         // [-1] length limit of the next written value
extern int DO_fflush;     // [1] a written piece is sent (0 in a <@file> block)
extern int IgnoreEmpty;   // [1] lines left empty by commands are dropped
extern FILE *V_stdout;    // output of a <@file>/<@xfile> block, else null

struct HTML_code {
    const char *html;
    const char *text;
};
extern const HTML_code HTML_tab[];

// V_stdout, else stdout; a deferred header block ends before
// stdout is handed out.
FILE *V_out();
int transvalue(const char *value, char *buff);

// Gives standard output its hold buffer; before anything is written to it.
void V_output_start();
// What a flush point sends besides the held response.
enum class Flush {
    Response,   // nothing else: a wait, a read, an error, the exit
    Handover,   // the current <@file>/<@xfile> stream too: a child may use it
    Fork,       // every stream, so that no held byte is written by both processes
};
// Sends what is held for the response now. Called before anything that
// waits or hands the output descriptor to another process; a deferred
// header block is not ended by it (the caller settles it when the other
// process writes).
void V_flush_output(Flush what = Flush::Response);
// A piece of page output went to fp (with DO_fflush on): another stream is
// flushed as every piece always was; the response is sent when the last send
// is older than the interval, so a slow page still shows as it is made.
void V_piece_written(FILE *fp);
// transvalue(value, nullptr) for a value inside a line whose end the caller
// reports with V_piece_written: the piece is marked as finished, but the
// clock is left for the line's end, moments later.
void V_write_value(const char *value);
// Before a fault ends the process by a signal, which skips stdio's exit:
// sends the held bytes up to the end of the last finished piece. The rest
// (a line the fault cut short) stays unsent, as with a flush after every
// piece.
void V_output_fault();
// Writes n bytes of text to the current stream, entity-encoded when HTML is on.
void V_write_text(const char *text, int n);
// V_write_text for text known to hold no byte above 127, which no entity
// stands for.
void V_write_ascii(const char *text, int n);
// Writes text to fp with the markup characters & < > " as entities, so that
// text from a request shows as text inside a built-in HTML message.
void V_write_escaped(FILE *fp, const char *text);
