// Page checking: every file is read with the interpreter's own line reader
// (V_fgets, V_cut_line) and each command line judged by the dispatcher's
// V_line_role, following the blocks as the block runners do, but nothing is
// substituted or run. A block never spans files (each included file runs
// from its own top level), so a file is checked on its own; its includes
// are followed after it, once each and as deep as the interpreter runs them.
#include "interp/page_check.h"

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <set>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>
#include <vector>

#include "base/owners.h"
#include "interp/conditions.h"
#include "interp/dispatcher.h"
#include "interp/flow.h"
#include "interp/page_reader.h"
#include "values/arguments.h"
#include "values/substitution.h"

namespace {

constexpr int MAX_LEVEL = 10;   // includes followed below the page: 11 files, as V_printfile runs
constexpr int TAG_SHOWN = 40;   // characters of a tag quoted in a finding
const char TAG_CUT[] = "...";   // marks a quoted tag that was cut
constexpr int TAG_SIZE = TAG_SHOWN + sizeof TAG_CUT;
constexpr long FILE_MAX = INT_MAX - 32;   // the largest file V_printfile loads

const char CHECK_FLAG[] = "--check";
const char INCLUDE_TAG[] = "<@include>";

// A block open at some line of the file being checked.
struct Open {
    V_ROLE role;   // ROLE_IF, or ROLE_BLOCK for every other block
    int line;
    char tag[TAG_SIZE];
    bool else_seen;
};

// An include to follow once its file has been checked.
struct Include {
    std::string path;
    int line;   // of the <@include> in the including file
};

// A file held whole with a terminating NUL, as V_printfile holds a page.
struct Loaded {
    std::unique_ptr<char[]> text;
    V_FILE file{};
};

struct Checker {
    std::set<std::pair<dev_t, ino_t>> seen;   // files checked or queued
    int status = V_CHECK_CLEAN;
};

struct Finding {
    int line;
    std::string message;
};

// The state of one file's check.
struct Scan {
    Checker &c;
    const char *path;   // as shown in findings
    const char *dir;    // the page's directory, which include names are taken from
    int level;          // 0 for a page, one more for each include below it
    int line;           // of the command line being judged
    std::vector<Open> open;
    std::vector<Include> includes;
    std::vector<Finding> findings;
};

void finding(Scan &s, int line, const char *fmt, ...) __attribute__((format(printf, 3, 4)));
void finding(Scan &s, int line, const char *fmt, ...) {
    va_list ap, again;
    va_start(ap, fmt);
    va_copy(again, ap);
    int n = vsnprintf(nullptr, 0, fmt, ap);
    va_end(ap);
    std::string message(n > 0 ? (size_t)n : 0, '\0');
    if (n > 0) vsnprintf(message.data(), (size_t)n + 1, fmt, again);
    va_end(again);
    s.findings.push_back({line, std::move(message)});
    if (s.c.status < V_CHECK_FOUND) s.c.status = V_CHECK_FOUND;
}

// A file's findings in the order of its lines (a block that does not close
// is found at the end but reported at its first line).
void report(Scan &s) {
    std::stable_sort(s.findings.begin(), s.findings.end(),
                     [](const Finding &a, const Finding &b) { return a.line < b.line; });
    for (const Finding &f : s.findings) printf("%s:%d: %s\n", s.path, f.line, f.message.c_str());
}

// The tag at the start of a command text, through its '>', cut at
// TAG_SHOWN characters.
void tag_of(const char *text, char (&tag)[TAG_SIZE]) {
    const char *gt = strchr(text, '>');
    size_t n = gt ? (size_t)(gt - text) + 1 : strlen(text);
    bool cut = n > (size_t)TAG_SHOWN;
    if (cut) n = TAG_SHOWN;
    memcpy(tag, text, n);
    tag[n] = '\0';
    if (cut) memcpy(tag + n, TAG_CUT, sizeof TAG_CUT);
}

void unknown(Scan &s, const char *text) {
    char tag[TAG_SIZE];
    tag_of(text, tag);
    finding(s, s.line, "unknown command %s", tag);
}

void push(Scan &s, V_ROLE role, const char *text) {
    Open o{role, s.line, {}, false};
    tag_of(text, o.tag);
    s.open.push_back(o);
}

// An <@include> whose file name is literal: the file must exist, and it is
// queued to be checked once. A name that holds a reference is only known
// when the page runs, so it is left alone.
void include(Scan &s, const char *text) {
    const char *rest = text + sizeof INCLUDE_TAG - 1;
    if (strstr(rest, "$(")) return;
    std::unique_ptr<char[]> name(new char[strlen(rest) + 1]);
    V_arg_string(rest, name.get());
    if (!name[0]) {
        finding(s, s.line, "<@include> names no file");
        return;
    }
    std::string path = name[0] == '/' ? name.get() : s.dir + std::string(name.get());
    if (path.size() >= PATH_MAX) {
        finding(s, s.line, "<@include> %s: name too long", name.get());
        return;
    }
    struct stat st;
    if (stat(path.c_str(), &st) != 0) {
        const char *why = strerror(errno);
        if (path == name.get())
            finding(s, s.line, "<@include> %s: %s", name.get(), why);
        else
            finding(s, s.line, "<@include> %s (%s): %s", name.get(), path.c_str(), why);
        return;
    }
    if (!S_ISREG(st.st_mode)) {
        finding(s, s.line, "<@include> %s: not a regular file", name.get());
        return;
    }
    if (access(path.c_str(), R_OK) != 0) {
        finding(s, s.line, "<@include> %s: %s", name.get(), strerror(errno));
        return;
    }
    if (s.level < MAX_LEVEL && s.c.seen.insert({st.st_dev, st.st_ino}).second)
        s.includes.push_back({path, s.line});
}

void command(Scan &s, const char *text);

// Whether an <@if> (or <@elif>) line opens a block. With a command on the
// line it does not, unless that command is itself a block or one that no
// handler takes: V_if then reads the following lines as its block.
bool condition_opens_block(Scan &s, const char *text) {
    const char *cmd = V_if_inline(text);
    if (!cmd) return true;
    // if_head takes these two anywhere in the command text
    if (loop_tag(cmd, true) != LOOP_NONE) return false;
    switch (V_line_role(cmd)) {
    case ROLE_LINE: command(s, cmd); return false;
    case ROLE_BLOCK: return true;
    case ROLE_IF:
    case ROLE_ELIF: return condition_opens_block(s, cmd);
    case ROLE_UNKNOWN: unknown(s, cmd); return true;
    default: return true;
    }
}

// A command that ends with its line: only an include has more to check.
void command(Scan &s, const char *text) {
    if (strncmp(text, INCLUDE_TAG, sizeof INCLUDE_TAG - 1) == 0) include(s, text);
}

bool in_if(const Scan &s) {
    return !s.open.empty() && s.open.back().role == ROLE_IF;
}

// Judges one command line (as V_cut_line leaves it) against the blocks
// open before it.
void judge(Scan &s, const char *text) {
    char tag[TAG_SIZE];
    switch (V_line_role(text)) {
    case ROLE_TEXT: return;
    case ROLE_LINE: return command(s, text);
    case ROLE_UNKNOWN: return unknown(s, text);
    case ROLE_BLOCK: return push(s, ROLE_BLOCK, text);
    case ROLE_IF:
        if (condition_opens_block(s, text)) push(s, ROLE_IF, text);
        return;
    case ROLE_ELIF:
        if (!in_if(s)) {
            // Run outside an <@if>, the line is taken as one.
            finding(s, s.line, "<@elif> outside an <@if>");
            if (condition_opens_block(s, text)) push(s, ROLE_IF, text);
        } else if (s.open.back().else_seen) {
            finding(s, s.line, "<@elif> after the <@else> of its <@if>");
        } else if (V_if_inline(text)) {
            // Taken, it ends the <@if> there, and the <@end> is left over.
            finding(s, s.line, "<@elif> with a command on its line");
        }
        return;
    case ROLE_ELSE:
        if (!in_if(s))
            finding(s, s.line, "<@else> outside an <@if>");
        else if (s.open.back().else_seen)
            finding(s, s.line, "second <@else> in one <@if>");
        else
            s.open.back().else_seen = true;
        return;
    case ROLE_END:
        if (s.open.empty())
            finding(s, s.line, "<@end> outside a block");
        else
            s.open.pop_back();
        return;
    case ROLE_LOOP:
        // At a file's top level nothing reads it but the text output.
        if (s.open.empty()) {
            tag_of(text, tag);
            finding(s, s.line, "%s outside a block", tag);
        }
        return;
    }
}

// Counts lines up to byte offsets that only grow.
struct LineCount {
    const char *text;
    int at = 0;
    int line = 1;
    int to(int offset) {
        for (; at < offset; at++)
            if (text[at] == '\n') line++;
        return line;
    }
};

void scan(Scan &s, V_FILE &fp) {
    std::unique_ptr<char[]> buff(new char[V_LINE_MAX]);
    LineCount lines{fp.text};
    for (;;) {
        int start = fp.offset;
        if (V_fgets(buff.get(), V_LINE_MAX, &fp) == 0) break;
        s.line = lines.to(start);
        if (V_cut_line(&fp, buff.get()) < 0)
            finding(s, s.line, "command line continued past %d bytes", V_LINE_MAX - 1);
        judge(s, buff.get());
    }
    for (const Open &o : s.open) finding(s, o.line, "%s has no <@end>", o.tag);
}

// Loads path into out. Returns null, or why the file cannot be read.
const char *load(const char *path, Loaded &out) {
    struct stat st;
    if (stat(path, &st) != 0) return strerror(errno);
    if (!S_ISREG(st.st_mode)) return "not a regular file";
    if (st.st_size > FILE_MAX) return "file too large";
    File in(fopen(path, "r"));
    if (!in) return strerror(errno);
    size_t size = (size_t)st.st_size;
    out.text.reset(new (std::nothrow) char[size + 1]);
    if (!out.text) return "out of memory";
    size_t got = fread(out.text.get(), 1, size, in.get());
    if (ferror(in.get())) return strerror(errno);
    out.text[got] = '\0';
    out.file.text = out.text.get();
    out.file.offset = 0;
    out.file.size = (int)got;
    out.file.stat = st;
    return nullptr;
}

void check_file(Checker &c, const char *path, V_FILE &fp, const char *dir, int level) {
    Scan s{c, path, dir, level, 0, {}, {}, {}};
    scan(s, fp);
    report(s);
    for (const Include &inc : s.includes) {
        Loaded file;
        // Found readable a moment ago; the file's own findings are out.
        if (const char *why = load(inc.path.c_str(), file)) {
            printf("%s:%d: cannot read %s: %s\n", path, inc.line, inc.path.c_str(), why);
            c.status = std::max(c.status, V_CHECK_FOUND);
            continue;
        }
        check_file(c, inc.path.c_str(), file.file, dir, level + 1);
    }
}

// The directory part of a page's name, through its last '/'; empty for a
// page in the working directory, so that names stay as the page wrote them.
std::string dir_of(const char *page) {
    const char *slash = strrchr(page, '/');
    return slash ? std::string(page, (size_t)(slash - page) + 1) : std::string();
}

}   // namespace

bool V_check_wanted(int argc, char **argv) {
    if (argc < 2 || !argv[1] || strcmp(argv[1], CHECK_FLAG) != 0) return false;
    return !getenv("REQUEST_METHOD") && !getenv("GATEWAY_INTERFACE");
}

int V_check_pages(int argc, char **argv) {
    Checker c;
    if (argc < 1) {
        fprintf(stderr, "usage: vorn --check PAGE...\n");
        return V_CHECK_UNREADABLE;
    }
    for (int i = 0; i < argc; i++) {
        const char *page = argv[i];
        Loaded file;
        if (const char *why = load(page, file)) {
            fprintf(stderr, "%s: cannot read: %s\n", page, why);
            c.status = V_CHECK_UNREADABLE;
            continue;
        }
        if (!c.seen.insert({file.file.stat.st_dev, file.file.stat.st_ino}).second) continue;
        std::string dir = dir_of(page);
        check_file(c, page, file.file, dir.c_str(), 0);
    }
    fflush(stdout);
    return c.status;
}
