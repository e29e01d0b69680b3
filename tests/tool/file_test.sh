#!/usr/bin/env bash
# shellcheck source-path=SCRIPTDIR source=support.sh
source "$(dirname "$0")/support.sh"

# Copying.
head -c 100000 /dev/urandom >big
chmod 750 big
run file copy big copied
expect_silence
cmp big copied || fail 'the copy differs'
expect_equal "$(stat -c %a copied)" 750
: >empty
run file copy empty copied
expect_silence
expect_equal "$(stat -c %s copied)" 0
run file copy --no-clobber big copied
expect_failure 'cannot copy big to copied: File exists'
expect_equal "$(stat -c %s copied)" 0
run file copy --no-clobber big other
expect_silence
mkdir dir
run file copy big dir
expect_silence
cmp big dir/big || fail 'the copy in the directory differs'

# A link stands for what it points to.
ln -s big link
run file copy link copied
expect_silence
cmp big copied || fail 'the copy of a link differs'
ln -sfn nowhere dangling
run file copy dangling copied
expect_failure 'cannot copy dangling to copied: No such file or directory'

run file copy none copied
expect_failure 'cannot copy none to copied: No such file or directory'
run file copy dir copied
expect_failure 'cannot read dir: Is a directory'
run file copy /dev/null copied
expect_failure 'cannot read /dev/null: Not a regular file'
run file copy /proc/cpuinfo copied
expect_failure 'cannot read /proc/cpuinfo: The file does not tell its length'
run file copy big no/such/place
expect_failure 'cannot copy big to no/such/place: No such file or directory'
run file copy big big
expect_failure 'cannot copy big to big: Invalid argument'
cmp big other || fail 'the source has changed'
run file copy big /dev/full
expect_failure 'cannot copy big to /dev/full: Short read or write'
printf x >tiny
run_on_full_disk file copy tiny limited
expect_failure 'cannot copy tiny to limited: Short read or write'

# Directories.
for name in one two/three/four five/ six//seven ./eight "$work//nine/ten" 'with blank/x'; do
    run file mkdirs "$name"
    expect_silence
    [[ -d $name ]] || fail "no directory $name"
    run file mkdirs "$name"
    expect_silence
done
run file mkdirs big/sub
expect_failure 'cannot create big/sub: Not a directory'
run file mkdirs big
expect_failure 'big: Not a directory'
run file mkdirs ''
expect_equal "$status" 1
run file mkdirs "$(printf '%400d' 1)"
expect_failure "cannot create $(printf '%400d' 1): File name too long"

# Deleting asks on a terminal and insists on --yes elsewhere.
plant() {
    mkdir -p tree/branch/twig
    touch tree/leaf tree/branch/leaf
    ln -sfn "$work/dir" tree/branch/link
}
plant
run file rmtree tree
expect_usage --yes
[[ -e tree/branch/leaf ]] || fail 'deleted without --yes'
run file rmtree --yes tree
expect_silence
[[ ! -e tree ]] || fail 'not deleted'
[[ -e dir/big ]] || fail 'a link was followed'
plant
run file rmtree --yes tree//
expect_silence
[[ ! -e tree ]] || fail 'not deleted'
if has_terminal; then
    plant
    on_terminal n "$ZKQ" file rmtree tree
    expect_equal "$status" 1
    grep -q 'delete "tree" and all it holds?' out || fail 'no question'
    [[ -e tree/branch/leaf ]] || fail 'deleted against the answer'
    on_terminal y "$ZKQ" file rmtree tree
    expect_equal "$status" 0
    [[ ! -e tree ]] || fail 'not deleted'
fi

run file rmtree --yes none
expect_failure 'cannot delete none: No such file or directory'
run file rmtree --yes big
expect_failure 'cannot delete big: Not a directory'
ln -s dir dirlink
run file rmtree --yes dirlink/
expect_failure 'cannot delete dirlink/: Not a directory'
for name in . .. ./ dir/.. dir/./; do
    run file rmtree --yes "$name"
    expect_equal "$status" 1
    grep -q 'are refused' err || fail "$name was not refused"
done
run file rmtree --yes ''
expect_equal "$status" 1
[[ -e dir/big ]] || fail 'deleted too much'

# Temporary files.
run file temp zkq-test-
expect_equal "$status" 0
name=$(cat out)
trap 'rm -rf "$work" "$name"' EXIT
[[ $name =~ ^/tmp/zkq-test-[a-zA-Z0-9]{6}$ ]] || fail "odd name $name"
[[ -f $name && ! -s $name ]] || fail 'no empty file'
run file temp no/such/place-
expect_failure 'cannot create a temporary file: Cann'\''t create a unique tmpfile!'
run file temp "$(printf '%290d' 1)"
expect_failure 'cannot create a temporary file: File name too long'

# Links: only a link makes way for a link.
echo text >linked
run file link linked link
expect_silence
expect_equal "$(readlink link)" linked
run file link elsewhere link
expect_silence
expect_equal "$(readlink link)" elsewhere
run file link elsewhere linked
expect_failure 'cannot make linked: There is something of this name that is no link'
run file link elsewhere dir
expect_failure 'cannot make dir: There is something of this name that is no link'
expect_file linked text
run file link elsewhere none/link
expect_failure 'cannot make none/link: No such file or directory'

# What files are.
touch -d '2026-03-14 09:26:53' linked
ln -sfn linked link
ln -sfn nowhere dangling
mkfifo pipe
run file stat linked link dir dangling pipe
expect_equal "$status" 0
expect_equal "$(awk '{print $1, $2, $NF}' out | xargs)" \
    'KIND BYTES NAME file 5 linked link 6 link directory - dir link 7 dangling other 0 pipe'
expect_equal "$(grep -c '2026-03-14 09:26:53' out)" 2
expect_equal "$(awk '/dangling/ {print $3}' out)" -
run file stat linked none
expect_failure 'cannot look at none: No such file or directory'
run file stat
expect_usage FILE

# Wrong usage.
run file link linked
expect_usage LINK
run file copy big
expect_usage DST
run file mkdirs
expect_usage DIR
run file rmtree
expect_usage DIR
run file temp
expect_usage PREFIX
