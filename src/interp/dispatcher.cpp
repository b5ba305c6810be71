// The command dispatcher: the keyword table, the command tree built on
// first use, and the handler call for each command line.
#include "interp/dispatcher.h"

#include <cstdlib>
#include <cstring>

#include "db/sql_commands.h"
#include "driver/diagnostics.h"
#include "interp/assignments.h"
#include "interp/conditions.h"
#include "interp/cookies.h"
#include "interp/functions.h"
#include "interp/headers.h"
#include "interp/loops.h"
#include "interp/options.h"
#include "interp/page_file.h"
#include "interp/page_reader.h"
#include "sys/processes.h"
#include "sys/shared_memory.h"
#include "sys/streams.h"
#include "values/buffers.h"

const cmd_t v_CMD[V_CMD_COUNT] = {
    {"option", CMD_OPTION}, {"compile", CMD_COMPILE}, {"html", CMD_HTML}, {"sqltrap", CMD_SQLTRAP},
    {"sleep", CMD_SLEEP}, {"usleep", CMD_USLEEP}, {"chdir", CMD_CHDIR}, {"sqlnames", CMD_SQLNAMES},
    {"quit", CMD_QUIT}, {"shell", CMD_SHELL}, {"set", CMD_SET}, {"add", CMD_ADD},
    {"include", CMD_INCLUDE}, {"error", CMD_ERROR}, {"unlink", CMD_UNLINK}, {"clear", CMD_CLEAR},
    {"cookie", CMD_COOKIE}, {"fork", CMD_FORK}, {"file", CMD_FILE}, {"xfile", CMD_XFILE},
    {"replace", CMD_REPLACE}, {"while", CMD_WHILE}, {"if", CMD_IF}, {"elif", CMD_ELIF},
    {"function", CMD_FUNCTION}, {"call", CMD_CALL}, {"exec", CMD_EXEC}, {"return", CMD_RETURN},
    {"sql", CMD_SQL}, {"sqlexec", CMD_SQLEXEC}, {"fopen", CMD_FOPEN}, {"popen", CMD_POPEN},
    {"fclose", CMD_FCLOSE}, {"pclose", CMD_PCLOSE}, {"fgets", CMD_FGETS}, {"fputs", CMD_FPUTS},
    {"fseek", CMD_FSEEK}, {"shmat", CMD_SHMAT}, {"shmdt", CMD_SHMDT}, {"header", CMD_HEADER},
    {"status", CMD_STATUS}, {"redirect", CMD_REDIRECT}, {"end", CMD_BLOCK_END},
    {"continue", CMD_BLOCK_END}, {"break", CMD_BLOCK_END}, {nullptr, 0},
};

