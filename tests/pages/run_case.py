#!/usr/bin/env python3
"""Runs one page case: builds a site and a home directory from the case
file, runs the interpreter on them and compares stdout and the exit status.

A case file is a set of sections, each opened by a line "=== NAME [ARG]":
  page            the page, written as site/page.html
  file PATH       another file, relative to the site root
  home PATH       a file in the home directory (v.env, v.config, markers)
  args            one command-line argument per line (default: page.html)
  env             NAME=VALUE lines added to a clean environment
  stdin           the request body
  status          the expected exit status (default 0)
  stdout          the expected standard output, compared exactly
  expect-file P   the expected content of file P after the run
  setup           shell lines run in the site root before the interpreter
Section texts keep their final newline; "=== stdout -n" (and likewise for
every section) drops it. In all sections @SITE@, @HOME@ and @TMP@ stand for
the directories of the run and <CR> for a carriage return. The interpreter's
own path is in the environment as VORN_BIN, for pages that start another run.
"""
import os
import re
import shutil
import subprocess
import sys
import tempfile


def parse(path):
    sections = []
    with open(path, 'rb') as f:
        for raw in f.read().splitlines(keepends=True):
            m = re.match(rb'^=== (\S+)(?: (.*?))?\s*$', raw)
            if m:
                sections.append([m.group(1).decode(), (m.group(2) or b'').decode().strip(), b''])
            elif sections:
                sections[-1][2] += raw
    result = []
    for name, arg, text in sections:
        if arg == '-n' or arg.endswith(' -n'):
            arg = arg[:-2].strip()
            if text.endswith(b'\n'):
                text = text[:-1]
        result.append((name, arg, text))
    return result


def main():
    vorn, case = os.path.abspath(sys.argv[1]), sys.argv[2]
    work = tempfile.mkdtemp(prefix='vorn-case-')
    site, home, tmp = (os.path.join(work, d) for d in ('site', 'home', 'tmp'))
    for d in (site, home, tmp):
        os.makedirs(d)

    def expand(b):
        return (b.replace(b'@SITE@', site.encode()).replace(b'@HOME@', home.encode())
                .replace(b'@TMP@', tmp.encode()).replace(b'<CR>', b'\r'))

    args, env_lines, stdin, status, stdout = ['page.html'], [], b'', 0, None
    expect_files, setup = [], None
    for name, arg, text in parse(case):
        text = expand(text)
        if name in ('page', 'file', 'home'):
            base = home if name == 'home' else site
            target = os.path.join(base, arg if name != 'page' else 'page.html')
            os.makedirs(os.path.dirname(target), exist_ok=True)
            with open(target, 'wb') as f:
                f.write(text)
        elif name == 'args':
            args = text.decode('latin-1').splitlines()
        elif name == 'env':
            env_lines = [l for l in text.decode('latin-1').split('\n') if l]
        elif name == 'stdin':
            stdin = text
        elif name == 'status':
            status = int(text.strip() or b'0')
        elif name == 'stdout':
            stdout = text
        elif name == 'expect-file':
            expect_files.append((expand(arg.encode()).decode(), text))
        elif name == 'setup':
            setup = text.decode('latin-1')
        else:
            print('unknown section: ' + name)
            return 2

    env = {'PATH': os.environ.get('PATH', '/usr/bin:/bin'), 'V_HOME': home,
           'TMP_DIR': tmp, 'LANG': 'C', 'TZ': os.environ.get('VORN_TEST_TZ', 'UTC'),
           'VORN_BIN': vorn}
    # the sanitizer and database settings of the test run pass through
    for key, value in os.environ.items():
        if key.startswith(('ASAN_', 'UBSAN_', 'LSAN_', 'VORN_', 'PG')):
            env[key] = value
    for line in env_lines:
        key, eq, value = line.partition('=')
        if eq:
            env[key] = value
        else:
            env.pop(key, None)   # a bare name unsets the variable
    for key in ('V_HOME', 'TMP_DIR'):
        if env.get(key) == '-':
            del env[key]

    if setup:
        subprocess.run(['bash', '-e', '-c', setup], cwd=site, env=env, check=True)
    proc = subprocess.run([vorn] + args, cwd=site, env=env, input=stdin,
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=120)
    failed = False
    if proc.returncode != status:
        print('exit status %d, expected %d' % (proc.returncode, status))
        failed = True
    if stdout is not None and proc.stdout != stdout:
        print('--- expected stdout\n%r\n--- actual stdout\n%r' % (stdout, proc.stdout))
        failed = True
    for path, text in expect_files:
        full = os.path.join(site, path)
        try:
            with open(full, 'rb') as f:
                actual = f.read()
        except OSError as e:
            actual = ('<%s>' % e).encode()
        if actual != text:
            print('--- expected %s\n%r\n--- actual\n%r' % (path, text, actual))
            failed = True
    if proc.stderr:
        sys.stdout.write('--- stderr\n' + proc.stderr.decode('latin-1'))
        # a sanitizer report fails the case even when the output matched
        if b'Sanitizer' in proc.stderr or b'runtime error' in proc.stderr:
            failed = True
    if failed:
        print('case kept in ' + work)
        return 1
    shutil.rmtree(work, ignore_errors=True)
    return 0


if __name__ == '__main__':
    sys.exit(main())
