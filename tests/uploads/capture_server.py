#!/usr/bin/env python3
"""Records the raw bodies that a real HTTP client sends: each POST is
stored as N.body with its Content-Type in N.type under the given directory.
Listens on 127.0.0.1 on an ephemeral port, written to DIR/port; serves at
most the given number of requests, then exits."""
import http.server
import os
import sys

out_dir, limit = sys.argv[1], int(sys.argv[2])
count = 0


class Capture(http.server.BaseHTTPRequestHandler):
    def do_POST(self):
        global count
        length = int(self.headers.get('Content-Length', '0'))
        body = self.rfile.read(length)
        with open(os.path.join(out_dir, '%d.body' % count), 'wb') as f:
            f.write(body)
        with open(os.path.join(out_dir, '%d.type' % count), 'w') as f:
            f.write(self.headers.get('Content-Type', ''))
        count += 1
        self.send_response(200)
        self.send_header('Content-Length', '0')
        self.end_headers()

    def log_message(self, *args):
        pass


server = http.server.HTTPServer(('127.0.0.1', 0), Capture)
server.timeout = 60
with open(os.path.join(out_dir, 'port.tmp'), 'w') as f:
    f.write(str(server.server_port))
os.rename(os.path.join(out_dir, 'port.tmp'), os.path.join(out_dir, 'port'))
while count < limit:
    server.handle_request()
