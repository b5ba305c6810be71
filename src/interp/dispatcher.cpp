// The command dispatcher: the keyword table, whose rows carry their
// handlers and the part their lines play in the block structure, the
// command tree built on first use, and the handler call for each line.
#include "interp/dispatcher.h"

#include <cstdlib>
#include <cstring>
#include <string_view>

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
#include "values/avl_tree.h"
#include "values/buffers.h"
#include "values/command_entry.h"

namespace {

// Every handler is called through one signature: the page being read, the
// line, the running file's compile mode (by address, for the commands that
// switch it) and ignore. The adapters below fit the handlers' own.
using Handler = int (*)(V_FILE *fp, char *buff, int *compile, int ignore);

template <int (*H)(char *, int, int)>
int line_command(V_FILE *, char *buff, int *compile, int ignore) {
    return H(buff, *compile, ignore);
}

// The commands that read a block of the page get the page.
template <int (*H)(V_FILE *, char *, int, int)>
int block_command(V_FILE *fp, char *buff, int *compile, int ignore) {
    return H(fp, buff, *compile, ignore);
}

// The commands that switch the running file's compile mode get its address.
template <int (*H)(char *, int *, int)>
int mode_command(V_FILE *, char *buff, int *compile, int ignore) {
    return H(buff, compile, ignore);
}

// A <@call> line has no receiver for the text of <@return>.
int call_command(V_FILE *, char *buff, int *compile, int ignore) {
    return V_call(buff, *compile, ignore, nullptr);
}

struct cmd_t {
    const char *cmd;   // the keyword between "<@" and ">"
    Handler run;       // null for the block-end words, which the runners take
    V_ROLE role;       // the part its line plays in the block structure
};

const cmd_t v_CMD[] = {
    {"option", mode_command<V_option>, ROLE_LINE},
    {"compile", mode_command<V_compile>, ROLE_LINE},
    {"html", line_command<V_html>, ROLE_LINE},
    {"sqltrap", line_command<V_sqltrap>, ROLE_LINE},
    {"sleep", line_command<V_sleep>, ROLE_LINE},
    {"usleep", line_command<V_usleep>, ROLE_LINE},
    {"chdir", line_command<V_chdir>, ROLE_LINE},
    {"sqlnames", line_command<V_sqlnames>, ROLE_LINE},
    {"quit", line_command<V_quit>, ROLE_LINE},
    {"shell", line_command<V_shell>, ROLE_LINE},
    {"set", line_command<V_set>, ROLE_LINE},
    {"add", line_command<V_add>, ROLE_LINE},
    {"include", line_command<V_include>, ROLE_LINE},
    {"error", line_command<V_error>, ROLE_LINE},
    {"unlink", line_command<V_unlink>, ROLE_LINE},
    {"clear", line_command<V_clear>, ROLE_LINE},
    {"cookie", line_command<V_cookie>, ROLE_LINE},
    {"fork", line_command<V_fork>, ROLE_LINE},
    {"file", block_command<V_File>, ROLE_BLOCK},
    {"xfile", block_command<V_xFile>, ROLE_BLOCK},
    {"replace", line_command<V_replace>, ROLE_LINE},
    {"while", block_command<V_while>, ROLE_BLOCK},
    {"if", block_command<V_if>, ROLE_IF},
    {"elif", block_command<V_if>, ROLE_ELIF},
    {"function", block_command<V_function>, ROLE_BLOCK},
    {"call", call_command, ROLE_LINE},
    {"exec", line_command<V_exec>, ROLE_LINE},
    {"return", line_command<V_return>, ROLE_LINE},
    {"sql", block_command<V_sql>, ROLE_BLOCK},
    {"sqlexec", line_command<V_sqlexec>, ROLE_LINE},
    {"fopen", line_command<V_io_fopen>, ROLE_LINE},
    {"popen", line_command<V_io_popen>, ROLE_LINE},
    {"fclose", line_command<V_io_fclose>, ROLE_LINE},
    {"pclose", line_command<V_io_pclose>, ROLE_LINE},
    {"fgets", line_command<V_io_fgets>, ROLE_LINE},
    {"fputs", line_command<V_io_fputs>, ROLE_LINE},
    {"fseek", line_command<V_io_fseek>, ROLE_LINE},
    {"shmat", line_command<V_shmat>, ROLE_LINE},
    {"shmdt", line_command<V_shmdt>, ROLE_LINE},
    {"header", line_command<V_add_header>, ROLE_LINE},
    {"status", line_command<V_status>, ROLE_LINE},
    {"redirect", line_command<V_redirect>, ROLE_LINE},
    {"end", nullptr, ROLE_END},
    {"continue", nullptr, ROLE_LOOP},
    {"break", nullptr, ROLE_LOOP},
};

// A node of the command tree. It keeps the keyword beside its row: the
// node's size shows in the heap lines of the trace, which stay as they were.
struct V_CMD {
    avl_t avl;   // key is the keyword
    const char *name;
    const cmd_t *row;
};

constexpr std::string_view TAG_OPEN = "<@";
constexpr int NAME_SIZE = 32;
constexpr int NAME_MAX_LEN = 29;   // a longer word is never a command

bool tree_built = false;

void build_tree() {
    if (tree_built) return;
    tree_built = true;
    avl_tree_t *t = &v_BUFFERS.ctree;
    if (!t->cmp) t->cmp = V_avlcmp;
    for (const cmd_t &c : v_CMD) {
        V_CMD *node = nullptr;
        if (v_BUFFERS.hp) node = (V_CMD *)V_heap_alloc(v_BUFFERS.hp, sizeof(V_CMD));
        if (!node) node = (V_CMD *)calloc(1, sizeof(V_CMD));
        if (!node) return;
        memset(node, 0, sizeof *node);
        node->name = c.cmd;
        node->row = &c;
        node->avl.key = (void *)c.cmd;
        node->avl.data = node;
        avl_insert(t, &node->avl);
    }
}

// The table row of keyword name, or null.
const cmd_t *lookup(const char *name) {
    build_tree();
    avl_t probe = {};
    probe.key = (void *)name;
    avl_t *found = avl_search(&v_BUFFERS.ctree, &probe);
    if (!found) return nullptr;
    // the node is the first member of its V_CMD
    return reinterpret_cast<V_CMD *>(found)->row;
}

// The command word between "<@" and ">" (into name, NAME_SIZE bytes), or
// false when there is none that could be a keyword.
bool command_name(const char *buff, char *name) {
    const char *p = buff + TAG_OPEN.size();
    const char *gt = strchr(p, '>');
    if (!gt || gt - p > NAME_MAX_LEN) return false;
    memcpy(name, p, (size_t)(gt - p));
    name[gt - p] = 0;
    return true;
}

#ifdef VORN_FUZZ
// The fuzzing build runs hostile pages: the commands that start processes,
// pause, change directory, write or remove files, or reach a database or
// shared memory are passed over as ignored (a block's body is skipped), so
// a fuzzed page touches nothing outside its own process.
bool refused(const char *name) {
    static const char *const words[] = {"sleep", "usleep", "chdir",  "shell", "unlink",
                                        "fork",  "file",   "xfile",  "sql",   "sqlexec",
                                        "fopen", "popen",  "pclose", "shmat", "shmdt"};
    for (const char *w : words)
        if (!strcmp(name, w)) return true;
    return false;
}
#endif

}   // namespace

