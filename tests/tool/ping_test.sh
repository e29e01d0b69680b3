#!/usr/bin/env bash
# shellcheck source-path=SCRIPTDIR source=support.sh
source "$(dirname "$0")/support.sh"

# Without a ping being sent.
run ping ::2 # taken for IPv4
expect_failure 'cannot find ::2: Invalid argument'
run ping
expect_usage 'HOST is required'
for wrong in '--size -1' '--size 65501' '--count 0' '--count x' '--timeout 0'; do
    # shellcheck disable=SC2086
    run ping 127.0.0.1 $wrong
    expect_usage "${wrong%% *}"
done

# Raw sockets are not for everybody.
run ping 127.0.0.1 --count 1
if [[ $(cat err) == 'zkq: cannot ping 127.0.0.1: Operation not permitted' ]]; then
    expect_equal "$status$(cat out)" 1
    echo "no right to open raw sockets here: pings are not tested"
    exit 77
fi
if command -v setpriv >/dev/null && setpriv --bounding-set=-net_raw --inh-caps=-net_raw true 2>/dev/null; then
    status=0
    setpriv --bounding-set=-net_raw --inh-caps=-net_raw "$ZKQ" ping 127.0.0.1 >out 2>err || status=$?
    expect_failure 'cannot ping 127.0.0.1: Operation not permitted'
else
    echo "no setpriv here: a ping without the right to it is not tested"
fi

# Times are as long as they are.
without_times() {
    sed -E 's/time [0-9]+ ms/time T ms/; s/times from [0-9]+ to [0-9]+ ms/times T/' out
}
run ping 127.0.0.1 --count 2
expect_equal "$status$(cat err)" 0
expect_equal "$(without_times)" '127.0.0.1: 56 bytes, time T ms, ttl 64
127.0.0.1: 56 bytes, time T ms, ttl 64
2 sent, 2 received, times T'
run ping localhost --count 1 --size 0
expect_equal "$status" 0
grep -qE '^(127\.0\.0\.1|::1): 0 bytes, time ' out || fail 'no reply of the local host'
run ping 127.0.0.1 --count 1 --size 1000 --timeout 1
expect_equal "$(without_times)" '127.0.0.1: 1000 bytes, time T ms, ttl 64
1 sent, 1 received, times T'
if [[ -e /proc/net/if_inet6 ]] && grep -qw lo /proc/net/if_inet6; then
    run ping ::1 --count 1
    expect_equal "$(without_times)" '::1: 56 bytes, time T ms
1 sent, 1 received, times T'
else
    echo "no IPv6 here: a ping over it is not tested"
fi
status=0
"$ZKQ" ping 127.0.0.1 --count 1 >/dev/full 2>err || status=$?
expect_equal "$status$(cat err)" '1zkq: cannot write to standard output: No space left on device'

# A network without other hosts.
if unshare -n true 2>/dev/null; then
    status=0
    unshare -n "$ZKQ" ping 192.0.2.9 --count 2 --timeout 1 >out 2>err || status=$?
    expect_equal "$status$(cat err)" '1zkq: 192.0.2.9: No reply'
    expect_equal "$(cat out)" '192.0.2.9: no reply within 1 s
192.0.2.9: no reply within 1 s
2 sent, 0 received'
else
    echo "no network namespaces here: a host that does not reply is not tested"
fi
