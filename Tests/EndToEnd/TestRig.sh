#!/usr/bin/env bash
# The rig itself: private, several at once, nothing left behind, and an exit code that says when it cannot be made.
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd -P)
rig=$root/scripts/rig

fail() {
    echo "failed: $*" >&2
    exit 1
}

# Left out where there can be no rig, with the reason.
"$rig" -- true || exit $?

code=0
"$rig" -- bash -c 'exit 5' || code=$?
((code == 5)) || fail "the exit code is that of the command, not $code"

# What a command writes to the unit's paths stays in the rig; the checkout is visible.
mark=rig-test-$$
"$rig" -- bash -c "test -e '$root/scripts/rig' && touch /tmp/$mark /var/log/$mark /home/$mark /run/$mark" ||
    fail "the unit's paths cannot be used"
for directory in /tmp /var/log /home /run; do
    ! [[ -e $directory/$mark ]] || fail "$directory/$mark is left behind"
done

# What a rig covers can be kept visible.
kept=$(mktemp --directory)
trap 'rm -rf "$kept"' EXIT
"$rig" --keep "$kept" -- touch "$kept/seen"
[[ -e $kept/seen ]] || fail "a kept directory is not the same inside"

# The network of a unit: every cable carries datagrams to its far end.
# shellcheck disable=SC2016 # expanded inside
"$rig" -- bash -c '
    set -e
    for cable in k2link0,pri,1 k2link1,sec,2 k2link2,ter,3; do
        IFS=, read -r interface name host <<<"$cable"
        ifconfig $interface 0.10.$host.1 netmask 255.255.255.0 up
        ip -n $name address add 0.10.$host.254/24 dev eth0
    done
    for neighbour in "eth0 1.63.1.0" "k2link0 0.10.1.254" "k2link1 0.10.2.254" "k2link2 0.10.3.254"; do
        read -r interface address <<<"$neighbour"
        # A refusal that comes back says that the far end has been reached.
        error=$( (exec 3<>"/dev/tcp/$address/1") 2>&1 ) || true
        [[ $error == *refused* ]] || { echo "$interface: $error"; exit 1; }
    done
    [[ $(cat /sys/class/net/k2link1/k2hid) == 0 ]]
    echo 44 >/sys/class/net/k2link0/k2hid
    route add -host 9.9.9.9 gw 1.63.1.0
' || fail "the rig has not the addresses of a unit"

# Whatever ends the rig ends everything in it, and two can be there at once. A pipe that a process in the rig holds
# open ends with that process.
for signal in TERM KILL; do
    mkfifo "$kept/$signal-1" "$kept/$signal-2"
    "$rig" --keep "$kept" -- bash -c "exec >$kept/$signal-1; sleep 1000 & echo; wait" &
    first=$!
    "$rig" --keep "$kept" -- bash -c "exec >$kept/$signal-2; sleep 1000 & echo; wait" &
    second=$!
    exec {first_pipe}<"$kept/$signal-1" {second_pipe}<"$kept/$signal-2"
    read -r -t 60 -u "$first_pipe"
    read -r -t 60 -u "$second_pipe"
    kill -"$signal" "$first" "$second"
    for pipe in "$first_pipe" "$second_pipe"; do
        timeout 60 cat <&"$pipe" || fail "a process outlives a rig that is ended by $signal"
        exec {pipe}<&-
    done
    wait "$first" "$second" 2>/dev/null || true
done

# Root that may not create a user namespace does without one.
# shellcheck disable=SC2016 # expanded inside
"$rig" -- bash -c 'echo 0 >/proc/sys/user/max_user_namespaces; "$0" -- test -d /sys/class/net/k2link0' "$rig" ||
    fail "root cannot have a rig without a user namespace"

# A machine that forbids namespaces gets a reason and the code that means "left out", or a failure if it must not.
# shellcheck disable=SC2016 # expanded inside
forbidding='for kind in user net; do echo 0 >/proc/sys/user/max_${kind}_namespaces || exit 78; done; "$0" -- true'
code=0
reason=$(env --unset ORB_REQUIRE_RIG "$rig" -- bash -c "$forbidding" "$rig" 2>&1) || code=$?
if ((code == 78)); then
    echo "Root in a chroot has no user namespace in which it may forbid them, so this is not tried."
    exit 0
fi
((code == 77)) || fail "no rig gives code $code"
[[ $reason == *"does not allow network namespaces"* ]] || fail "no rig gives the reason '$reason'"
code=0
ORB_REQUIRE_RIG=1 "$rig" -- bash -c "$forbidding" "$rig" 2>/dev/null || code=$?
((code == 1)) || fail "a rig that is required and cannot be made gives code $code"
echo "passed"
