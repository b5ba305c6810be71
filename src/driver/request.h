// The request driver: start-up, the response header, the page run and the
// one way out of the process.
#pragma once

int V_main(int argc, char **argv);   // the whole request; never returns
// Hands the lower layers what they reach upward through hooks: the error
// page and the end of the request (diagnostics), the page stream and the
// heap figures for the trace, and the $(...) names of the interpreter
// (substitution). main calls it first; the unit tests as well.
void V_install_hooks();
void V_start();
void V_header();
int V_checkpage(const char *page);
int V_action();
