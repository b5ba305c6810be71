#!/usr/bin/env python3
"""Runs `vorn --check` over the page of every page case. Many cases hold
faulty pages on purpose, so findings are expected; what must never happen
is a crash, a sanitizer report or a page that cannot be read (status 2).
Prints how many pages were clean and how many had findings."""
import os
import re
import subprocess
import sys
import tempfile

vorn, cases = os.path.abspath(sys.argv[1]), sys.argv[2]
clean = found = 0
failures = []
with tempfile.TemporaryDirectory(prefix='vorn-check-') as work:
    for root, _, names in os.walk(cases):
        for name in sorted(names):
            if not name.endswith('.case'):
                continue
            path = os.path.join(root, name)
            with open(path, 'rb') as f:
                text = f.read()
            m = re.search(rb'^=== page[^\n]*\n(.*?)(?=^=== |\Z)', text, re.S | re.M)
            if not m:
                continue
            page = os.path.join(work, 'page.html')
            with open(page, 'wb') as f:
                f.write(m.group(1))
            env = {k: v for k, v in os.environ.items()
                   if k in ('PATH', 'ASAN_OPTIONS', 'UBSAN_OPTIONS', 'LSAN_OPTIONS')}
            run = subprocess.run([vorn, '--check', page], cwd=work, env=env,
                                 capture_output=True, timeout=30)
            report = re.search(rb'runtime error:|ERROR: (Address|Leak)Sanitizer', run.stderr)
            if run.returncode not in (0, 1) or report:
                failures.append((path, run.returncode, run.stderr.decode('latin-1')[-2000:]))
            elif run.returncode == 0:
                clean += 1
            else:
                found += 1
for path, code, err in failures:
    print(f'{path}: status {code}\n{err}')
print(f'{clean} pages clean, {found} with findings, {len(failures)} failed')
sys.exit(1 if failures else 0)
