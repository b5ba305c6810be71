#!/usr/bin/env python3
"""Times pages as CGI requests for bench/compare.sh.

Each page runs as a GET request under three programs in turn (the static C
hello, Vorn, php-cgi), run by run, so that a slow spell of the machine falls
on all three alike. A run is one child process, forked and reaped with
wait4 by bench/spawn.c (see there why), its standard output read here
through a pipe as a web server reads it: the CPU time is the child's user +
system time, the wall time runs from the fork to the reaping, the memory is
the child's peak resident set. A run whose last output line is not the expected one stops
the benchmark, so a broken run is never timed.

The work directory (made by compare.sh) holds site/ (the pages), home/
(Vorn's v.config and v.env, and the SQLite file), the hello program and
the spawn program.
"""

import argparse
import os
import platform
import statistics
import subprocess
import sys
import time

# name, heavy, Vorn page, PHP page, query string, expected last line
PAGES = [
    ("small", False, "small.html", "small.php", "name=ada&colour=red&count=7",
     "<!-- small: ada red 7 -->"),
    ("include", False, "include.html", "include.php", "", "<!-- include: 20 parts -->"),
    ("static 1 MB", False, "static.html", "static.php", "", "<!-- static end -->"),
    ("loop", True, "loop.html", "loop.php", "", "passes: 100001"),
    ("rows", True, "rows.html", "rows.php", "", "rows: 100000"),
]
HELLO_LAST = "<p>hello</p>"
PROGRAMS = ("C", "Vorn", "php")
# The same hello linked against the shared libc and libm: what the dynamic
# loader alone costs (Vorn is linked fully static), timed on the first page
# only.
DYNAMIC = "C dynamic"


def last_line(out):
    lines = out.replace(b"\r", b"").rstrip(b"\n").rsplit(b"\n", 1)
    return lines[-1].decode("latin-1")


def request_env(query, extra):
    env = {
        "PATH": "/usr/bin:/bin",
        "GATEWAY_INTERFACE": "CGI/1.1",
        "SERVER_SOFTWARE": "vorn-bench",
        "SERVER_PROTOCOL": "HTTP/1.1",
        "SERVER_NAME": "bench",
        "SERVER_PORT": "80",
        "HTTP_HOST": "bench",
        "REMOTE_ADDR": "127.0.0.1",
        "REQUEST_METHOD": "GET",
        "QUERY_STRING": query,
    }
    env.update(extra)
    return env


def run_once(spawn, argv, env, errpath):
    """Runs one request through spawn; returns (cpu s, wall s, max RSS KB, output)."""
    r, w = os.pipe()
    rr, rw = os.pipe()
    null = os.open(os.devnull, os.O_RDONLY)
    err = os.open(errpath, os.O_WRONLY | os.O_CREAT | os.O_TRUNC, 0o600)
    actions = [
        (os.POSIX_SPAWN_DUP2, null, 0),
        (os.POSIX_SPAWN_DUP2, w, 1),
        (os.POSIX_SPAWN_DUP2, err, 2),
        (os.POSIX_SPAWN_DUP2, rw, 3),
    ]
    pid = os.posix_spawn(spawn, [spawn] + argv, env, file_actions=actions)
    for fd in (w, rw, null, err):
        os.close(fd)
    chunks = []
    while True:
        chunk = os.read(r, 1 << 20)
        if not chunk:
            break
        chunks.append(chunk)
    results = b""
    while True:
        chunk = os.read(rr, 4096)
        if not chunk:
            break
        results += chunk
    os.close(r)
    os.close(rr)
    _, spawn_status = os.waitpid(pid, 0)
    fields = results.split()
    if spawn_status != 0 or len(fields) != 4:
        return 0, 0, 0, b"\n[spawn failed]"
    status, cpu, wall, rss = (int(x) for x in fields)
    out = b"".join(chunks)
    if not os.WIFEXITED(status) or os.WEXITSTATUS(status) != 0:
        out += b"\n[exit status %d]" % status
    return cpu / 1e9, wall / 1e9, rss, out


def programs_for(page, args):
    name, heavy, vorn_page, php_page, query, last = page
    site, home = os.path.join(args.work, "site"), os.path.join(args.work, "home")
    progs = {
        "C": ([args.hello], request_env(query, {
            "SCRIPT_NAME": "/hello", "SCRIPT_FILENAME": args.hello}), HELLO_LAST),
        "Vorn": ([args.vorn], request_env(query, {
            "SCRIPT_NAME": "/vorn", "SCRIPT_FILENAME": args.vorn,
            "PATH_INFO": "/" + vorn_page,
            "PATH_TRANSLATED": os.path.join(site, vorn_page),
            "V_HOME": home}), last),
        "php": ([args.php], request_env(query, {
            "SCRIPT_NAME": "/" + php_page,
            "SCRIPT_FILENAME": os.path.join(site, php_page),
            "REDIRECT_STATUS": "200",
            "BENCH_DB": os.path.join(home, "Vorn.db")}), last),
    }
    if args.hello_dynamic and page is PAGES[0]:
        progs[DYNAMIC] = ([args.hello_dynamic], request_env(query, {
            "SCRIPT_NAME": "/hello", "SCRIPT_FILENAME": args.hello_dynamic}), HELLO_LAST)
    return progs


