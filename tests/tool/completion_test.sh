#!/usr/bin/env bash
# shellcheck source-path=SCRIPTDIR source=support.sh
source "$(dirname "$0")/support.sh"
# shellcheck source=../../tools/zkq/completion/zkq.bash
source "$ZKQ_SOURCE/tools/zkq/completion/zkq.bash"

# Completes the last of the given words after "zkq", as bash would, and compares what is offered.
offers() {
    local expected=$1
    shift
    COMP_WORDS=("$ZKQ" "$@")
    COMP_CWORD=$#
    COMPREPLY=()
    _zkq || true # the status of a completion means nothing
    expect_equal "$(printf '%s\n' "${COMPREPLY[@]}" | sort | xargs -d '\n')" "$expected"
}

# The subcommands and long options that --help of a command lists.
from_help() {
    "$ZKQ" "$@" --help | awk '/^Subcommands:/ {sub_list = 1} sub_list && /^  [a-z]/ {print $1}
        /^  -/ {n = split($1, names, ","); print names[n]}' | sort | xargs -d '\n'
}

# The subcommands that --help of a command lists.
commands_of() {
    "$ZKQ" "$@" --help | awk '/^Subcommands:/ {list = 1} list && /^  [a-z]/ {print $1}'
}

# The script knows every command and option that there is, and no other.
COMP_WORDS=()
offers "$(from_help)" ''
for group in ini log file packet b64 z cab xml json cert der http net proc; do
    offers "$(from_help "$group")" "$group" ''
    for command in $(commands_of "$group"); do
        nested=$(commands_of "$group" "$command")
        begun=-
        [[ -z $nested ]] || begun=''
        offers "$(from_help "$group" "$command")" "$group" "$command" "$begun"
        for last in $nested; do
            offers "$(from_help "$group" "$command" "$last")" "$group" "$command" "$last" -
        done
    done
done
offers "$(from_help ipc)" ipc ''
for object in $("$ZKQ" ipc --help | awk '/^Subcommands:/ {list = 1} list && /^  [a-z]/ {print $1}'); do
    offers "$(from_help ipc "$object")" ipc "$object" ''
    for command in $("$ZKQ" ipc "$object" --help | awk '/^Subcommands:/ {list = 1} list && /^  [a-z]/ {print $1}'); do
        offers "$(from_help ipc "$object" "$command")" ipc "$object" "$command" -
    done
done
offers "$(from_help conv)" conv -
offers "$(from_help md5)" md5 -
offers "$(from_help ping)" ping -
offers "$(from_help md5)" md5 --check -
offers 'ini ipc' i
offers 'sections set' ini se

# Sections and keys come from the file.
printf '%s\n' '[Server]' 'Port=1' 'Path=/x' '[Second part]' 'k=a b' >'my file.ini'
touch other.txt
mkdir logs
offers 'my file.ini' ini get m
offers 'Second\ part Server' ini get my\\\ file.ini ''
offers 'Server' ini get '"my file.ini"' Ser
offers 'Second\ part' ini del my\\\ file.ini "'Second p"
offers 'Path Port' ini get my\\\ file.ini Server P
offers 'Path' ini get --default x my\\\ file.ini Server Pa
offers 'k' ini set my\\\ file.ini Second\\\ part ''
offers 'a\ b' ini set my\\\ file.ini Second\\\ part k ''
offers '' ini get my\\\ file.ini Server Port ''
offers '' ini sections my\\\ file.ini ''
offers '' ini keys my\\\ file.ini Server ''
offers '' ini get none.ini ''
offers '' ini get --default ''

# Logs.
offers 'other.txt' log tail -f -n 5 o
printf '[applog]\ndemo=1\n' >logs/tamor.ini
offers 'allapp allapp2 demo' log level --dir logs ''
offers 'demo' log level --dir logs d
offers 'allapp allapp2' log level ''
offers 'all debug error info off warn' log level demo ''
offers 'debug' log write --level d
offers 'logs' log write --dir l
offers '' log write --project ''

