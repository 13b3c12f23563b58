#!/usr/bin/env bash
# The SysV init script (packaging/sysv/S50lcfd) on a simulated BusyBox board: installed as
# /etc/init.d/S50lcfd with /etc/default/lcfd inside a sandboxed controller (its own network
# and mount namespaces, /etc and /run), and run by BusyBox's shell with BusyBox's applets for
# every command, as a board's rcS runs it. For each output setting (null, syslog): status
# while stopped and running, start, a second start, restart and stop, each checked against
# the processes of the controller, its pid file and the daemon's answer to a QUERY; then a
# daemon that died behind the script's back.
#
# Usage: check-sysv-init.sh LCFD SOURCE_DIR VERSION   (root; exits 77 without)
set -euo pipefail

if [ $# -ne 3 ]; then
    echo "usage: $0 LCFD SOURCE_DIR VERSION" >&2
    exit 2
fi
lcfd=$(realpath "$1")
src=$(realpath "$2")
version=$3
if [ "$(id -u)" != 0 ]; then
    echo "check-sysv-init: needs root (namespaces); skipped"
    exit 77
fi
busybox=$(command -v busybox) || {
    echo "check-sysv-init: busybox is not installed" >&2
    exit 1
}
busybox=$(realpath "$busybox")

script=$src/packaging/sysv/S50lcfd
defaults=$src/packaging/sysv/lcfd.default
sandbox_tool=$src/tools/lcfd-sandbox
name=sysv-init$$
netns=lcfdsb.$name.c1
pidfile=/var/run/lcfd.pid
# Controller 1 of a sandbox: its address and MAC as the reply spells them.
address=198.18.0.1
mac=02:4C:43:00:00:01
banner="LAN Config Facility $version : Listening for broadcast packets"
# The run ends, failing, well before the test's timeout (300 s) would kill it with no time
# to stop what it started; on an idle machine it takes about 20 s.
budget=270

failed=0
fail() {
    echo "FAIL: $*" >&2
    failed=1
}

# A run killed all the same could not stop the daemon and logger its init script started,
# and its sandbox, once torn down by the next one's "up", no longer lists them. They carry
# the sandbox's name, and so the pid of that run, in their environment; its work directory
# carries the pid in its name.
reap_killed_runs() {
    local file pid owner
    { grep -laE 'LCFD_SIM_STATE=[^[:cntrl:]]*/sysv-init[0-9]+/c1' /proc/[0-9]*/environ \
        2>/dev/null || true; } | while read -r file; do
        pid=${file#/proc/}
        pid=${pid%/environ}
        owner=$(tr '\0' '\n' <"$file" 2>/dev/null |
            sed -nE 's|^LCFD_SIM_STATE=.*/sysv-init([0-9]+)/c1$|\1|p')
        if [ -n "$owner" ] && [ "$owner" != $$ ] && ! kill -0 "$owner" 2>/dev/null; then
            echo "check-sysv-init: ending pid $pid, left by the killed run $owner"
            kill -KILL "$pid" 2>/dev/null || true
        fi
    done
    for file in /tmp/lcfd-sysv-init[0-9]*.*; do
        owner=${file#/tmp/lcfd-sysv-init}
        owner=${owner%%.*}
        if [ -d "$file" ] && ! kill -0 "$owner" 2>/dev/null; then
            rm -rf "$file"
        fi
    done
}
reap_killed_runs

sb() { "$sandbox_tool" -n "$name" "$@"; }
# Runs a command inside controller 1 (simulated device commands first on PATH).
in_ctrl() { sb exec -c 1 -- "$@"; }

# The processes in the controller's network namespace, one pid a line.
ns_pids() { ip netns pids "$netns" 2>/dev/null || true; }

# The pids of the controller's lcfd processes (by executable: the host runs others).
lcfd_pids() {
    local pid
    for pid in $(ns_pids); do
        if [ "$(readlink "/proc/$pid/exe" 2>/dev/null)" = "$lcfd" ]; then
            echo "$pid"
        fi
    done
}

work=$(mktemp -d "/tmp/lcfd-sysv-init$$.XXXXXX")
cleanup() {
    local pid
    # The init script's daemon and its logger are no children of the sandbox, which would
    # leave them running once their namespace is gone.
    for pid in $(ns_pids); do
        kill -KILL "$pid" 2>/dev/null || true
    done
    sb down >/dev/null 2>&1 || true
    rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 1' INT TERM HUP

in_time() {
    if [ "$SECONDS" -ge "$budget" ]; then
        fail "out of time (${budget}s) at: $1"
        exit 1
    fi
}

# expect WHAT EXPECTED ACTUAL
expect() {
    if [ "$2" != "$3" ]; then
        fail "$1: expected [$2], got [$3]"
        return 1
    fi
    echo "ok (${SECONDS}s): $1: [${2//$'\n'/ | }]"
}

# until_true SECONDS WHAT COMMAND...: polls COMMAND until it succeeds.
until_true() {
    local seconds=$1 what=$2
    shift 2
    local deadline=$((SECONDS + seconds))
    until "$@"; do
        in_time "$what"
        if [ "$SECONDS" -ge "$deadline" ]; then
            fail "$what: not within ${seconds}s"
            return 1
        fi
        sleep 0.1
    done
    echo "ok (${SECONDS}s): $what"
}

# A board's PATH: its device commands (here the simulated ones, which stand in for the
# board's own date, df, route and hostname too) and BusyBox for everything else.
mkdir "$work/bin"
"$busybox" --install -s "$work/bin"
board_path=$src/sim/bin:$work/bin

# expect_rc ARG OUTPUT STATUS: runs the init script as init does, checks what it says and
# its exit status.
expect_rc() {
    local out status=0
    in_time "$1"
    out=$(in_ctrl env PATH="$board_path" "$busybox" sh /etc/init.d/S50lcfd "$1" 2>&1) ||
        status=$?
    expect "$1: output" "$2" "$out" || true
    expect "$1: exit status" "$3" "$status" || true
}

# The pid file, seen from outside: the controller's /run is its directory's run/.
pidfile_pid() { cat "$ctrl_dir/run/${pidfile##*/}" 2>/dev/null || true; }
no_process_left() { [ -z "$(ns_pids)" ]; }
pid_gone() { [ "$(readlink "/proc/$1/exe" 2>/dev/null)" != "$lcfd" ]; }
# The service port, 7217 (hex 1C31), bound in the daemon's network namespace.
port_bound() { awk '$2 ~ /:1C31$/ { found = 1 } END { exit !found }' "/proc/$1/net/udp"; }

# expect_one_daemon WHAT: exactly one lcfd runs in the controller and the pid file names
# it; sets daemon to its pid.
expect_one_daemon() {
    local pids
    pids=$(lcfd_pids)
    daemon=$(pidfile_pid)
    expect "$1: lcfd processes in the controller" 1 "$(echo "$pids" | grep -c .)" || return 1
    expect "$1: pid file names the running lcfd" "$pids" "$daemon"
}

# expect_answer SEQID: the daemon, once listening, answers a QUERY from the tool side.
expect_answer() {
    local replies want="[$address] LCF2#STATUS#seqid=$1#mac=$mac#"
    until_true 20 "service port bound" port_bound "$daemon" || return 1
    in_time "QUERY"
    replies=$(sb send "LCF2#QUERY#seqid=$1" --count 1 --wait 20)
    expect "QUERY seqid=$1 answered" "$want" "${replies:0:${#want}}"
}

# The number of records carrying LINE that logger sent for the daemon's standard output
# (facility user, priority notice); the daemon's own records are daemon.info, <30>.
logged() {
    grep -cE "^<13>[A-Z][a-z]{2} [ 0-9][0-9] [0-9]{2}:[0-9]{2}:[0-9]{2} lcfd: ${1//./\\.}\$" \
        "$ctrl_dir/syslog" || true
}
banner_logged() { [ "$(logged "$banner")" -ge "$1" ]; }

# The installed copy gets its daemon path rewritten in the one place it is named.
expect "S50lcfd names /usr/sbin/lcfd once, as DAEMON's default" "DAEMON=/usr/sbin/lcfd" \
    "$(grep -F /usr/sbin/lcfd "$script")" || true

sb up --lcfd "$lcfd" --count 1 --platforms imx --no-start --owner-pid $$ >/dev/null
ctrl_dir=$(sb logs 1 dir)
my_session=$(ps -o sid= -p $$ | tr -d ' ')

for mode in null syslog; do
    echo "--- LCFD_OUTPUT=$mode"
    {
        cat "$defaults"
        echo "DAEMON=$lcfd"
        if [ "$mode" = syslog ]; then echo "LCFD_OUTPUT=syslog"; fi
    } >"$work/default"
    # shellcheck disable=SC2016 # the controller's shell expands them
    in_ctrl sh -c 'install -D -m 755 "$1" /etc/init.d/S50lcfd &&
                   install -D -m 644 "$2" /etc/default/lcfd' sh "$script" "$work/default"
    banners_before=$(logged "$banner")

    expect_rc status "lcfd is stopped" 3

    expect_rc start "Starting lcfd: OK" 0
    expect_one_daemon "start" || continue
    first=$daemon
    session=$(ps -o sid= -p "$first" | tr -d ' ')
    [ "$session" != "$my_session" ] || fail "start: the daemon stays in the caller's session"
    if [ "$mode" = null ]; then
        expect "daemon's standard output" /dev/null "$(readlink "/proc/$first/fd/1")" || true
        expect "daemon's standard error" /dev/null "$(readlink "/proc/$first/fd/2")" || true
    fi
    expect_answer 1 || true
    expect_rc status "lcfd is running (pid $first)" 0

    expect_rc start "Starting lcfd: already running" 0
    expect_one_daemon "second start" || true
    expect "second start keeps the daemon" "$first" "$daemon" || true

    expect_rc restart "Stopping lcfd: OK
Starting lcfd: OK" 0
    expect_one_daemon "restart" || true
    if [ "$daemon" = "$first" ] || ! pid_gone "$first"; then
        fail "restart: the daemon $first is still the one running"
    fi
    expect_answer 2 || true
    if [ "$mode" = null ]; then
        # reload is a restart too: lcfd has none of its own.
        previous=$daemon
        expect_rc reload "Stopping lcfd: OK
Starting lcfd: OK" 0
        expect_one_daemon "reload" || true
        [ "$daemon" != "$previous" ] || fail "reload: the daemon $previous is still the one running"
    fi

    if [ "$mode" = syslog ]; then
        # Both starts' banners, each a record of the logger's.
        until_true 20 "banner in syslog twice" banner_logged $((banners_before + 2)) || true
        expect "banners in syslog" $((banners_before + 2)) "$(logged "$banner")" || true
    else
        expect "banners in syslog" "$banners_before" "$(logged "$banner")" || true
    fi
    # The daemon's own records come either way.
    if ! grep -qE '^<30>.* lcfd: Finished reading network settings$' "$ctrl_dir/syslog"; then
        fail "the daemon's own syslog records are missing"
    fi

    last=$daemon
    expect_rc stop "Stopping lcfd: OK" 0
    expect "lcfd processes after stop" "" "$(lcfd_pids)" || true
    pid_gone "$last" || fail "stop left the daemon $last running"
    [ ! -e "$ctrl_dir/run/${pidfile##*/}" ] || fail "stop left $pidfile"
    until_true 10 "nothing left in the controller after stop" no_process_left || true
    expect_rc status "lcfd is stopped" 3
    expect_rc stop "Stopping lcfd: not running" 0
done

echo "--- a daemon that died"
expect_rc start "Starting lcfd: OK" 0
expect_one_daemon "start" || true
if [ -n "$daemon" ]; then
    kill -KILL "$daemon"
    until_true 10 "killed daemon gone" pid_gone "$daemon" || true
fi
expect_rc status "lcfd is dead, its pid file $pidfile remains" 1
expect_rc start "Starting lcfd: OK" 0
expect_one_daemon "start after the daemon died" || true
expect_rc stop "Stopping lcfd: OK" 0
expect "lcfd processes after stop" "" "$(lcfd_pids)" || true
until_true 10 "nothing left in the controller after stop" no_process_left || true

if [ "$failed" != 0 ]; then
    echo "check-sysv-init: FAILED" >&2
    exit 1
fi
echo "check-sysv-init: passed in ${SECONDS}s"
