#!/usr/bin/env bash
# The first programs that the README and the guides to XML and certificates show are those in examples/, and what they and
# the one of the guide to messages are said to print is what they print.
set -euo pipefail
source=$1 program=$2 build=$3
work=$(mktemp -d "$build/docs-test.XXXXXX")
trap 'rm -rf "$work"' EXIT

# block LANGUAGE FILE: the first such block of a document
block() {
    awk -v fence="\`\`\`$1" '$0 == fence {inside = 1; next} inside && /^```$/ {exit} inside' "$source/$2"
}
diff <(block c README.md) "$source/examples/first.c"
cd "$work"
diff <(echo "name is Alpha") <("$program")
diff <(awk '/leaves a file first.log/ {near = 1; next} near && /^```$/ {if (inside) exit; inside = 1; next} inside' \
    "$source/README.md") first.log

diff <(block c docs/xml.md) "$source/examples/servers.c"
diff <(echo "alpha listens on 8080") <("$build/examples/servers")
diff <(block xml docs/xml.md) servers.xml

diff <(block c docs/certificates.md) "$source/examples/certificate.c"
openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout key.pem -out cert.pem -subj /O=Example/CN=Alpha \
    2>/dev/null
diff <(printf '2.5.4.10 is Example\n2.5.4.3 is Alpha\n') <("$build/examples/certificate" cert.pem | grep -v '^until 20')
"$build/examples/records" >records.txt
block text docs/messages.md | diff - <(head -n 7 records.txt)

while read -r link; do
    [ -e "$source/$link" ] || { echo "docs: README or CONTRIBUTING names $link, which is not there"; exit 1; }
done < <(grep -ohP '\]\(\K[^):#]+(?=\))' "$source"/README.md "$source"/CONTRIBUTING.md)
echo "docs: the README and the programs of the guides are true"
