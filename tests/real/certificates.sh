#!/usr/bin/env bash
# Certificates of this machine, as the tool shows them, are what the openssl program shows.
set -euo pipefail
zkq=$1
export LC_ALL=C.UTF-8
work=$(mktemp -d "$2/certificates.XXXXXX")
trap 'rm -rf "$work"' EXIT

# What the tool shows, one fact a line: "Issuer CN=x". Commas within values and those between them are told apart.
ours() {
    awk '/^(Issuer|Subject):/ {
            title = substr($1, 1, length($1) - 1)
            sub(/^[^ ]* */, "")
            gsub(/\\,/, "\001")
            gsub(/, /, "\n" title " ")
            gsub(/\001/, ",")
            print title " " $0
        }
        /^Serial:/ {sub(/^0*/, "", $2); print "Serial " $2}
        /^Not / {print $1, $2, $3, $4}
        /^  / {++extensions}
        END {print "Extensions " extensions + 0}' "$work/ours"
}

theirs() {
    awk '/^(subject|issuer)=/ {title = /^s/ ? "Subject" : "Issuer"; next}
        /^[^ ]/ {title = ""}
        title {sub(/^ */, ""); print title " " $0}
        /^serial=/ {sub(/^serial=0*/, ""); print "Serial " $0}
        /X509v3 extensions:/ {list = 1; next}
        list && substr($0, 1, 12) !~ /^ *$/ {list = 0}
        list && substr($0, 13, 1) != " " {++extensions}
        END {print "Extensions " extensions + 0}' "$work/theirs"
    printf 'Not before: %s\n' "$(date -u -d "$(sed -n 's/^notBefore=//p' "$work/theirs") +8 hours" '+%F %T')"
    printf 'Not after: %s\n' "$(date -u -d "$(sed -n 's/^notAfter=//p' "$work/theirs") +8 hours" '+%F %T')"
}

count=0
refused=0
for file in /etc/ssl/certs/*.pem; do
    [ -r "$file" ] || continue
    openssl x509 -in "$file" -serial -subject -issuer -dates -nameopt sep_multiline,utf8,sname -dateopt iso_8601 -text \
        -certopt no_pubkey,no_sigdump,no_subject,no_issuer -out "$work/theirs" || continue
    if ! "$zkq" cert show "$file" >"$work/ours" 2>"$work/why"; then
        # The one reason for which a good certificate is refused: a name that GBK cannot hold.
        if iconv -f UTF-8 -t GBK "$work/theirs" >/dev/null 2>&1; then
            cat "$work/why"
            exit 1
        fi
        refused=$((refused + 1))
        continue
    fi
    if ! diff <(ours | sort) <(theirs | sort); then
        echo "certificates: $file differs"
        exit 1
    fi
    count=$((count + 1))
done
if [ "$count" = 0 ]; then
    echo "certificates: there are none on this machine"
    exit 77
fi
echo "certificates: $count agree, $refused have names that GBK cannot hold"
