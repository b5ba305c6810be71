// The SQL commands of the page language: <@sql> row loops, <@sqlexec>,
// <@sqlnames>, <@sqltrap>, and the status values pages read.
#include "db/sql_commands.h"

#include <cctype>
#include <cstdio>
#include <cstring>

#include "db/cursor_ids.h"
#include "db/session.h"
#include "driver/diagnostics.h"
#include "interp/flow.h"
#include "interp/functions.h"
#include "interp/loops.h"
#include "interp/page_reader.h"
#include "sys/streams.h"
#include "values/block_heap.h"
#include "values/command_entry.h"
#include "values/substitution.h"
#include "values/variables.h"

int V_sqlcase = 0;
int V_sqlTRAP = 1;
int V_sqlTRANS = 1;
int V_sqlFUNC = 0;
char TRAPfunc[64];
int V_sqlcode = 0;
int V_rowcount = 0;
int V_lines = 0;
long V_INSERT_ID = 0;

namespace {

constexpr int ROW_VALUES = 500;   // room for one row; the session fills at most 100
int in_trap;                      // a trap function's own failing statements do not call it again

// The first word of a statement, lower case, at most 24 characters.
void first_word(const char *query, char word[25]) {
    word[0] = 0;
    if (sscanf(query, "%24s", word) != 1) word[0] = 0;
    for (char *p = word; *p; p++) *p = static_cast<char>(tolower(static_cast<unsigned char>(*p)));
}

bool starts_with(const char *word, const char *prefix) {
    return strncmp(word, prefix, strlen(prefix)) == 0;
}

// The engine's message as pages see it: 70 characters and a line feed.
void sql_error(char *msg, int size) {
    snprintf(msg, static_cast<size_t>(size), "%.70s\n", V_db_errmsg());
}

void call_trap() {
    if (!V_sqlFUNC || in_trap) return;
    char call[V_LINE_MAX];
    snprintf(call, sizeof call, "<@call> %s ", TRAPfunc);
    V_TRACE("==> SQLTRAP call: CALL: [%s] ", call);
    in_trap = 1;
    V_call(call, 1, 0, nullptr);
    in_trap = 0;
}

// A trapped error leaves no other trace for the site's owner than the
// page's own handling: the server's error log gets it, unless tracing,
// which records it, is on.
void log_trapped() {
    if (!Trace) V_log_error(V_ERRMSG);
}

// A failed statement or query open: fatal while trapping is on, otherwise
// the page reads the message and the trap function runs.
void query_failed(const char *query) {
    char msg[80];
    sql_error(msg, sizeof msg);
    V_sqlcode = -1;
    if (V_sqlTRAP) {
        ERRMSG("### DATABASE Query ERROR: QUERY: %s ; ### ERRMSG: %s ", query, msg);
        return;   // only while an error page runs
    }
    snprintf(V_ERRMSG, V_ERRMSG_SIZE,
             "### DATABASE Query ERROR: QUERY: %.200s ; ### ERRMSG: %.200s ", query, msg);
    log_trapped();
    call_trap();
}

void fetch_failed() {
    char msg[80];
    sql_error(msg, sizeof msg);
    V_sqlcode = -1;
    if (V_sqlTRAP) {
        ERRMSG("### DATABASE QUERY ERROR: %s ", msg);
        return;
    }
    snprintf(V_ERRMSG, V_ERRMSG_SIZE, "### DATABASE QUERY ERROR: %.200s ", msg);
    log_trapped();
    call_trap();
}

void fold_name(char *name) {
    for (char *p = name; *p; p++) {
        unsigned char c = static_cast<unsigned char>(*p);
        *p = static_cast<char>(V_sqlcase ? toupper(c) : tolower(c));
    }
}

// Appends name to the ";"-separated list, dropping what does not fit.
void add_name(char *list, const char *name) {
    size_t used = strlen(list);
    if (used)
        snprintf(list + used, V_LINE_MAX - used, ";%s", name);
    else
        snprintf(list, V_LINE_MAX, "%s", name);
}

// The variables of a query's columns, found once: while no node has
// entered or left a tree and the names fold the same way, a row only
// stores its values into them. A row that finds them stale stores by name
// and finds them again for the next.
struct ColumnVars {
    V_USER *user[V_MAX_COLUMNS];
    unsigned long changes;   // V_tree_changes when they were found
    int sqlcase;             // V_sqlcase then
    bool found;
    int folded;   // the V_sqlcase the names were last folded for, -1 before
};

// Stores one fetched row as variables; the first row also names the columns.
void store_row(V_val *val, int numb, int row, char *names, ColumnVars *cols) {
    // while tracing every store goes by name, so that its look-up shows
    bool bound = cols->found && cols->changes == V_tree_changes && cols->sqlcase == V_sqlcase &&
                 !Trace && V_trace_ready;
    // The names are the cursor's own, the same every row: folded again
    // only when <@sqlnames> changed the case in the body.
    bool fold = cols->folded != V_sqlcase;
    cols->folded = V_sqlcase;
    for (int i = 0; i < numb; i++) {
        if (!val[i].name) continue;
        if (fold) fold_name(val[i].name);
        const char *value = val[i].len < 1 ? "" : val[i].value;
        V_TRACE("Name: %s Value: %s", val[i].name, value);
        if (bound && i < V_MAX_COLUMNS && cols->user[i])
            V_put_user(cols->user[i], value);
        else
            V_put_value(val[i].name, value, 0, 0);
        if (row == 1) add_name(names, val[i].name);
    }
    if (row == 1) V_put_value("V_sqlnames", names, 0, 0);
    if (bound || Trace || !V_trace_ready) return;
    for (int i = 0; i < numb && i < V_MAX_COLUMNS; i++)
        cols->user[i] = val[i].name ? V_get_user(val[i].name) : nullptr;
    cols->changes = V_tree_changes;
    cols->sqlcase = V_sqlcase;
    cols->found = true;
}

// The row loop: the block body runs once per fetched row, re-read from the
// page each time. The values are read straight from the engine's row: the
// variables take their copies before the body runs.
void V_found(const char *cid, V_FILE *fp, int compile) {
    V_TRACE("V_found: cid: %s compile: %d \n", cid, compile);
    int start = fp->offset;
    V_eof = 1;
    loop_start();
    int row = 1;
    V_val val[ROW_VALUES] = {};
    char names[V_LINE_MAX];
    names[0] = 0;
    ColumnVars cols = {};
    cols.folded = -1;
    for (;;) {
        int numb = 0;
        int rc = V_select_sql(V_SQL_FETCH, cid, nullptr, nullptr, &numb, val);
        if (rc == 1) break;
        if (rc < 0) {
            fetch_failed();
            break;
        }
        if (numb > ROW_VALUES) numb = ROW_VALUES;
        V_TRACE("Fetch: %d values", numb);
        V_DEBUG("  ** SQL fetch row: %d columns\n", numb);
        fp->offset = start;
        store_row(val, numb, row, names, &cols);
        V_lines = row;
        V_notfound(fp, compile, 0);
        row++;
        if (pass_ends()) {
            V_eof = 0;
            break;
        }
    }
    V_lines = row - 1;
    loop_done();
    if (V_lines == 0) V_notfound(fp, compile, 1);
}

// A statement without rows; -1 when it failed or was not let through.
int V_sqlline(char *query) {
    V_sqlcode = 0;
    char word[25];
    first_word(query, word);
    if (starts_with(word, "disconnect")) {
        V_finish();
        V_free_all();
        return 0;
    }
    if (!V_sqlTRANS && (starts_with(word, "begin") || starts_with(word, "commit") ||
                        starts_with(word, "rollback")))
        return -1;
    int numb = 0;
    if (V_noselect_sql(query, &numb, nullptr) == 0) return 0;
    query_failed(query);
    return -1;
}

void run_select(V_FILE *fp, const char *cid, char *query, int compile) {
    V_heap *hp = V_heap_new();
    int numb = 0;
    if (!hp || V_select_sql(V_SQL_OPEN, cid, query, hp, &numb, nullptr) < 0) {
        query_failed(query);
        V_notfound(fp, compile, 1);
        V_select_sql(V_SQL_CLOSE, cid, nullptr, nullptr, nullptr, nullptr);
        V_heap_free(hp);
        return;
    }
    V_found(cid, fp, compile);
    V_select_sql(V_SQL_CLOSE, cid, nullptr, nullptr, nullptr, nullptr);
    V_heap_free(hp);
    if (V_rowcount == 0) V_rowcount = V_lines;
}

// <@sql> and <@sqlexec> trace with one blank before "ignore", <@sqlnames>
// and <@sqltrap> in the "buff=" form.
constexpr Entry QUERY_ENTRY = {.form = ENTRY_BRACES_NARROW};
constexpr Entry MODE_ENTRY = {.form = ENTRY_BUFF};

}   // namespace

