#!/usr/bin/env bash
# The network families against programs that everybody trusts: Python's http.server and nginx as servers, curl as client.
# All on the loopback interface. What is not installed is left out.
set -euo pipefail
peer=$1
work=$(mktemp -d "${TMPDIR:-/tmp}/zkq-network.XXXXXX")
pids=()
finish() {
    for pid in "${pids[@]}"; do
        kill "$pid" 2>/dev/null || true
        wait "$pid" 2>/dev/null || true
    done
    rm -rf "$work"
}
trap finish EXIT
judges=0

# fails COMMAND...: it must end with 1 and say why
fails() {
    local status=0
    "$@" 2>"$work/reason" || status=$?
    if [ "$status" -ne 1 ] || [ ! -s "$work/reason" ]; then
        echo "network: not refused: $*" >&2
        exit 1
    fi
}

# wait_for FILE: until it has a line
wait_for() {
    for _ in $(seq 200); do
        if [ -s "$1" ]; then return; fi
        sleep 0.05
    done
    echo "network: nothing came into $1" >&2
    exit 1
}

mkdir -p "$work/www/sub" "$work/out"
chmod -R a+rx "$work"
head -c 3000000 /dev/urandom >"$work/www/large"
echo "hello" >"$work/www/index.html"
: >"$work/www/empty"

# fetch_all URL: what every static server gives
fetch_all() {
    "$peer" fetch "$1/large" "$work/out/large"
    cmp "$work/www/large" "$work/out/large"
    "$peer" fetch "$1/" "$work/out/index"
    cmp "$work/www/index.html" "$work/out/index"
    "$peer" fetch "$1/empty" "$work/out/empty"
    [ ! -e "$work/out/empty" ]
    fails "$peer" fetch "$1/missing" "$work/out/missing"
    [ ! -e "$work/out/missing" ]
}

if command -v python3 >/dev/null; then
    python3 -u -m http.server --bind 127.0.0.1 --directory "$work/www" 0 >"$work/python" 2>/dev/null &
    pids+=($!)
    wait_for "$work/python"
    port=$(grep -oP 'port \K\d+' "$work/python")
    fetch_all "http://127.0.0.1:$port"
    # A directory without "/" at its end redirects to one with it, by a path alone: that is no host.
    fails "$peer" fetch "http://127.0.0.1:$port/sub" "$work/out/sub"
    fails "$peer" fetch "http://127.0.0.1:$port/" "$work/out/post" "data"
    judges=$((judges + 1))
    echo "network: http.server agrees"

    cat >"$work/server.py" <<'PYTHON'
import http.server, sys
class Handler(http.server.BaseHTTPRequestHandler):
    protocol_version = "HTTP/1.1"
    def do_POST(self):
        body = self.rfile.read(int(self.headers["Content-Length"]))
        text = (self.headers["Content-Type"] + "\n").encode() + body
        self.send_response(200)
        self.send_header("Content-Disposition", 'attachment; filename="answer.txt"')
        self.send_header("Transfer-Encoding", "chunked")
        self.end_headers()
        for at in range(0, len(text), 7):
            piece = text[at:at + 7]
            self.wfile.write(b"%x\r\n%s\r\n" % (len(piece), piece))
        self.wfile.write(b"0\r\n\r\n")
    def log_message(self, *_): pass
server = http.server.HTTPServer(("127.0.0.1", 0), Handler)
print(server.server_port, flush=True)
server.serve_forever()
PYTHON
    python3 "$work/server.py" >"$work/post" &
    pids+=($!)
    wait_for "$work/post"
    name=$("$peer" fetch "http://127.0.0.1:$(cat "$work/post")/" "$work/out/" "a=1&b=2")
    [ "$name" = answer.txt ]
    diff "$work/out/answer.txt" <(printf 'application/x-www-form-urlencoded\na=1&b=2')
    judges=$((judges + 1))
    echo "network: a server in Python agrees"
fi

nginx=$(PATH=$PATH:/usr/sbin command -v nginx || true)
if [ -n "$nginx" ] && command -v python3 >/dev/null; then
    port=$(python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])')
    cat >"$work/nginx.conf" <<CONF
$([ "$(id -u)" -ne 0 ] || echo "user root;")
worker_processes 1;
daemon off;
pid $work/nginx.pid;
error_log $work/error.log;
events {}
http {
    access_log off;
    default_type text/html;
    client_body_temp_path $work/body;
    proxy_temp_path $work/proxy;
    fastcgi_temp_path $work/fastcgi;
    uwsgi_temp_path $work/uwsgi;
    scgi_temp_path $work/scgi;
    server {
        listen 127.0.0.1:$port;
        root $work/www;
        location / {}
        location /chunked { alias $work/www/index.html; ssi on; }
        location /chunked-large { alias $work/www/large; ssi on; }
        location /moved { return 301 http://127.0.0.1:$port/large; }
        location /ring { return 302 http://127.0.0.1:$port/ring; }
        location /nowhere { return 304; }
        location /named { alias $work/www/index.html; add_header Content-Disposition 'attachment; filename="named.html"'; }
        location /outside { alias $work/www/index.html; add_header Content-Disposition 'attachment; filename="../evil"'; }
    }
}
CONF
    "$nginx" -p "$work" -c "$work/nginx.conf" 2>/dev/null &
    pids+=($!)
    wait_for "$work/nginx.pid"
    base=http://127.0.0.1:$port
    fetch_all "$base"
    "$peer" fetch "$base/chunked" "$work/out/chunked"
    cmp "$work/www/index.html" "$work/out/chunked"
    "$peer" fetch "$base/chunked-large" "$work/out/chunked-large"
    cmp "$work/www/large" "$work/out/chunked-large"
    if command -v curl >/dev/null; then
        curl -sS --noproxy '*' -D "$work/head" -o /dev/null "$base/chunked"
        grep -qi '^transfer-encoding: chunked' "$work/head" # it was what it was meant to be
    fi
    "$peer" fetch "$base/moved" "$work/out/moved"
    cmp "$work/www/large" "$work/out/moved"
    fails "$peer" fetch "$base/ring" "$work/out/ring"
    fails "$peer" fetch "$base/nowhere" "$work/out/nowhere"
    [ "$("$peer" fetch "$base/named" "$work/out/")" = named.html ]
    cmp "$work/www/index.html" "$work/out/named.html"
    fails "$peer" fetch "$base/outside" "$work/out/"
    fails "$peer" fetch "$base/" "$work/out/"
    [ ! -e "$work/evil" ]
    judges=$((judges + 1))
    echo "network: nginx agrees"
fi

if command -v curl >/dev/null; then
    for host in 127.0.0.1 ::1; do
        : >"$work/port"
        "$peer" serve "$host" 3 >"$work/port" 2>"$work/reason" &
        pids+=($!)
        if [ "$host" = ::1 ] && ! grep -q . /proc/net/if_inet6 2>/dev/null; then continue; fi
        wait_for "$work/port"
        if [ "$host" = ::1 ]; then name="[::1]"; else name=$host; fi
        for path in /one /two /three; do
            curl -sS --noproxy '*' -A judge -o "$work/echo" "http://$name:$(cat "$work/port")$path"
            diff "$work/echo" <(printf 'GET %s HTTP/1.1\r\nHost: %s:%s\r\nUser-Agent: judge\r\nAccept: */*\r\n\r\n' \
                "$path" "$name" "$(cat "$work/port")")
        done
        wait "${pids[-1]}"
        unset 'pids[-1]'
    done
    judges=$((judges + 1))
    echo "network: curl agrees"
fi

[ "$judges" -gt 0 ] || exit 77
