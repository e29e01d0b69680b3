#!/usr/bin/env bash
# Every exported function has a manual page, which is installed, found by man, and renders without a warning.
set -euo pipefail
source=$1 build=$2 cmake=$3
work=$(mktemp -d "$build/man-test.XXXXXX")
trap 'rm -rf "$work"' EXIT
for program in groff man; do
    command -v "$program" >/dev/null || { echo "man: no $program here"; exit 77; }
done

fail() {
    echo "man: $*"
    exit 1
}

"$cmake" --install "$build" --prefix "$work" --component development >/dev/null
cd "$work/share/man/man3"
grep -oP '^ +\K\w+(?=;$)' "$source/src/libZKQ_general.map" >"$work/exported"
[ "$(wc -l <"$work/exported")" -ge 318 ] || fail "the map has only $(wc -l <"$work/exported") names"
while read -r name; do
    [ -f "$name.3" ] || fail "$name has no page"
    grep -q "^$name \\\\- ." "$name.3" || fail "$name has no line for apropos"
done <"$work/exported"
for header in "$source"/include/ZKQ_general/*.h; do
    [ -f "ZKQ_general_$(basename "$header" .h).3" ] || fail "$header has no page"
done
[ -f ZKQ_general.3 ] || fail "the library has no page"
# Nothing but these, and whatever a page refers to is there.
[ "$(find . -name '*.3' | wc -l)" -eq "$(($(wc -l <"$work/exported") + $(find "$source/include/ZKQ_general" -name '*.h' | wc -l) + 1))" ] ||
    fail "there are pages of functions that are not exported"
grep -ohP '\\fB\K\w+(?=\\fP\(3\))' ./*.3 | sort -u | while read -r name; do
    [ -f "$name.3" ] || fail "a page refers to $name"
done

warnings=$(groff -man -ww -z -Tutf8 ./*.3 2>&1)
[ -z "$warnings" ] || fail "$warnings"

page=$(MANWIDTH=80 man -M "$work/share/man" -P cat ZKQGeneral_MakeMyCabFile | col -b)
for text in 'ZKQGeneral_MakeMyCabFile - Makes a cabinet' '#include <ZKQ_general.h>' 'RETURN VALUE' 'EISDIR (21)' \
    'BOOL ZKQGeneral_MakeMyCabFile(LPCTSTR CabFile'; do
    grep -qF -- "$text" <<<"$page" || fail "the page of ZKQGeneral_MakeMyCabFile lacks: $text"
done
echo "man: $(wc -l <"$work/exported") functions have their pages"
