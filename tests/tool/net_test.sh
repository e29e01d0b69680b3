#!/usr/bin/env bash
# shellcheck source-path=SCRIPTDIR source=support.sh
source "$(dirname "$0")/support.sh"
require_program python3

# The server and the client, with each other.
start_server "$ZKQ" net serve --port 0
echo hello >hello
head -c 5000000 /dev/urandom >large
for host in 127.0.0.1 localhost; do
    status=0
    timeout 20 "$ZKQ" net connect "$host" "$port" <hello >out 2>err || status=$?
    expect_output hello
done
status=0
timeout 20 "$ZKQ" net connect 127.0.0.1 "$port" <large >back 2>err || status=$?
expect_equal "$status$(cat err)" 0
cmp large back
run net connect 127.0.0.1 "$port" --timeout 5
expect_silence
wait_until grep -q 'closed, 5000000 bytes sent back' server.out
# Closed standard streams are not taken for the connection.
status=0
timeout 20 "$ZKQ" net connect 127.0.0.1 "$port" <&- >out 2>err || status=$?
expect_silence
status=0
timeout 20 "$ZKQ" net connect 127.0.0.1 "$port" <hello >&- 2>err || status=$?
expect_equal "$status$(cat err)" '1zkq: cannot write to standard output: Bad file descriptor'
# A reader that has seen enough ends the client quietly, and the server lives on.
timeout 20 "$ZKQ" net connect 127.0.0.1 "$port" <large 2>err | head -c 1 >out || true
cmp -n 1 out large
expect_equal "$(cat err)" ''
run net serve --port "$port"
expect_failure "cannot listen on 127.0.0.1 port $port: Address already in use"

# Other clients: many at once, and curl.
python3 - "$port" <<'CHECK' || fail 'a client of Python was not served'
import socket, sys
clients = [socket.create_connection(("127.0.0.1", int(sys.argv[1])), 20) for _ in range(20)]
for i, client in enumerate(clients):
    client.sendall(b"%d" % i * 1000)
for i, client in reversed(list(enumerate(clients))):
    client.shutdown(socket.SHUT_WR)
    with client.makefile("rb") as answer:
        assert answer.read() == b"%d" % i * 1000
CHECK
if command -v curl >/dev/null; then
    mkfifo typed
    curl -sS --max-time 20 -N "telnet://127.0.0.1:$port" <typed >out 2>err &
    client=$!
    exec 9>typed
    echo 'hello from curl' >&9
    wait_until grep -qx 'hello from curl' out
    exec 9>&-
    kill "$client" # it waits for the server to close
    wait "$client" || true
else
    echo "no curl here: it is not tested as a client"
fi

# So many connections, and no more.
start_server "$ZKQ" net serve --host '' --port 0 --count 2
for i in 1 2; do
    timeout 20 "$ZKQ" net connect 127.0.0.1 "$port" <hello >out
    cmp hello out
done
wait "$server"
expect_equal "$(sed -E 's/port [0-9]+/port N/' server.out)" "listening on 0.0.0.0 port N
127.0.0.1 port N: connected
127.0.0.1 port N: closed, 6 bytes sent back
127.0.0.1 port N: connected
127.0.0.1 port N: closed, 6 bytes sent back"
run net connect 127.0.0.1 "$port"
expect_failure "cannot connect to 127.0.0.1 port $port: Connection refused"

# IPv6.
if python3 -c 'import socket; socket.socket(socket.AF_INET6).bind(("::1", 0))' 2>/dev/null; then
    start_server "$ZKQ" net serve --host ::1 --port 0 --count 1
    timeout 20 "$ZKQ" net connect ::1 "$port" <hello >out
    cmp hello out
    wait "$server"
    grep -qE '^::1 port [0-9]+: connected$' server.out || fail 'the peer is not told'
else
    echo "no IPv6 here: not tested over it"
fi

