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
    CMD_HEADER, CMD_STATUS, CMD_REDIRECT, CMD_BLOCK_END,
};

constexpr int V_CMD_COUNT = 46;
constexpr int V_CMD_BLOCK_END = CMD_BLOCK_END;
extern const cmd_t v_CMD[V_CMD_COUNT];

int V_command(V_FILE *fp, char *buff, int *compile, int ignore);
int V_search_command(const char *name);

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
