// The block runner that every block command reads its body with, and the
// <@while> loop in its plain, values and words forms.
#pragma once

struct V_FILE;

int V_notfound(V_FILE *fp, int compile, int ignore);
int V_while(V_FILE *fp, char *buff, int compile, int ignore);
int V_while_loop(V_FILE *fp, int compile);
int V_while_values(V_FILE *fp, const char *name, int compile);
int V_while_words(V_FILE *fp, const char *name, const char *sep, int compile);

// Nesting guard of blocks and calls. Every body run through V_notfound
// counts one level; a page that nests deeper than V_MAX_DEPTH levels, or
// leaves less than V_STACK_RESERVE bytes of C stack, ends through ERRMSG.
// A level of a recursive function costs about 25 KB of stack in an optimised
// build (the handlers hold 8 KB line buffers), so 200 levels stay well inside
// the usual 8 MB stack; the stack test covers heavier chains (SQL blocks) and
// smaller stacks. Block handlers that recurse without V_notfound (nested
// taken <@if> branches) may bracket their work with V_enter_block and
// V_leave_block: enter returns -1 when the limit is passed and the error
// routine came back (it has then unwound every runner, as a <@return>
// does); call leave only after enter returned 0.
constexpr int V_MAX_DEPTH = 200;
constexpr long V_STACK_RESERVE = 1L << 20;
extern int V_depth;
int V_enter_block();
void V_leave_block();
