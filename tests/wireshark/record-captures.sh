#!/bin/sh
# Records the committed captures in captures/ from a running sandbox: the requests the
# configuration tool sends and the replies the controllers broadcast, as the tool side of
# the segment sees them. Needs root; run it again only when the daemon's replies change.
#   tests/wireshark/record-captures.sh [path/to/lcfd]
set -eu
here=$(cd "$(dirname "$0")" && pwd)
top=$(cd "$here/../.." && pwd)
lcfd=${1:-$top/build/src/main/lcfd}
sandbox="$top/tools/lcfd-sandbox"
name=wscap$$
out="$here/captures"
work=$(mktemp -d)

cleanup() {
    "$sandbox" -n "$name" down >/dev/null 2>&1 || true
    rm -rf "$work"
}
trap cleanup EXIT INT TERM

# Controller 1 and 2 reply on br0 (plain UDP); controller 3 names eth0, so each of its
# replies is a hand-built raw frame.
"$sandbox" -n "$name" up --lcfd "$lcfd" -c generic -c arm9 -c generic,iface=eth0 --owner-pid $$ >/dev/null

# capture NAME COUNT MESSAGE: the request and COUNT replies, in captures/NAME.pcap.
capture() {
    file="$work/$1.pcapng"
    # dumpcap ends by itself after the request and its replies
    ip netns exec "lcfdsb.$name.tool" dumpcap -q -i lan0 -f "udp port 7217" -c $(($2 + 1)) \
        -w "$file" 2>"$work/$1.log" &
    pid=$!
    deadline=$(($(date +%s) + 10))
    until grep -q "^File:" "$work/$1.log" 2>/dev/null; do
        [ "$(date +%s)" -lt "$deadline" ] || { echo "dumpcap did not start" >&2; exit 1; }
        sleep 0.1
    done
    "$sandbox" -n "$name" send "$3" --count "$2" --wait 5 >"$work/$1.replies"
    deadline=$(($(date +%s) + 10))
    while kill -0 "$pid" 2>/dev/null; do
        [ "$(date +%s)" -lt "$deadline" ] || { kill -INT "$pid"; echo "$1: replies missing" >&2; exit 1; }
        sleep 0.1
    done
    wait "$pid"
    # classic pcap: the smallest file that every tshark reads
    editcap -F pcap "$file" "$out/$1.pcap"
    echo "$1: $(wc -l <"$work/$1.replies") replies"
}

capture discovery 3 'LCF2#QUERY#seqid=1'
capture query-addressed 1 'LCF2#QUERY#seqid=2#mac=02:4c:43:00:00:02'
capture assign-accepted 1 'LCF2#ASSIGN#seqid=3#mac=02:4C:43:00:00:01#ntpip=198.18.255.123#utcclock=20260101120000'
capture assign-refused 1 'LCF2#ASSIGN#seqid=4#mac=02:4C:43:00:00:02#ipscheme=dhcp'
capture clear-accepted 1 'LCF2#CLEAR#seqid=5#mac=02:4C:43:00:00:02#syslogip'
capture clear-refused 1 'LCF2#CLEAR#seqid=6#mac=02:4C:43:00:00:01#hostname'
capture raw-frame-replies 1 'LCF2#QUERY#seqid=7#mac=02:4C:43:00:00:03'
