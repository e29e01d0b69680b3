#!/usr/bin/env python3
"""The other end of the agent's "collector": takes cabinets that are posted to it as Base64 texts.

    collector.py DIRECTORY

Each cabinet becomes a file of the directory, 1.cab and so on. The answer tells its size and MD5 digest:
{"stored": 1234, "md5": "900150983cd24fb0d6963f7d28e17f72"}. It listens on a free port of the loopback interface, and the
first line that it prints is the URL to post to.
"""
import base64
import binascii
import hashlib
import http.server
import json
import pathlib
import sys


class Collector(http.server.BaseHTTPRequestHandler):
    def do_POST(self):
        try:
            text = self.rfile.read(int(self.headers["Content-Length"]))
            cabinet = base64.b64decode(text, validate=True)
        except (TypeError, ValueError, binascii.Error) as error:
            self.send_error(400, "Not a Base64 text: %s" % error)
            return
        self.server.count += 1
        (self.server.directory / ("%d.cab" % self.server.count)).write_bytes(cabinet)
        answer = json.dumps({"stored": len(cabinet), "md5": hashlib.md5(cabinet).hexdigest()}).encode()
        self.send_response(200)
        self.send_header("Content-Type", "application/json")
        self.send_header("Content-Length", str(len(answer)))
        self.end_headers()
        self.wfile.write(answer)

    def log_message(self, *args):
        pass


if len(sys.argv) != 2:
    sys.exit("usage: collector.py DIRECTORY")
server = http.server.HTTPServer(("127.0.0.1", 0), Collector)
server.directory = pathlib.Path(sys.argv[1])
server.count = 0
print("http://127.0.0.1:%d/cabinets" % server.server_port, flush=True)
server.serve_forever()
