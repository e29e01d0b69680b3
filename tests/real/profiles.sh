#!/usr/bin/env bash
# Profile files of this machine: the sections and keys that the tool lists are those that awk finds, and so are the values.
set -euo pipefail
zkq=$1

# The rules once more, in the words of another language. Prints section, key and value of each entry, and "[" as the value of
# a header, divided by bytes that no text holds.
entries() {
    LC_ALL=C awk '
        { sub(/\r.*/, "") }
        /^\[/ { section = substr($0, 2); sub(/\].*/, "", section); print section "\001\001[" ; next }
        /^[;#]/ || /^$/ { next }
        { key = $0; value = ""; at = index($0, "=")
          if (at) { key = substr($0, 1, at - 1); value = substr($0, at + 1) }
          gsub(/^ +| +$/, "", key); gsub(/^ +| +$/, "", value)
          print section "\001" key "\001" value }' "$1"
}

files=0
keys=0
while read -r file; do
    # No header without its end, and no line that is too long, which are errors and tested elsewhere.
    if LC_ALL=C awk '/^\[[^]]*$/ || length($0) > 4095 {exit 1}' "$file"; then
        all=$(entries "$file")
        diff <(awk -F'\001' '$3 == "[" && $2 == "" {print $1}' <<<"$all") <("$zkq" ini sections "$file")
        section=$(awk -F'\001' '$3 == "[" {print $1; exit}' <<<"$all")
        diff <(awk -F'\001' -v s="$section" 'tolower($1) == tolower(s) && !($3 == "[" && $2 == "") {print $2}' <<<"$all") \
            <("$zkq" ini keys "$file" "$section")
        key=$(awk -F'\001' -v s="$section" '$1 == s && $2 != "" {print $2; exit}' <<<"$all")
        if [ -n "$key" ]; then
            diff <(awk -F'\001' -v s="$section" -v k="$key" \
                'tolower($1) == tolower(s) && tolower($2) == tolower(k) {print substr($0, length($1 $2) + 3); exit}' \
                <<<"$all") <("$zkq" ini get "$file" "$section" -- "$key")
            keys=$((keys + 1))
        fi
        files=$((files + 1))
    fi
done < <(find /etc /usr/share /usr/lib -xdev -type f -size -64k \
    \( -name '*.ini' -o -name '*.desktop' -o -name '*.service' -o -name '*.conf' -o -name '*.cfg' \) \
    -exec grep -lI '^\[' {} + 2>/dev/null | sort | head -n 150)
if [ "$files" -eq 0 ]; then
    echo "profiles: this machine has none"
    exit 77
fi
echo "profiles: $files files agree, and $keys values"