// A keyword's role is in its row; the rest of the decision follows V_command
// and the block runners.
V_ROLE V_line_role(const char *line) {
    if (!line || !has_tag(line, TAG_OPEN)) return ROLE_TEXT;
    char name[NAME_SIZE];
    if (const cmd_t *row = command_name(line, name) ? lookup(name) : nullptr) return row->role;
    if (V_is_else(line)) return ROLE_ELSE;
    return V_is_assignment(line) ? ROLE_LINE : ROLE_UNKNOWN;
}

namespace {

// What a cut line is, as a note of V_read_cut keeps it: the row's index in
// v_CMD, or one of these.
enum { NOTE_UNSEEN = -1, NOTE_TEXT = V_NOTE_TEXT, NOTE_NO_ROW = -3 };

int note_of(const char *buff) {
    if (!has_tag(buff, TAG_OPEN)) return NOTE_TEXT;
    char name[NAME_SIZE];
    const cmd_t *row = command_name(buff, name) ? lookup(name) : nullptr;
    return row ? (int)(row - v_CMD) : NOTE_NO_ROW;
}

}   // namespace

int V_command(V_FILE *fp, char *buff, int *compile, int ignore) {
    cut_cmd(fp, buff);
    return V_command_cut(fp, buff, nullptr, compile, ignore);
}

int V_command_cut(V_FILE *fp, char *buff, V_LINE_NOTE *note, int *compile, int ignore) {
    int kind;
    if (note && note->kind != NOTE_UNSEEN) {
        kind = note->kind;
    } else {
        kind = note_of(buff);
        if (note) {
            note->kind = kind;
            // text, an assignment, an unknown or a block word: only read
            note->shared = kind < 0 || !v_CMD[kind].run;
        }
    }
    if (kind == NOTE_TEXT) return -1;
    if (kind >= 0) {
        const cmd_t *row = &v_CMD[kind];
        // the block-end words have no handler: the block runners take them
        if (!row->run) return -1;
#ifdef VORN_FUZZ
        if (refused(row->cmd)) ignore = 1;
#endif
        if (note && (row->role == ROLE_IF || row->role == ROLE_ELIF)) {
            if (V_if_kept(fp, buff, *compile, ignore, note) == 0) return 0;
        } else if (row->run(fp, buff, compile, ignore) == 0) {
            return 0;
        }
    }
    // a line no row takes is the assignment's alone, and so is its note
    if (note && kind == NOTE_NO_ROW)
        return V_let_kept(buff, *compile, ignore, &note->parsed) == 0 ? 0 : -1;
    return V_let(buff, *compile, ignore) == 0 ? 0 : -1;
}
