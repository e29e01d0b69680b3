"""A server for the tests of "zkq http", on a free port of the loopback interface, which it prints.

GET  /hello /empty /binary   bodies; /binary holds every byte
     /named /chinese /climbing /unnamed-empty   with a name for the file, a good one or not
     /moved /missing         a redirect to /hello; 404
     /slow                   half a megabyte within two seconds
     /short                  less than was announced
     /silent                 no answer until the client gives up
POST /echo                   the request's content type, a line feed, and its body
"""
import http.server
import time

BODIES = {"/hello": b"hello\n", "/empty": b"", "/binary": bytes(range(256)) * 100, "/unnamed-empty": b""}
NAMES = {"/named": "report.txt", "/chinese": "\u62a5\u544a.txt", "/climbing": "../climbed.txt"}


class Handler(http.server.BaseHTTPRequestHandler):
    def answer(self, body, code=200, headers=()):
        self.send_response(code)
        for name, value in headers:
            self.send_header(name, value)
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def do_GET(self):
        port = self.server.server_address[1]
        if self.path in BODIES:
            self.answer(BODIES[self.path])
        elif self.path in NAMES:
            # http.server writes headers in Latin-1: these bytes are UTF-8
            name = NAMES[self.path].encode().decode("latin-1")
            self.answer(b"a file\n", headers=[("Content-Type", "text/plain; charset=utf-8"),
                                              ("Content-Disposition", "attachment; filename=" + name)])
        elif self.path == "/moved":
            self.answer(b"", 302, [("Location", "http://127.0.0.1:%d/hello" % port)])
        elif self.path == "/slow":
            self.send_response(200)
            self.send_header("Content-Length", "500000")
            self.end_headers()
            for _ in range(10):
                self.wfile.write(b"s" * 50000)
                time.sleep(0.2)
        elif self.path == "/short":
            self.send_response(200)
            self.send_header("Content-Length", "100")
            self.end_headers()
            self.wfile.write(b"short")
        elif self.path == "/silent":
            self.connection.recv(1)
        else:
            self.answer(b"no such page", 404)

    def do_POST(self):
        body = self.rfile.read(int(self.headers["Content-Length"]))
        self.answer(self.headers.get("Content-Type", "").encode() + b"\n" + body)


server = http.server.ThreadingHTTPServer(("127.0.0.1", 0), Handler)
server.daemon_threads = True
print("port", server.server_address[1], flush=True)
server.serve_forever()