int V_sql(V_FILE *fp, char *buff, int compile, int ignore) {
    char query[V_LINE_MAX];
    // without a page there is no block to read: the line is only traced
    int go = command_entry(buff, "<@sql>", compile, ignore, fp ? query : nullptr, QUERY_ENTRY);
    if (go < 0) return go;
    if (!fp) return 0;
    if (go == 0) {
        V_notfound(fp, compile, 1);
        return 0;
    }
    V_TRACE("V_sql: query: %s \n", query);

    const char *got = V_get_cid();
    if (!got) {   // only while an error page runs
        V_notfound(fp, compile, 1);
        return 0;
    }
    char cid[10];
    snprintf(cid, sizeof cid, "%s", got);

    char word[25];
    first_word(query, word);
    V_rowcount = 0;
    V_sqlcode = 0;
    if (strcmp(word, "select") == 0)
        run_select(fp, cid, query, compile);
    else if (V_sqlline(query) < 0)
        V_notfound(fp, compile, 1);
    else
        V_notfound(fp, compile, ignore);
    V_free_cid(cid);
    return 0;
}

int V_sqlexec(char *buff, int compile, int ignore) {
    char query[V_LINE_MAX];
    int go = command_entry(buff, "<@sqlexec>", compile, ignore, query, QUERY_ENTRY);
    if (go <= 0) return go;
    V_TRACE("V_sqlexec: query: %s \n", query);
    const char *got = V_get_cid();
    if (!got) return 0;
    char cid[10];
    snprintf(cid, sizeof cid, "%s", got);
    V_sqlline(query);
    V_free_cid(cid);
    return 0;
}

int V_sqlnames(char *buff, int compile, int ignore) {
    char text[V_LINE_MAX];
    int go = command_entry(buff, "<@sqlnames>", compile, ignore, text, MODE_ENTRY);
    if (go <= 0) return go;
    if (strstr(text, "lowercase")) V_sqlcase = 0;
    if (strstr(text, "uppercase")) V_sqlcase = 1;
    return 0;
}

int V_sqltrap(char *buff, int compile, int ignore) {
    char text[V_LINE_MAX];
    int go = command_entry(buff, "<@sqltrap>", compile, ignore, text, MODE_ENTRY);
    if (go <= 0) return go;
    if (strstr(text, "OFF_TRANSACTIONS"))
        V_sqlTRANS = 0;
    else if (strstr(text, "ON_TRANSACTIONS"))
        V_sqlTRANS = 1;
    else if (strstr(text, "OFF"))
        V_sqlTRAP = 0;
    else if (strstr(text, "ON"))
        V_sqlTRAP = 1;
    else
        return -1;
    return 0;
}
