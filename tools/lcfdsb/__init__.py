"""lcfd-sandbox: a network segment of simulated controllers, each running lcfd.

Every controller gets its own network namespace, joined to a switch (a bridge
in a "segment" namespace) by a veth whose controller end is named br0 (or the
interface given with iface=), and its own mount namespace in which /run, /home,
/etc (an overlay), /dev (with /dev/log), /proc/uptime and /proc/loadavg come
from the controller's state directory, /bin/sh records every "sh -c" line and
the simulated device commands of sim/bin are first on PATH.  A "tool"
namespace on the same segment is where requests are sent from.

Everything of a sandbox lives under BASE/NAME (default /tmp/lcfd-sandbox/NAME);
its namespaces are named lcfdsb.NAME.seg, lcfdsb.NAME.tool, lcfdsb.NAME.cK.
Run "lcfd-sandbox --help" for the commands.

The program is tools/lcfd-sandbox; this package is its code, one module per
concern:
  naming      paths, names, addresses and MACs of a sandbox and its parts
  syscalls    mount, unshare and setns, called directly
  util        small helpers: errors, commands, processes, files
  cpuorder    the control groups that let controllers read in turn
  board       a controller's description on the command line (-c BOARD)
  sandbox     the Sandbox: bookkeeping, building, teardown, inspection; gc
  segment     its switches, links, addresses and nftables rules
  controller  a controller's files, mount namespace and /dev
  daemons     starting, watching and stopping the controllers' lcfd
  background  the helper processes: syslog receiver and supervisor
  send        a request broadcast from the tool side
  cli         the command line
"""
