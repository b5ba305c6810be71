// The line reader over page files held in memory, and the lexical step that
// turns a raw line into a text line or one command line: comments out,
// control bytes blanked, continuation lines joined. It runs nothing, so the
// runners, the block handlers and the page check all read through it.
#include "interp/page_reader.h"

#include <cstdlib>
#include <cstring>

#include "base/hot_data.h"
#include "driver/diagnostics.h"
#include "values/substitution.h"

namespace {

constexpr int CONT_SIZE = 300;   // one continuation line and its comments

// Where the last line of a loaded file began. Loaded files live until the
// process ends, so the pointer stays good; the line number is counted only
// when someone asks (an error), never while reading.
V_HOT const V_FILE *reading;
V_HOT int reading_start;

// Removes every comment from buf (bufsize bytes). An open comment takes the
// following lines of fp into buf at its own position, bounded by the buffer
// end and by CONT_SIZE; the end of the file cuts the comment off there.
void strip_comments(V_FILE *fp, char *buf, int bufsize) {
    char *start;
    while ((start = strstr(buf, "<@--")) != nullptr) {
        char *end = strstr(start + 4, "--@>");
        while (!end) {
            int room = bufsize - (int)(start - buf);
            if (room > CONT_SIZE) room = CONT_SIZE;
            // "<@--" and its NUL lie in buf, so room is at least 5
            if (V_fgets(start, room, fp) == 0) {
                *start = 0;
                return;
            }
            end = strstr(start, "--@>");
        }
        end += 4;
        memmove(start, end, strlen(end) + 1);
    }
}

void blank_controls(char *s) {
    for (; *s; s++) {
        if ((unsigned char)*s < 32 && *s != '\n') *s = ' ';
    }
}

// Appends the continuation lines of a command line that ends in a backslash.
// Returns false when the next line would pass the buffer; it is left out.
bool join_continuations(V_FILE *fp, char *buff) {
    int len = (int)strlen(buff);
    if (buff[len - 1] != '\\') return true;   // a command line: "<@" at least
    buff[--len] = 0;
    for (;;) {
        char work[CONT_SIZE];
        if (V_fgets(work, CONT_SIZE, fp) == 0) return true;
        strip_comments(fp, work, CONT_SIZE);
        blank_controls(work);
        int wlen = (int)strlen(work);
        if (wlen > 0 && work[wlen - 1] == '\n') work[--wlen] = 0;
        bool more = wlen > 0 && work[wlen - 1] == '\\';
        if (more) work[wlen - 1] = ' ';
        if (len + wlen > V_LINE_MAX - 1) return false;
        memcpy(buff + len, work, (size_t)wlen + 1);
        len += wlen;
        if (!more) return true;
    }
}

enum { CUT_TEXT, CUT_COMMAND, CUT_TOO_LONG };

// The work of cut_cmd, without its traces and its error.
int cut_line(V_FILE *fp, char *buff) {
    strip_comments(fp, buff, V_LINE_MAX);
    blank_controls(buff);
    char *p = buff;
    while (*p == ' ') p++;
    if (strncmp(p, "<@", 2) != 0) return CUT_TEXT;
    memmove(buff, p, strlen(p) + 1);
    char *nl = strchr(buff, '\n');
    if (nl) *nl = 0;
    return join_continuations(fp, buff) ? CUT_COMMAND : CUT_TOO_LONG;
}

// One line as V_read_cut keeps it. Each is allocated on its own, so the
// note handed out stays put while the table grows under a nested read.
struct Cut {
    int start;        // offset of the line's first byte
    int end;          // fp->offset after the line and what it took in
    int last_start;   // where the last line read for it began
    V_LINE_NOTE note;
    int len;
    char *text;   // the cut text and its NUL
};

// Open addressing over start offsets; the size is a power of two, at most
// half full.
struct CutTable {
    Cut **slots;
    int size;
    int used;
};

constexpr int CUT_TABLE_FIRST = 64;

Cut **find_slot(CutTable *t, int start) {
    unsigned mask = (unsigned)t->size - 1;
    unsigned i = ((unsigned)start * 2654435761u) & mask;
    while (t->slots[i] && t->slots[i]->start != start) i = (i + 1) & mask;
    return &t->slots[i];
}

bool grow(CutTable *t) {
    int size = t->size ? t->size * 2 : CUT_TABLE_FIRST;
    Cut **slots = static_cast<Cut **>(calloc((size_t)size, sizeof(Cut *)));
    if (!slots) return false;
    CutTable bigger = {slots, size, t->used};
    for (int i = 0; i < t->size; i++)
        if (t->slots[i]) *find_slot(&bigger, t->slots[i]->start) = t->slots[i];
    free(t->slots);
    *t = bigger;
    return true;
}

// The kept lines of each file, beside the files rather than in them: a
// V_FILE's size shows in the heap lines of the trace, which stay as they
// were. A page runs few files, and the last one asked for is asked again.
struct FileCuts {
    const V_FILE *file;
    CutTable table;
    FileCuts *next;
};
V_HOT FileCuts *file_cuts;
V_HOT FileCuts *last_cuts;

CutTable *cut_table(const V_FILE *fp) {
    if (last_cuts && last_cuts->file == fp) return &last_cuts->table;
    FileCuts *f = file_cuts;
    while (f && f->file != fp) f = f->next;
    if (!f) {
        f = static_cast<FileCuts *>(calloc(1, sizeof(FileCuts)));
        if (!f) return nullptr;
        f->file = fp;
        f->next = file_cuts;
        file_cuts = f;
    }
    last_cuts = f;
    return &f->table;
}

// Keeps the line just cut into buff, which began at start; null when there
// is no memory for it (the line is then simply not kept).
Cut *keep_cut(CutTable *t, int start, const V_FILE *fp, const char *buff) {
    if (2 * (t->used + 1) > t->size && !grow(t)) return nullptr;
    int len = (int)strlen(buff);
    Cut *c = static_cast<Cut *>(malloc(sizeof(Cut)));
    char *text = static_cast<char *>(malloc((size_t)len + 1));
    if (!c || !text) {
        free(c);
        free(text);
        return nullptr;
    }
    memcpy(text, buff, (size_t)len + 1);
    *c = {start, fp->offset, reading_start, {-1, false, false, nullptr, nullptr}, len, text};
    *find_slot(t, start) = c;
    t->used++;
    return c;
}

}   // namespace

