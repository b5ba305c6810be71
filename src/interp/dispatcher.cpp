// The command dispatcher: the keyword table, the command tree built on
// first use, and the handler call for each command line.
#include "interp/dispatcher.h"

#include <cstdlib>
#include <cstring>

#include "db/sql_commands.h"
#include "driver/cookies.h"
#include "driver/diagnostics.h"
#include "driver/request.h"
#include "interp/conditions.h"
#include "interp/functions.h"
#include "interp/loops.h"
#include "interp/options.h"
#include "interp/page_file.h"
#include "sys/processes.h"
#include "sys/shared_memory.h"
#include "sys/streams.h"
#include "values/assignments.h"

const cmd_t v_CMD[V_CMD_COUNT] = {
    {"option", 1},    {"compile", 2},   {"html", 3},      {"sqltrap", 4},
    {"sleep", 5},     {"usleep", 6},    {"chdir", 7},     {"sqlnames", 8},
    {"quit", 9},      {"shell", 10},    {"set", 11},      {"add", 12},
    {"include", 13},  {"error", 14},    {"unlink", 15},   {"clear", 16},
    {"cookie", 17},   {"fork", 18},     {"file", 19},     {"xfile", 20},
    {"replace", 21},  {"while", 22},    {"if", 23},       {"elif", 24},
    {"function", 25}, {"call", 26},     {"exec", 27},     {"return", 28},
    {"sql", 29},      {"sqlexec", 30},  {"fopen", 31},    {"popen", 32},
    {"fclose", 33},   {"pclose", 34},   {"fgets", 35},    {"fputs", 36},
    {"fseek", 37},    {"shmat", 38},    {"shmdt", 39},    {"end", 40},
    {"continue", 40}, {"break", 40},    {nullptr, 0},
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

// The command word between "<@" and ">", or false when there is none that
// could be a keyword.
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
    case 1: return V_option(buff, compile, ignore);
    case 2: return V_compile(buff, compile, ignore);
    case 3: return V_html(buff, c, ignore);
    case 4: return V_sqltrap(buff, c, ignore);
    case 5: return V_sleep(buff, c, ignore);
    case 6: return V_usleep(buff, c, ignore);
    case 7: return V_chdir(buff, c, ignore);
    case 8: return V_sqlnames(buff, c, ignore);
    case 9: return V_quit(buff, c, ignore);
    case 10: return V_shell(buff, c, ignore);
    case 11: return V_set(buff, c, ignore);
    case 12: return V_add(buff, c, ignore);
    case 13: return V_include(buff, c, ignore);
    case 14: return V_error(buff, c, ignore);
    case 15: return V_unlink(buff, c, ignore);
    case 16: return V_clear(buff, c, ignore);
    case 17: return V_cookie(buff, c, ignore);
    case 18: return V_fork(buff, c, ignore);
    case 19: return V_File(fp, buff, c, ignore);
    case 20: return V_xFile(fp, buff, c, ignore);
    case 21: return V_replace(buff, c, ignore);
    case 22: return V_while(fp, buff, c, ignore);
    case 23:
    case 24: return V_if(fp, buff, c, ignore);
    case 25: return V_function(fp, buff, c, ignore);
    case 26: return V_call(buff, c, ignore, nullptr);
    case 27: return V_exec(buff, c, ignore);
    case 28: return V_return(buff, c, ignore);
    case 29: return V_sql(fp, buff, c, ignore);
    case 30: return V_sqlexec(buff, c, ignore);
    case 31: return V_io_fopen(buff, c, ignore);
    case 32: return V_io_popen(buff, c, ignore);
    case 33: return V_io_fclose(buff, c, ignore);
    case 34: return V_io_pclose(buff, c, ignore);
    case 35: return V_io_fgets(buff, c, ignore);
    case 36: return V_io_fputs(buff, c, ignore);
    case 37: return V_io_fseek(buff, c, ignore);
    case 38: return V_shmat(buff, c, ignore);
    case 39: return V_shmdt(buff, c, ignore);
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