# Files and directories.
offers 'other.txt' file copy o
offers 'other.txt' file copy --no-clobber other.txt o
offers '' file copy other.txt other.txt ''
offers 'logs' file mkdirs l
offers 'logs' file rmtree --yes l
offers '' file temp ''
offers 'other.txt' packet dump o
offers '' packet dump other.txt ''
offers 'other.txt' packet make -o o
offers 'other.txt' file link o
offers 'other.txt' file stat other.txt o
offers 'other.txt' conv o
offers 'other.txt' conv --from GBK --to UTF-8 o
offers 'other.txt' conv other.txt -o o
offers '' conv other.txt ''
offers 'UCS-2LE UTF-8' conv --from U
offers 'GBK' conv --from UTF-8 --to G

# Encodings.
offers 'other.txt' b64 encode o
offers 'other.txt' b64 decode -o o
offers '' b64 encode --columns ''
offers 'other.txt' b64 encode --columns 4 o
offers '' b64 encode other.txt ''
offers 'other.txt' md5 o
offers 'other.txt' md5 --check other.txt o

# Compression and cabinets.
offers 'other.txt' z compress o
offers 'other.txt' z decompress --output o
offers '' z compress other.txt ''
printf 'x\n' >other.txt
"$ZKQ" cab make c.cab other.txt 'my file.ini'
offers 'c.cab' cab list c
offers 'logs' cab extract -d l
offers 'c.cab' cab extract --dir logs c
offers 'my\ file.ini other.txt' cab extract c.cab ''
offers 'my\ file.ini' cab extract --dir logs c.cab other.txt m
offers 'other.txt' cab make new.cab my\\ file.ini o
offers '' cab extract none.cab ''
# XML files; their paths are not listed.
offers 'other.txt' xml get o
offers '' xml get other.txt ''
offers 'other.txt' xml copy other.txt /r o
offers '' xml get --attribute ''
offers 'other.txt' xml fmt -o o
offers 'other.txt' xml fmt --output other.txt o

# Certificates and records.
offers 'other.txt' cert show o
offers 'other.txt' cert show other.txt o
offers 'other.txt' cert field --name subject o
offers 'subject' cert field --name su
offers '' cert field --index ''
offers 'other.txt' cert der -o o
offers 'other.txt' der dump o
offers '' der dump other.txt ''

# The network.
offers 'logs' http get 127.0.0.1/x -o l
offers '' http get ''
offers '' http get --timeout ''
offers 'text/plain text/xml' http post --type t
offers '' http post --data ''
offers 'localhost' ping l
offers 'localhost' ping --count 2 l
offers '' ping localhost ''
offers '127.0.0.1' net serve --host 1
offers '' net serve --port ''
offers 'localhost' net connect l
offers 'localhost' net lookup --reverse l
offers '' net connect localhost ''
offers 'lo' net up lo
offers 'lo' net set lo
offers '' net set lo ''
offers 'lo' net route set lo
offers '' net route set lo ''
offers 'lo' net bridge del lo
offers 'lo' net bridge add br0 eth0 lo
offers '' net bridge add lo
offers 'off on' net bridge stp br0 ''
offers 'del' net route d

# Programs.
offers 'logs' proc lock --path l
offers 'other.txt' proc lock name o
offers 'other.txt' proc run o
offers 'other.txt' proc run --timeout 3 cat o
offers '' proc run --timeout ''
offers '' proc lock ''
offers 'other.txt' ipc sem lock 1 o
offers '' ipc sem lock 1 --timeout ''
offers '' ipc block lock 1 ''
offers 'other.txt' ipc block lock 1 2 cat o

offers '' nothing ''
offers '' nothing at all ''

expect_equal "$(complete -p zkq)" 'complete -F _zkq zkq'
