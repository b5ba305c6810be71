// Process and system commands: <@shell>, <@fork>, <@unlink>, <@chdir>,
// <@sleep> and <@usleep>. Only <@shell> reports a failure.
#include "sys/processes.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "driver/diagnostics.h"
#include "values/arguments.h"
#include "values/command_entry.h"
#include "values/output.h"
#include "values/response.h"
#include "values/substitution.h"
#include "values/variables.h"

constexpr int FORK_TEXT = 200;   // the argument of <@fork> is a variable name

namespace {

// <@unlink> and <@chdir> take their first word in place, over the text it
// came from.
void first_word_in_place(char *text) {
    char word[V_LINE_MAX];
    V_arg_string(text, word);
    memcpy(text, word, strlen(word) + 1);
}

// The count of <@sleep>/<@usleep>: a text that does not start with a number
// means no pause.
int leading_count(const char *text) {
    int n = 0;
    if (sscanf(text, "%d", &n) != 1) return 0;
    return n;
}

int pause_command(char *buff, int compile, int ignore, const char *tag, bool micro) {
    char text[V_LINE_MAX];
    int go = command_entry(buff, tag, compile, ignore, text, {.form = ENTRY_BUFF});
    if (go <= 0) return go;
    int n = leading_count(text);
    if (n < 1) return 0;
    // what the page wrote is not held while it waits
    V_flush_output();
    if (micro)
        usleep((useconds_t)n);
    else
        sleep((unsigned)n);
    return 0;
}

}   // namespace

int V_shell(char *buff, int compile, int ignore) {
    char cmd[V_LINE_MAX];
    // the only handler that traces its substituted command, not its line
    int go = command_entry(buff, "<@shell>", compile, ignore, cmd, {.form = ENTRY_QUIET});
    if (go <= 0) return go;
    V_TRACE("V_shell: {%s}\n", cmd);
    // the command writes to our standard output: the header block and what
    // the page wrote so far must reach it first
    V_response_settle();
    V_flush_output(Flush::Handover);
    if (system(cmd) == -1) ERRMSG("Cannot run SHELL: %s \n", cmd);
    return 0;
}

int V_fork(char *buff, int compile, int ignore) {
    char text[FORK_TEXT];
    int go = command_entry(buff, "<@fork>", compile, ignore, text, {.size = sizeof text});
    if (go <= 0) return go;
    char name[sizeof text];
    V_arg_string(text, name);
    // a deferred header block is ended first, or both would end it; then
    // every held byte is sent, or both processes would write it
    V_response_settle();
    V_flush_output(Flush::Fork);
    char pid[20];
    snprintf(pid, sizeof pid, "%d", (int)fork());
    return V_put_value(name, pid, 0, 0);
}

int V_unlink(char *buff, int compile, int ignore) {
    char path[V_LINE_MAX];
    int go = command_entry(buff, "<@unlink>", compile, ignore, path);
    if (go <= 0) return go;
    first_word_in_place(path);
    unlink(path);
    return 0;
}

int V_chdir(char *buff, int compile, int ignore) {
    char path[V_LINE_MAX];
    int go = command_entry(buff, "<@chdir>", compile, ignore, path, {.form = ENTRY_BUFF});
    if (go <= 0) return go;
    first_word_in_place(path);
    if (chdir(path) != 0) V_TRACE("V_chdir: cannot change to %s\n", path);   // silent for the page
    return 0;
}

int V_sleep(char *buff, int compile, int ignore) {
    return pause_command(buff, compile, ignore, "<@sleep>", false);
}

int V_usleep(char *buff, int compile, int ignore) {
    return pause_command(buff, compile, ignore, "<@usleep>", true);
}
