#!/bin/bash
# Plays with the examples: each does what its first lines say.
#
# usage: examples.sh SOURCES PROGRAMS PREFIX LIBDIR
set -euo pipefail
sources=$1 programs=$2 prefix=$3 libdir=$4
place=$(mktemp -d)
children=() inputs=()
trap 'kill "${children[@]}" 2>/dev/null || true; wait; rm -rf "$place"' EXIT
cd "$place"

fail() {
    echo "examples: $*" >&2
    tail -n 20 "$place"/*.out >&2
    exit 1
}

# `starts NAME COMMAND...`: its output goes to NAME.out, and its lines come from NAME.in.
starts() {
    local name=$1
    shift
    mkfifo "$name.in"
    (
        for input in "${inputs[@]}"; do eval "exec $input>&-"; done # nobody holds another's input open
        exec "$@" <"$name.in" >"$name.out" 2>&1
    ) &
    children+=($!)
    eval "$name=$!"
    exec {input}>"$name.in"
    inputs+=("$input")
    eval "${name}_input=$input"
}

says() {
    local input=${1}_input
    echo "$2" >&"${!input}"
}

closes() {
    local input=${1}_input
    eval "exec ${!input}>&-"
}

prints() {
    local tries
    for ((tries = 0; tries < 400; ++tries)); do
        ! grep -q -- "$2" "$1.out" || return 0
        sleep 0.05
    done
    fail "$1 does not print '$2'"
}

port_of() {
    prints "$1" '^PORT:[1-9]'
    port=$(sed -n 's/^PORT://p' "$1.out")
}

ends() {
    local status=0
    wait "${!1}" || status=$?
    [ "$status" -eq "$2" ] || fail "$1 ends with $status"
}

for loop in poll epoll uv glib; do
    timeout 60 "$programs/${loop}_loop" >"$loop.out" || fail "${loop}_loop ends with $?"
    prints "$loop" '^Ben: Good morning$'
done

starts ann "$programs/chat" Ann
port_of ann
starts ben "$programs/chat" Ben 127.0.0.1 "$port"
prints ben '^\* Ann is here$'
starts cora "$programs/c_chat" Cora 127.0.0.1 "$port"
prints ann '^Cora: Good morning$'
says ben 'What a day'
prints ann '^Ben: What a day$'
prints cora '^Ben: What a day$'
if command -v python3 >/dev/null; then
    starts bot env VINTOK_LIBRARY="$prefix/$libdir/libvintok.so.4" PYTHONPATH="$sources/../python" \
        python3 "$sources/chat_bot.py" Bot 127.0.0.1 "$port"
    prints ann '^\* Bot is here$'
    says ben '!time'
    prints ben '^Bot: .*:[0-9][0-9]'
fi
closes ben
prints ann '^\* Ben has left$'
ends ben 0
timeout 60 "$programs/timed_call" 127.0.0.1 "$port" >timed.out || fail "timed_call ends with $?"
prints timed '^accepted$'
closes ann
ends cora 0
[ -z "${bot:-}" ] || ends bot 0
! timeout 60 "$programs/timed_call" 127.0.0.1 "$port" >untimed.out || fail 'nobody is there'
prints untimed '^no answer$'

head -c 3000000 /dev/urandom >file
mkdir store
starts store_host "$programs/file_drop" store
port_of store_host
timeout 60 "$programs/file_drop" file 127.0.0.1 "$port" >sender.out || fail "the sender ends with $?"
prints store_host 'file: it is here$'
cmp file store/file

if [ -x "$programs/tls_host" ]; then
    "$prefix/bin/vintok" tls-init certificates --host 127.0.0.1 >tls-init.out
    starts tls "$programs/tls_host" certificates/host.pem certificates/host.key
    port_of tls
    starts guest "$prefix/bin/vintok" join "127.0.0.1:$port" --name Ben --tls-ca certificates/ca.pem
    prints tls '^Ben is here, over TLSv1.3 '
fi
