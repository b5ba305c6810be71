// Named streams and pipes (<@fopen>, <@popen>, <@fgets>, <@fputs>, <@fseek>,
// <@fclose>, <@pclose>) and the output-file blocks <@file> and <@xfile>.
#include "sys/streams.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/owners.h"
#include "driver/diagnostics.h"
#include "interp/loops.h"
#include "values/arguments.h"
#include "values/command_entry.h"
#include "values/output.h"
#include "values/response.h"
#include "values/substitution.h"
#include "values/variables.h"

int V_eof;   // end of data: set by <@fgets> at end of file and by the SQL row loop

namespace {

constexpr int V_OPEN_MAX = 32;
constexpr int V_OPEN_NAME = 128;
constexpr int ARG_AREA = 1000;   // bounds the arguments of one command
constexpr int FPUTS_AREA = V_LINE_MAX;

struct V_OPEN {
    FILE *fp;
    bool pipe;   // a command at the other end
    char name[V_OPEN_NAME];
};

V_OPEN v_OPEN[V_OPEN_MAX];

// The output stream an <@file> or <@xfile> block puts back when it ends.
struct Output_frame {
    FILE *saved;
    Output_frame *up;
};

Output_frame *outputs;   // innermost running block first

// An <@xfile> stream closed inside its own block, or inside a block nested
// in it, must be neither the current output nor put back as it: the page
// output takes its place.
void forget_output(FILE *fp) {
    if (V_stdout == fp) V_stdout = nullptr;
    for (Output_frame *f = outputs; f; f = f->up)
        if (f->saved == fp) f->saved = nullptr;
}

// The arguments of one command, copied one after another into an area of
// fixed size; an argument that no longer fits is cut, and so are those after.
struct Args {
    char area[FPUTS_AREA];
    const char *word[6];
    int count;
};

void take_args(const char *text, Args *a, int area_size, int max_words) {
    int used = 0;
    a->count = 0;
    char word[V_LINE_MAX];
    for (int i = 0; i < max_words; i++) {
        int pos = V_arg_string(text, word);
        if (pos == 0)
            word[0] = '\0';
        else
            text += pos;
        int room = area_size - used - 1;
        int n = (int)strlen(word);
        if (n > room) n = room < 0 ? 0 : room;
        char *dst = a->area + (used < area_size ? used : area_size - 1);
        memcpy(dst, word, (size_t)n);
        dst[n] = '\0';
        a->word[i] = dst;
        used += n + 1;
        if (used > area_size) used = area_size;
        a->count++;
    }
}

// The command entry followed by the argument split. Returns -1 (not ours),
// 0 (ignored) or 1 (go on).
int stream_entry(char *buff, int compile, int ignore, const char *tag, const char *handler, Args *a,
                 int area_size, int max_words) {
    char text[V_LINE_MAX];
    int go = command_entry(buff, tag, compile, ignore, text, {.name = handler});
    if (go > 0) take_args(text, a, area_size, max_words);
    return go;
}

V_OPEN *find_stream(const char *name) {
    for (auto &slot : v_OPEN)
        if (slot.fp && strcmp(slot.name, name) == 0) return &slot;
    return nullptr;
}

V_OPEN *free_slot() {
    for (auto &slot : v_OPEN)
        if (!slot.fp) return &slot;
    return nullptr;
}

void register_stream(V_OPEN *slot, FILE *fp, const char *name, bool pipe) {
    slot->fp = fp;
    slot->pipe = pipe;
    snprintf(slot->name, sizeof slot->name, "%s", name);
}

int open_command(char *buff, int compile, int ignore, bool pipe) {
    Args a;
    int r = stream_entry(buff, compile, ignore, pipe ? "<@popen>" : "<@fopen>",
                         pipe ? "V_io_popen" : "V_io_fopen", &a, ARG_AREA, 4);
    if (r <= 0) return r;
    const char *name = a.word[0], *path = a.word[1], *mode = a.word[2], *status = a.word[3];
    V_OPEN *slot = free_slot();
    if (!slot) {
        set_status(status, false);
        return 0;
    }
    // pages flush what they wrote before a command they start may write too
    if (pipe) {
        V_response_settle();
        V_flush_output(Flush::Handover);
    }
    FILE *fp = pipe ? popen(path, mode) : fopen(path, mode);
    if (!fp) {
        set_status(status, false);
        return 0;
    }
    register_stream(slot, fp, name, pipe);
    set_status(status, true);
    return 0;
}

int close_command(char *buff, int compile, int ignore, bool pipe) {
    Args a;
    int r = stream_entry(buff, compile, ignore, pipe ? "<@pclose>" : "<@fclose>",
                         pipe ? "V_io_pclose" : "V_io_fclose", &a, ARG_AREA, 2);
    if (r <= 0) return r;
    V_OPEN *slot = find_stream(a.word[0]);
    if (!slot) {
        set_status(a.word[1], false);
        return 0;
    }
    forget_output(slot->fp);
    // the command may still write to our standard output before it ends
    if (slot->pipe) V_flush_output();
    if (pipe)
        pclose(slot->fp);   // the command's exit status is not looked at
    else
        fclose(slot->fp);
    slot->fp = nullptr;
    set_status(a.word[1], true);
    return 0;
}

// Runs the block once with the page output sent to fp, then puts back the
// output stream and flush mode that were current before. The saved streams
// of the running blocks are chained so that a close can reach them.
void run_into(V_FILE *page, FILE *fp, int compile) {
    Output_frame frame{V_stdout, outputs};
    outputs = &frame;
    int saved_flush = DO_fflush;
    V_stdout = fp;
    DO_fflush = 0;
    V_notfound(page, compile, 0);
    DO_fflush = saved_flush;
    V_stdout = frame.saved;
    outputs = frame.up;
}

// Common entry of the two blocks: the path, or -1/0 as for the commands; a
// skipped block is read up to its end.
int block_entry(V_FILE *page, char *buff, int compile, int ignore, const char *tag, char *text,
                char *path) {
    int go = command_entry(buff, tag, compile, ignore, text);
    if (go == 0) V_notfound(page, compile, 1);
    if (go > 0) V_arg_string(text, path);
    return go;
}

}   // namespace

