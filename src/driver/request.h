// The request driver: start-up, the response header, the page run and the
// one way out of the process.
#pragma once

constexpr const char *V_BANNER = "Vorn v.6.7";

int V_main(int argc, char **argv);   // the whole request; never returns
void V_start();
void V_header();
int V_checkpage(const char *page);
int V_action();
[[noreturn]] void V_exit(int code);
