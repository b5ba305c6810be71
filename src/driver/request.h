// The request driver: the interpreter's global record, start-up, the
// response header, the page run and the one way out of the process.
#pragma once
#include "values/avl_tree.h"
#include "values/block_heap.h"

struct V_FILE;
struct V_FUN;
struct V_USER;

struct V_BUFFERS {
    V_FILE *files;       // loaded page and include files, newest first
    V_FUN *functions;    // user functions
    V_USER *v_USER;      // live variables
    V_USER *freelist;    // kept empty
    avl_tree_t vtree;    // variables by name
    avl_tree_t ftree;    // user functions by name
    avl_tree_t ctree;    // command words
    V_heap *hp;          // the request heap
};

extern V_BUFFERS v_BUFFERS;

constexpr const char *V_BANNER = "Vorn v.6.7";

int V_main(int argc, char **argv);   // the whole request; never returns
void V_start();
void V_header();
int V_checkpage(const char *page);
int V_action();
[[noreturn]] void V_exit(int code);