int V_io_fopen(char *buff, int compile, int ignore) {
    return open_command(buff, compile, ignore, false);
}

int V_io_popen(char *buff, int compile, int ignore) {
    return open_command(buff, compile, ignore, true);
}

int V_io_fclose(char *buff, int compile, int ignore) {
    return close_command(buff, compile, ignore, false);
}

int V_io_pclose(char *buff, int compile, int ignore) {
    return close_command(buff, compile, ignore, true);
}

int V_io_fgets(char *buff, int compile, int ignore) {
    Args a;
    int r = stream_entry(buff, compile, ignore, "<@fgets>", "V_io_fgets", &a, ARG_AREA, 4);
    if (r <= 0) return r;
    const char *var = *a.word[1] ? a.word[1] : "buff";
    long size = strtol(a.word[2], nullptr, 10);
    if (size > V_LINE_MAX - 1) size = V_LINE_MAX - 1;
    FILE *fp = nullptr;
    bool waits = false;   // on the request's sender or on a command
    if (strcmp(a.word[0], "stdin") == 0) {
        fp = stdin;
        waits = true;
    } else if (V_OPEN *slot = find_stream(a.word[0])) {
        fp = slot->fp;
        waits = slot->pipe;
    }
    if (waits) V_flush_output();
    char line[V_LINE_MAX];
    // a read length below 2 leaves no room for a character: nothing is read
    if (!fp || size < 2 || !fgets(line, (int)size, fp)) {
        // the EOF condition of <@if> tells a finished stream from a failed one
        if (fp && feof(fp)) V_eof = 1;
        set_status(a.word[3], false);
        return 0;
    }
    V_eof = 0;
    line[strcspn(line, "\n")] = '\0';
    line[strcspn(line, "\r")] = '\0';
    V_put_value(var, line, 0, 0);
    set_status(a.word[3], true);
    return 0;
}

int V_io_fputs(char *buff, int compile, int ignore) {
    Args a;
    int r = stream_entry(buff, compile, ignore, "<@fputs>", "V_io_fputs", &a, FPUTS_AREA, 3);
    if (r <= 0) return r;
    FILE *fp = nullptr;
    if (strcmp(a.word[0], "stdout") == 0) {
        V_response_settle();   // the text is page output
        fp = stdout;
    } else if (strcmp(a.word[0], "stderr") == 0) {
        V_flush_output();   // a terminal shows both in the order written
        fp = stderr;
    } else if (V_OPEN *slot = find_stream(a.word[0])) {
        fp = slot->fp;
        // the command may answer on our standard output
        if (slot->pipe) V_flush_output();
    }
    set_status(a.word[2], fp && fputs(a.word[1], fp) >= 0);
    return 0;
}

int V_io_fseek(char *buff, int compile, int ignore) {
    Args a;
    int r = stream_entry(buff, compile, ignore, "<@fseek>", "V_io_fseek", &a, ARG_AREA, 4);
    if (r <= 0) return r;
    V_OPEN *slot = find_stream(a.word[0]);
    long offset = strtol(a.word[1], nullptr, 10);
    int whence = (int)strtol(a.word[2], nullptr, 10);
    set_status(a.word[3], slot && fseek(slot->fp, offset, whence) == 0);
    return 0;
}

long V_ftell(const char *name) {
    V_OPEN *slot = find_stream(name);
    return slot ? ftell(slot->fp) : -1;
}

int V_File(V_FILE *page, char *buff, int compile, int ignore) {
    char text[V_LINE_MAX], path[V_LINE_MAX];
    int r = block_entry(page, buff, compile, ignore, "<@file>", text, path);
    if (r <= 0) return r;
    File fp(fopen(path, "a"));
    if (!fp) {
        ERRMSG("V_file: Cannot open file: {%s} \n", text);
        V_notfound(page, compile, 1);   // only while an error page runs
        return 0;
    }
    run_into(page, fp.get(), compile);
    return 0;
}

int V_xFile(V_FILE *page, char *buff, int compile, int ignore) {
    char text[V_LINE_MAX], path[V_LINE_MAX];
    int r = block_entry(page, buff, compile, ignore, "<@xfile>", text, path);
    if (r <= 0) return r;
    FILE *fp = nullptr;
    if (strlen(path) > V_OPEN_NAME - 1) {
        ERRMSG("V_xfile: file name is too long: {%s} \n", text);
    } else if (V_OPEN *slot = find_stream(path)) {
        fp = slot->fp;
    } else if (V_OPEN *slot = free_slot()) {
        fp = fopen(path, "a");
        if (fp)
            register_stream(slot, fp, path, false);
        else
            ERRMSG("V_xfile: Cannot open file: {%s} \n", text);
    } else {
        ERRMSG("V_xfile: outpass MAX open for file: {%s} \n", text);
    }
    if (!fp) {
        V_notfound(page, compile, 1);   // only while an error page runs
        return 0;
    }
    run_into(page, fp, compile);
    return 0;
}
