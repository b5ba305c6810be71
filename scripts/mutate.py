#!/usr/bin/env python3
"""Plants small faults in src/, one at a time, and tells which ones the fast
test suites (unit tests and page cases) catch.

Each fault is one of: a flipped comparison (== and !=, < and <=, > and >=),
a constant off by one, && for || or the reverse, a deleted call statement,
or a changed return value (0 and -1, 1 and 0, true and false). The faults
are drawn from every candidate site of the chosen files by the seed, the
same seed and files giving the same faults, an equal share of each kind.

The faults go into a scratch copy of the tree (build-mutate/tree, with its
own incremental build in build-mutate/build), never into the working tree,
so an interrupted run leaves nothing behind. Every fault is rebuilt and run
against `ctest -L LABELS` and counted as caught (a test failed), missed (all
passed) or did-not-compile. A missed fault is either a gap in the tests or
an equivalent change that nothing can observe: read each one.

  scripts/mutate.py -n 80 --seed 7                  # 80 faults over src/
  scripts/mutate.py -n 20 --files src/values/dates.cpp
  scripts/mutate.py -n 80 --seed 7 --pick 12,40     # run two of them again
  scripts/mutate.py -n 80 --seed 7 --list           # show them, run nothing
  scripts/mutate.py --files src/db/postgres_engine.cpp --labels 'unit|page|postgres'
"""
import argparse
import fcntl
import glob
import os
import random
import re
import shutil
import subprocess
import sys
import time

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
# What the build and the suites read; the scratch tree holds these only.
TREE_PARTS = ['CMakeLists.txt', 'src', 'tests', 'examples', 'deploy']
PG_ENGINE = 'src/db/postgres_engine.cpp'
KINDS = ['comparison', 'constant', 'logic', 'call', 'return']

COMPARISON = {'==': '!=', '!=': '==', '<': '<=', '<=': '<', '>': '>=', '>=': '>'}
RETURNS = {'0': '-1', '-1': '0', '1': '0', 'true': 'false', 'false': 'true'}
# Diagnostics only: a fault in them changes no page, so none is planted.
QUIET_CALL = re.compile(r'^\s*(V_TRACE|V_DEBUG)\s*\(')
CALL_STATEMENT = re.compile(r'^(\s*)([A-Za-z_][\w:]*(?:(?:->|\.)[A-Za-z_]\w*)*\s*\(.*\)\s*;)\s*$')
RETURN_LITERAL = re.compile(r'\breturn\s+(-1|0|1|true|false)\s*;')
CONSTANT = re.compile(r'(?<![\w.])(\d+)(?![\w.])')
COMPARE_OP = re.compile(r'(?<= )(==|!=|<=|>=|<|>)(?= )')
LOGIC_OP = re.compile(r'(?<= )(&&|\|\|)(?= )')


def blank_literals(line):
    """The line with the insides of string and character literals and any
    // comment replaced by blanks, columns kept, so that the patterns only
    see code."""
    out, i, quote = [], 0, None
    while i < len(line):
        c = line[i]
        if quote:
            if c == '\\' and i + 1 < len(line):
                out.append('  ')
                i += 2
                continue
            if c == quote:
                quote = None
                out.append(c)
            else:
                out.append(' ')
        elif c in '"\'':
            quote = c
            out.append(c)
        elif line.startswith('//', i):
            out.append(' ' * (len(line) - i))
            break
        else:
            out.append(c)
        i += 1
    return ''.join(out)


def code_lines(text):
    """(line number, raw line, code-only line) for the lines that can take a
    fault: no block comments, preprocessor lines or diagnostics calls."""
    in_comment = False
    in_quiet = 0   # open parentheses of a diagnostics call running on
    for number, raw in enumerate(text.split('\n'), 1):
        code = raw
        if in_comment:
            end = code.find('*/')
            if end < 0:
                continue
            code = ' ' * (end + 2) + code[end + 2:]
            in_comment = False
        code = blank_literals(code)
        start = code.find('/*')
        if start >= 0:
            end = code.find('*/', start + 2)
            if end < 0:
                in_comment = True
                code = code[:start]
            else:
                code = code[:start] + ' ' * (end + 2 - start) + code[end + 2:]
        if in_quiet:
            in_quiet += code.count('(') - code.count(')')
            in_quiet = max(in_quiet, 0)
            continue
        if QUIET_CALL.match(code):
            in_quiet = max(code.count('(') - code.count(')'), 0)
            continue
        if code.lstrip().startswith('#') or not code.strip():
            continue
        yield number, raw, code


