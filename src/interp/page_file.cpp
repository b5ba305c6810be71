// The page runner: a page file is loaded whole (or its loaded copy reused
// while the file is unchanged) and its lines run through the dispatcher;
// <@include> runs another file the same way, <@quit> ends the request.
#include "interp/page_file.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

#include "base/hot_data.h"
#include "base/owners.h"
#include "driver/diagnostics.h"
#include "interp/dispatcher.h"
#include "interp/flow.h"
#include "interp/loops.h"
#include "interp/page_reader.h"
#include "values/arguments.h"
#include "values/buffers.h"
#include "values/command_entry.h"
#include "values/output.h"
#include "values/substitution.h"
#include "values/variables.h"

const char *DIR = ".";

namespace {

constexpr int MAX_LEVEL = 10;   // deepest level that still runs: 11 files
constexpr int DIR_SIZE = 200;
constexpr int TRACE_TAIL = 100;

V_HOT int level = 0;

// The file V_page_text has just looked at: the run of the same name that
// follows takes it as found there, without a second stat. Every run takes
// or drops it, so any later run of a file looks at the file again.
V_HOT V_FILE *just_checked;

// Request heap when there is one; the unit tests run without a driver.
void *page_alloc(size_t size) {
    void *p = nullptr;
    if (v_BUFFERS.hp && size < INT_MAX) p = V_heap_alloc(v_BUFFERS.hp, (int)size);
    if (!p) p = calloc(1, size);
    return p;
}

// Reports "LABEL NAME". ERRMSG returns only inside the error page, whose
// output is HTML: there the name, which may come from the request, is
// written as text.
[[noreturn]] void file_failure(const char *label, const char *fname) {
    ERRMSG("%s%s \n", label, fname);
    FILE *out = V_out();
    fprintf(out, "<hr><h1> %s", label);
    V_write_escaped(out, fname);
    fputs(" </h1><hr>\n", out);
    V_exit(-2);
}

V_FILE *find_loaded(const struct stat &st) {
    for (V_FILE *f = v_BUFFERS.files; f; f = f->next) {
        if (f->stat.st_dev == st.st_dev && f->stat.st_ino == st.st_ino &&
            f->stat.st_size == st.st_size && f->stat.st_mtime == st.st_mtime)
            return f;
    }
    return nullptr;
}

// Reads up to size bytes of fd into text; a read error ends the text there,
// as the end of the file does.
size_t read_whole(int fd, char *text, size_t size) {
    size_t got = 0;
    while (got < size) {
        ssize_t n = read(fd, text + got, size - got);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        got += (size_t)n;
    }
    return got;
}

// Loads the file open on in; st is what stat said of fname.
V_FILE *load_open_file(const char *fname, const struct stat &st, Fd &in) {
    const char *no_open = "Cannot open file: ";
    if (!in || st.st_size < 0 || st.st_size > INT_MAX - 32) {
        if (in) close(in.release());   // the failure ends the process without unwinding
        file_failure(no_open, fname);
    }
    int size = (int)st.st_size;
    V_FILE *fp = (V_FILE *)page_alloc(sizeof(V_FILE));
    char *text = (char *)page_alloc((size_t)size + 16);
    if (!fp || !text) {
        close(in.release());   // the failure ends the process without unwinding
        file_failure(no_open, fname);
    }
    size_t got = read_whole(in.get(), text, (size_t)size);
    close(in.release());
    text[got] = 0;
    fp->text = text;
    fp->offset = 0;
    fp->size = (int)got;   // a file that shrank since stat is taken as read
    fp->stat = st;
    char *name = (char *)page_alloc(strlen(fname) + 1);
    if (name) memcpy(name, fname, strlen(fname) + 1);
    fp->name = name;
    fp->next = v_BUFFERS.files;
    v_BUFFERS.files = fp;
    V_TRACE("File SIZE: %d\n", fp->size);
    if (fp->size > TRACE_TAIL)
        V_TRACE("LAST 100 CHARS ===>\n%s\n===>\n", text + fp->size - TRACE_TAIL);
    return fp;
}

V_FILE *load_file(const char *fname, const struct stat &st) {
    // read straight into the text: a stream would allocate its own buffer
    // and ask the file's block size first, for a file read once and whole
    Fd in(open(fname, O_RDONLY));
    return load_open_file(fname, st, in);
}

// The directory of fname, seen from the site root when the page lies below it.
void file_dir(const char *fname, char *dir) {
    const char *root = V_get_value("V_ROOT");
    size_t rootlen = root ? strlen(root) : 0;
    if (root && strcmp(root, "/") != 0 && strncmp(fname, root, rootlen) == 0)
        snprintf(dir, DIR_SIZE, "./%s", fname + rootlen);
    else
        snprintf(dir, DIR_SIZE, "%s", fname);
    char *slash = strrchr(dir, '/');
    if (slash) *slash = 0;
    if (!dir[0]) snprintf(dir, DIR_SIZE, "/");
}

void run_lines(V_FILE *fp, int compile) {
    char line[V_LINE_MAX];
    while (V_fgets(line, V_LINE_MAX, fp) > 0) {
        if (V_command(fp, line, &compile, 0) != 0) {
            V_transline(line, nullptr, compile);
            continue;
        }
        if (file_ends()) break;
    }
}

}   // namespace