namespace {

// Hands out the kept line c as reading it would have: its text into buff,
// the file's place after it, the line for the error log, and its note.
int take_kept(Cut *c, V_FILE *fp, char *buff, V_LINE_NOTE **note, char **line) {
    if (c->note.shared)
        *line = c->text;
    else
        memcpy(buff, c->text, (size_t)c->len + 1);
    fp->offset = c->end;
    reading = fp;
    reading_start = c->last_start;
    *note = &c->note;
    return 1;
}

// V_read_cut for a line not kept yet, or one that is not to be kept.
[[gnu::noinline]] int read_afresh(V_FILE *fp, char *buff, V_LINE_NOTE **note, char **line) {
    if (Trace || !V_trace_ready || !fp || !fp->text || !fp->name) {
        if (V_fgets(buff, V_LINE_MAX, fp) == 0) return 0;
        cut_cmd(fp, buff);
        return 1;
    }
    if (fp->offset < 0) fp->offset = 0;
    int start = fp->offset;
    // at the end the reader still notes where it stands, for the error log
    if (start >= fp->size) return V_fgets(buff, V_LINE_MAX, fp) > 0;
    CutTable *t = cut_table(fp);
    // kept already, in a file other than the one read last
    if (t && t->size) {
        if (Cut *c = *find_slot(t, start)) {
            return take_kept(c, fp, buff, note, line);
        }
    }
    V_fgets(buff, V_LINE_MAX, fp);
    if (cut_line(fp, buff) == CUT_TOO_LONG) {
        ERRMSG("cut_cmd: No more memory...");
        return 1;
    }
    if (Cut *c = t ? keep_cut(t, start, fp, buff) : nullptr) *note = &c->note;
    return 1;
}

}   // namespace

int V_read_cut(V_FILE *fp, char *buff, V_LINE_NOTE **note, char **line) {
    *note = nullptr;
    *line = buff;
    // the kept line of the file read last, when there is one
    if (!Trace && V_trace_ready && fp && fp->text && fp->name && last_cuts &&
        last_cuts->file == fp && last_cuts->table.size && fp->offset >= 0 &&
        fp->offset < fp->size) {
        if (Cut *c = *find_slot(&last_cuts->table, fp->offset)) {
            return take_kept(c, fp, buff, note, line);
        }
    }
    return read_afresh(fp, buff, note, line);
}

void V_text_line(V_LINE_NOTE *note, const char *buff, int compile) {
    if (!note) {
        V_transline(buff, nullptr, compile);
        return;
    }
    if (!note->text_tried) {
        note->text_tried = true;
        note->text = V_text_form(buff);
    }
    V_transline_form(note->text, buff, nullptr, V_LINE_MAX, compile);
}

int V_fgets(char *buff, int size, V_FILE *fp) {
    // every caller passes a buffer of 5 bytes or more
    if (!fp || !fp->text) {
        buff[0] = 0;
        return 0;
    }
    V_TRACE("V_fgets:IN fp->size= %d fp->offset= %d\n", fp->size, fp->offset);
    int n = 0;
    if (fp->offset < 0) fp->offset = 0;
    if (fp->name) {
        reading = fp;
        reading_start = fp->offset;
    }
    while (n < size - 1 && fp->offset < fp->size) {
        char c = fp->text[fp->offset++];
        buff[n++] = c;
        if (c == '\n') break;
    }
    buff[n] = 0;
    V_TRACE("V_fgets:OUT fp->size= %d fp->offset= %d\n", fp->size, fp->offset);
    V_TRACE("V_fgets: return( %d )  buff={%s}\n", n, buff);
    return n;
}

int V_reading_line(const char **name) {
    *name = nullptr;
    if (!reading || !reading->text) return 0;
    *name = reading->name;
    int end = reading_start < reading->size ? reading_start : reading->size;
    int line = 1;
    for (int i = 0; i < end; i++) line += reading->text[i] == '\n';
    return line;
}

int cut_cmd(V_FILE *fp, char *buff) {
    V_TRACE("cut_cmd: IN= {%s}", buff);
    int kind = cut_line(fp, buff);
    if (kind == CUT_TEXT) return 0;
    if (kind == CUT_TOO_LONG) ERRMSG("cut_cmd: No more memory...");
    V_TRACE("cut_cmd: OUT= {%s}", buff);
    return 0;
}

int V_cut_line(V_FILE *fp, char *buff) {
    return cut_line(fp, buff) == CUT_TOO_LONG ? -1 : 0;
}
