#!/usr/bin/env python3
"""The FastCGI server without a web server: requests sent record by record
(well-formed and broken) to `vorn --fastcgi` on a Unix socket, each answer
compared byte for byte with a CGI run of the same binary on the same
request, and the server's operations: concurrent requests with a crash, a
fault and a slow one, the child limit, the time limit, aborts, SIGHUP and
SIGTERM, and a socket handed over on descriptor 0.

Usage: protocol.py VORN"""
import os
import re
import shutil
import signal
import socket
import struct
import subprocess
import sys
import tempfile
import threading
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import fcgi_client as F  # noqa: E402

VORN = os.path.abspath(sys.argv[1])
TIMEOUT = 3
PAGES = {
    "hello.html": "hello $(who)\n",
    "upload.html": "title=$(title)\nfile=$(file)\n",
    "form.html": "name=[$(name)] note=[$(note)]\n",
    "mark.html": "<@shell> echo mark=$MARK\n",
    "slow.html": "slow start\n<@sleep> 1\nslow done\n",
    "crash.html": "before\n<@shell> kill -ABRT $PPID\nafter\n",
    "divide.html": "before\n$(expr:1/0)\nafter\n",
    "runaway.html": "started\n<@sleep> 30\nnever\n",
    "wait.html": ("<@shell> echo $PPID > {work}/wait.pid; echo started; "
                  "seq 600 | while read i; do [ -e {work}/go ] && break; sleep 0.05; done; "
                  "echo released\n"),
    "flood.html": "<@shell> echo $PPID > {work}/flood.pid; yes flood | head -c 100000000\n",
    "bind.html": ("<@shell> echo bind=${LD_BIND_NOW-none} "
                  "marker=${VORN_FASTCGI_BOUND-none}${VORN_FASTCGI_TUNED-} "
                  "tunables=${GLIBC_TUNABLES-none}\n"),
    "notes.txt": "no page: the server's preloading passes it over\n",
    "order.html": ("1 page\n<@shell> echo 2 shell\n3 page\n<@fork> pid\n"
                   "<@if> icmp $(pid) = 0\n4 child\n<@quit>\n<@end>\n"
                   "<@shell> sleep 0.3\n5 page\n<@shell> echo 6 shell >&2; echo 7 shell\n"),
}

failures = []


def check(cond, what):
    if not cond:
        failures.append(what)
        print("FAIL:", what, flush=True)


work = tempfile.mkdtemp(prefix="vorn-fcgi-")
site, home, tmp = (os.path.join(work, d) for d in ("site", "home", "tmp"))
for d in (site, home, tmp):
    os.mkdir(d)
for name, text in PAGES.items():
    with open(os.path.join(site, name), "w") as f:
        f.write(text.replace("{work}", work))


def write_env(mark):
    with open(os.path.join(home, "v.env"), "w") as f:
        f.write(f"TMP_DIR={tmp}\nMARK={mark}\n")


with open(os.path.join(home, "v.config"), "w") as f:
    f.write(f"localhost:80 {site}\n")
write_env("one")

BASE_ENV = {"PATH": "/usr/bin:/bin", "V_HOME": home}
for name in ("ASAN_OPTIONS", "UBSAN_OPTIONS", "LSAN_OPTIONS"):
    if name in os.environ:
        BASE_ENV[name] = os.environ[name]


def params(query="", method="GET", body=b"", ctype=None):
    p = {"REQUEST_METHOD": method, "QUERY_STRING": query, "HTTP_HOST": "localhost",
         "GATEWAY_INTERFACE": "CGI/1.1", "SERVER_SOFTWARE": "test", "REQUEST_URI": "/vorn?" + query}
    if method == "POST":
        p["CONTENT_LENGTH"] = str(len(body))
        p["CONTENT_TYPE"] = ctype
    return p


def cgi_run(p, body=b""):
    env = dict(BASE_ENV)
    env.update(p)
    return subprocess.run([VORN], env=env, input=body, capture_output=True, timeout=30).stdout


