# Shared part of every simulated controller command (sourced, POSIX sh).
#
# A simulated controller keeps its whole state in one directory, named by
# LCFD_SIM_STATE.  Values live one per file under $LCFD_SIM_STATE/sim/, so
# that a command which changes a value (setip, date -s, ...) is seen by the
# next command that reads it.  Every call is appended to $LCFD_SIM_STATE/sim.log
# and may be told to misbehave through $LCFD_SIM_STATE/fault/<tool>[.<sub>].

if [ -z "${LCFD_SIM_STATE:-}" ] || [ ! -d "$LCFD_SIM_STATE/sim" ]; then
    printf '%s: LCFD_SIM_STATE does not name a controller state directory\n' "${0##*/}" >&2
    exit 70
fi
S=$LCFD_SIM_STATE
V=$S/sim

# Device files such as /etc/tarnsetup.d/timeserver are only touched for real
# inside the controller's own mount namespace, whose /run carries the marker
# below.  Run anywhere else (by hand, on a workstation) the same files are
# emulated under the state directory, so the host's /etc is never changed.
if [ -e /run/.lcfd-sim ]; then
    R=
else
    R=$S/root
fi

# sim_log TOOL ARGS...: one line per call, the tool and its arguments.
sim_log() {
    printf '%s\n' "$*" >>"$S/sim.log"
}

# sim_get NAME [IFACE]: print a value (nothing when it is not set).  A value
# may be overridden per interface by a file NAME@IFACE.
sim_get() {
    if [ -n "${2:-}" ] && [ -f "$V/$1@$2" ]; then
        sim_f=$V/$1@$2
    else
        sim_f=$V/$1
    fi
    [ -f "$sim_f" ] || return 0
    while IFS= read -r sim_l || [ -n "$sim_l" ]; do
        printf '%s\n' "$sim_l"
    done <"$sim_f"
}

# sim_read NAME: set $val to the first line of a value ("" when unset).
sim_read() {
    val=
    [ -f "$V/$1" ] || return 0
    IFS= read -r val <"$V/$1" || true
}

sim_put() {
    printf '%s\n' "$2" >"$V/$1"
}

sim_del() {
    rm -f "$V/$1"
}

# is_ipv4 TEXT: four decimal numbers 0-255 separated by dots, nothing else.
is_ipv4() {
    case $1 in
    '' | *[!0-9.]* | .* | *. | *..*) return 1 ;;
    esac
    sim_ifs=$IFS
    IFS=.
    # shellcheck disable=SC2086
    set -- $1
    IFS=$sim_ifs
    [ $# -eq 4 ] || return 1
    for sim_o; do
        [ ${#sim_o} -le 3 ] && [ "$sim_o" -le 255 ] || return 1
    done
    return 0
}

# sim_fault KEY...: apply the first misbehaviour file that exists among
# $S/fault/KEY.  Its first line is a mode and an optional argument:
#   exit N      print nothing, exit with status N (default 1)
#   error TEXT  print "ERROR::TEXT" and exit 1
#   garbage     print a line of binary rubbish
#   empty       print nothing, exit 0
#   big         print one line of 1 MiB
#   missing     behave like a command the shell cannot find (status 127)
#   print TEXT  print TEXT and a line feed instead of the real answer
#   fail TEXT   print TEXT and a line feed, then exit 1 (an answer that says
#               nothing of the failure)
#   delay SECS  wait, then behave normally
sim_fault() {
    for sim_k; do
        sim_ff=$S/fault/$sim_k
        [ -f "$sim_ff" ] || continue
        sim_line=
        IFS= read -r sim_line <"$sim_ff" || true
        sim_mode=${sim_line%% *}
        sim_arg=${sim_line#"$sim_mode"}
        sim_arg=${sim_arg# }
        case $sim_mode in
        exit) exit "${sim_arg:-1}" ;;
        error)
            printf 'ERROR::%s\n' "${sim_arg:-simulated failure of $sim_k}"
            exit 1
            ;;
        garbage)
            printf '\376\377\001garbage\033[0m~%%s\\n\n'
            exit 0
            ;;
        empty) exit 0 ;;
        big)
            head -c 1048575 /dev/zero | tr '\0' 'x'
            printf '\n'
            exit 0
            ;;
        missing)
            printf 'sh: 1: %s: not found\n' "${0##*/}" >&2
            exit 127
            ;;
        print)
            printf '%s\n' "$sim_arg"
            exit 0
            ;;
        fail)
            printf '%s\n' "$sim_arg"
            exit 1
            ;;
        delay)
            sleep "${sim_arg:-1}"
            return 0
            ;;
        *)
            printf '%s: unknown fault mode "%s" in %s\n' "${0##*/}" "$sim_mode" "$sim_ff" >&2
            exit 70
            ;;
        esac
    done
    return 0
}

# sim_now_offset: set $off to the simulated clock's offset against the host
# clock in seconds.
sim_now_offset() {
    sim_read clock_offset
    off=${val:-0}
}

# sim_date FORMAT...: the real date program, shifted by the simulated offset.
sim_date() {
    sim_now_offset
    /bin/date -d "$off seconds" "$@"
}
