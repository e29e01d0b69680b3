# Completion of zkq for bash: commands, options, files, and the names that stand in profile files.
# shellcheck shell=bash

# A word of the command line without the quoting that bash leaves in it.
_zkq_plain() {
    local word=$1
    word=${word#[\'\"]}
    word=${word%[\'\"]}
    word=${word//\\/}
    [[ ${word:0:2} == \~/ ]] && word=$HOME/${word:2}
    printf '%s' "$word"
}

# Offers the words given as lines on standard input that begin with the word under the cursor.
_zkq_offer() {
    local prefix word
    prefix=$(_zkq_plain "${COMP_WORDS[COMP_CWORD]}")
    while IFS= read -r word; do
        [[ -n $word && $word == "$prefix"* ]] && COMPREPLY+=("$(printf '%q' "$word")")
    done
}

_zkq_offer_words() {
    _zkq_offer < <(printf '%s\n' "$@")
}

# Offers files ("-f") or directories ("-d").
_zkq_offer_paths() {
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen "$1" -- "$(_zkq_plain "${COMP_WORDS[COMP_CWORD]}")")
}

# Offers what zkq itself lists, silently nothing if it cannot.
_zkq_offer_listed() {
    local program
    program=$(_zkq_plain "${COMP_WORDS[0]}")
    _zkq_offer < <("$program" "$@" 2>/dev/null)
}

# Sorts the words from a number up to the cursor into the array "positionals" and the log directory "dir"; options that take
# a value swallow the next word.
_zkq_read_words() {
    local i word
    for ((i = $1; i < COMP_CWORD; ++i)); do
        word=${COMP_WORDS[i]}
        case $word in
            --dir)
                ((++i))
                dir=$(_zkq_plain "${COMP_WORDS[i]}")
                ;;
            --default | --project | --level | --lines | -n | --from | --to | --columns | --attribute | --name | --index) ((++i)) ;;
            --output | -o | -d | --path) ((++i)) ;;
            --data | --type | --timeout | --count | --size | --host | --port | --units) ((++i)) ;;
            -*) ;;
            *) positionals+=("$(_zkq_plain "$word")") ;;
        esac
    done
}

_zkq_offer_devices() {
    local path
    _zkq_offer < <(for path in /sys/class/net/*; do printf '%s\n' "${path##*/}"; done)
}

_zkq_options() {
    case $1 in
        'ini get') _zkq_offer_words --default --help ;;
        'log tail') _zkq_offer_words --lines --follow --gbk --help ;;
        'log write') _zkq_offer_words --dir --project --level --force --help ;;
        'log level') _zkq_offer_words --dir --help ;;
        'file copy') _zkq_offer_words --no-clobber --help ;;
        'xml get') _zkq_offer_words --attribute --raw --help ;;
        'xml ls') _zkq_offer_words --raw --help ;;
        'xml fmt') _zkq_offer_words --output --force --help ;;
        'xml set') _zkq_offer_words --attribute --raw --force --help ;;
        'xml add') _zkq_offer_words --raw --force --help ;;
        'xml '*) _zkq_offer_words --force --help ;;
        'file rmtree') _zkq_offer_words --yes --help ;;
        'packet dump') _zkq_offer_words --oid --help ;;
        'packet make') _zkq_offer_words --oid --output --help ;;
        conv) _zkq_offer_words --from --to --output --help ;;
        'b64 encode') _zkq_offer_words --columns --output --help ;;
        'b64 decode') _zkq_offer_words --output --help ;;
        md5) _zkq_offer_words --check --quiet --status --help ;;
        'z '*) _zkq_offer_words --output --help ;;
        'cab make') _zkq_offer_words --no-top-files --quiet --help ;;
        'cab list') _zkq_offer_words --long --help ;;
        'cab extract') _zkq_offer_words --dir --quiet --help ;;
        'cab test') _zkq_offer_words --quiet --help ;;
        'cert field') _zkq_offer_words --name --index --raw --help ;;
        'cert der') _zkq_offer_words --output --help ;;
        'json get') _zkq_offer_words --hex --base64 --help ;;
        'json set') _zkq_offer_words --int --hex --base64 --force --help ;;
        'json fmt') _zkq_offer_words --output --force --help ;;
        'http get') _zkq_offer_words --output --type --timeout --help ;;
        'http post') _zkq_offer_words --output --data --type --timeout --help ;;
        ping) _zkq_offer_words --count --size --timeout --help ;;
        'net lookup') _zkq_offer_words --reverse --help ;;
        'net serve') _zkq_offer_words --host --port --count --help ;;
        'net connect') _zkq_offer_words --timeout --help ;;
        'proc run') _zkq_offer_words --timeout --no-wait --help ;;
        'proc lock') _zkq_offer_words --path --create --help ;;
        'ipc sem create') _zkq_offer_words --units --help ;;
        'ipc sem lock') _zkq_offer_words --id --timeout --no-wait --help ;;
        'ipc block lock') _zkq_offer_words --timeout --no-wait --help ;;
        'ipc sem rm' | 'ipc shm rm') _zkq_offer_words --id --help ;;
        *) _zkq_offer_words --help ;;
    esac
}