class Server:
    def __init__(self, *args, handover=False, sock="vorn.sock", env=None):
        self.sock = sock if ":" in sock else os.path.join(work, sock)
        env = env or BASE_ENV
        self.log = open(os.path.join(work, "server.log"), "ab")
        if handover:
            listener = socket.socket(socket.AF_UNIX)
            if os.path.exists(self.sock):
                os.unlink(self.sock)
            listener.bind(self.sock)
            listener.listen(16)
            self.proc = subprocess.Popen([VORN], stdin=listener, stderr=self.log, env=env)
            listener.close()
        else:
            self.proc = subprocess.Popen([VORN, "--fastcgi", self.sock, "--timeout", str(TIMEOUT)]
                                         + list(args), stderr=self.log, env=env)
            # ready when it takes a connection (a socket left at the path
            # by an earlier server is there from the start)
            for _ in range(400):
                if self.proc.poll() is not None:
                    break
                try:
                    F.connect(self.sock).close()
                    break
                except OSError:
                    time.sleep(0.05)

    def stop(self):
        if self.proc.poll() is None:
            self.proc.send_signal(signal.SIGTERM)
            self.proc.wait(timeout=10)
        self.log.close()


def log_text():
    with open(os.path.join(work, "server.log"), "rb") as f:
        return f.read().decode("latin-1")


def same_as_cgi(server, name, query="", method="GET", body=b"", ctype=None, norm=None):
    p = params(query, method, body, ctype)
    got, app, proto = F.ask(server.sock, p, body)
    want = cgi_run(p, body)
    if norm:
        got, want = norm(got), norm(want)
    check(got == want, f"{name}: FastCGI output differs from CGI:\n{got!r}\n{want!r}")
    check(proto == 0, f"{name}: protocol status {proto}")
    return got


def in_thread(fn):
    result = {}
    t = threading.Thread(target=lambda: result.update(v=fn()))
    t.start()
    return t, result


