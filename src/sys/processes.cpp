// Process and system commands: <@shell>, <@fork>, <@unlink>, <@chdir>,
// <@sleep> and <@usleep>. Only <@shell> reports a failure.
#include "sys/processes.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <unistd.h>

#include "driver/diagnostics.h"
#include "values/arguments.h"
#include "values/output.h"
#include "values/response.h"
#include "values/substitution.h"
#include "values/variables.h"

namespace {

bool has_tag(const char *buff, const char *tag)
{
    return strncmp(buff, tag, strlen(tag)) == 0;
}

// <@unlink> and <@chdir> take their first word in place, over the text it
// came from.
void first_word_in_place(char *text)
{
    char word[V_LINE_MAX];
    V_arg_string(text, word);
    memcpy(text, word, strlen(word) + 1);
}

// The count of <@sleep>/<@usleep>: a text that does not start with a number
// means no pause.
int leading_count(const char *text)
{
    int n = 0;
    if (sscanf(text, "%d", &n) != 1)
        return 0;
    return n;
}

int pause_command(char *buff, int compile, int ignore, const char *tag,
                  const char *trace, bool micro)
{
    if (!has_tag(buff, tag))
        return -1;
    V_TRACE(trace, buff, compile, ignore);
    if (ignore)
        return 0;
    char text[V_LINE_MAX];
    V_transline(buff + strlen(tag), text, compile);
    V_DEBUG("%s // %s\n", buff, text);
    int n = leading_count(text);
    if (n < 1)
        return 0;
    if (micro)
        usleep((useconds_t)n);
    else
        sleep((unsigned)n);
    return 0;
}

}  // namespace

int V_shell(char *buff, int compile, int ignore)
{
    static const char tag[] = "<@shell>";
    if (!has_tag(buff, tag))
        return -1;
    if (ignore)
        return 0;
    char cmd[V_LINE_MAX];
    V_transline(buff + strlen(tag), cmd, compile);
    V_TRACE("V_shell: {%s}\n", cmd);
    V_DEBUG("%s // %s\n", buff, cmd);
    // the command writes to our standard output: the header block and what
    // the page wrote so far must reach it first
    V_response_settle();
    fflush(V_out());
    if (system(cmd) == -1)
        ERRMSG("Cannot run SHELL: %s \n", cmd);
    return 0;
}

int V_fork(char *buff, int compile, int ignore)
{
    static const char tag[] = "<@fork>";
    if (!has_tag(buff, tag))
        return -1;
    V_TRACE("V_fork: {%s} compile: %d  ignore: %d \n", buff, compile, ignore);
    if (ignore)
        return 0;
    // the argument of <@fork> is a variable name: a short buffer is enough
    char text[200];
    V_transline_n(buff + strlen(tag), text, sizeof text, compile);
    V_DEBUG("%s // %s \n", buff, text);
    char name[200];
    V_arg_string(text, name);
    // the output buffered at this moment is written by both processes, as a
    // page that forks expects from stdio; a deferred header block is ended
    // first, or both would end it
    V_response_settle();
    char pid[20];
    snprintf(pid, sizeof pid, "%d", (int)fork());
    return V_put_value(name, pid, 0, 0);
}

int V_unlink(char *buff, int compile, int ignore)
{
    static const char tag[] = "<@unlink>";
    if (!has_tag(buff, tag))
        return -1;
    V_TRACE("V_unlink: {%s} compile: %d  ignore: %d \n", buff, compile, ignore);
    if (ignore)
        return 0;
    char path[V_LINE_MAX];
    V_transline(buff + strlen(tag), path, compile);
    V_DEBUG("%s // %s \n", buff, path);
    first_word_in_place(path);
    unlink(path);
    return 0;
}

int V_chdir(char *buff, int compile, int ignore)
{
    static const char tag[] = "<@chdir>";
    if (!has_tag(buff, tag))
        return -1;
    V_TRACE("V_chdir: buff= %s; compile= %d ignore: %d \n", buff, compile, ignore);
    if (ignore)
        return 0;
    char path[V_LINE_MAX];
    V_transline(buff + strlen(tag), path, compile);
    V_DEBUG("%s // %s\n", buff, path);
    first_word_in_place(path);
    if (chdir(path) != 0)
        V_TRACE("V_chdir: cannot change to %s\n", path);   // silent for the page
    return 0;
}

int V_sleep(char *buff, int compile, int ignore)
{
    return pause_command(buff, compile, ignore, "<@sleep>",
                         "V_sleep: buff= %s; compile= %d ignore: %d \n", false);
}

int V_usleep(char *buff, int compile, int ignore)
{
    return pause_command(buff, compile, ignore, "<@usleep>",
                         "V_usleep: buff= %s; compile= %d ignore: %d \n", true);
}
