"""The command line of lcfd-sandbox."""

import argparse
import os
import shlex
import subprocess
import sys

from .background import supervise_main, syslogd_main
from .board import parse_board
from .naming import BASE, ENTRY, MAX_TOOL_HOSTS, PLATFORMS, ns_name
from .sandbox import Sandbox, gc_all
from .send import send_main
from .util import die, read_bytes


def percent(text):
    if not text.isdigit() or int(text) > 100:
        raise argparse.ArgumentTypeError("expected a whole percentage 0 to 100, got %r" % text)
    return int(text)


def parse_controllers(args):
    boards = [parse_board(s) for s in args.ctrl or []]
    if args.count:
        cycle = (args.platforms or "arm9").split(",")
        for i in range(args.count):
            boards.append(parse_board(cycle[i % len(cycle)]))
    if not boards:
        boards = [parse_board("arm9")]
    return boards


def parse_ids(sb, ids):
    if not ids:
        return list(sb.controllers())
    out = []
    for i in ids:
        try:
            out.append(int(i))
        except ValueError:
            die("bad controller id %r" % i)
        sb.ctrl(out[-1])
    return out


def main(argv):
    ap = argparse.ArgumentParser(
        prog="lcfd-sandbox",
        description="Run simulated controllers, each with an lcfd, on a private network segment.",
        epilog="Controller BOARD: PLATFORM[,iface=NAME][,nobcast][,sdk=WORD][,tz=ZONE][,stdin=closed]"
               "[,nosyslog][,seg=N]; "
               "PLATFORM is one of %s." % ", ".join(PLATFORMS))
    ap.add_argument("-n", "--name", default=os.environ.get("LCFD_SANDBOX", "lcfd"),
                    help="sandbox name (default $LCFD_SANDBOX or 'lcfd')")
    ap.add_argument("-v", "--verbose", action="store_true",
                    help="say how long each step of 'up' took")
    sub = ap.add_subparsers(dest="cmd", required=True, metavar="COMMAND")

    p = sub.add_parser("up", help="create the segment and start the controllers")
    p.add_argument("--lcfd", required=True, help="path of the lcfd program")
    p.add_argument("-c", "--ctrl", action="append", metavar="BOARD", help="add one controller (repeatable)")
    p.add_argument("--count", type=int, default=0, help="add N controllers of --platforms, round robin")
    p.add_argument("--platforms", help="comma-separated platforms for --count (default arm9)")
    p.add_argument("--no-start", action="store_true", help="prepare everything but start no daemon")
    p.add_argument("--wait", type=float, default=10.0,
                   help="seconds to wait for every daemon's banner (0: do not wait)")
    p.add_argument("--owner-pid", type=int, default=0,
                   help="tear the sandbox down at the next 'gc' once this process is gone")
    p.add_argument("--loss", type=percent, default=0, metavar="PCT",
                   help="drop this share (0 to 100) of the datagrams to and from every "
                        "controller at random, each on its own, as a lossy network does")
    p.add_argument("--no-cpu-order", action="store_true",
                   help="let the controllers share the cores evenly, as the kernel does by "
                        "default: their readings then all end together, late")
    p.add_argument("--no-crosstalk", action="store_true",
                   help="keep each controller's replies from reaching the other controllers "
                        "(the tool side hears all): a segment of hundreds otherwise loses "
                        "probes in the receive queues of controllers waiting for the CPU")
    p.add_argument("--tool-hosts", type=int, default=1, metavar="N",
                   help="put N tool hosts (1 to %d) on segment 1: host H>1 is a namespace of its own "
                        "with lan0 at 198.18.255.(240-H), for one tool to watch another's "
                        "traffic (exec --tool-host H)" % MAX_TOOL_HOSTS)
    p.add_argument("--lcfd-prefix", default="", metavar="COMMAND",
                   help="run every daemon as COMMAND LCFD (split like a shell line; {dir} stands "
                        "for the controller's directory), e.g. 'valgrind "
                        "--log-file={dir}/valgrind.log'; stop then gives it 60 s to end")

    sub.add_parser("down", help="stop everything and remove the sandbox")
    p = sub.add_parser("loss", help="change the share of datagrams the segment drops")
    p.add_argument("percent", type=percent, metavar="PCT")
    sub.add_parser("status", help="show the controllers")
    sub.add_parser("gc", help="remove sandboxes left behind by dead test runs")
    sub.add_parser("list", help="list the sandboxes")

    p = sub.add_parser("start", help="start daemons (all, or the given ids)")
    p.add_argument("ids", nargs="*")
    p.add_argument("--wait", type=float, default=10.0)
    p = sub.add_parser("stop", help="stop daemons (all, or the given ids)")
    p.add_argument("ids", nargs="*")
    p = sub.add_parser("restart", help="stop and start daemons")
    p.add_argument("ids", nargs="*")
    p.add_argument("--wait", type=float, default=10.0)

    p = sub.add_parser("exec", help="run a command in the tool namespace or in a controller")
    p.add_argument("-c", "--ctrl", type=int, help="controller id (default: the tool side)")
    p.add_argument("--tool-host", type=int, default=1, metavar="H",
                   help="on the tool side, run in tool host H (see up --tool-hosts; default 1)")
    p.add_argument("command", nargs=argparse.REMAINDER)

    p = sub.add_parser("send", help="broadcast a request from the tool side and print the replies")
    p.add_argument("message")
    p.add_argument("--wait", type=float, default=2.0, help="seconds to collect replies (default 2)")
    p.add_argument("--count", type=int, default=0, help="stop after this many replies")
    p.add_argument("--raw", action="store_true", help="print only the reply bytes, one per line")

    p = sub.add_parser("logs", help="print a controller's captured output")
    p.add_argument("id", type=int)
    p.add_argument("what", nargs="?", default="stdout",
                   choices=["stdout", "stderr", "syslog", "shell", "sim", "dir"])

    p = sub.add_parser("_syslogd")
    p = sub.add_parser("_supervise")
    p.add_argument("ids", nargs="+", type=int)
    p = sub.add_parser("_send")
    p.add_argument("message")
    p.add_argument("--wait", type=float)
    p.add_argument("--count", type=int)
    p.add_argument("--raw", action="store_true")

    args = ap.parse_args(argv)
    sb = Sandbox(args.name)
    sb.verbose = args.verbose

    if args.cmd == "_syslogd":
        return syslogd_main(sb)
    if args.cmd == "_supervise":
        return supervise_main(sb, args.ids)
    if args.cmd == "_send":
        return send_main(os.fsencode(args.message), args.wait, args.count, args.raw)
    if os.geteuid() != 0:
        die("needs root (network and mount namespaces)")

    if args.cmd == "up":
        lcfd = os.path.abspath(args.lcfd)
        if not os.access(lcfd, os.X_OK):
            die("%s is not an executable" % lcfd)
        if not 1 <= args.tool_hosts <= MAX_TOOL_HOSTS:
            die("--tool-hosts: 1 to %d" % MAX_TOOL_HOSTS)
        gc_all()
        try:
            sb.up(parse_controllers(args), lcfd, args.owner_pid, not args.no_start, args.wait,
                  shlex.split(args.lcfd_prefix), args.loss, not args.no_cpu_order,
                  not args.no_crosstalk, args.tool_hosts)
        except Exception as e:
            sys.stderr.write("lcfd-sandbox: up failed: %s\n" % e)
            sb.down(quiet=True)
            return 1
        return 0
    if args.cmd == "down":
        sb.down()
        return 0
    if args.cmd == "gc":
        gc_all()
        return 0
    if args.cmd == "list":
        for meta in sorted(BASE.glob("*/meta.json")):
            print(meta.parent.name)
        return 0

    sb.load()
    if args.cmd == "status":
        sb.status()
    elif args.cmd == "loss":
        sb.set_loss(args.percent)
    elif args.cmd == "start":
        sb.start(parse_ids(sb, args.ids), args.wait)
    elif args.cmd == "stop":
        sb.stop(parse_ids(sb, args.ids))
    elif args.cmd == "restart":
        ids = parse_ids(sb, args.ids)
        sb.stop(ids)
        sb.start(ids, args.wait)
    elif args.cmd == "exec":
        cmd = args.command
        if cmd and cmd[0] == "--":
            cmd = cmd[1:]
        if not cmd:
            cmd = ["/bin/bash"]
        if args.ctrl is not None:
            sb.ctrl(args.ctrl)
        sb.exec_cmd(args.ctrl, cmd, args.tool_host)
    elif args.cmd == "send":
        argv2 = ["nsenter", "--net=/run/netns/%s" % ns_name(sb.name, "tool"), "--",
                 sys.executable, str(ENTRY), "-n", sb.name, "_send", args.message,
                 "--wait", str(args.wait), "--count", str(args.count)] + (["--raw"] if args.raw else [])
        return subprocess.call(argv2)
    elif args.cmd == "logs":
        d = sb.cdir(args.id)
        if args.what == "dir":
            print(d)
            return 0
        name = {"shell": "shell.log", "sim": "sim.log"}.get(args.what, args.what)
        sys.stdout.buffer.write(read_bytes(d / name))
    return 0