def main():
    server = Server()
    sock = server.sock
    try:
        # the web server's own user must be able to connect
        check(os.stat(sock).st_mode & 0o777 == 0o666, "socket not open to the web server's user")
        # 1. requests answered as CGI runs answer them
        same_as_cgi(server, "get", "V_PAGE=hello.html&who=Ann%20Lee+%26+co")
        same_as_cgi(server, "missing page", "V_PAGE=nothere.html")
        same_as_cgi(server, "urlencoded post", method="POST",
                    body=b"V_PAGE=form.html&name=J%F6rg+M%26M&note=100%25",
                    ctype="application/x-www-form-urlencoded")
        blob = bytes(range(256)) * 1200 + b"\r\n--XX tail"   # larger than one record
        body = (b"--B0UND\r\nContent-Disposition: form-data; name=\"V_PAGE\"\r\n\r\nupload.html\r\n"
                b"--B0UND\r\nContent-Disposition: form-data; name=\"title\"\r\n\r\nT\r\n"
                b"--B0UND\r\nContent-Disposition: form-data; name=\"file\"; filename=\"up.bin\"\r\n"
                b"Content-Type: application/octet-stream\r\n\r\n" + blob + b"\r\n--B0UND--\r\n")
        got = same_as_cgi(server, "multipart upload", method="POST", body=body,
                          ctype="multipart/form-data; boundary=B0UND",
                          norm=lambda b: re.sub(rb"\.\.\d+\.", b"..PID.", b))
        stored = re.search(rb"file=(\S+)", got)
        if stored:
            path = stored.group(1).decode().replace("..PID.", "..*.")
            for f in [os.path.join(tmp, n) for n in os.listdir(tmp) if n.startswith("up.bin..")]:
                with open(f, "rb") as fh:
                    check(fh.read() == blob, f"upload: stored file {f} differs ({path})")
        same_as_cgi(server, "shell and fork order", "V_PAGE=order.html")
        # the re-execution that binds the symbols leaves no trace in a request
        got = F.ask(sock, params("V_PAGE=bind.html"))[0]
        check(got.endswith(b"bind=none marker=none tunables=none\n"),
              f"LD_BIND_NOW or GLIBC_TUNABLES left set: {got!r}")

        # 2. records: padding of any length, management records, keep-conn
        with F.connect(sock) as s:
            p = F.pairs(params("V_PAGE=hello.html&who=pad").items())
            s.sendall(F.record(F.BEGIN, 7, struct.pack(">HB5x", 1, 0), padding=0)
                      + F.record(F.PARAMS, 7, p, padding=255) + F.record(F.PARAMS, 7, padding=3)
                      + F.record(F.STDIN, 7, padding=255))
            out, _, proto = F.answer(F.read_records(s))
            check(out.endswith(b"hello pad\n") and proto == 0, f"padding: {out!r}")
        with F.connect(sock) as s:
            s.sendall(F.record(F.GET_VALUES, 0, F.pairs(
                [("FCGI_MPXS_CONNS", ""), ("FCGI_MAX_CONNS", ""), ("NO_SUCH", "")]))
                + F.record(99, 0, b"x"))
            recs = F.read_records(s, until_end=False, count=2)
            check([r[:2] for r in recs] == [(F.GET_VALUES_RESULT, 0), (F.UNKNOWN_TYPE, 0)],
                  f"management records: {recs!r}")
            if len(recs) == 2:
                check(recs[0][2] == F.pairs([("FCGI_MPXS_CONNS", "0"), ("FCGI_MAX_CONNS", "8")])
                      or b"FCGI_MPXS_CONNS\x30" in recs[0][2] and b"NO_SUCH" not in recs[0][2],
                      f"get values: {recs[0][2]!r}")
                check(recs[1][2][0] == 99, f"unknown type: {recs[1][2]!r}")
        with F.connect(sock) as s:   # kept open for three requests
            for i, keep in enumerate((True, True, False)):
                s.sendall(F.request(i + 1, params(f"V_PAGE=hello.html&who=k{i}"), keep=keep))
                out, _, proto = F.answer(F.read_records(s))
                check(out.endswith(f"hello k{i}\n".encode()), f"keep-conn {i}: {out!r}")
            check(s.recv(10) == b"", "keep-conn: connection not closed after the last request")
        with F.connect(sock) as s:   # a second request on the connection is refused
            s.sendall(F.record(F.BEGIN, 1, struct.pack(">HB5x", 1, 0))
                      + F.record(F.BEGIN, 2, struct.pack(">HB5x", 1, 0))
                      + F.request(1, params("V_PAGE=hello.html&who=mpx"))[16:])
            # the refusal may share a read with the first request's output:
            # one reader keeps both
            recs = F.Reader(s).until(lambda r: r[0] == F.END and r[1] == 1)
            ends = {rid: c[4] for t, rid, c in recs if t == F.END}
            check(ends.get(2) == 1, f"multiplexing: second request not refused: {ends}")
            out = b"".join(c for t, rid, c in recs if t == F.STDOUT and rid == 1)
            check(out.endswith(b"hello mpx\n"), f"multiplexing: first request: {out!r}")
        with F.connect(sock) as s:
            s.sendall(F.record(F.BEGIN, 1, struct.pack(">HB5x", 2, 0)))
            _, _, proto = F.answer(F.read_records(s))
            check(proto == 3, f"authorizer role: protocol status {proto}")

        # 3. broken records: the connection goes, the server stays
        for name, data in [("bad version", F.record(F.BEGIN, 1, b"\0\1\0\0\0\0\0\0", version=2)),
                           ("truncated header", b"\1\1\0"),
                           ("truncated content", F.record(F.BEGIN, 1, b"\0\1\0\0\0\0\0\0")[:12]),
                           ("short begin", F.record(F.BEGIN, 1, b"\0\1"))]:
            with F.connect(sock) as s:
                s.sendall(data)
                s.shutdown(socket.SHUT_WR)
                check(F.read_records(s) == [], f"{name}: answered")
        past = F.length(100) + F.length(1) + b"SHORT"
        for name, stream in [("pair past its stream", past),
                             ("oversized params", F.pairs([("BIG", "x" * 140000)]))]:
            with F.connect(sock) as s:
                s.sendall(F.record(F.BEGIN, 1, struct.pack(">HB5x", 1, 0))
                          + F.stream(F.PARAMS, 1, stream) + F.stream(F.STDIN, 1, b""))
                out, _, proto = F.answer(F.read_records(s))
                check(out.startswith(b"Status: 400") and proto == 0, f"{name}: {out[:60]!r}")
        check("over 131072 bytes: refused" in log_text(), "oversized params: no log line")
        same_as_cgi(server, "after broken records", "V_PAGE=hello.html&who=still")

        # 4. a crash, a fault and a slow request side by side
        slow = in_thread(lambda: F.ask(sock, params("V_PAGE=slow.html")))
        time.sleep(0.2)
        crash = F.ask(sock, params("V_PAGE=crash.html"))
        divide = F.ask(sock, params("V_PAGE=divide.html"))
        hello = F.ask(sock, params("V_PAGE=hello.html&who=beside"))
        slow[0].join()
        check(slow[1]["v"][0].endswith(b"slow start\nslow done\n"), f"slow: {slow[1]['v']!r}")
        check(crash[0].endswith(b"before\n") and crash[1] == 128 + 6, f"crash: {crash!r}")
        check(divide[0].endswith(b"before\n") and divide[1] == 128 + 8, f"divide: {divide!r}")
        check(hello[0].endswith(b"hello beside\n"), f"beside: {hello!r}")
        check(re.search(r"crash\.html: ended by signal 6", log_text()), "crash: no log line")

        # 5. the time limit and an abort end a request, not the server
        start = time.time()
        out, app, _ = F.ask(sock, params("V_PAGE=runaway.html"))
        took = time.time() - start
        check(out.endswith(b"started\n") and TIMEOUT - 0.5 < took < TIMEOUT + 2,
              f"time limit: {out!r} after {took:.1f} s")
        check(f"runaway.html: time limit of {TIMEOUT} s reached" in log_text(),
              "time limit: no log line")
        with F.connect(sock) as s:
            s.sendall(F.request(1, params("V_PAGE=runaway.html")))
            time.sleep(0.3)
            start = time.time()
            s.sendall(F.record(F.ABORT, 1))
            _, _, proto = F.answer(F.read_records(s))
            check(proto == 0 and time.time() - start < 1.5, "abort: request not ended")

        # 6. v.env is read once, and again on SIGHUP
        check(F.ask(sock, params("V_PAGE=mark.html"))[0].endswith(b"mark=one\n"), "v.env: first")
        write_env("two")
        check(F.ask(sock, params("V_PAGE=mark.html"))[0].endswith(b"mark=one\n"),
              "v.env: read again without SIGHUP")
        server.proc.send_signal(signal.SIGHUP)
        # the connection processes are replaced one by one: wait for them
        for _ in range(30):
            time.sleep(0.1)
            got = F.ask(sock, params("V_PAGE=mark.html"))[0]
            if got.endswith(b"mark=two\n"):
                break
        check(got.endswith(b"mark=two\n"), f"SIGHUP: v.env not read again: {got!r}")
        check("v.env read again" in log_text(), "SIGHUP: no log line")

        # 7. SIGTERM: the request in flight finishes, then the server ends
        slow = in_thread(lambda: F.ask(sock, params("V_PAGE=slow.html")))
        time.sleep(0.3)
        server.proc.send_signal(signal.SIGTERM)
        time.sleep(0.3)
        # the server waits for the request in flight before it ends
        check(server.proc.poll() is None or slow[0].is_alive() is False,
              "SIGTERM: the server ended before the request in flight")
        slow[0].join()
        check(slow[1]["v"][0].endswith(b"slow done\n"), f"SIGTERM: {slow[1]['v']!r}")
        check(server.proc.wait(timeout=5) == 0, "SIGTERM: exit status")
        check(not os.path.exists(sock), "SIGTERM: socket left behind")
    finally:
        server.stop()

    # 8. the child limit holds the third of three slow requests back; the
    # socket an earlier server left at the path is replaced
    stale = socket.socket(socket.AF_UNIX)
    stale.bind(os.path.join(work, "stale.sock"))
    stale.close()
    server = Server("--children", "2", sock="stale.sock")
    try:
        start = time.time()
        runs = [in_thread(lambda: F.ask(server.sock, params("V_PAGE=slow.html"))) for _ in range(3)]
        for t, _ in runs:
            t.join()
        took = time.time() - start
        check(all(r["v"][0].endswith(b"slow done\n") for _, r in runs), "child limit: answers")
        check(took >= 1.9, f"child limit: three slow requests took {took:.1f} s")
    finally:
        server.stop()

    # 9. a query string that a web server passes as arguments never starts a server
    env = dict(BASE_ENV, REQUEST_METHOD="GET", GATEWAY_INTERFACE="CGI/1.1",
               QUERY_STRING="--fastcgi+" + os.path.join(work, "evil.sock"))
    run = subprocess.run([VORN, "--fastcgi", os.path.join(work, "evil.sock")], env=env,
                         capture_output=True, timeout=30)
    check(not os.path.exists(os.path.join(work, "evil.sock")) and b"Content-Type" in run.stdout,
          f"CGI run with --fastcgi: {run.stdout[:80]!r}")

    # 10. a listening socket handed over on descriptor 0
    server = Server(handover=True,
                    env=dict(BASE_ENV, LD_BIND_NOW="1", GLIBC_TUNABLES="glibc.malloc.perturb=0"))
    try:
        same_as_cgi(server, "handed-over socket", "V_PAGE=hello.html&who=fd0")
        got = F.ask(server.sock, params("V_PAGE=bind.html"))[0]
        check(got.endswith(b"bind=1 marker=none tunables=glibc.malloc.perturb=0\n"),
              f"the caller's LD_BIND_NOW or GLIBC_TUNABLES lost: {got!r}")
    finally:
        server.stop()

    # 11. command lines refused before any request: the usage or the
    # reason on stderr, and the exit status
    taken = os.path.join(work, "taken")
    with open(taken, "w") as f:
        f.write("kept\n")
    busy = socket.socket()
    busy.bind(("127.0.0.1", 0))
    busy.listen(1)
    busy_address = "127.0.0.1:%d" % busy.getsockname()[1]
    usage = "Usage: vorn --fastcgi [ADDRESS]"
    try:
        for args, status, message in [
                (["--children", "0"], 2, usage), (["--children", "1025"], 2, usage),
                (["--children", "2x"], 2, usage), (["--children"], 2, usage),
                (["--timeout", "0"], 2, usage), (["--timeout", "2147484"], 2, usage),
                (["--verbose"], 2, usage), (["/tmp/a.sock", "/tmp/b.sock"], 2, usage),
                ([], 2, "needs an ADDRESS or a listening socket on descriptor 0"),
                ([os.path.join(work, "x" * 120)], 1, "socket path too long"),
                ([taken], 1, f"{taken} exists and is no socket"),
                ([os.path.join(work, "no", "dir.sock")], 1, "cannot listen on"),
                (["nocolon"], 1, "neither HOST:PORT nor a socket path"),
                ([":9000"], 1, "neither HOST:PORT"), (["127.0.0.1:"], 1, "neither HOST:PORT"),
                (["localhost:9000"], 1, "not a numeric HOST:PORT"),
                (["127.0.0.1:fcgi"], 1, "not a numeric HOST:PORT"),
                (["127.0.0.1:65536"], 1, "not a numeric HOST:PORT"),
                (["127.0.0.1:-1"], 1, "not a numeric HOST:PORT"),
                (["[nohost]:9000"], 1, "not a numeric HOST:PORT"),
                ([busy_address], 1, "cannot listen on " + busy_address)]:
            # in a session of its own: should it serve after all, it goes
            # with every process it started
            proc = subprocess.Popen([VORN, "--fastcgi"] + args, env=BASE_ENV,
                                    stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                                    stderr=subprocess.PIPE, start_new_session=True)
            try:
                _, err = proc.communicate(timeout=30)
            except subprocess.TimeoutExpired:
                os.killpg(proc.pid, signal.SIGKILL)
                _, err = proc.communicate()
            err = err.decode("latin-1")
            check(proc.returncode == status and message in err,
                  f"command line {args}: status {proc.returncode}, {err!r}")
    finally:
        busy.close()
    with open(taken) as f:
        check(f.read() == "kept\n", "a file at the socket path was changed")

    # 12. one connection process on HOST:PORT, so that every event below
    # meets the same process, and a plain request after each shows that it
    # still serves
    probe = socket.socket()
    probe.bind(("127.0.0.1", 0))
    address = "127.0.0.1:%d" % probe.getsockname()[1]
    probe.close()
    server = Server("--children", "1", "--timeout", "4", sock=address)
    go, pidfile = os.path.join(work, "go"), os.path.join(work, "wait.pid")

    def still_serves(what):
        got = F.ask(address, params("V_PAGE=hello.html&who=" + what))[0]
        check(got.endswith(f"hello {what}\n".encode()), f"{what}: next request: {got!r}")

    def start_waiting(s, keep=False):
        """wait.html started on S: its process id, and the reader"""
        if os.path.exists(go):
            os.unlink(go)
        s.sendall(F.request(1, params("V_PAGE=wait.html"), keep=keep))
        reader, out = F.Reader(s), b""
        while b"started" not in out:
            rec = reader.next()
            if rec is None or rec[0] == F.END:
                check(False, f"wait.html: ended before it started: {out!r}")
                return None, reader
            out += rec[2] if rec[0] == F.STDOUT else b""
        with open(pidfile) as f:
            return int(f.read()), reader

    def ended(pid):
        for _ in range(400):
            try:
                os.kill(pid, 0)
            except ProcessLookupError:
                return True
            time.sleep(0.05)
        return False

    try:
        same_as_cgi(server, "HOST:PORT", "V_PAGE=hello.html&who=tcp")

        # records that come while a request runs
        with F.connect(address) as s:
            pid, reader = start_waiting(s, keep=True)
            s.sendall(F.record(F.GET_VALUES, 0, F.pairs([("FCGI_MAX_REQS", "")]))
                      + F.record(F.BEGIN, 2, struct.pack(">HB5x", 1, 0))
                      + F.record(F.ABORT, 3) + F.record(F.STDIN, 1, b"late body")
                      + F.record(99, 0))
            recs = [reader.next() for _ in range(3)]
            check(recs == [(F.GET_VALUES_RESULT, 0, F.pairs([("FCGI_MAX_REQS", "1")])),
                           (F.END, 2, struct.pack(">IB3x", 0, 1)),
                           (F.UNKNOWN_TYPE, 0, bytes([99]) + bytes(7))],
                  f"records during a request: {recs!r}")
            open(go, "w").close()
            out, app, proto = F.answer(reader.until(lambda r: r[0] == F.END))
            check(out.endswith(b"released\n") and (app, proto) == (0, 0),
                  f"request beside those records: {out!r} {app} {proto}")
            # the kept connection takes the next request
            s.sendall(F.request(4, params("V_PAGE=hello.html&who=again")))
            out, _, proto = F.answer(reader.until(lambda r: r[0] == F.END))
            check(out.endswith(b"hello again\n") and proto == 0, f"kept connection: {out!r}")
        still_serves("records")

        # the client goes, or breaks the stream: the request ends with it
        for name, last in [("client gone", None), ("broken record", F.record(F.STDIN, 1, version=9))]:
            with F.connect(address) as s:
                pid, reader = start_waiting(s)
                if last is None:
                    s.close()
                else:
                    s.sendall(last)
                    rest = reader.until(lambda r: False)
                    check(rest == [], f"{name}: answered {rest!r}")
            check(pid is None or ended(pid), f"{name}: request process {pid} still runs")
            still_serves(name.replace(" ", "-"))
        check("record of an unknown version: connection closed" in log_text(),
              "broken record: no log line")

        # a client that stops reading a long answer and goes: the relay
        # blocked on it fails, and the request ends
        with F.connect(address) as s:
            s.sendall(F.request(1, params("V_PAGE=flood.html")))
            reader = F.Reader(s)
            while (rec := reader.next()) is not None and b"flood" not in rec[2]:
                pass
            with open(os.path.join(work, "flood.pid")) as f:
                pid = int(f.read())
        check(ended(pid), f"flood: request process {pid} still runs")
        still_serves("flood")

        # records before the request runs: an abort, a second PARAMS stream,
        # another role, records of no request
        with F.connect(address) as s:
            reader = F.Reader(s)
            begin = F.record(F.BEGIN, 5, struct.pack(">HB5x", 1, 1))
            s.sendall(begin + F.record(F.PARAMS, 5, F.pairs([("QUERY_STRING", "V_PAGE=x")]))
                      + F.record(F.ABORT, 5))
            check(reader.next() == (F.END, 5, struct.pack(">IB3x", 0, 0)), "abort before the run")
            s.sendall(F.record(F.BEGIN, 6, struct.pack(">HB5x", 3, 1)))
            check(reader.next() == (F.END, 6, struct.pack(">IB3x", 0, 3)), "filter role refused")
            p = F.pairs(params("V_PAGE=hello.html&who=first").items())
            s.sendall(F.record(F.STDIN, 9, b"stray") + F.record(F.BEGIN, 7, struct.pack(">HB5x", 1, 0))
                      + F.stream(F.PARAMS, 7, p) + F.record(F.PARAMS, 7, F.pairs([("QUERY_STRING", "who=late")]))
                      + F.record(8, 7, b"data") + F.stream(F.STDIN, 7, b""))
            out, _, proto = F.answer(reader.until(lambda r: r[0] == F.END))
            check(out.endswith(b"hello first\n") and proto == 0, f"late PARAMS: {out!r}")
            check(reader.next() is None, "connection kept without FCGI_KEEP_CONN")
        with F.connect(address) as s:
            s.sendall(F.record(F.BEGIN, 8, struct.pack(">HB5x", 1, 0)) + F.record(F.ABORT, 8))
            recs = F.read_records(s, until_end=False)
            check(recs == [(F.END, 8, struct.pack(">IB3x", 0, 0))], f"abort, no keep: {recs!r}")
        still_serves("aborts")
    finally:
        server.stop()


try:
    main()
finally:
    if failures:
        print("--- server log\n" + log_text())
    shutil.rmtree(work, ignore_errors=True)
print(f"fastcgi protocol: {len(failures)} failures")
sys.exit(1 if failures else 0)
