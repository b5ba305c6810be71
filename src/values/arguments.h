// The argument scanners that every command handler uses to split its
// substituted text into words, quoted strings and separated fields.
#pragma once

int V_take_string(const char *text, char *out);
int V_arg_string(const char *text, char *out);
int V_arg_string_sep(const char *text, char *out, const char *sep);
