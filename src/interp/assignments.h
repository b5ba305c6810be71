// The commands that change variables: set, add, clear, replace, error and
// the operator assignments of V_let.
#pragma once

int V_set(char *buff, int compile, int ignore);
int V_add(char *buff, int compile, int ignore);
int V_clear(char *buff, int compile, int ignore);
int V_replace(char *buff, int compile, int ignore);
int V_error(char *buff, int compile, int ignore);
int V_let(char *buff, int compile, int ignore);
// V_let for a kept line: *parsed (null at first) keeps where the line's
// name, operator and value text lie when substitution cannot move them.
int V_let_kept(char *buff, int compile, int ignore, void **parsed);
// True when V_let takes the line: it begins with "<@" and holds one of the
// assignment operators anywhere, before any substitution.
bool V_is_assignment(const char *line);
