// Page files held whole in memory, the line reader over them, and the
// lexical step that turns a raw line into a text line or one command line.
#include "interp/page_file.h"

#include <climits>
#include <cstdlib>
#include <cstring>

#include "driver/diagnostics.h"
#include "driver/request.h"
#include "interp/dispatcher.h"
#include "interp/loops.h"
#include "values/arguments.h"
#include "values/output.h"
#include "values/substitution.h"
#include "values/variables.h"

const char *DIR = ".";

namespace {

constexpr int MAX_LEVEL = 10;      // deepest level that still runs: 11 files
constexpr int DIR_SIZE = 200;
constexpr int CONT_SIZE = 300;     // one continuation line and its comments
constexpr int TRACE_TAIL = 100;

int level = 0;

// Request heap when there is one; the unit tests run without a driver.
void *page_alloc(size_t size)
{
    void *p = nullptr;
    if (v_BUFFERS.hp && size < INT_MAX)
        p = V_heap_alloc(v_BUFFERS.hp, (int)size);
    if (!p)
        p = calloc(1, size);
    return p;
}

// Reports "LABEL NAME". ERRMSG returns only inside the error page, whose
// output is HTML: there the name, which may come from the request, is
// written as text.
[[noreturn]] void file_failure(const char *label, const char *fname)
{
    ERRMSG("%s%s \n", label, fname);
    FILE *out = V_out();
    fprintf(out, "<hr><h1> %s", label);
    V_write_escaped(out, fname);
    fputs(" </h1><hr>\n", out);
    V_fflush(out);
    V_exit(-2);
}

V_FILE *find_loaded(const struct stat &st)
{
    for (V_FILE *f = v_BUFFERS.files; f; f = f->next) {
        if (f->stat.st_dev == st.st_dev && f->stat.st_ino == st.st_ino &&
            f->stat.st_size == st.st_size && f->stat.st_mtime == st.st_mtime)
            return f;
    }
    return nullptr;
}

V_FILE *load_file(const char *fname, const struct stat &st)
{
    const char *no_open = "Cannot open file: ";
    if (st.st_size < 0 || st.st_size > INT_MAX - 32)
        file_failure(no_open, fname);
    FILE *in = fopen(fname, "r");
    if (!in)
        file_failure(no_open, fname);
    int size = (int)st.st_size;
    V_FILE *fp = (V_FILE *)page_alloc(sizeof(V_FILE));
    char *text = (char *)page_alloc((size_t)size + 16);
    if (!fp || !text) {
        fclose(in);
        file_failure(no_open, fname);
    }
    size_t got = fread(text, 1, (size_t)size, in);
    fclose(in);
    text[got] = 0;
    fp->text = text;
    fp->offset = 0;
    fp->size = (int)got;   // a file that shrank since stat is taken as read
    fp->stat = st;
    fp->next = v_BUFFERS.files;
    v_BUFFERS.files = fp;
    V_TRACE("File SIZE: %d\n", fp->size);
    if (fp->size > TRACE_TAIL)
        V_TRACE("LAST 100 CHARS ===>\n%s\n===>\n", text + fp->size - TRACE_TAIL);
    return fp;
}

// The directory of fname, seen from the site root when the page lies below it.
void file_dir(const char *fname, char *dir)
{
    const char *root = V_get_value("V_ROOT");
    size_t rootlen = root ? strlen(root) : 0;
    if (root && strcmp(root, "/") != 0 && strncmp(fname, root, rootlen) == 0)
        snprintf(dir, DIR_SIZE, "./%s", fname + rootlen);
    else
        snprintf(dir, DIR_SIZE, "%s", fname);
    char *slash = strrchr(dir, '/');
    if (slash)
        *slash = 0;
    if (!dir[0])
        snprintf(dir, DIR_SIZE, "/");
}

void run_lines(V_FILE *fp, int compile)
{
    char line[V_LINE_MAX];
    while (V_fgets(line, V_LINE_MAX, fp) > 0) {
        if (V_command(fp, line, &compile, 0) != 0) {
            V_transline(line, nullptr, compile);
            continue;
        }
        if (Break) {
            Continue = 0;
            Break = 0;
            break;
        }
    }
}

// Removes every comment from buf (bufsize bytes). An open comment takes the
// following lines of fp into buf at its own position, bounded by the buffer
// end and by CONT_SIZE; the end of the file cuts the comment off there.
void strip_comments(V_FILE *fp, char *buf, int bufsize)
{
    char *start;
    while ((start = strstr(buf, "<@--")) != nullptr) {
        char *end = strstr(start + 4, "--@>");
        while (!end) {
            int room = bufsize - (int)(start - buf);
            if (room > CONT_SIZE)
                room = CONT_SIZE;
            if (room < 2 || V_fgets(start, room, fp) == 0) {
                *start = 0;
                return;
            }
            end = strstr(start, "--@>");
        }
        end += 4;
        memmove(start, end, strlen(end) + 1);
    }
}

void blank_controls(char *s)
{
    for (; *s; s++) {
        if ((unsigned char)*s < 32 && *s != '\n')
            *s = ' ';
    }
}

// Appends the continuation lines of a command line that ends in a backslash.
// Returns false when the next line would pass the buffer; it is left out.
bool join_continuations(V_FILE *fp, char *buff)
{
    int len = (int)strlen(buff);
    if (len == 0 || buff[len - 1] != '\\')
        return true;
    buff[--len] = 0;
    for (;;) {
        char work[CONT_SIZE];
        if (V_fgets(work, CONT_SIZE, fp) == 0)
            return true;
        strip_comments(fp, work, CONT_SIZE);
        blank_controls(work);
        int wlen = (int)strlen(work);
        if (wlen > 0 && work[wlen - 1] == '\n')
            work[--wlen] = 0;
        bool more = wlen > 0 && work[wlen - 1] == '\\';
        if (more)
            work[wlen - 1] = ' ';
        if (len + wlen > V_LINE_MAX - 1)
            return false;
        memcpy(buff + len, work, (size_t)wlen + 1);
        len += wlen;
        if (!more)
            return true;
    }
}

enum { CUT_TEXT, CUT_COMMAND, CUT_TOO_LONG };

// The work of cut_cmd, without its traces and its error.
int cut_line(V_FILE *fp, char *buff)
{
    strip_comments(fp, buff, V_LINE_MAX);
    blank_controls(buff);
    char *p = buff;
    while (*p == ' ')
        p++;
    if (strncmp(p, "<@", 2) != 0)
        return CUT_TEXT;
    memmove(buff, p, strlen(p) + 1);
    char *nl = strchr(buff, '\n');
    if (nl)
        *nl = 0;
    return join_continuations(fp, buff) ? CUT_COMMAND : CUT_TOO_LONG;
}

} // namespace

