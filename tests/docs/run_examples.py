#!/usr/bin/env python3
"""Runs the examples of the language reference and checks their output.

usage: run_examples.py VORN FILE.md... [--only TEXT]

An example is a run of fenced blocks, marked by the words after the
language in the opening fence:

  ```html page [NAME]     the page, written as NAME (default page.html)
  ```html file PATH       another file, relative to the site root
  ```text home PATH       a file in the home directory (v.env, v.config)
  ```text stdin [crlf]    the request body (with CR LF line ends)
  ```text output [status=N] [-n]
  $ [NAME=VALUE ...] vorn [ARG ...]
  expected output
  ```

The output block ends the example. Its first line, when it starts with
"$ ", is the command line, split as a shell would: leading assignments go
into the environment (without REQUEST_METHOD the run is not a CGI request),
the rest are the arguments (default: the page's name). The rest is compared
with what the interpreter writes to standard output, with carriage returns
and blanks before a line end removed; N is the expected exit status
(default 0), and "-n" drops the block's last line end. Texts are UTF-8; a
block marked "latin1" as well is written, or compared, as Latin-1 bytes.

Each example runs in a fresh site root, home directory and TMP_DIR, in the
site root, with TZ=UTC and SQLite as the database. In every input
/srv/site, /srv/home and /srv/tmp name those directories, and the output
shows them under these names.
"""
import os
import re
import shlex
import shutil
import subprocess
import sys
import tempfile

FENCE = re.compile(r'^```(\S*)\s*(.*?)\s*$')
SHOWN = (b'/srv/site', b'/srv/home', b'/srv/tmp')


def blocks(path):
    """(line, words after the language, text) of every fenced block."""
    with open(path, encoding='utf-8') as f:
        lines = f.read().split('\n')
    i = 0
    while i < len(lines):
        m = FENCE.match(lines[i])
        if not m:
            i += 1
            continue
        start, body = i + 1, []
        i += 1
        while i < len(lines) and lines[i] != '```':
            body.append(lines[i])
            i += 1
        i += 1
        words = m.group(2).split()
        text = ''.join(l + '\n' for l in body)
        if 'latin1' in words:
            words.remove('latin1')
            text = text.encode('latin-1')
        else:
            text = text.encode('utf-8')
        yield start, words, text


def examples(path):
    """Every example of a file as a dict; an unfinished one is an error."""
    current = {}
    for line, words, text in blocks(path):
        kind = words[0] if words else ''
        if kind in ('file', 'home') and len(words) == 2:
            current.setdefault('files', []).append((kind, words[1], text))
        elif kind == 'stdin':
            current['stdin'] = text.replace(b'\n', b'\r\n') if 'crlf' in words else text
        elif kind == 'page':
            if 'page' in current:
                raise SystemExit('%s:%d: a page without an output block' % (path, line))
            current['page'] = (words[1] if len(words) > 1 else 'page.html', text)
        elif kind == 'output':
            if 'page' not in current:
                raise SystemExit('%s:%d: output without a page' % (path, line))
            current['line'] = line
            current['output'] = text
            current['status'] = 0
            for w in words[1:]:
                if w == '-n':
                    current['output'] = text[:-1]
                else:
                    current['status'] = int(w.partition('status=')[2])
            yield current
            current = {}
    if current:
        raise SystemExit('%s: example without an output block' % path)


def run(vorn, ex):
    """None when the example's output and status are as shown, else a report."""
    work = tempfile.mkdtemp(prefix='vorn-docs-')
    real = [os.path.join(work, d).encode() for d in ('site', 'home', 'tmp')]
    for d in real:
        os.makedirs(d)

    def to_real(b):
        for shown, path in zip(SHOWN, real):
            b = b.replace(shown, path)
        return b

    output = ex['output']
    command = b'vorn ' + ex['page'][0].encode()
    if output.startswith(b'$ '):
        command, _, output = output[2:].partition(b'\n')
    words = shlex.split(to_real(command).decode('utf-8'))
    env = {'PATH': os.environ.get('PATH', '/usr/bin:/bin'), 'V_HOME': real[1].decode(),
           'TMP_DIR': real[2].decode(), 'LANG': 'C', 'TZ': 'UTC'}
    for key in ('ASAN_OPTIONS', 'UBSAN_OPTIONS', 'LSAN_OPTIONS'):
        if key in os.environ:
            env[key] = os.environ[key]
    while words and re.match(r'^[A-Za-z_]\w*=', words[0]):
        key, _, value = words.pop(0).partition('=')
        env[key] = value
    if not words or words[0] != 'vorn':
        return 'the command line does not run vorn: %s' % command.decode()
    files = ex.get('files', []) + [('file', ex['page'][0], ex['page'][1])]
    for kind, name, text in files:
        target = os.path.join(real[1] if kind == 'home' else real[0], name.encode())
        os.makedirs(os.path.dirname(target), exist_ok=True)
        with open(target, 'wb') as f:
            f.write(to_real(text))
    proc = subprocess.run([vorn] + words[1:], cwd=real[0], env=env,
                          input=to_real(ex.get('stdin', b'')),
                          stdout=subprocess.PIPE, stderr=subprocess.PIPE, timeout=60)
    actual = re.sub(rb' *\r?\n', b'\n', proc.stdout)
    output = re.sub(rb' *\n', b'\n', output)
    for shown, path in zip(SHOWN, real):
        actual = actual.replace(path, shown)
    problems = []
    if proc.returncode != ex['status']:
        problems.append('exit status %d, expected %d' % (proc.returncode, ex['status']))
    if actual != output:
        problems.append('--- expected\n%s--- actual\n%s' % (output.decode('latin-1'),
                                                            actual.decode('latin-1')))
    stderr = proc.stderr.decode('latin-1')
    if 'Sanitizer' in stderr or 'runtime error' in stderr:
        problems.append('--- stderr\n' + stderr)
    if problems:
        return '\n'.join(problems + ['example kept in ' + work])
    shutil.rmtree(work, ignore_errors=True)
    return None


def main():
    args = sys.argv[1:]
    only = None
    if '--only' in args:
        i = args.index('--only')
        only = args[i + 1]
        del args[i:i + 2]
    vorn, paths = os.path.abspath(args[0]), args[1:]
    passed = failed = 0
    for path in paths:
        for ex in examples(path):
            if only and only.encode() not in ex['page'][1]:
                continue
            report = run(vorn, ex)
            if report:
                failed += 1
                print('%s:%d: example fails\n%s' % (path, ex['line'], report))
            else:
                passed += 1
    print('%d passed, %d failed' % (passed, failed))
    return 1 if failed or not passed else 0


if __name__ == '__main__':
    sys.exit(main())
