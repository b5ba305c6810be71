// Value substitution: $(...) references in lines and arguments, expanded
// innermost first, with the modifiers and system names; the names that need
// the layers above are rows they install.
#pragma once

constexpr int V_LINE_MAX = 8192;   // lines, values and argument buffers
constexpr int V_REF_MAX = 4096;    // the text of one nested reference

// Translates one line; with a null buffer writes to the page, else fills buff
// (which holds V_LINE_MAX bytes).
void V_transline(const char *line, char *buff, int compile);
void V_transline_n(const char *line, char *buff, int size, int compile);
void V_transvalue(const char *ref, char *buff);

// A line split once into its literal runs and $(...) references, each
// reference with what answers it (a variable, a modifier or system name and
// its handler, or a nested text split in turn), for a line that is
// substituted again and again. Null when the line holds a reference the
// split does not take (unclosed, too long, or across a line end).
struct V_TEXT_FORM;
V_TEXT_FORM *V_text_form(const char *line);
void V_free_text_form(V_TEXT_FORM *form);
// V_transline_n(line, buff, size, compile) for the line form was made from
// (a null form takes the walk): the same bytes, values and cuts. While
// tracing, or after the installed names changed, it walks line instead.
void V_transline_form(const V_TEXT_FORM *form, const char *line, char *buff, int size,
                      int compile);

// A $(...) name whose value the value layer cannot find itself: it comes
// from a user function, the database, a stream or the page run. value gets
// the text after the name and fills out (V_LINE_MAX bytes), which is then
// written like any value (the cut: length, HTML encoding).
struct V_VALUE_ROW {
    const char *name;
    bool prefix;   // true: any reference that begins with name; false: name alone
    void (*value)(const char *rest, char *out);
};
// Installs the rows (up to one with a null name), tried after the value
// layer's own names and before the variables; until then, and for any name
// they do not hold, a reference reads as a variable.
void V_set_value_rows(const V_VALUE_ROW *rows);
