#!/usr/bin/env bash
# What the README and the guides say is true: the programs that they show are those in examples/, these print and leave what
# is said there, and every link leads somewhere.
set -euo pipefail
source=$1 build=$2
work=$(mktemp -d "$build/docs-test.XXXXXX")
trap 'rm -rf "$work"' EXIT

"$source/scripts/doc_links.py"
"$source/scripts/doc_samples.py" --check --programs "$build"

# What stands there in the middle of a sentence, or depends on the day.
cd "$work"
diff <(echo "name is Alpha") <("$build/examples/first")
diff <(echo "alpha listens on 8080") <("$build/examples/servers")
openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout key.pem -out cert.pem -subj /O=Example/CN=Alpha \
    2>/dev/null
diff <(printf '2.5.4.10 is Example\n2.5.4.3 is Alpha\n') <("$build/examples/certificate" cert.pem | grep -v '^until 20')
echo "docs: the README and the programs of the guides are true"
