#!/bin/bash
# Holds the meeting of tools/meeting across three hosts: network namespaces that are joined by a bridge in
# a fourth. Each host has its own name, which its hosts file maps to 127.0.1.1, as a Debian machine does;
# all parties listen on the same port. A party that takes its own address from that file is then the same
# party as every other, and a meeting of such parties falls apart; on one machine nobody would notice.
#
# Then a meeting of four over slow lines, on which frames come in packets and end in small ones: whoever
# waits for the rest of a frame must not keep the others waiting.
#
# Then a meeting over lines that carry 576 bytes at a time, in which a cable is out for a while: nothing is
# lost. And one in which a member's address changes, and a cable is pulled for good: both ends find out.
#
# usage: namespaces.sh PROGRAM
#
# Exit status 77, with the reason, where namespaces cannot be made (it takes root).
set -euo pipefail
program=$(realpath "$1")
cd "$(dirname "$0")/.."

skip() {
    echo "skipped: $*"
    exit 77
}
[ "$(id -u)" -eq 0 ] || skip "network namespaces take root"
command -v ip >/dev/null || skip "there is no 'ip' (package iproute2)"
unshare --mount --uts true 2>/dev/null || skip "mount and host name namespaces are not allowed here"

. tools/meeting-acts

# Their names in the kernel: unique to this run.
space() { echo "vintok$$-$1"; }
hosts=(Ann Bob Cid Dan)
declare -A number=([Ann]=1 [Bob]=2 [Cid]=3 [Dan]=4)
address_of() { echo "192.0.2.${number[$1]}"; }

at_end() {
    local name
    for name in switch "${hosts[@]}"; do
        ip netns delete "$(space $name)" 2>/dev/null || true
    done
}

make_switch() {
    ip netns add "$(space switch)" 2>"$stage/why" || skip "no network namespace: $(cat "$stage/why")"
    ip -n "$(space switch)" link add bridge type bridge 2>"$stage/why" ||
        skip "no bridge: $(cat "$stage/why")"
    ip -n "$(space switch)" link set bridge up
}

# A host, its cable to the switch, and its name.
make_host() {
    local name=$1 other
    ip netns add "$(space "$name")"
    ip -n "$(space "$name")" link add cable type veth peer name "to$name" netns "$(space switch)" \
        2>"$stage/why" || skip "no pair of interfaces: $(cat "$stage/why")"
    ip -n "$(space switch)" link set "to$name" master bridge up
    ip -n "$(space "$name")" address add "$(address_of "$name")/24" dev cable
    ip -n "$(space "$name")" link set lo up
    ip -n "$(space "$name")" link set cable up
    {
        echo "127.0.0.1 localhost"
        echo "127.0.1.1 ${name,,}.example ${name,,}"
        for other in "${hosts[@]}"; do
            [ "$other" = "$name" ] || echo "$(address_of "$other") ${other,,}.example ${other,,}"
        done
    } >"$stage/hosts.$name"
}

run() {
    local name=$1
    shift
    exec ip netns exec "$(space "$name")" unshare --mount --uts bash -c '
        mount --bind "$1" /etc/hosts && hostname "$2" && shift 2 && exec "$@"' \
        bash "$stage/hosts.$name" "${name,,}" "$program" "$@"
}
host_target=ann
options=(--port 7777 --exact-port)

make_switch
for name in "${hosts[@]}"; do
    make_host $name
done
act "Three hosts"
for name in Ann Bob Cid; do
    does $name has "$(address_of $name), and calls itself $(sed -n 's/^127.0.1.1 //p' "$stage/hosts.$name")"
done

# The frame of a line has 60 bytes more.
bob_says() {
    local line
    line=x$(head -c "$1" /dev/urandom | base64 -w0 | cut -c "2-$1")
    echo "$line" >>"$stage/said"
    echo "$line" >&"${keyboard[Bob]}"
}
heard() { sed 's/\x1b\[[0-9;]*m//g' "$stage/Cid.screen" | sed -n 's/^Bob: //p'; }
heard_all() { [ "$(heard | wc -l)" -eq "$(wc -l <"$stage/said")" ]; }

