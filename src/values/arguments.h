// The argument scanners that every command handler uses to split its
// substituted text into words, quoted strings and separated fields.
#pragma once

// Each scanner copies at most strlen(text) bytes plus a terminator, so an
// output buffer of strlen(text)+1 bytes is always enough; the returned
// position never points past the text's terminator, so callers may step
// through an argument list by adding it to their text pointer.

int V_take_string(const char *text, char *out);
int V_arg_string(const char *text, char *out);
// With a null or empty separator set it behaves as V_arg_string.
int V_arg_string_sep(const char *text, char *out, const char *sep);

// Copies at most size-1 bytes of src and always terminates dst: the cut that
// fixed-size fields use wherever a value may be longer than its field.
void V_copy_cut(char *dst, const char *src, int size);

constexpr int V_INT_TEXT = 12;   // "-2147483648" and its NUL
// Writes v in decimal into out (V_INT_TEXT bytes), as "%d" does; returns
// its length.
int V_int_text(int v, char *out);
