#!/usr/bin/env python3
"""Held page output reaches the reader in time: a page that waits (a sleep,
a read of standard input) has sent what it wrote before the wait begins,
and a page that writes on and on sends it within the interval instead of
at the end. Reads the interpreter's output pipe with timeouts.

Usage: sent_in_time.py VORN
"""
import os
import select
import shutil
import subprocess
import sys
import tempfile
import time

FIRST = '1 the first line\n'
HELD = '2 held until the page waits\n'


def run(vorn, work, page, stdin=subprocess.DEVNULL):
    with open(os.path.join(work, 'page.html'), 'w') as f:
        f.write(page)
    env = {'PATH': os.environ.get('PATH', '/usr/bin:/bin'), 'V_HOME': work, 'TMP_DIR': work,
           'LANG': 'C'}
    for key, value in os.environ.items():
        if key.startswith(('ASAN_', 'UBSAN_', 'LSAN_')):
            env[key] = value
    return subprocess.Popen([vorn, 'page.html'], cwd=work, env=env, stdin=stdin,
                            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL)


def read_until(proc, text, timeout):
    """What arrived within timeout seconds, stopping once text is in it."""
    got = b''
    end = time.monotonic() + timeout
    fd = proc.stdout.fileno()
    while text.encode() not in got:
        left = end - time.monotonic()
        if left <= 0 or not select.select([fd], [], [], left)[0]:
            break
        chunk = os.read(fd, 65536)
        if not chunk:
            break
        got += chunk
    return got.decode('latin-1')


def finish(proc):
    rest = proc.stdout.read().decode('latin-1')
    proc.wait(timeout=60)
    return rest


def case_sleep(vorn, work):
    """1: the lines before <@sleep> arrive while it sleeps."""
    proc = run(vorn, work, FIRST + HELD + '<@sleep> 2\n3 after the sleep\n')
    got = read_until(proc, HELD, 1.2)
    rest = finish(proc)
    if got != FIRST + HELD:
        return '1 before the sleep ended: %r' % got
    if rest != '3 after the sleep\n':
        return '1 after the sleep: %r' % rest
    return None


def case_stdin(vorn, work):
    """2: the lines before <@fgets> stdin arrive while it waits for input."""
    page = FIRST + HELD + '<@fgets> stdin line 100\n3 got $(line)\n'
    proc = run(vorn, work, page, stdin=subprocess.PIPE)
    got = read_until(proc, HELD, 1.2)
    proc.stdin.write(b'typed\n')
    proc.stdin.close()
    rest = finish(proc)
    if got != FIRST + HELD:
        return '2 before the input came: %r' % got
    if rest != '3 got typed\n':
        return '2 after the input: %r' % rest
    return None


def case_interval(vorn, work):
    """3: a page that computes and writes a little now and then sends its
    lines as it goes, not all at its end. It runs for one to two seconds by
    the clock, however fast its passes are."""
    page = ('<@i>= 0\n<@stop>= $(expr: $(V_DT) + 1)\n<@while>\n<@i>++\n'
            '<@if> icmp $(expr:$(i) % 10000) = 0\ntick $(i)\n'
            '<@if> icmp $(V_DT) > $(stop) <@break>\n<@end>\n<@end>\ndone\n')
    proc = run(vorn, work, page)
    fd = proc.stdout.fileno()
    arrivals = []   # (time, lines so far)
    text = b''
    while True:
        chunk = os.read(fd, 65536)
        if not chunk:
            break
        text += chunk
        arrivals.append((time.monotonic(), text.count(b'\n')))
    end = time.monotonic()
    proc.wait(timeout=60)
    if not text.startswith(b'tick 10000\n') or not text.endswith(b'0000\ndone\n'):
        return '3 output: %r' % text[-200:]
    # lines must come in sends of their own before the last one (the exit),
    # however fast the machine runs the page
    early = [n for t, n in arrivals[:-1]]
    if not early or max(early) < 2:
        return '3 only the first line before the end: %r' % [(round(end - t, 3), n)
                                                              for t, n in arrivals]
    return None


def main():
    vorn = os.path.abspath(sys.argv[1])
    failures = []
    for case in (case_sleep, case_stdin, case_interval):
        work = tempfile.mkdtemp(prefix='vorn-output-')
        try:
            why = case(vorn, work)
        finally:
            shutil.rmtree(work, ignore_errors=True)
        if why:
            failures.append(why)
    for why in failures:
        print('FAILED: ' + why)
    return 1 if failures else 0


if __name__ == '__main__':
    sys.exit(main())