namespace {

constexpr int NAME_SIZE = 32;
constexpr int NAME_MAX_LEN = 29;   // a longer word is never a command

bool tree_built = false;

void build_tree()
{
    if (tree_built)
        return;
    tree_built = true;
    avl_tree_t *t = &v_BUFFERS.ctree;
    if (!t->cmp)
        t->cmp = V_avlcmp;
    for (const cmd_t *c = v_CMD; c->cmd; c++) {
        if (!c->code)
            continue;
        V_CMD *node = nullptr;
        if (v_BUFFERS.hp)
            node = (V_CMD *)V_heap_alloc(v_BUFFERS.hp, sizeof(V_CMD));
        if (!node)
            node = (V_CMD *)calloc(1, sizeof(V_CMD));
        if (!node)
            return;
        memset(node, 0, sizeof *node);
        node->name = c->cmd;
        node->code = (int16_t)c->code;
        node->avl.key = (void *)c->cmd;
        node->avl.data = node;
        avl_insert(t, &node->avl);
    }
}

int lookup(const char *name)
{
    build_tree();
    avl_t probe = {};
    probe.key = (void *)name;
    avl_t *found = avl_search(&v_BUFFERS.ctree, &probe);
    if (!found)
        return -1;
    // the node is the first member of its V_CMD
    return reinterpret_cast<V_CMD *>(found)->code;
}

// The command word between "<@" and ">" (into name, NAME_SIZE bytes), or
// false when there is none that could be a keyword.
bool command_name(const char *buff, char *name)
{
    const char *p = buff + 2;
    const char *gt = strchr(p, '>');
    if (!gt || gt - p > NAME_MAX_LEN)
        return false;
    memcpy(name, p, (size_t)(gt - p));
    name[gt - p] = 0;
    return true;
}

int call_handler(int code, V_FILE *fp, char *buff, int *compile, int ignore)
{
    int c = *compile;
    switch (code) {
    case CMD_OPTION: return V_option(buff, compile, ignore);
    case CMD_COMPILE: return V_compile(buff, compile, ignore);
    case CMD_HTML: return V_html(buff, c, ignore);
    case CMD_SQLTRAP: return V_sqltrap(buff, c, ignore);
    case CMD_SLEEP: return V_sleep(buff, c, ignore);
    case CMD_USLEEP: return V_usleep(buff, c, ignore);
    case CMD_CHDIR: return V_chdir(buff, c, ignore);
    case CMD_SQLNAMES: return V_sqlnames(buff, c, ignore);
    case CMD_QUIT: return V_quit(buff, c, ignore);
    case CMD_SHELL: return V_shell(buff, c, ignore);
    case CMD_SET: return V_set(buff, c, ignore);
    case CMD_ADD: return V_add(buff, c, ignore);
    case CMD_INCLUDE: return V_include(buff, c, ignore);
    case CMD_ERROR: return V_error(buff, c, ignore);
    case CMD_UNLINK: return V_unlink(buff, c, ignore);
    case CMD_CLEAR: return V_clear(buff, c, ignore);
    case CMD_COOKIE: return V_cookie(buff, c, ignore);
    case CMD_FORK: return V_fork(buff, c, ignore);
    case CMD_FILE: return V_File(fp, buff, c, ignore);
    case CMD_XFILE: return V_xFile(fp, buff, c, ignore);
    case CMD_REPLACE: return V_replace(buff, c, ignore);
    case CMD_WHILE: return V_while(fp, buff, c, ignore);
    case CMD_IF:
    case CMD_ELIF: return V_if(fp, buff, c, ignore);
    case CMD_FUNCTION: return V_function(fp, buff, c, ignore);
    case CMD_CALL: return V_call(buff, c, ignore, nullptr);
    case CMD_EXEC: return V_exec(buff, c, ignore);
    case CMD_RETURN: return V_return(buff, c, ignore);
    case CMD_SQL: return V_sql(fp, buff, c, ignore);
    case CMD_SQLEXEC: return V_sqlexec(buff, c, ignore);
    case CMD_FOPEN: return V_io_fopen(buff, c, ignore);
    case CMD_POPEN: return V_io_popen(buff, c, ignore);
    case CMD_FCLOSE: return V_io_fclose(buff, c, ignore);
    case CMD_PCLOSE: return V_io_pclose(buff, c, ignore);
    case CMD_FGETS: return V_io_fgets(buff, c, ignore);
    case CMD_FPUTS: return V_io_fputs(buff, c, ignore);
    case CMD_FSEEK: return V_io_fseek(buff, c, ignore);
    case CMD_SHMAT: return V_shmat(buff, c, ignore);
    case CMD_SHMDT: return V_shmdt(buff, c, ignore);
    case CMD_HEADER: return V_add_header(buff, c, ignore);
    case CMD_STATUS: return V_status(buff, c, ignore);
    case CMD_REDIRECT: return V_redirect(buff, c, ignore);
    default: return -1;
    }
}

} // namespace

int V_search_command(const char *name)
{
    if (!name)
        return -1;
    return lookup(name);
}

// The commands whose handlers receive the file are those that read a block
// of it; the rest of the decision follows V_command and the block runners.
V_ROLE V_line_role(const char *line)
{
    if (!line || strncmp(line, "<@", 2) != 0)
        return ROLE_TEXT;
    char name[NAME_SIZE];
    int code = command_name(line, name) ? lookup(name) : -1;
    switch (code) {
    case CMD_FILE:
    case CMD_XFILE:
    case CMD_WHILE:
    case CMD_FUNCTION:
    case CMD_SQL: return ROLE_BLOCK;
    case CMD_IF: return ROLE_IF;
    case CMD_ELIF: return ROLE_ELIF;
    case CMD_BLOCK_END: return strcmp(name, "end") == 0 ? ROLE_END : ROLE_LOOP;
    default: break;
    }
    if (code > 0)
        return ROLE_LINE;
    if (V_is_else(line))
        return ROLE_ELSE;
    return V_is_assignment(line) ? ROLE_LINE : ROLE_UNKNOWN;
}

int V_command(V_FILE *fp, char *buff, int *compile, int ignore)
{
    cut_cmd(fp, buff);
    if (strncmp(buff, "<@", 2) != 0)
        return -1;
    char name[NAME_SIZE];
    if (command_name(buff, name)) {
        int code = lookup(name);
        if (code == V_CMD_BLOCK_END)
            return -1;
        if (code > 0 && call_handler(code, fp, buff, compile, ignore) == 0)
            return 0;
    }
    return V_let(buff, *compile, ignore) == 0 ? 0 : -1;
}
