// The $(...) names that the substitution scanner cannot resolve from the
// value layer. They are rows of its table rather than code in it, so that
// substitution includes nothing of the interpreter, the database or the
// streams; the driver installs the table at start-up.
#include "interp/value_names.h"

#include <cstdio>
#include <memory>

#include "db/sql_commands.h"
#include "driver/diagnostics.h"
#include "interp/functions.h"
#include "interp/page_file.h"
#include "sys/streams.h"
#include "values/arguments.h"

namespace {

// call:R, the <@return> text of the call that the value of R spells out.
// The work buffers live on the heap: the function's own lines may call again.
void call_value(const char *rest, char *out) {
    auto args = std::make_unique<char[]>(V_LINE_MAX);
    V_transvalue(rest, args.get());
    const char *text = args[0] ? args.get() : rest;
    auto cmd = std::make_unique<char[]>(V_LINE_MAX);
    snprintf(cmd.get(), V_LINE_MAX, "<@call> %s", text);
    V_TRACE("==> call: CALL: [%s] ", cmd.get());
    auto receiver = std::make_unique<char[]>(V_LINE_MAX);   // zeroed
    V_call(cmd.get(), 1, 0, receiver.get());
    receiver[V_LINE_MAX - 1] = '\0';
    V_arg_string(receiver.get(), out);
    V_TRACE("==> call: OUTPUT: [%s] ", out);
}

void ftell_value(const char *rest, char *out) {
    snprintf(out, V_LINE_MAX, "%ld", V_ftell(rest));
}

void rows_value(const char *, char *out) {
    snprintf(out, V_LINE_MAX, "%d", V_rowcount);
}

void sqlcode_value(const char *, char *out) {
    snprintf(out, V_LINE_MAX, "%d", V_sqlcode);
}

void insert_id_value(const char *, char *out) {
    snprintf(out, V_LINE_MAX, "%ld", V_INSERT_ID);
}

void dir_value(const char *, char *out) {
    V_copy_cut(out, DIR ? DIR : "", V_LINE_MAX);
}

}   // namespace

// System names taken as prefixes match any reference that merely begins
// with them, which pages rely on.
const V_VALUE_ROW v_INTERP_VALUES[] = {
    {"call:", true, call_value},
    {"ftell:", true, ftell_value},
    {"V_ROWS", true, rows_value},
    {"V_SQLCODE", true, sqlcode_value},
    {"V_INSERT_ID", true, insert_id_value},
    {"DIR", false, dir_value},
    {nullptr, false, nullptr},
};
