#!/usr/bin/env bash
# shellcheck source-path=SCRIPTDIR source=support.sh
source "$(dirname "$0")/support.sh"
export TZ=UTC

mkdir -p tree/sub/deep d
printf 'ten bytes.' >x.txt
printf 'top\n' >tree/top
seq 1000 >tree/sub/numbers
head -c 100000 /dev/urandom >tree/sub/deep/noise
printf 'x' >a
chmod 640 x.txt
chmod 755 tree/top
touch -d '2026-01-02 03:04:05' x.txt tree/top tree/sub/numbers tree/sub/deep/noise

# Sizes of streams depend on the release of zlib.
without_packed() {
    awk '{gsub(/ +/, " "); $3 = "P"; print}' out
}

# Making and listing.
run cab make c.cab x.txt tree
expect_silence
run cab list c.cab
expect_equal "$status" 0
expect_equal "$(head -n 1 out)" x.txt
expect_equal "$(sort out | xargs)" 'sub/deep/noise sub/numbers top x.txt'
run cab list -l c.cab
expect_equal "$status" 0
expect_equal "$(head -n 1 out)" '    No        Size      Packed  Mode        Time                 Name'
expect_equal "$(without_packed | sed -n 2p)" '0 10 P -rw-r----- 2026-01-02 03:04:05 x.txt'
expect_equal "$(without_packed | grep top)" "$(awk '/top$/ {print $1}' out) 4 P -rwxr-xr-x 2026-01-02 03:04:05 top"
expect_equal "$(awk '/numbers$/ {print $2}' out)" "$(stat -c %s tree/sub/numbers)"

run cab make --no-top-files below.cab tree
expect_silence
run cab list below.cab
expect_equal "$(sort out | xargs)" 'sub/deep/noise sub/numbers'
(cd tree && "$ZKQ" cab make ../dot.cab .) || fail 'not made from "."'
run cab list dot.cab
expect_equal "$(sort out | xargs)" 'sub/deep/noise sub/numbers top'
run cab make short.cab a
expect_silence
run cab list short.cab
expect_output a

# Testing and extracting.
run cab test c.cab
expect_output 'c.cab: 4 files, all whole'
run cab extract c.cab -d out1
expect_silence
cmp x.txt out1/x.txt || fail 'x.txt has changed'
diff -r tree/sub out1/sub || fail 'the tree has changed'
expect_equal "$(stat -c '%a %Y' out1/top)" "$(stat -c '%a %Y' tree/top)"
expect_equal "$(stat -c '%a %Y' out1/x.txt)" "$(stat -c '%a %Y' x.txt)"
mkdir here
(cd here && "$ZKQ" cab extract ../c.cab) || fail 'not extracted'
diff -r here out1 || fail 'the working directory got something else'
run cab extract c.cab sub/numbers 0 --dir some
expect_silence
expect_equal "$(cd some && find . -type f | sort | xargs)" './sub/numbers ./x.txt'

# A name that looks like a number is a name first.
printf 'named\n' >'3'
printf 'other\n' >yy
run cab make numbers.cab yy 3 x.txt a
expect_silence
run cab extract numbers.cab 3 -d some2
expect_silence
expect_equal "$(ls some2)" 3
run cab extract numbers.cab 2 -d some2
expect_silence
expect_equal "$(cd some2 && echo ./*)" './3 ./x.txt'
for name in none 4 99999999999999999999 -- ''; do
    run cab extract -d some3 numbers.cab -- "$name"
    expect_failure "numbers.cab: No file \"$name\""
done
[[ ! -e some3 ]] || fail 'extracted what is not there'

# What a cabinet cannot hold is named.
mkdir odd
: >odd/empty
run cab make odd.cab x.txt odd
expect_failure 'cannot make odd.cab: odd/empty: A cabinet cannot hold an empty file'
run cab make odd.cab odd/empty
expect_failure 'cannot make odd.cab: odd/empty: A cabinet cannot hold an empty file'
rm odd/empty
run cab make odd.cab odd
expect_failure 'cannot make odd.cab: No files'
mkfifo odd/fifo
run cab make odd.cab odd
expect_failure 'cannot make odd.cab: odd/fifo: Not a regular file'
rm odd/fifo
ln -s ../x.txt odd/link
run cab make odd.cab odd
expect_failure 'cannot make odd.cab: odd/link: A cabinet cannot hold a link'
run cab make odd.cab x.txt '' a
expect_failure 'cannot make odd.cab: No such file or directory'
mkdir odd/sub
cp a odd/sub
run cab make --no-top-files odd.cab odd
expect_silence
rm -r odd/link odd/sub odd.cab
printf x >odd/$'line\nfeed'
run cab make odd.cab odd
expect_equal "$status" 1
grep -q 'A cabinet cannot hold a name with a line feed' err || fail 'no reason'
run cab make odd.cab none
expect_failure 'cannot make odd.cab: No such file or directory'
[[ ! -e odd.cab ]] || fail 'a part was left'
run cab make no/such/place x.txt
expect_failure 'cannot make no/such/place: No such file or directory'
ln -s x.txt link
ln -s tree treelink
run cab make links.cab link treelink
expect_silence
run cab test links.cab
expect_output 'links.cab: 4 files, all whole'

