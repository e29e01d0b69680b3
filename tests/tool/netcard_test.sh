#!/usr/bin/env bash
# shellcheck source-path=SCRIPTDIR source=support.sh
source "$(dirname "$0")/support.sh"

# Wrong usage.
run net bridge
expect_usage 'subcommand is required'
run net route
expect_usage 'subcommand is required'
run net bridge add
expect_usage 'NAME is required'
run net bridge stp br0
expect_usage 'STATE is required'
run net bridge stp br0 maybe
expect_usage STATE
run net set lo 192.0.2.1
expect_usage 'MASK is required'
run net route set lo
expect_usage 'GATEWAY is required'
run net up
expect_usage 'NAME is required'

# Names that are refused before anything is done to a device.
run net up sixteen_bytes_xy
expect_failure 'cannot bring up sixteen_bytes_xy: Invalid argument'
run net down ../lo
expect_failure 'cannot bring down ../lo: Invalid argument'
run net bridge del ''
expect_failure 'cannot delete the bridge : Invalid argument'
run net bridge add br0 a b c d e f g h i j k l m n o p q
expect_failure 'cannot make the bridge br0: More than 16 members'
run net bridge add br0 a ''
expect_failure 'cannot make the bridge br0: A member without a name'
run net bridge add sixteen_bytes_xy
expect_failure 'cannot make the bridge sixteen_bytes_xy: Invalid argument'

# The rest in a network of its own, which /sys shows.
if [[ ${1:-} != inside ]]; then
    # shellcheck disable=SC2016
    if ! command -v ip >/dev/null ||
        ! unshare -n -m sh -c 'mount -t sysfs sysfs /sys && ip link add v0 type veth && ip link add b0 type bridge' 2>/dev/null; then
        echo "no namespaces, no ip, or no bridges here: not tested"
        exit 77
    fi
    unshare -n -m bash "$ZKQ_SOURCE/tests/tool/netcard_test.sh" inside
    exit
fi
mount -t sysfs sysfs /sys

run net cards
expect_output 'CARD  MAC  IPV4  MASK'
run net bridges
expect_output 'BRIDGE  IPV4  MASK  MEMBERS'

ip link add v0 address 02:42:ac:11:00:02 type veth peer name v1 address 02:42:ac:11:00:03
ip addr add 192.0.2.7/25 dev v0
run net cards
expect_equal "$status$(cat err)" 0
expect_equal "$(sort out)" 'CARD  MAC             IPV4       MASK
v0    0242-AC11-0002  192.0.2.7  255.255.255.128
v1    0242-AC11-0003  0.0.0.0    0.0.0.0'

# Bridges.
run net bridge add br0 v0 v1
expect_silence
expect_equal "$(ip -br link show master br0 | cut -d @ -f 1 | sort | xargs)" 'v0 v1'
run net bridges
expect_failure 'cannot list the bridges, which need IPv4 addresses: Cannot assign requested address'
run net set br0 198.51.100.1 255.255.255.0
expect_silence
run net bridges
expect_equal "$(sed 's/v1 v0/v0 v1/' out)" 'BRIDGE  IPV4          MASK           MEMBERS
br0     198.51.100.1  255.255.255.0  v0 v1'
run net bridge stp br0 on
expect_silence
expect_equal "$(cat /sys/class/net/br0/bridge/stp_state)" 1
run net bridge stp br0 off
expect_silence
expect_equal "$(cat /sys/class/net/br0/bridge/stp_state)" 0
run net up br0
expect_silence
ip link show br0 | grep -q '[<,]UP[,>]' || fail 'not up'
run net bridge del br0
expect_failure 'cannot delete the bridge br0: Device or resource busy'
run net down br0
expect_silence
run net bridge del br0
expect_silence
run net bridge del br0
expect_failure 'cannot delete the bridge br0: No such device or address'
run net bridge add br0 v0 nobody
expect_failure 'cannot make the bridge br0: No such device'
[[ ! -e /sys/class/net/br0 ]] || fail 'half a bridge'
run net bridge stp br0 on
expect_failure 'cannot switch the spanning tree of br0: No such file or directory'
run net bridge add br1
expect_silence
run net set br1 192.0.2.200 255.255.255.255
expect_silence
run net bridges
expect_output 'BRIDGE  IPV4         MASK             MEMBERS' 'br1     192.0.2.200  255.255.255.255  -'

# Addresses and routes.
run net set v0 192.0.2.9 255.255.255.0
expect_silence
run net up v0
run net up v1
expect_silence
expect_equal "$(ip -4 -o addr show v0 | grep -o 'inet .* brd [0-9.]*')" 'inet 192.0.2.9/24 brd 192.0.2.255'
run net set v0 192.0.2.9 255.255.255.256
expect_failure 'cannot set the address of v0: Invalid argument'
run net set nobody 192.0.2.9 255.255.255.0
expect_failure 'cannot set the address of nobody: No such device'
run net route set v0 192.0.2.1
expect_silence
expect_equal "$(ip route show default | xargs)" 'default via 192.0.2.1 dev v0'
run net route set v0 2001:db8::1
expect_failure 'cannot route through 2001:db8::1: No route to host'
run net route set v0 203.0.113.1
expect_failure 'cannot route through 203.0.113.1: Network is unreachable'
run net route set nobody 192.0.2.1
expect_failure 'cannot route through 192.0.2.1: Device does not exist.'
run net route del v0
expect_silence
expect_equal "$(ip route show default)" ''
run net route del v0
expect_failure 'cannot delete the route on v0: No such process'
run net set v0 0.0.0.0 0.0.0.0
expect_silence
expect_equal "$(ip -4 addr show v0)" ''
