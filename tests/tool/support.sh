# shellcheck shell=bash
# What the scripts share: a directory to work in, a way to run the tool, and expectations that print both sides.
set -euo pipefail

# Log directories have at most 95 bytes, and the build tree may be deep.
if [ ${#TEST_TMP} -gt 60 ]; then TEST_TMP=/tmp; fi
work=$(mktemp -d "$TEST_TMP/test.XXXXXX")
servers=()

# The servers that a script has started end with it.
finish() {
    local id
    for id in "${servers[@]}"; do
        kill "$id" 2>/dev/null || continue # it has ended
        wait "$id" 2>/dev/null || true
    done
    rm -rf "$work"
}
trap finish EXIT
cd "$work"

status=0

# Runs the tool; its status is left in "status", its output in the files "out" and "err".
run() {
    status=0
    "$ZKQ" "$@" >out 2>err </dev/null || status=$?
}

# Runs the tool where no file may grow, as on a full disk. What it says goes through a pipe, which may.
run_on_full_disk() {
    local said
    status=0
    said=$(trap '' XFSZ && ulimit -f 0 && "$ZKQ" "$@" 2>&1) || status=$?
    : >out
    printf '%s\n' "$said" >err
}

fail() {
    printf '%s\n' "${BASH_SOURCE[-1]}:${BASH_LINENO[-2]}: $1" >&2
    printf '  status %s\n' "$status" >&2
    [[ ! -s out ]] || head -n 20 out | cut -c 1-200 | sed 's/^/  out: /' >&2
    [[ ! -s err ]] || head -n 20 err | cut -c 1-200 | sed 's/^/  err: /' >&2
    exit 1
}

expect_equal() {
    [[ $1 == "$2" ]] || fail "expected: $2"$'\n'"  actual:   $1"
}

# The last run ended well and printed exactly these lines.
expect_output() {
    expect_equal "$status" 0
    expect_equal "$(cat out)" "$(printf '%s\n' "$@")"
    expect_equal "$(cat err)" ""
}

# The last run ended well and printed nothing.
expect_silence() {
    expect_equal "$status$(cat out err)" 0
}

# The last run failed, printed no result and exactly this line about it.
expect_failure() {
    expect_equal "$status" 1
    expect_equal "$(cat out)" ""
    expect_equal "$(cat err)" "zkq: $1"
}

# The last run found the command line wrong, for a reason that holds this text.
expect_usage() {
    expect_equal "$status" 2
    expect_equal "$(cat out)" ""
    grep -qF -- "$1" err || fail "standard error lacks: $1"
    grep -q '^Try "zkq.* --help"\.$' err || fail "standard error does not point to --help"
}

expect_file() {
    cmp -- "$1" - <<<"$2" || fail "$1 holds: $(cat -- "$1")"
}

# Waits until a command succeeds, ten seconds at the most.
wait_until() {
    local i
    for ((i = 0; i < 500; ++i)); do
        ! "$@" || return 0
        sleep 0.02
    done
    fail "waited in vain for: $*"
}

# Starts a server that prints "port" and its number; leaves that in "port" and the id of the process in "server".
start_server() {
    rm -f server.out # an earlier server may still write to its own
    : >server.out
    "$@" >server.out 2>server.err </dev/null &
    server=$!
    servers+=("$server")
    wait_until grep -q 'port [0-9]' server.out
    port=$(grep -om 1 'port [0-9]*' server.out)
    port=${port#port }
}

# Whether the machine has what judges the tool here.
require_program() {
    command -v "$1" >/dev/null || {
        echo "no $1 here: not tested"
        exit 77
    }
}

# Whether the system has terminals to give.
has_terminal() {
    script -qec true /dev/null </dev/null >/dev/null 2>&1 || {
        echo "no pseudo-terminal here: what a terminal shows is not tested"
        return 1
    }
}

# Runs a command line on a terminal of its own, with the given line typed into it; nothing if it is empty.
on_terminal() {
    local typed=$1
    shift
    status=0
    # What nobody reads would keep the terminal open for seconds.
    printf '%s' "${typed:+$typed$'\n'}" | script -qec "$(printf '%q ' "$@")" /dev/null >out 2>err || status=$?
}

# A certificate of its own making, always the same one: a key on P-256, three extensions, a Chinese name.
make_certificate() {
    cat >"$1" <<'END'
-----BEGIN CERTIFICATE-----
MIIBvDCCAWKgAwIBAgIDGis8MAoGCCqGSM49BAMCMEMxCzAJBgNVBAYTAkNOMR0w
GwYDVQQKDBTnpLrkvovlhazlj7gsIOa1i+ivlTEVMBMGA1UEAwwMRXhhbXBsZSBS
b290MB4XDTI2MTEyMTE4MjIxNloXDTM2MTExODE4MjIxNlowQzELMAkGA1UEBhMC
Q04xHTAbBgNVBAoMFOekuuS+i+WFrOWPuCwg5rWL6K+VMRUwEwYDVQQDDAxFeGFt
cGxlIFJvb3QwWTATBgcqhkjOPQIBBggqhkjOPQMBBwNCAAS9m0fIwCZ9ahJ4n130
gBFPa4uP2zQzcVAjowjbqEP0p+ajuAG0mMx73yFZ4qWDqmmjAsQE70c4rTrkCMq1
c/g+o0UwQzASBgNVHRMBAf8ECDAGAQH/AgEAMA4GA1UdDwEB/wQEAwIBBjAdBgNV
HQ4EFgQUFRvL/b3E3ivmvQLGGp2ydLq05aAwCgYIKoZIzj0EAwIDSAAwRQIhAK+O
fPGUUtt7yB50IRc6W+Z2bPMXmRHSHnPl4xFYS6CHAiAO9ZIpe8Oy44zHqSMnPObJ
6SqSYxiccKLh4AIgg6y21g==
-----END CERTIFICATE-----
END
}