# Damage. The first member's stream begins behind the header of 128 bytes.
cp c.cab bad.cab
printf '\377\377' | dd of=bad.cab bs=1 seek=130 conv=notrunc status=none
run cab test bad.cab
expect_equal "$status" 1
expect_equal "$(cat err)" $'zkq: bad.cab: file 0 is damaged: x.txt\nzkq: bad.cab: 1 of 4 files are damaged'
run cab list bad.cab
expect_equal "$status" 0
run cab extract bad.cab -d out2
expect_failure 'cannot extract bad.cab: data error'
[[ ! -e out2/x.txt ]] || fail 'a damaged file was written'
run cab extract bad.cab -d out2 0
expect_failure 'cannot extract file 0 of bad.cab: data error'
head -c 1000 c.cab >cut.cab
for command in list test; do
    run cab $command cut.cab
    expect_failure 'cut.cab: Not a cabinet, or its directory is damaged'
    run cab $command x.txt
    expect_failure 'x.txt: Not a cabinet'
    run cab $command tree
    expect_failure 'cannot read tree: Is a directory'
    run cab $command none.cab
    expect_failure 'cannot read none.cab: No such file or directory'
done
run cab extract none.cab
expect_failure 'cannot extract none.cab: No such file or directory'
run cab extract c.cab -d x.txt/sub
expect_equal "$status" 1
run cab extract c.cab 0 -d "$(printf '%400d' 1)"
expect_failure "cannot extract to $(printf '%400d' 1): File name too long"

# A count beyond all bounds, and a directory that claims to be huge.
cp c.cab bad.cab
printf '\377\377\377\377\377\377\377\177' | dd of=bad.cab bs=1 conv=notrunc status=none
run cab list bad.cab
expect_failure 'bad.cab: The entry of file 4 is damaged'
cp c.cab bad.cab
printf '\377\377\377\377\377\377\377\177' | dd of=bad.cab bs=1 seek=24 conv=notrunc status=none
run cab test bad.cab
expect_failure 'bad.cab: Not a cabinet, or its directory is damaged'

# A terminal gets a progress bar of its width, which is gone at the end. Nobody else does.
if has_terminal; then
    bar() {
        tr '\r' '\n' <out | grep -cE '^\[#* *\] +[0-9]+%' || true
    }
    for command in 'make t.cab x.txt tree' 'extract c.cab -d out3' 'extract c.cab 0 1 -d out3' 'test c.cab'; do
        # shellcheck disable=SC2086 # words
        on_terminal '' "$ZKQ" cab $command
        expect_equal "$status" 0
        [[ $(bar) -ge 2 ]] || fail "no bar for $command"
        grep -qF $'\r\033[K' out || fail 'the bar is left'
        # shellcheck disable=SC2086
        on_terminal '' "$ZKQ" cab $command --quiet
        expect_equal "$status" 0
        expect_equal "$(bar)" 0
    done
    on_terminal '' bash -c "stty cols 40; '$ZKQ' cab extract c.cab -d out3"
    expect_equal "$(tr '\r' '\n' <out | grep '100%')" "[$(printf '%32s' '' | tr ' ' '#')] 100%"
    expect_equal "$(bar)" 5
    on_terminal '' bash -c "stty cols 5; '$ZKQ' cab extract c.cab -d out3"
    grep -q '100%' out || fail 'nothing on a narrow terminal'
    # Many files change the percentage no more than a hundred times.
    mkdir many
    for ((i = 0; i < 500; ++i)); do printf 'x' >"many/$i"; done
    on_terminal '' "$ZKQ" cab make t.cab many
    expect_equal "$(bar)" 101
    # A name from a stranger does not steer the terminal.
    printf 'x' >$'esc\033[2J'
    "$ZKQ" cab make esc.cab $'esc\033[2J'
    on_terminal '' "$ZKQ" cab list esc.cab
    grep -qF 'esc?[2J' out || fail 'a terminal is steered'
    # A failure is told on a line of its own.
    on_terminal '' "$ZKQ" cab extract cut.cab
    expect_equal "$status" 1
fi
run cab list esc.cab
if has_terminal >/dev/null; then expect_output $'esc\033[2J'; fi

# Wrong usage.
for word in make extract test list; do
    run cab "$word"
    expect_usage CABINET
done
run cab make c.cab
expect_usage PATH
