#!/usr/bin/env bash
# shellcheck source-path=SCRIPTDIR source=support.sh
source "$(dirname "$0")/support.sh"

make_certificate root.pem
shown=(
    'Version:    3'
    'Serial:     1A2B3C'
    'Issuer:     C=CN, O=示例公司\, 测试, CN=Example Root'
    'Subject:    C=CN, O=示例公司\, 测试, CN=Example Root'
    'Not before: 2026-11-22 02:22:16 +08:00'
    'Not after:  2036-11-19 02:22:16 +08:00'
    'Key:        P-256 (1.2.840.10045.3.1.7), 64 bytes'
    'Signature:  ECDSA with SHA-256 (1.2.840.10045.4.3.2), 71 bytes'
    'Extensions:'
    '  basic constraints (2.5.29.19), critical: CA:TRUE, pathlen:0'
    '  key usage (2.5.29.15), critical: Certificate Sign, CRL Sign'
    '  subject key identifier (2.5.29.14): 22 bytes: 04 14 15 1b cb fd bd c4 de 2b e6 bd 02 c6 1a 9d b2 74 ba b4 ...'
)

# Each form, and what may stand around it.
run cert show root.pem
expect_output "${shown[@]}"
run cert der root.pem -o root.der
expect_silence
run cert show root.der
expect_output "${shown[@]}"
grep -v -e '^-' root.pem >root.b64
run cert show root.b64
expect_output "${shown[@]}"
{ printf 'Bag Attributes\n  friendlyName: -\n' && cat root.pem && echo behind; } >bag.pem
run cert show bag.pem
expect_output "${shown[@]}"
ln -s root.pem link.pem
run cert show link.pem
expect_output "${shown[@]}"
status=0
"$ZKQ" cert show - <root.pem >out 2>err || status=$?
expect_output "${shown[@]}"

# OpenSSL writes the same DER.
openssl x509 -in root.pem -outform DER -out judge.der
cmp root.der judge.der || fail 'the DER differs'
run cert der root.pem root.b64 -o two.der
cat judge.der judge.der | cmp - two.der || fail 'two are not both'

# Several files, several certificates in one.
run cert show root.pem root.der
expect_output 'root.pem:' "${shown[@]}" '' 'root.der:' "${shown[@]}"
cat root.pem root.pem >bundle.pem
run cert show bundle.pem
expect_output 'bundle.pem[1]:' "${shown[@]}" '' 'bundle.pem[2]:' "${shown[@]}"
run cert field --name serial bundle.pem root.pem
expect_output 'bundle.pem[1]: 1A2B3C' 'bundle.pem[2]: 1A2B3C' 'root.pem: 1A2B3C'
{ cat root.pem && printf -- '-----BEGIN CERTIFICATE-----\nAAAA\n-----END CERTIFICATE-----\n' && cat root.pem; } >mixed.pem
run cert field --name serial mixed.pem none root.pem
expect_equal "$status" 1
expect_equal "$(cat out)" $'mixed.pem[1]: 1A2B3C\nmixed.pem[3]: 1A2B3C\nroot.pem: 1A2B3C'
expect_equal "$(cat err)" $'zkq: mixed.pem[2]: Not a certificate that the library reads\nzkq: cannot read none: No such file or directory'

# Each field by its name and by its number.
field() {
    run cert field root.pem "$@"
}
field --name version && expect_output 2
field --index 1 && expect_output 2
field --index 2 && expect_output 1A2B3C
field --name not-before && expect_output '2026-11-22 02:22:16'
field --index 3 && expect_output '2026-11-22 02:22:16'
field --name not-after && expect_output '2036-11-19 02:22:16'
field --index 4 && expect_output '2036-11-19 02:22:16'
field --name key-algorithm && expect_output 1.2.840.10045.3.1.7
field --index 5 && expect_output 1.2.840.10045.3.1.7
field --name key-length && expect_output 64
field --index 6 && expect_output 64
field --name signature-algorithm && expect_output 1.2.840.10045.4.3.2
field --index 7 && expect_output 1.2.840.10045.4.3.2
field --name key-type && expect_output 408
field --index 9 && expect_output 408
field --name signature-length && expect_output 71
field --index 10 && expect_output 71
field --name subject && expect_output 'C=CN, O=示例公司\, 测试, CN=Example Root'
field --name issuer && expect_output 'C=CN, O=示例公司\, 测试, CN=Example Root'
field --name subject:O && expect_output '示例公司, 测试'
field --name issuer:2.5.4.3 && expect_output 'Example Root'
field --name 2.5.29.19 && expect_output 'CA:TRUE, pathlen:0'
field --name 2.5.29.15 && expect_output 'Certificate Sign, CRL Sign'
field --name 2.5.29.14
expect_equal "$(cut -c 1-5 out) $(wc -w <out)" '04 14 22'

# Bytes are shown or written.
key=$(openssl x509 -in root.pem -noout -pubkey | openssl pkey -pubin -outform DER | tail -c 64 | od -An -v -tx1 | xargs)
field --name key && expect_output "$key"
field --index 8 && expect_output "$key"
field --name key --raw
expect_equal "$(od -An -v -tx1 out | xargs)" "$key"
field --name signature --raw
expect_equal "$(wc -c <out)" 71
field --index 11 --raw
tail -c 71 root.der | cmp - out || fail 'not the signature'
field --name subject --raw
cp out subject
field --index 19 --raw
cmp subject out || fail 'a name in bytes'
field --index 20
expect_equal "$(cut -c 1-11 out)" '31 0b 30 09'

# Failures.
field --name subject:OU
expect_failure 'root.pem: No OU in the name'
field --name 1.2.3
expect_failure 'root.pem: No extension 1.2.3'
field
expect_usage '--name or --index is required'
field --name nothing
expect_usage '"nothing" is none of version'
field --index 12
expect_usage 'No field has the number 12'
field --index 2x
expect_usage 'No field has the number 2x'
field --index 2 --name serial
expect_usage excludes
run cert show
expect_usage FILE
run cert show .
expect_failure 'cannot read .: Is a directory'
: >nothing
run cert show nothing
expect_failure 'nothing: Not a certificate: it is empty'
head -c 100 root.der >short.der
run cert show short.der
expect_failure 'short.der: Not a certificate that the library reads'
run cert der short.der -o kept
expect_failure 'short.der: Not a certificate that the library reads'
[[ ! -e kept ]] || fail 'something was written'
run cert der root.pem -o none/x
expect_failure 'cannot write none/x: No such file or directory'

# What a name says is text, never a command to the terminal.
openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -keyout key -out odd.pem -days 1 -utf8 -multivalue-rdn \
    -subj $'/CN=a\e[31mb\\\\c\n/serialNumber=7' 2>err || fail 'openssl'
run cert field --name subject odd.pem
expect_output 'CN=a\x1b[31mb\\c\x0a, serialNumber=7'

# In the charset of the terminal.
status=0
LC_ALL=C "$ZKQ" cert field --name subject:O root.pem >out 2>err || status=$?
expect_output '????, ??'
