// Conditions: <@if>/<@elif>/<@else>/<@end>, the comparison operators (like
// through patt/like) and the form tests of values.
#pragma once

struct V_FILE;
struct V_LINE_NOTE;

int V_if(V_FILE *fp, char *buff, int compile, int ignore);
// V_if for a kept line: its note keeps the line's condition taken apart.
int V_if_kept(V_FILE *fp, char *buff, int compile, int ignore, V_LINE_NOTE *note);
// The command that follows the condition of an <@if> or <@elif> line on the
// line itself (the one-line form), or null: for an <@if>, null means that the
// line opens a block.
const char *V_if_inline(const char *line);
// True for an <@else> line, the last branch of the <@if> around it.
bool V_is_else(const char *line);
// The comparisons and value tests take no null text: every caller passes
// words it has read, a missing one empty.
int V_user_cmp(const char *left, const char *op, const char *right);
int V_user_icmp(int left, const char *op, int right);
int V_user_fcmp(double left, const char *op, double right);
int V_check_int(const char *text);
int V_check_float(const char *text);
int V_check_date(const char *text);
int V_get_int(const char *src, char *dst, int n);