_zkq_positional() {
    case "$1 ${#positionals[@]}" in
        'ini '*' 0' | 'log tail 0' | 'file copy '[01] | 'file link '[01] | 'file stat '* | 'packet dump 0' | 'conv 0') _zkq_offer_paths -f ;;
        'b64 '*' 0' | 'md5 '* | 'cert '* | 'der dump 0') _zkq_offer_paths -f ;;
        'xml '*' 0' | 'xml copy 2') _zkq_offer_paths -f ;;
        'proc lock 0' | 'ipc '*' '[a-z]*' 0' | 'ipc block '*' 1') ;;
        'proc run '* | 'proc lock '* | 'ipc sem lock '* | 'ipc block lock '*) _zkq_offer_paths -f ;;
        'ini sections '*) ;;
        'ini '*' 1') _zkq_offer_listed ini sections -- "${positionals[0]}" ;;
        'ini keys '*) ;;
        'ini '*' 2') _zkq_offer_listed ini keys -- "${positionals[@]}" ;;
        'ini set 3') _zkq_offer_listed ini get -- "${positionals[@]}" ;;
        'log level 0')
            _zkq_offer_listed ini keys -- "$dir/tamor.ini" applog
            _zkq_offer_words allapp allapp2
            ;;
        'log level 1') _zkq_offer_words off all debug info warn error ;;
        'file mkdirs 0' | 'file rmtree 0') _zkq_offer_paths -d ;;
        'z '*' 0' | 'json '*' 0' | 'cab '*' 0' | 'cab make '*) _zkq_offer_paths -f ;;
        'ping 0' | 'net connect 0' | 'net lookup 0') _zkq_offer_words 127.0.0.1 localhost ;;
        'net up 0' | 'net down 0' | 'net set 0' | 'net route '*' 0') _zkq_offer_devices ;;
        'net bridge stp 1') _zkq_offer_words on off ;;
        'net bridge add 0') ;;
        'net bridge add '* | 'net bridge '*' 0') _zkq_offer_devices ;;
        'cab extract '*) _zkq_offer_listed cab list -- "${positionals[0]}" ;;
    esac
}

# Completes behind a command of so many words.
_zkq_command() {
    local command=$1 dir=. positionals=()
    _zkq_read_words "$2"
    case ${COMP_WORDS[COMP_CWORD - 1]} in
        --dir | -d | --path) _zkq_offer_paths -d ;;
        --output | -o) _zkq_offer_paths -f ;;
        --level) _zkq_offer_words debug info warn error ;;
        --from | --to) _zkq_offer_words GBK UTF-8 UCS-2LE ;;
        --name)
            _zkq_offer_words version serial not-before not-after key-algorithm key-length signature-algorithm key key-type \
                signature-length signature subject issuer
            ;;
        --default | --project | --lines | -n | --columns | --attribute | --index) ;;
        --data | --timeout | --count | --size | --port | --units) ;;
        --type) _zkq_offer_words application/json application/octet-stream text/plain text/xml ;;
        --host) _zkq_offer_words 127.0.0.1 localhost ;;
        *)
            if [[ ${COMP_WORDS[COMP_CWORD]} == -* ]]; then
                _zkq_options "$command"
            else
                _zkq_positional "$command"
            fi
            ;;
    esac
}

# Completes behind a command that has commands itself.
_zkq_nested() {
    if ((COMP_CWORD > 3)); then
        _zkq_command "${COMP_WORDS[*]:1:3}" 4
    elif [[ ${COMP_WORDS[2]} == bridge ]]; then
        _zkq_offer_words add del stp --help
    else
        _zkq_offer_words set del --help
    fi
}

# Commands of a kind of object.
_zkq_ipc() {
    if ((COMP_CWORD > 3)); then
        _zkq_command "${COMP_WORDS[*]:1:3}" 4
        return
    fi
    case ${COMP_WORDS[2]} in
        sem) _zkq_offer_words ls create rm lock --help ;;
        shm) _zkq_offer_words ls create rm --help ;;
        block) _zkq_offer_words create rm lock --help ;;
    esac
}

_zkq() {
    COMPREPLY=()
    case $COMP_CWORD in
        1) _zkq_offer_words ini log file packet conv b64 md5 z cab xml json cert der http ping net proc ipc --help --version ;;
        2)
            case ${COMP_WORDS[1]} in
                ini) _zkq_offer_words get set del sections keys --help ;;
                log) _zkq_offer_words tail write level --help ;;
                xml) _zkq_offer_words get ls fmt set add del rename copy --help ;;
                file) _zkq_offer_words copy mkdirs rmtree temp link stat --help ;;
                packet) _zkq_offer_words dump make --help ;;
                b64) _zkq_offer_words encode decode --help ;;
                z) _zkq_offer_words compress decompress --help ;;
                cab) _zkq_offer_words make list extract test --help ;;
                json) _zkq_offer_words get set fmt array --help ;;
                cert) _zkq_offer_words show field der --help ;;
                der) _zkq_offer_words dump --help ;;
                http) _zkq_offer_words get post url --help ;;
                net) _zkq_offer_words addr lookup serve connect cards bridges bridge up down set route --help ;;
                proc) _zkq_offer_words run find kill lock --help ;;
                ipc) _zkq_offer_words sem shm block --help ;;
                conv | md5 | ping) _zkq_command "${COMP_WORDS[1]}" 2 ;; # commands without commands
            esac
            ;;
        *)
            case "${COMP_WORDS[1]} ${COMP_WORDS[2]}" in
                conv\ * | md5\ * | ping\ *) _zkq_command "${COMP_WORDS[1]}" 2 ;;
                ipc\ *) _zkq_ipc ;;
                'net bridge' | 'net route') _zkq_nested ;;
                *) _zkq_command "${COMP_WORDS[1]} ${COMP_WORDS[2]}" 3 ;;
            esac
            ;;
    esac
}

complete -F _zkq zkq