void V_fflush(FILE *fp)
{
    if (DO_fflush && fp)
        fflush(fp);
}

int V_fgets(char *buff, int size, V_FILE *fp)
{
    if (!fp || !fp->text || size < 1) {
        if (size > 0)
            buff[0] = 0;
        return 0;
    }
    V_TRACE("V_fgets:IN fp->size= %d fp->offset= %d\n", fp->size, fp->offset);
    int n = 0;
    if (fp->offset < 0)
        fp->offset = 0;
    while (n < size - 1 && fp->offset < fp->size) {
        char c = fp->text[fp->offset++];
        buff[n++] = c;
        if (c == '\n')
            break;
    }
    buff[n] = 0;
    V_TRACE("V_fgets:OUT fp->size= %d fp->offset= %d\n", fp->size, fp->offset);
    V_TRACE("V_fgets: return( %d )  buff={%s}\n", n, buff);
    return n;
}

int cut_cmd(V_FILE *fp, char *buff)
{
    V_TRACE("cut_cmd: IN= {%s}", buff);
    int kind = cut_line(fp, buff);
    if (kind == CUT_TEXT)
        return 0;
    if (kind == CUT_TOO_LONG)
        ERRMSG("cut_cmd: No more memory...");
    V_TRACE("cut_cmd: OUT= {%s}", buff);
    return 0;
}

int V_cut_line(V_FILE *fp, char *buff)
{
    return cut_line(fp, buff) == CUT_TOO_LONG ? -1 : 0;
}

int V_printfile(const char *fname, int compile)
{
    V_TRACE("V_printfile: %s compile: %d level: %d\n", fname, compile, level);
    if (level > MAX_LEVEL)
        return -1;
    struct stat st;
    if (stat(fname, &st) != 0)
        file_failure("Cannot access file: ", fname);
    V_FILE *fp = find_loaded(st);
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
    if (reused)
        fp->offset = saved_offset;
    return 0;
}

int V_include(char *buff, int compile, int ignore)
{
    static const char tag[] = "<@include>";
    if (strncmp(buff, tag, sizeof tag - 1) != 0)
        return -1;
    V_TRACE("V_include: {%s} compile: %d  ignore: %d \n", buff, compile, ignore);
    if (ignore)
        return 0;
    char buf[V_LINE_MAX];
    char arg[V_LINE_MAX];
    buf[0] = 0;
    V_transline(buff + sizeof tag - 1, buf, compile);
    V_DEBUG("%s // %s \n", buff, buf);
    arg[0] = 0;
    V_arg_string(buf, arg);
    V_printfile(arg, compile);
    return 0;
}

int V_quit(char *buff, int compile, int ignore)
{
    static const char tag[] = "<@quit>";
    if (strncmp(buff, tag, sizeof tag - 1) != 0)
        return -1;
    V_TRACE("V_quit: buff= %s; compile= %d ignore: %d \n", buff, compile, ignore);
    if (ignore)
        return 0;
    V_exit(0);
}
