// The header commands: <@header> adds a line to the response's header
// block, <@status> sets its status, <@redirect> both at once. They act while
// the block is open (values/response), do nothing from a shell, and end the
// request with an error for a refused line or once the block has been sent.
#pragma once

int V_add_header(char *buff, int compile, int ignore);
int V_status(char *buff, int compile, int ignore);
int V_redirect(char *buff, int compile, int ignore);
// True when a page's text holds one of the header commands (an assignment
// to a variable of the same name does not count): such a page keeps the
// header block open until its first output.
bool V_holds_header_command(const char *text);
