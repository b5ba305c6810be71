// The commands that change variables: set, add, clear, replace, error and
// the operator assignments of V_let.
#pragma once

int V_set(char *buff, int compile, int ignore);
int V_add(char *buff, int compile, int ignore);
int V_clear(char *buff, int compile, int ignore);
int V_replace(char *buff, int compile, int ignore);
int V_error(char *buff, int compile, int ignore);
int V_let(char *buff, int compile, int ignore);
