// The shared opening of the command handlers and the status variable of
// the quiet commands. The trace name of a handler is built from its tag
// unless the Entry names it, so most handlers pass only the tag.
#include "values/command_entry.h"

#include <cstring>

#include "driver/diagnostics.h"
#include "values/variables.h"

namespace {

constexpr std::string_view TAG_OPEN = "<@";
constexpr std::string_view TAG_CLOSE = ">";
constexpr char NAME_PREFIX[] = "V_";

}   // namespace

bool has_tag(const char *line, std::string_view tag) {
    return strncmp(line, tag.data(), tag.size()) == 0;
}

void command_trace(const char *line, std::string_view tag, int compile, int ignore,
                   const Entry &how) {
    if (how.form == ENTRY_QUIET) return;
    // The name is how.name, or the prefix and the word of the tag.
    const char *prefix = how.name ? how.name : NAME_PREFIX;
    std::string_view word = "";
    if (!how.name) {
        word = tag;
        if (word.starts_with(TAG_OPEN)) word.remove_prefix(TAG_OPEN.size());
        if (word.ends_with(TAG_CLOSE)) word.remove_suffix(TAG_CLOSE.size());
    }
    int n = (int)word.size();
    switch (how.form) {
    case ENTRY_BRACES:
        V_TRACE("%s%.*s: {%s} compile: %d  ignore: %d \n", prefix, n, word.data(), line, compile,
                ignore);
        break;
    case ENTRY_BRACES_NARROW:
        V_TRACE("%s%.*s: {%s} compile: %d ignore: %d \n", prefix, n, word.data(), line, compile,
                ignore);
        break;
    case ENTRY_BUFF:
        V_TRACE("%s%.*s: buff= %s; compile= %d ignore: %d \n", prefix, n, word.data(), line,
                compile, ignore);
        break;
    case ENTRY_QUIET: break;
    }
}

void command_text(const char *line, size_t skip, int compile, char *out, const Entry &how,
                  const V_TEXT_FORM *form) {
    if (form)
        V_transline_form(form, line + skip, out, how.size, compile);
    else
        V_transline_n(line + skip, out, how.size, compile);
    if (how.form == ENTRY_BUFF || how.form == ENTRY_QUIET)
        V_DEBUG("%s // %s\n", line, out);
    else
        V_DEBUG("%s // %s \n", line, out);
}

int command_entry(const char *line, std::string_view tag, int compile, int ignore, char *out,
                  const Entry &how) {
    if (!has_tag(line, tag)) return -1;
    if (Trace || !V_trace_ready) command_trace(line, tag, compile, ignore, how);
    if (ignore) return 0;
    if (out) command_text(line, tag.size(), compile, out, how);
    return 1;
}

void set_status(const char *name, bool ok) {
    V_put_value(*name ? name : "status", ok ? "0" : "-1", 0, 0);
}
