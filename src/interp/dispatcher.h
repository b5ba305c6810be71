// The command dispatcher: the keyword table, whose rows carry their
// handlers, the command tree built on first use, and the handler call for
// each command line.
#pragma once
#include "interp/page_reader.h"

int V_command(V_FILE *fp, char *buff, int *compile, int ignore);
// V_command for a line V_read_cut has already cut into buff: note is the
// one it gave, where the line's command row is kept after the first time.
int V_command_cut(V_FILE *fp, char *buff, V_LINE_NOTE *note, int *compile, int ignore);
// True when note is of a line V_command_cut has already found to be text:
// no command, no block word, nothing but text to write.
constexpr int V_NOTE_TEXT = -2;
inline bool V_text_note(const V_LINE_NOTE *note) {
    return note && note->kind == V_NOTE_TEXT;
}

// The part a command line (as cut_cmd leaves it) plays in the block
// structure of its file, as the dispatcher and the block runners take it.
enum V_ROLE {
    ROLE_TEXT,      // no command line: written as text
    ROLE_UNKNOWN,   // begins with "<@" but nothing takes it: written as text
    ROLE_LINE,      // a command or an assignment that ends with its line
    ROLE_BLOCK,     // opens a block that runs to its own <@end>
    ROLE_IF,        // <@if>: a block, unless V_if_inline finds a command
    ROLE_ELIF,      // <@elif>: a branch of the <@if> around it
    ROLE_ELSE,      // <@else>: the last branch of the <@if> around it
    ROLE_END,       // <@end>
    ROLE_LOOP,      // <@continue> and <@break>
};
V_ROLE V_line_role(const char *line);
