// The command dispatcher: the keyword table, the command tree built on
// first use, and the handler call for each command line.
#pragma once
#include <cstdint>
#include "values/avl_tree.h"

struct V_FILE;

struct cmd_t {
    const char *cmd;
    int code;
};

struct V_CMD {
    avl_t avl;           // key is the keyword
    const char *name;
    int16_t code;
};

constexpr int V_CMD_COUNT = 43;
constexpr int V_CMD_BLOCK_END = 40;
extern const cmd_t v_CMD[V_CMD_COUNT];

int V_command(V_FILE *fp, char *buff, int *compile, int ignore);
int V_search_command(const char *name);