int V_printfile(const char *fname, int compile) {
    V_TRACE("V_printfile: %s compile: %d level: %d\n", fname, compile, level);
    if (level > MAX_LEVEL) return -1;
    V_FILE *fp = nullptr;
    if (just_checked && just_checked->name && !strcmp(just_checked->name, fname)) fp = just_checked;
    just_checked = nullptr;
    struct stat st;
    if (!fp) {
        if (stat(fname, &st) != 0) file_failure("Cannot access file: ", fname);
        fp = find_loaded(st);
    }
    bool reused = fp != nullptr;
    int saved_offset = 0;
    if (reused) {
        saved_offset = fp->offset;
        fp->offset = 0;
        V_TRACE("Reused, File SIZE: %d\n", fp->size);
    } else {
        fp = load_file(fname, st);
    }
    level++;
    V_TRACE("V_printfile: DIR-curr= %s\n", DIR);
    const char *saved_dir = DIR;
    char dir[DIR_SIZE];
    file_dir(fname, dir);
    DIR = dir;
    V_TRACE("V_printfile: DIR-new= %s\n", DIR);
    run_lines(fp, compile);
    level--;
    DIR = saved_dir;
    if (reused) fp->offset = saved_offset;
    return 0;
}

const char *V_page_text(const char *fname, const struct stat *seen) {
    struct stat st;
    if (!fname) return nullptr;
    if (seen)
        st = *seen;
    else if (stat(fname, &st) != 0)
        return nullptr;
    V_FILE *fp = find_loaded(st);
    if (fp) {
        if (access(fname, R_OK) != 0) return nullptr;
    } else {
        // a file that opens is readable: the opening is the test, where
        // asking first would cost a call of its own
        Fd in(open(fname, O_RDONLY));
        if (!in) return nullptr;
        fp = load_open_file(fname, st, in);
    }
    just_checked = fp;
    return fp->text;
}

void V_page_forget() {
    just_checked = nullptr;
}

int V_include(char *buff, int compile, int ignore) {
    char buf[V_LINE_MAX];
    int go = command_entry(buff, "<@include>", compile, ignore, buf);
    if (go <= 0) return go;
    char arg[V_LINE_MAX];
    arg[0] = 0;
    V_arg_string(buf, arg);
    V_printfile(arg, compile);
    return 0;
}

int V_quit(char *buff, int compile, int ignore) {
    // <@quit> takes no arguments: nothing is substituted
    int go = command_entry(buff, "<@quit>", compile, ignore, nullptr, {.form = ENTRY_BUFF});
    if (go <= 0) return go;
    V_exit(0);
}
