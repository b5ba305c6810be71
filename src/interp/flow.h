// The loop and return protocol: the flags that carry <@continue>, <@break>
// and <@return> from the line that meets them out to the loop, call or file
// that acts on them, and the one recogniser of the loop-control tags. Only
// this module writes the flags; the block runners read them.
#pragma once

extern int Continue;        // the rest of the current pass is scanned, not run
extern int Break;           // the innermost running loop ends after this pass
extern int ContinueBreak;   // a <@return> unwinds: the loops on its way keep the flags
extern char *Return;        // receiver of the text of <@return>, null without one

enum Loop_tag { LOOP_NONE, LOOP_CONTINUE, LOOP_BREAK };

// The loop-control tag that line begins with, or LOOP_NONE. With anywhere
// set, the one the line holds anywhere, <@continue> first: the one-line
// form of <@if> takes its command that way.
Loop_tag loop_tag(const char *line, bool anywhere = false);

// Acts on a loop-control tag met by a block runner: when run is set, sets
// the flags it stands for (<@continue> Continue, <@break> Continue and
// Break). A runner that passes its name as who gets the tag and Continue
// traced under that name. LOOP_NONE does nothing.
void take_loop_tag(Loop_tag tag, bool run, const char *who = nullptr);

// A loop's side: loop_start before the first pass; pass_ends after each,
// true when the loop is to stop, else the pass's Continue is cleared; and
// loop_done when the loop is over. A <@return> unwinding through the loop
// keeps its flags for the runners further out.
void loop_start();
bool pass_ends();
void loop_done();

// The page reader's side: true when a <@break> or <@return> reached the
// level of the file being read, whose reading then ends; Continue and Break
// are cleared, ContinueBreak stays until a call returns.
bool file_ends();

// <@return>: copies text into the receiver (V_LINE_MAX bytes) when there is
// one, and sets every flag so that the runners up to the call skip their
// lines.
void return_text(const char *text);
// The same unwinding without a text, for a runner that has to give up.
void unwind();

// A call's side: call_receiver installs the receiver of the call's
// <@return> and hands back the one it replaces, which the call puts back
// with call_receiver when it is over; call_returned then clears the flags
// its <@return> left.
char *call_receiver(char *receiver);
void call_returned();
