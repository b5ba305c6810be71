#!/usr/bin/env python3
"""Walks the #include graph of src/ and fails on an include that points up
the layer order or on a cycle other than the one the interpreter is built
around. A module is a header and its .cpp together (src/values/output.h and
src/values/output.cpp are the module values/output).

Usage: check-includes.py [SRC_DIR] [--graph]
  --graph  also prints every module with its layer and what it includes
"""
import os
import re
import sys

# Bottom first. A module belongs to the first layer with a prefix that its
# name starts with; a module may include its own layer and those below it.
# Diagnostics keeps its old path in driver/ but sits at the bottom: anything
# may report an error, and what diagnostics needs from above is handed to it
# through hooks at start-up. The PostgreSQL helper vorn-pq is a program of
# its own; its entry point sits at the top with the interpreter's.
LAYERS = [
    ("base", ["base/", "driver/diagnostics"]),
    ("services", ["patt/", "form/", "fcgi/", "db/engine", "db/sqlite_engine",
                  "db/postgres_engine", "db/pq_wire", "db/pq_process"]),
    ("values", ["values/"]),
    ("database", ["db/session", "db/cursor_ids"]),
    ("commands", ["interp/", "sys/", "db/sql_commands"]),
    ("driver", ["driver/", "db/pq_helper/"]),
]

# The one loop by design: the dispatcher calls the command handlers, a block
# handler runs its body through a runner, and the runner dispatches each line
# back through the dispatcher. Only these runner -> dispatcher includes may
# close a cycle.
DISPATCHER = "interp/dispatcher"
RUNNERS = {
    "interp/loops": "the block runner, V_notfound",
    "interp/page_file": "the page runner, for the page and <@include>",
    "interp/conditions": "<@if>, which dispatches the lines of its branches itself",
}

INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"', re.M)


def layer_of(module):
    for rank, (name, prefixes) in enumerate(LAYERS):
        if any(module.startswith(p) for p in prefixes):
            return rank, name
    return None, None


def read_graph(src):
    """module -> {included module: "file:line" of the first such include}"""
    graph = {}
    for root, _, files in os.walk(src):
        for f in sorted(files):
            if not f.endswith((".h", ".cpp")):
                continue
            path = os.path.join(root, f)
            rel = os.path.relpath(path, src)
            module = os.path.splitext(rel)[0]
            edges = graph.setdefault(module, {})
            with open(path, encoding="utf-8", errors="replace") as fh:
                text = fh.read()
            for m in INCLUDE.finditer(text):
                target = os.path.splitext(m.group(1))[0]
                line = text.count("\n", 0, m.start()) + 1
                if target != module:
                    edges.setdefault(target, "%s:%d" % (rel, line))
    return graph


def find_cycle(graph, skip):
    """A cycle of graph without the edges in skip, as a list of modules, or None."""
    WHITE, GREY, BLACK = 0, 1, 2
    colour = {m: WHITE for m in graph}
    stack = []

    def visit(m):
        colour[m] = GREY
        stack.append(m)
        for t in sorted(graph.get(m, {})):
            if (m, t) in skip or t not in graph:
                continue
            if colour[t] == GREY:
                return stack[stack.index(t):] + [t]
            if colour[t] == WHITE:
                found = visit(t)
                if found:
                    return found
        stack.pop()
        colour[m] = BLACK
        return None

    for m in sorted(graph):
        if colour[m] == WHITE:
            found = visit(m)
            if found:
                return found
    return None


def main(argv):
    args = [a for a in argv[1:] if not a.startswith("--")]
    src = args[0] if args else os.path.join(os.path.dirname(__file__), "..", "src")
    graph = read_graph(src)
    errors = []

    for module in sorted(graph):
        rank, _ = layer_of(module)
        if rank is None:
            errors.append("%s: in no layer; add it to LAYERS" % module)
            continue
        for target, where in sorted(graph[module].items()):
            if target not in graph:
                errors.append("%s: includes %s, which is not in src/" % (where, target))
                continue
            trank, tname = layer_of(target)
            if trank is not None and trank > rank:
                errors.append("%s: %s (%s) includes %s from the %s layer above it" %
                              (where, module, LAYERS[rank][0], target, tname))

    for runner in RUNNERS:
        if runner not in graph:
            errors.append("%s: listed as a runner but not in src/" % runner)
    skip = {(r, DISPATCHER) for r in RUNNERS}
    cycle = find_cycle(graph, skip)
    if cycle:
        errors.append("include cycle outside the dispatcher loop: " + " -> ".join(cycle))

    if "--graph" in argv:
        for module in sorted(graph, key=lambda m: (layer_of(m)[0] or 0, m)):
            print("%-10s %-24s %s" % (layer_of(module)[1], module, " ".join(sorted(graph[module]))))
    for e in errors:
        print(e)
    return 1 if errors else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
