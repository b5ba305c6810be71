// The loop and return protocol. The flags stay plain globals because every
// block runner reads them on every line; they are written only here, so
// that who sets them, who clears them and what an unwinding <@return> keeps
// can be read in one place.
#include "interp/flow.h"

#include <cstring>

#include "driver/diagnostics.h"
#include "values/arguments.h"
#include "values/substitution.h"

int Continue;
int Break;
int ContinueBreak;
char *Return;

namespace {

constexpr char CONTINUE_TAG[] = "<@continue>";
constexpr char BREAK_TAG[] = "<@break>";

bool holds(const char *line, const char *tag, bool anywhere) {
    if (anywhere) return strstr(line, tag) != nullptr;
    return strncmp(line, tag, strlen(tag)) == 0;
}

void set_all() {
    ContinueBreak = 1;
    Continue = 1;
    Break = 1;
}

}   // namespace

Loop_tag loop_tag(const char *line, bool anywhere) {
    if (holds(line, CONTINUE_TAG, anywhere)) return LOOP_CONTINUE;
    if (holds(line, BREAK_TAG, anywhere)) return LOOP_BREAK;
    return LOOP_NONE;
}

void take_loop_tag(Loop_tag tag, bool run, const char *who) {
    if (tag == LOOP_NONE) return;
    if (run) {
        Continue = 1;
        if (tag == LOOP_BREAK) Break = 1;
    }
    if (!who) return;
    if (tag == LOOP_CONTINUE)
        V_TRACE("%s: [continue] ==> %d \n", who, Continue);
    else
        V_TRACE("%s: [break] ==> Continue= %d \n", who, Continue);
}

void loop_start() {
    Continue = 0;
    Break = 0;
}

bool pass_ends() {
    if (Break) return true;
    Continue = 0;
    return false;
}

void loop_done() {
    if (ContinueBreak) return;
    Continue = 0;
    Break = 0;
}

bool file_ends() {
    if (!Break) return false;
    Continue = 0;
    Break = 0;
    return true;
}

void return_text(const char *text) {
    if (Return) V_copy_cut(Return, text, V_LINE_MAX);
    set_all();
}

void unwind() {
    set_all();
}

char *call_receiver(char *receiver) {
    char *before = Return;
    Return = receiver;
    return before;
}

void call_returned() {
    Break = 0;
    Continue = 0;
    ContinueBreak = 0;
}