hold_slow_meeting() {
    local name packets tail deadline lines=0
    act "Four hosts, whose lines take 20 Mbit/s"
    for name in "${hosts[@]}"; do
        ip netns exec "$(space $name)" tc qdisc add dev cable root tbf rate 20mbit burst 3000 \
            latency 400ms 2>"$stage/why" || { act "They are left out: $(cat "$stage/why")"; return; }
    done
    start Ann host --meeting Slow
    sees Ann 'Hosting the meeting "Slow".'
    for name in Bob Cid Dan; do
        start $name join "$host_target:7777"
        sees $name 'The call was accepted.'
    done
    sees Cid 'Dan is in the meeting'

    act "Bob says lines that end in a packet of a few bytes, and each arrives"
    for packets in 1 2 5 9; do
        for tail in {10..30}; do
            bob_says $((packets * 1448 + tail - 60))
            deadline=$((SECONDS + patience))
            until heard_all; do
                [ $SECONDS -lt $deadline ] || fail "Cid hears $packets packets and $tail bytes"
                sleep 0.02
            done
        done
    done

    act "Bob says 60 lines at once, and Dan goes on talking"
    for name in {1..60}; do
        bob_says $((RANDOM + 2))
    done &
    until ! kill -0 $! 2>/dev/null && heard_all; do
        [ $((++lines)) -lt 60 ] || fail "Cid hears all that Bob says"
        types Dan "Line $lines"
        sees Cid "Dan: Line $lines"
        sleep 1
    done
    cmp <(heard) "$stage/said" || fail "Cid hears what Bob says"
    does Cid hears "what Bob says"
}

# start_three OPTION...: Ann hosts, and the other two have joined.
start_three() {
    local name
    types Ann /leave
    for name in "${!keyboard[@]}"; do
        ends "$name" 0
    done
    start Ann host --meeting Three "$@"
    sees Ann 'Hosting the meeting "Three".'
    for name in Bob Cid; do
        start $name join "$host_target:7777" "$@"
        sees $name 'The call was accepted.'
    done
    sees Bob 'Cid is in the meeting'
}

hold_rough_meeting() {
    local name
    act "Three hosts, whose lines carry 576 bytes at a time"
    for name in "${hosts[@]}"; do
        ip -n "$(space $name)" link set cable mtu 576
        ip -n "$(space switch)" link set "to$name" mtu 576
    done
    start_three
    sends Cid Ann Bob

    act "Bob's cable is out for three seconds, in which he and Cid talk"
    ip -n "$(space switch)" link set toBob down
    types Cid 'Said meanwhile.'
    types Bob 'Nobody answers.'
    sleep 3
    ip -n "$(space switch)" link set toBob up
    sees Bob 'Cid: Said meanwhile.'
    sees Ann 'Bob: Nobody answers.'
    says Cid 'Welcome back.' Ann Bob
}

# Nothing tells anybody that the line is gone: frames just vanish.
pull_cable() {
    local name=$1
    act "$name's cable is pulled while nobody says anything"
    ip -n "$(space switch)" link set "to$name" nomaster
}

hold_meeting_with_a_broken_line() {
    local name
    act "Three hosts, and a sign of life every 2 seconds"
    start_three --keep-alive 2
    act "Bob gets another address, and joins again from there"
    ip -n "$(space Bob)" address del "$(address_of Bob)/24" dev cable
    ip -n "$(space Bob)" address add 192.0.2.20/24 dev cable
    for name in Ann Cid; do
        sees $name 'Bob has left the meeting.'
    done
    sees Bob 'The host has left: the meeting is over.'
    ends Bob 0
    start Bob join "$host_target:7777" --keep-alive 2
    sees Bob 'The call was accepted.'
    says Bob 'Here I am again.' Ann Cid
    pull_cable Cid
    sees Ann 'Cid has left the meeting.'
    sees Bob 'Cid has left the meeting.'
    sees Cid 'The host has left: the meeting is over.'
}

hold_meeting
hold_slow_meeting
hold_rough_meeting
hold_meeting_with_a_broken_line
act "Every step was seen."
