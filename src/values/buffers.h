// The interpreter's process-wide record: the trees of variables, user
// functions and command words, the loaded page files and the request heap.
// It sits in the value layer, under all of its users; each tree's module
// (variables, functions, dispatcher, page files) is the one that fills it.
#pragma once
#include <cstdio>

#include "values/avl_tree.h"
#include "values/block_heap.h"

struct V_FILE;
struct V_FUN;
struct V_USER;

struct V_BUFFERS {
    V_FILE *files;      // loaded page and include files, newest first
    V_FUN *functions;   // user functions
    V_USER *v_USER;     // live variables
    V_USER *freelist;   // kept empty
    avl_tree_t vtree;   // variables by name
    avl_tree_t ftree;   // user functions by name
    avl_tree_t ctree;   // command words
    V_heap *hp;         // the request heap
};

extern V_BUFFERS v_BUFFERS;

// Writes the request heap's address, its newest small block and that
// block's use to fp, flushing after each (the tail of a Trace 3 line).
void V_heap_figures(FILE *fp);