def sites(path):
    """Every fault the file can take: (kind, line, column, old, new)."""
    with open(os.path.join(ROOT, path)) as f:
        text = f.read()
    found = []
    for number, raw, code in code_lines(text):
        for m in COMPARE_OP.finditer(code):
            found.append(('comparison', number, m.start(), m.group(1), COMPARISON[m.group(1)]))
        for m in LOGIC_OP.finditer(code):
            new = '||' if m.group(1) == '&&' else '&&'
            found.append(('logic', number, m.start(), m.group(1), new))
        for m in RETURN_LITERAL.finditer(code):
            found.append(('return', number, m.start(1), m.group(1), RETURNS[m.group(1)]))
        # A constant in a declaration's array size or an enum changes only
        # room; one in an expression changes what the code does. Both count.
        if not RETURN_LITERAL.search(code):
            for m in CONSTANT.finditer(code):
                old = m.group(1)
                new = str(int(old) + 1) if int(old) == 0 or number % 2 else str(int(old) - 1)
                found.append(('constant', number, m.start(), old, new))
        m = CALL_STATEMENT.match(code)
        if m and not re.match(r'\s*(return|delete|case|else|do|if|for|while|switch)\b', code):
            body = m.group(2)
            found.append(('call', number, len(m.group(1)), raw[len(m.group(1)):len(m.group(1)) + len(body)], ';'))
    return [(k, path, line, col, old, new) for k, line, col, old, new in found]


def choose(files, count, seed):
    """count faults drawn by seed, each kind in turn so that none dominates."""
    by_kind = {k: [] for k in KINDS}
    for path in files:
        for site in sites(path):
            by_kind[site[0]].append(site)
    rng = random.Random(seed)
    for k in KINDS:
        rng.shuffle(by_kind[k])
    order = KINDS[:]
    rng.shuffle(order)
    chosen, i = [], 0
    while len(chosen) < count and any(by_kind.values()):
        pool = by_kind[order[i % len(order)]]
        if pool:
            chosen.append(pool.pop())
        i += 1
    return chosen


def sync_tree(tree):
    """Brings the scratch tree level with the working tree, copying only
    files whose text differs so that the scratch build stays incremental."""
    for part in TREE_PARTS:
        src = os.path.join(ROOT, part)
        if os.path.isfile(src):
            copy_if_changed(src, os.path.join(tree, part))
            continue
        wanted = set()
        for dirpath, dirnames, filenames in os.walk(src):
            for name in filenames:
                rel = os.path.relpath(os.path.join(dirpath, name), ROOT)
                wanted.add(rel)
                copy_if_changed(os.path.join(ROOT, rel), os.path.join(tree, rel))
        for dirpath, dirnames, filenames in os.walk(os.path.join(tree, part)):
            for name in filenames:
                rel = os.path.relpath(os.path.join(dirpath, name), tree)
                if rel not in wanted:
                    os.remove(os.path.join(tree, rel))


def copy_if_changed(src, dst):
    with open(src, 'rb') as f:
        data = f.read()
    try:
        with open(dst, 'rb') as f:
            if f.read() == data:
                return
    except OSError:
        pass
    os.makedirs(os.path.dirname(dst), exist_ok=True)
    shutil.copy2(src, dst)


def run(cmd, cwd, timeout):
    try:
        p = subprocess.run(cmd, cwd=cwd, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                           timeout=timeout)
        return p.returncode, p.stdout.decode('utf-8', 'replace')
    except subprocess.TimeoutExpired as e:
        return -1, 'timed out after %ds' % timeout


def build(build_dir, jobs):
    return run(['cmake', '--build', build_dir, '-j', str(jobs)], ROOT, 1200)


def test(build_dir, labels, jobs, timeout):
    return run(['ctest', '-L', labels, '-j', str(jobs), '--timeout', str(timeout),
                '--stop-on-failure', '--output-on-failure'], build_dir, 1800)


def plant(text, site):
    kind, path, line, col, old, new = site
    lines = text.split('\n')
    row = lines[line - 1]
    assert row[col:col + len(old)] == old, (site, row)
    lines[line - 1] = row[:col] + new + row[col + len(old):]
    return '\n'.join(lines), lines[line - 1]


def describe(site):
    kind, path, line, col, old, new = site
    return '%s:%d %s: %r -> %r' % (path, line, kind, old, new)