def measure(page, args):
    runs = args.heavy_runs if page[1] else args.light_runs
    progs = programs_for(page, args)
    errpath = os.path.join(args.work, "stderr")
    samples = {p: [] for p in progs}
    # one untimed run of each first: the page cache, and a first check
    for i in range(runs + 1):
        for prog in progs:
            argv, env, expected = progs[prog]
            cpu, wall, rss, out = run_once(args.spawn, argv, env, errpath)
            got = last_line(out)
            if got != expected:
                with open(errpath, "rb") as f:
                    err = f.read(2000).decode("latin-1")
                sys.exit(f"cgi_bench: {prog} on page {page[0]}: last line {got!r}, "
                         f"expected {expected!r}\n{err}")
            if i:
                samples[prog].append((cpu, wall, rss))
    result = {"runs": runs}
    for prog in progs:
        result[prog] = tuple(statistics.median(s[k] for s in samples[prog]) for k in range(3))
    return result


def machine():
    model = platform.processor() or "unknown"
    try:
        with open("/proc/cpuinfo") as f:
            for line in f:
                if line.startswith("model name"):
                    model = line.split(":", 1)[1].strip()
                    break
    except OSError:
        pass
    return f"{os.cpu_count()} cores, {model}"


def php_version(php):
    out = subprocess.run([php, "-v"], capture_output=True, text=True).stdout
    return out.split(" (")[0] if out else "php-cgi"


COLUMNS = ["page", "runs",
           "CPU C", "CPU Vorn", "CPU php", "CPU Vorn/C", "CPU Vorn/php",
           "wall C", "wall Vorn", "wall php", "wall Vorn/C", "wall Vorn/php",
           "RSS C", "RSS Vorn", "RSS php"]


def row(name, r):
    def ms(x):
        return f"{x * 1000:.2f}" if x < 0.1 else f"{x * 1000:.0f}"

    def ratio(a, b):
        return f"{a / b:.2f}" if b > 0 else "-"

    cells = [name, str(r["runs"])]
    for k in (0, 1):
        c, v, p = r["C"][k], r["Vorn"][k], r["php"][k]
        cells += [ms(c), ms(v), ms(p), ratio(v, c), ratio(v, p)]
    cells += [str(int(r[p][2])) for p in PROGRAMS]
    return cells


def print_table(rows, markdown):
    if markdown:
        print("| " + " | ".join(COLUMNS) + " |")
        print("|" + "|".join("---" if i == 0 else "--:" for i in range(len(COLUMNS))) + "|")
        for cells in rows:
            print("| " + " | ".join(cells) + " |")
        return
    widths = [max(len(COLUMNS[i]), *(len(r[i]) for r in rows)) for i in range(len(COLUMNS))]
    for cells in [COLUMNS] + rows:
        print("  ".join(c.ljust(widths[i]) if i == 0 else c.rjust(widths[i])
                        for i, c in enumerate(cells)))


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("--work", required=True)
    ap.add_argument("--vorn", required=True)
    ap.add_argument("--hello", required=True)
    ap.add_argument("--php", required=True)
    ap.add_argument("--spawn", required=True, help="bench/spawn.c, built")
    ap.add_argument("--hello-dynamic", help="bench/hello.c linked with the shared libc and libm")
    ap.add_argument("--light-runs", type=int, default=21)
    ap.add_argument("--heavy-runs", type=int, default=7)
    ap.add_argument("--markdown", action="store_true")
    ap.add_argument("--pages", help="comma-separated page names (default: all)")
    args = ap.parse_args()
    args.work = os.path.abspath(args.work)
    os.chdir(os.path.join(args.work, "site"))   # a CGI program runs in its page's directory

    pages = PAGES
    if args.pages:
        wanted = args.pages.split(",")
        pages = [p for p in PAGES if p[0] in wanted]
    rows = []
    floor = None
    for page in pages:
        print(f"cgi_bench: {page[0]} ...", file=sys.stderr)
        result = measure(page, args)
        rows.append(row(page[0], result))
        if DYNAMIC in result:
            floor = result

    stamp = time.strftime("%Y-%m-%d %H:%M UTC", time.gmtime())
    about = (f"{stamp}; {machine()}; {platform.system()} {platform.release()}; "
             f"C: gcc -O2 -static hello; {php_version(args.php)}")
    print(f"{'' if not args.markdown else '_'}{about}{'' if not args.markdown else '_'}")
    print()
    print_table(rows, args.markdown)
    print()
    print("Medians over the runs, in ms (RSS: peak resident memory, in KB); CPU is the "
          "child's user+system time. Ratios above 1: Vorn is slower.")
    if floor:
        c, d, v = floor["C"][0], floor[DYNAMIC][0], floor["Vorn"][0]
        print(f"The hello linked with the shared libc and libm: {d * 1000:.2f} ms "
              f"CPU on the {PAGES[0][0]} page, {d / c:.2f} of the static one "
              f"(Vorn/that: {v / d:.2f}).")


if __name__ == "__main__":
    main()