# The client with another server: what it sends arrives, its end is seen, and what comes after that is shown.
cat >server.py <<'END'
import socket, struct, sys
with socket.create_server(("127.0.0.1", 0)) as server:
    print("port", server.getsockname()[1], flush=True)
    peer = server.accept()[0]
    with peer.makefile("rb") as stream:
        got = stream.read()
    peer.sendall(b"%d bytes\n" % len(got))
    peer.close()
    peer = server.accept()[0]
    peer.recv(1)
    peer.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0)) # a reset instead of an end
    peer.close()
END
start_server python3 server.py
status=0
timeout 20 "$ZKQ" net connect 127.0.0.1 "$port" <large >out 2>err || status=$?
expect_output '5000000 bytes'
status=0
timeout 20 "$ZKQ" net connect 127.0.0.1 "$port" <hello >out 2>err || status=$?
expect_failure 'cannot receive: Connection reset by peer'

# Addresses, in a network whose addresses are known.
if unshare -num true 2>/dev/null && command -v ip >/dev/null; then
    # shellcheck disable=SC2016
    unshare -num bash -ec '
        hostname localhost
        ip link set lo up
        ip link add n0 address 02:42:ac:11:00:02 type veth peer name n1
        ip link set addrgenmode none dev n0
        ip addr add 192.0.2.7/25 dev n0
        ip addr add 2001:db8::7/64 nodad dev n0
        status=0
        "$ZKQ" net addr >out 2>err
        "$ZKQ" net addr >/dev/full 2>full || status=$?
        [ $status = 1 ]
        printf "192.0.2.7 beta\n2001:db8::7 beta\n" >hosts
        mount --bind hosts /etc/hosts
        "$ZKQ" net lookup beta >lookup
        "$ZKQ" net lookup --reverse 192.0.2.7 >>lookup
        "$ZKQ" net lookup --reverse 2001:db8::7 >>lookup
        "$ZKQ" net lookup 192.0.2.9 >>lookup
        "$ZKQ" net lookup ::5 >>lookup
        ! "$ZKQ" net lookup --reverse 192.0.2.9 2>>lookup
        ! "$ZKQ" net lookup gamma 2>unknown' || fail 'no addresses'
    expect_file lookup $'192.0.2.7\n2001:db8::7\nbeta\nbeta\n192.0.2.9\n::5\nzkq: cannot find a name of 192.0.2.9: Nobody knows one'
    grep -q '^zkq: cannot find gamma: ' unknown || fail 'a host that is none'
    expect_equal "$(cat err)" ''
    expect_equal "$(cat full)" 'zkq: cannot write to standard output: No space left on device'
    expect_equal "$(head -n 1 out | xargs)" 'DEVICE MAC IPV4 MASK IPV6'
    expect_equal "$(grep '^n0 ' out | xargs)" 'n0 0242-AC11-0002 192.0.2.7 255.255.255.128 2001:db8::7'
    expect_equal "$(grep '^n1 ' out | awk '{print $3, $4, $5}')" '- - -'
    grep -qE '^lo +0000-0000-0000 +127\.0\.0\.1 +255\.0\.0\.0 ' out || fail 'no loopback device'
    tail -n 1 out | grep -qE '^host localhost: (127\.0\.0\.1|::1)' || fail 'no address of the host'
else
    echo "no namespaces here: addresses are not tested"
fi

# Wrong usage.
run net lookup ''
expect_usage 'is empty'
run net
expect_usage 'subcommand is required'
run net serve
expect_usage '--port is required'
run net serve --port 65536
expect_usage --port
run net serve --port 0 --count -1
expect_usage --count
run net connect 127.0.0.1
expect_usage 'PORT is required'
run net connect 127.0.0.1 0
expect_usage PORT
run net serve --host 203.0.113.77 --port 0 # another machine's
expect_failure 'cannot listen on 203.0.113.77 port 0: Cannot assign requested address'
