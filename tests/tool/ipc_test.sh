#!/usr/bin/env bash
# Objects of the kernel, in a namespace of the script's own.
# shellcheck source-path=SCRIPTDIR source=support.sh
if [[ -z ${ZKQ_OWN_IPC:-} ]]; then
    unshare -i true 2>/dev/null || {
        echo 'skipped: no namespace for semaphores and shared memory here'
        exit 77
    }
    ZKQ_OWN_IPC=1 exec unshare -i "$BASH" "$0"
fi
source "$(dirname "$0")/support.sh"

expect_table() {
    expect_equal "$status$(cat err)" 0
    expect_equal "$(tr -s ' ' <out | sed 's/ $//')" "$(printf '%s\n' "$@")"
}
sem_header='Key ID Owner Mode Units'
shm_header='Key ID Owner Mode Bytes Attached'

# Semaphores.
run ipc sem ls
expect_table "$sem_header"
run ipc sem create 0x5a4b0001 --units 3
expect_output 0
run ipc sem create -- -2
expect_output 1
run ipc sem create 010
expect_output 2
run ipc sem ls
expect_table "$sem_header" '0x5a4b0001 0 root 666 3' '0xfffffffe 1 root 666 1' '0x00000008 2 root 666 1'
ipcs -s | grep -q '^0x5a4b0001 0 *root *666 *1' || fail 'ipcs sees something else'
run ipc sem create 0x5a4b0001
expect_failure 'cannot create semaphore 0x5a4b0001: File exists'
run ipc sem create 77 --units 32768
expect_failure 'cannot create semaphore 0x0000004d: Numerical result out of range'
run ipc sem lock 0x5a4b0001 -- "$ZKQ" ipc sem lock 1514864641 -- "$ZKQ" ipc sem ls
expect_equal "$(awk '$2 == 0 {print $5}' out)" 1
run ipc sem lock --id 0 -- sh -c 'exit 6'
expect_equal "$status$(cat out err)" 6
run ipc sem ls
expect_equal "$(awk '$2 == 0 {print $5}' out)" 3
run ipc sem lock 8 -- "$ZKQ" ipc sem lock 8 --no-wait echo never
expect_equal "$status$(cat out err)" '1zkq: cannot lock semaphore 8: Timer expired'
run ipc sem lock 8 -- "$ZKQ" ipc sem lock 8 --timeout 1 echo never
expect_equal "$status$(cat out err)" '1zkq: cannot lock semaphore 8: Timer expired'
run ipc sem lock 8 -- /bin/none
expect_failure 'cannot run /bin/none: No such file or directory'
run ipc sem ls
expect_equal "$(awk '$2 == 2 {print $5}' out)" 1
run ipc sem rm 0x5a4b0001
expect_silence
run ipc sem rm 0x5a4b0001
expect_failure 'semaphore 0x5a4b0001: No such file or directory'
run ipc sem rm --id 1
expect_silence
run ipc sem rm --id 1
expect_failure 'cannot remove semaphore 1: Invalid argument'
run ipc sem rm 8
expect_silence
ipcmk -S 4 >/dev/null
run ipc sem ls
expect_equal "$(awk 'NR == 2 {print $5, $6}' out)" '4 semaphores'

# Memory.
run ipc shm ls
expect_table "$shm_header"
run ipc shm create 7 5000
expect_output 0
run ipc shm ls
expect_table "$shm_header" '0x00000007 0 root 666 5000 0'
first=$(cat out)
run ipc shm create 7 100 # in its place
expect_equal "$status" 0
run ipc shm ls
[[ $(cat out) != "$first" ]] || fail 'not replaced'
expect_equal "$(awk 'NR == 2 {print $1, $5}' out)" '0x00000007 100'
run ipc shm create 7 101
expect_failure 'cannot create shared memory 0x00000007: File exists'
run ipc shm rm 7
expect_silence
run ipc shm rm 7
expect_failure 'shared memory 0x00000007: No such file or directory'
run ipc shm create 0 10
expect_equal "$status" 0
run ipc shm rm --id "$(cat out)"
expect_silence

# Blocks.
run ipc block create 1 2 4096
expect_equal "$status$(cat err)" 0
run ipc block create 1 2 4096
expect_failure 'cannot create block 0x00000001 0x00000002: File exists'
run ipc block lock 1 2 -- "$ZKQ" ipc shm ls
expect_equal "$(awk 'NR == 2 {print $1, $5, $6}' out)" '0x00000002 4096 1'
run ipc block lock 1 2 -- "$ZKQ" ipc block lock --no-wait 1 2 true
expect_equal "$status$(cat err)" '1zkq: cannot lock block 0x00000001 0x00000002: Timer expired'
run ipc block lock 1 2 -- sh -c 'exit 8'
expect_equal "$status" 8
run ipc block lock 1 2 --no-wait true
expect_silence
run ipc block rm 1 2
expect_silence
run ipc block rm 1 2
expect_failure 'block 0x00000001 0x00000002: No such file or directory'
"$ZKQ" ipc shm create 2 10000 >/dev/null
"$ZKQ" ipc shm ls >before
run ipc block create 1 2 20000 # a smaller one is in the way
expect_failure 'cannot create block 0x00000001 0x00000002: File exists'
run ipc block rm 1 2
expect_failure 'block 0x00000001 0x00000002: No such file or directory'
run ipc shm ls
cmp out before || fail 'memory of others was touched'

# Wrong usage.
for key in x "" 1x 4294967296; do
    run ipc sem rm "$key"
    expect_equal "$status" 2
done
run ipc shm create 1 0
expect_usage BYTES
run ipc sem lock 1
expect_usage PROGRAM
run ipc
expect_usage 'subcommand is required'
run ipc sem
expect_usage 'subcommand is required'
