"""A small FastCGI client for the tests: builds records byte by byte (so a
test can also send broken ones) and reads a server's answer."""
import socket
import struct

BEGIN, ABORT, END, PARAMS, STDIN, STDOUT, STDERR = 1, 2, 3, 4, 5, 6, 7
GET_VALUES, GET_VALUES_RESULT, UNKNOWN_TYPE = 9, 10, 11


def record(rtype, rid, content=b"", padding=None, version=1):
    pad = (8 - len(content) % 8) % 8 if padding is None else padding
    return struct.pack(">BBHHBB", version, rtype, rid, len(content), pad, 0) + content + b"\0" * pad


def length(n):
    return bytes([n]) if n < 128 else struct.pack(">I", n | 0x80000000)


def pairs(items):
    out = b""
    for name, value in items:
        name = name.encode("latin-1") if isinstance(name, str) else name
        value = value.encode("latin-1") if isinstance(value, str) else value
        out += length(len(name)) + length(len(value)) + name + value
    return out


def stream(rtype, rid, data, chunk=65535):
    out = b""
    for i in range(0, len(data), chunk):
        out += record(rtype, rid, data[i:i + chunk])
    return out + record(rtype, rid)


def request(rid, params, body=b"", keep=False):
    return (record(BEGIN, rid, struct.pack(">HB5x", 1, 1 if keep else 0))
            + stream(PARAMS, rid, pairs(params.items())) + stream(STDIN, rid, body))


def connect(address, timeout=30):
    if address.startswith("/"):
        s = socket.socket(socket.AF_UNIX)
        s.settimeout(timeout)
        s.connect(address)
    else:
        host, port = address.rsplit(":", 1)
        s = socket.create_connection((host, int(port)), timeout=timeout)
    return s


class Reader:
    """Records from a socket one at a time: the bytes read past a record
    stay for the next one."""

    def __init__(self, sock):
        self.sock, self.buf = sock, b""

    def next(self):
        """(type, id, content), or None at the end of the stream"""
        while True:
            if len(self.buf) >= 8:
                _, rtype, rid, clen, plen, _ = struct.unpack(">BBHHBB", self.buf[:8])
                if len(self.buf) >= 8 + clen + plen:
                    rec = (rtype, rid, self.buf[8:8 + clen])
                    self.buf = self.buf[8 + clen + plen:]
                    return rec
            data = self.sock.recv(65536)
            if not data:
                return None
            self.buf += data

    def until(self, done):
        """Records up to the first one DONE accepts, or to the end of the stream."""
        out = []
        while (rec := self.next()) is not None:
            out.append(rec)
            if done(rec):
                break
        return out


def read_records(sock, until_end=True, count=None):
    """Records until an END_REQUEST, COUNT records or the end of the
    stream: list of (type, id, content)."""
    reader, out = Reader(sock), []
    while count is None or len(out) < count:
        rec = reader.next()
        if rec is None:
            break
        out.append(rec)
        if until_end and rec[0] == END:
            break
    return out


def answer(records):
    """(stdout bytes, app status or None, protocol status or None)"""
    out = b"".join(c for t, _, c in records if t == STDOUT)
    ends = [c for t, _, c in records if t == END]
    if not ends:
        return out, None, None
    app, proto = struct.unpack(">IB3x", ends[0])
    return out, app, proto


def ask(address, params, body=b"", timeout=30):
    with connect(address, timeout) as s:
        s.sendall(request(1, params, body))
        return answer(read_records(s))