def main():
    ap = argparse.ArgumentParser(description=__doc__.split('\n')[0],
                                 formatter_class=argparse.RawDescriptionHelpFormatter,
                                 epilog=__doc__[__doc__.index('\n') + 1:])
    ap.add_argument('-n', '--count', type=int, default=20, help='faults to plant (default 20)')
    ap.add_argument('--seed', type=int, default=1, help='chooses the faults (default 1)')
    ap.add_argument('--files', nargs='+', default=['src/**/*.cpp'],
                    help='source files or globs, relative to the root (default src/**/*.cpp; '
                    'the PostgreSQL engine only when named, as only its own suite sees it)')
    ap.add_argument('--labels', default='unit|page',
                    help="ctest label regex of the suites to run (default 'unit|page')")
    ap.add_argument('--pick', default='', help='comma-separated numbers of the drawn faults to run')
    ap.add_argument('--list', action='store_true', help='print the drawn faults and stop')
    ap.add_argument('--jobs', type=int, default=2, help='build and test jobs (default 2)')
    ap.add_argument('--timeout', type=int, default=30, help='seconds for one test (default 30)')
    ap.add_argument('--dir', default=os.path.join(ROOT, 'build-mutate'),
                    help='scratch tree and build (default build-mutate)')
    args = ap.parse_args()

    files = sorted({os.path.relpath(p, ROOT) for pattern in args.files
                    for p in glob.glob(os.path.join(ROOT, pattern), recursive=True)})
    if args.files == ap.get_default('files'):
        files.remove(PG_ENGINE)
    if not files:
        sys.exit('no source files match ' + ' '.join(args.files))
    faults = choose(files, args.count, args.seed)
    numbered = list(enumerate(faults, 1))
    if args.pick:
        wanted = {int(x) for x in args.pick.split(',') if x.strip()}
        numbered = [(i, f) for i, f in numbered if i in wanted]
    if args.list:
        for i, f in numbered:
            print('%3d %s' % (i, describe(f)))
        return 0

    tree, build_dir = os.path.join(args.dir, 'tree'), os.path.join(args.dir, 'build')
    os.makedirs(tree, exist_ok=True)
    # one run at a time per scratch tree: a second would plant into the first
    lock = open(os.path.join(args.dir, 'lock'), 'w')
    try:
        fcntl.flock(lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
    except OSError:
        sys.exit('another mutation run is using ' + args.dir)
    sync_tree(tree)
    print('== configure and build the scratch tree %s' % tree, flush=True)
    rc, out = run(['cmake', '-S', tree, '-B', build_dir, '-DCMAKE_BUILD_TYPE=RelWithDebInfo'],
                  ROOT, 600)
    if rc == 0:
        rc, out = build(build_dir, args.jobs)
    if rc != 0:
        sys.exit(out[-3000:] + '\nthe unchanged tree does not build')
    rc, out = test(build_dir, args.labels, args.jobs, args.timeout)
    if rc != 0:
        sys.exit(out[-3000:] + '\nthe unchanged tree fails its tests: fix that first')

    results = {'caught': [], 'missed': [], 'did-not-compile': []}
    # the same file in a row costs one compile less
    numbered.sort(key=lambda x: (x[1][1], x[0]))
    started = time.time()
    try:
        for done, (i, site) in enumerate(numbered, 1):
            target = os.path.join(tree, site[1])
            with open(target) as f:
                original = f.read()
            mutated, changed = plant(original, site)
            try:
                with open(target, 'w') as f:
                    f.write(mutated)
                rc, _ = build(build_dir, args.jobs)
                if rc != 0:
                    verdict = 'did-not-compile'
                else:
                    rc, _ = test(build_dir, args.labels, args.jobs, args.timeout)
                    verdict = 'caught' if rc != 0 else 'missed'
            finally:
                with open(target, 'w') as f:
                    f.write(original)
            results[verdict].append((i, site, changed.strip()))
            print('[%d/%d] #%d %-15s %s' % (done, len(numbered), i, verdict, describe(site)),
                  flush=True)
    except KeyboardInterrupt:
        print('\n== interrupted; the scratch file is restored, the working tree was never touched')

    compiled = len(results['caught']) + len(results['missed'])
    print('\n== seed %d, %d faults in %d files, %.0f s' % (args.seed, len(numbered), len(files),
                                                          time.time() - started))
    print('caught %d, missed %d, did not compile %d; caught %.0f%% of those that compiled' % (
        len(results['caught']), len(results['missed']), len(results['did-not-compile']),
        100.0 * len(results['caught']) / compiled if compiled else 0))
    if results['missed']:
        print('\nmissed (a gap in the tests, or a change nothing can observe):')
        for i, site, changed in results['missed']:
            print('  #%d %s\n      now: %s' % (i, describe(site), changed))
    return 0


if __name__ == '__main__':
    sys.exit(main())
