// The opening every command handler shares: the test for its tag, its
// trace line, ignore mode and the substitution of the text after the tag,
// and the status variable that quiet commands set. Handlers differ here
// only in data: an Entry names the few whose trace or debug line reads
// another way, so that the lines stay as pages and their readers know them.
#pragma once
#include <cstddef>
#include <string_view>

#include "values/substitution.h"

// The forms of a handler's opening trace line and of its debug line.
enum Entry_form {
    ENTRY_BRACES,          // "V_set: {LINE} compile: 1  ignore: 0 ", "LINE // TEXT "
    ENTRY_BRACES_NARROW,   // the same with one blank before "ignore"
    ENTRY_BUFF,            // "V_chdir: buff= LINE; compile= 1 ignore: 0 ", "LINE // TEXT"
    ENTRY_QUIET,           // no opening trace; the debug line as ENTRY_BUFF
};

// How a handler opens when it is not the usual way.
struct Entry {
    const char *name = nullptr;   // in the trace; null: "V_" and the word of the tag
    Entry_form form = ENTRY_BRACES;
    int size = V_LINE_MAX;   // bytes of the caller's buffer
};

// True when line begins with tag.
bool has_tag(const char *line, std::string_view tag);

// Tests line for tag, traces it, and substitutes the text after the tag
// into out (how.size bytes) with its debug line. Returns -1 when the line
// is not ours, 0 when it is skipped (ignore mode; out untouched), 1 when the
// handler goes on. With a null out nothing is substituted: the handler
// calls command_text itself once it has cut its line.
int command_entry(const char *line, std::string_view tag, int compile, int ignore, char *out,
                  const Entry &how = {});

// The substitution half of command_entry: the text of line after its first
// skip bytes into out (how.size bytes), then the debug line.
// With a form (V_text_form of line + skip) the text is substituted from it.
void command_text(const char *line, size_t skip, int compile, char *out, const Entry &how = {},
                  const V_TEXT_FORM *form = nullptr);

// The trace half of command_entry, for a runner that meets a command line
// inside its own block and takes it without the entry (an <@elif>).
void command_trace(const char *line, std::string_view tag, int compile, int ignore,
                   const Entry &how = {});

// Sets the status variable that a command names (name empty: "status") to
// "0" when ok, else "-1".
void set_status(const char *name, bool ok);
