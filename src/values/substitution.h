// Value substitution: $(...) references in lines and arguments, expanded
// innermost first, with the modifiers and system names.
#pragma once

constexpr int V_LINE_MAX = 8192;   // lines, values and argument buffers
constexpr int V_REF_MAX = 4096;    // the text of one nested reference

// Translates one line; with a null buffer writes to the page, else fills buff
// (which holds V_LINE_MAX bytes).
void V_transline(const char *line, char *buff, int compile);
void V_transline_n(const char *line, char *buff, int size, int compile);
void V_transvalue(const char *ref, char *buff);
