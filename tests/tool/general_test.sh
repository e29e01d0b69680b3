#!/usr/bin/env bash
# shellcheck source-path=SCRIPTDIR source=support.sh
source "$(dirname "$0")/support.sh"

# The words of a command's --help under "Subcommands:".
listed() {
    sed -n '/^Subcommands:/,/^$/p' out | awk 'NR > 1 && NF {print $1}'
}

# Every command at every level tells what it is for and how it is called.
expect_help() {
    run "$@" --help
    expect_equal "$status" 0
    expect_equal "$(cat err)" ""
    [[ -n $(head -n 1 out) ]] || fail 'no description'
    grep -q "^Usage: zkq $*" out || fail 'no usage line'
    if grep -E '^  [^ ]+( [^ ]+)?$' out; then
        fail 'an entry without a description'
    fi
}

status=0
run --help
expect_equal "$status" 0
expect_equal "$(listed | xargs)" 'ini log file packet conv b64 md5 z cab xml json cert der http ping net proc ipc'
for group in $(listed); do
    expect_help "$group"
    commands=$(listed)
    [[ -n $commands || $group == conv || $group == md5 || $group == ping ]] || fail "$group has no commands"
    for command in $commands; do
        expect_help "$group" "$command"
        for last in $(listed); do
            expect_help "$group" "$command" "$last"
        done
    done
done

run --version
expect_output "zkq $ZKQ_VERSION"

# Wrong usage on every level.
run
expect_usage 'subcommand is required'
run nothing
expect_usage nothing
run --nothing
expect_usage --nothing
run log
expect_usage 'subcommand is required'
run -- ini get
expect_equal "$status" 2

# A result that reaches nobody is a failure.
printf '[S]\nk=1\n' >s.ini
"$ZKQ" cab make s.cab s.ini
printf '\x30\x06\x01\x04\0\0\0\1' >s.der
make_certificate s.pem
for command in '--help' 'ini get --help' '--version' 'ini get s.ini S k' 'ini sections s.ini' 'ini keys s.ini S' \
    'log tail s.ini' 'log level demo' 'b64 encode s.ini' 'md5 s.ini' 'z compress s.ini' 'cab list s.cab' \
    'cab list -l s.cab' 'cab test s.cab' 'cert show s.pem' 'cert der s.pem' 'der dump s.der' 'ipc sem ls' 'ipc shm ls'; do
    status=0
    # shellcheck disable=SC2086
    "$ZKQ" $command >/dev/full 2>err || status=$?
    expect_equal "$status" 1
    expect_equal "$(cat err)" 'zkq: cannot write to standard output: No space left on device'
    status=0
    # shellcheck disable=SC2086
    "$ZKQ" $command >&- 2>err || status=$?
    expect_equal "$status" 1
    expect_equal "$(cat err)" 'zkq: cannot write to standard output: Bad file descriptor'
done

# A reader that has seen enough ends the tool quietly.
for ((i = 0; i < 20000; ++i)); do printf '[section %d]\n' "$i"; done >many.ini
"$ZKQ" ini sections many.ini 2>err | head -n 1 >out || true
expect_equal "$(cat out)$(cat err)" 'section 0'
