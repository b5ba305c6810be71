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

// The command codes of the keyword table. The three block-end words (end,
// continue, break) share one code and have no handler: the block runners
// recognise their lines themselves.
enum V_CODE {
    CMD_OPTION = 1, CMD_COMPILE, CMD_HTML, CMD_SQLTRAP, CMD_SLEEP, CMD_USLEEP, CMD_CHDIR,
    CMD_SQLNAMES, CMD_QUIT, CMD_SHELL, CMD_SET, CMD_ADD, CMD_INCLUDE, CMD_ERROR, CMD_UNLINK,
    CMD_CLEAR, CMD_COOKIE, CMD_FORK, CMD_FILE, CMD_XFILE, CMD_REPLACE, CMD_WHILE, CMD_IF,
    CMD_ELIF, CMD_FUNCTION, CMD_CALL, CMD_EXEC, CMD_RETURN, CMD_SQL, CMD_SQLEXEC, CMD_FOPEN,
    CMD_POPEN, CMD_FCLOSE, CMD_PCLOSE, CMD_FGETS, CMD_FPUTS, CMD_FSEEK, CMD_SHMAT, CMD_SHMDT,
    CMD_BLOCK_END,
};

constexpr int V_CMD_COUNT = 43;
constexpr int V_CMD_BLOCK_END = CMD_BLOCK_END;
extern const cmd_t v_CMD[V_CMD_COUNT];

int V_command(V_FILE *fp, char *buff, int *compile, int ignore);
int V_search_command(const char *name);
