// User functions: <@function> remembers where a body starts, <@call> runs
// it with its arguments bound, <@return> ends it; <@exec> runs built-ins.
#pragma once
#include "values/avl_tree.h"

struct V_FILE;
struct V_var;

struct V_FUN {
    avl_t avl;
    char *name;
    V_FILE *file;
    long offset;
    V_var *var;
    V_FUN *next;
};

int V_function(V_FILE *fp, char *buff, int compile, int ignore);
int V_call(char *buff, int compile, int ignore, char *receiver);
int V_return(char *buff, int compile, int ignore);
int V_exec(char *buff, int compile, int ignore);
int V_exec_call(const char *name, const char *args);
