"""The segment of a sandbox: its switches, the tool side's and the controllers'
links and addresses, and the nftables rules of a lossy segment and of one
without crosstalk.  A part of Sandbox (see sandbox.py), whose bookkeeping it uses."""

from .naming import (PORT, PREFIX_LEN, ctrl_addr, ctrl_mac, ns_name, switch_name, tool_addr,
                     tool_host_addr, tool_host_ns, tool_iface)
from .util import run


class Segment:
    def segments(self):
        """The segments in use: 1 always, and every one a controller is on."""
        return sorted({1} | {c.get("segment", 1) for c in self.meta["controllers"]})

    def make_segment(self):
        seg, tool = ns_name(self.name, "seg"), ns_name(self.name, "tool")
        run(["ip", "netns", "add", seg])
        run(["ip", "netns", "add", tool])
        seg_cmds, tool_cmds = ["link set lo up"], ["link set lo up"]
        for n in self.segments():
            sw, port, lan = switch_name(n), "tool" if n == 1 else "tool%d" % n, tool_iface(n)
            seg_cmds += [
                "link add %s type bridge" % sw,
                "link set %s up" % sw,
                "link add %s type veth peer name %s netns %s" % (port, lan, tool),
                "link set %s master %s" % (port, sw),
                "link set %s up" % port,
            ]
            tool_cmds += [
                "link set %s addrgenmode none" % lan,
                "addr add %s/%d dev %s" % (tool_addr(n), PREFIX_LEN, lan),
                "link set %s up" % lan,
            ]
        # The limited broadcast leaves on the first segment unless the sender
        # binds its socket to another interface.
        tool_cmds.append("route add 255.255.255.255/32 dev %s" % tool_iface(1))
        hosts = range(2, self.meta.get("tool_hosts", 1) + 1)
        for h in hosts:
            run(["ip", "netns", "add", ns_name(self.name, tool_host_ns(h))])
            seg_cmds += [
                "link add host%d type veth peer name %s netns %s"
                % (h, tool_iface(1), ns_name(self.name, tool_host_ns(h))),
                "link set host%d master %s" % (h, switch_name(1)),
                "link set host%d up" % h,
            ]
        run(["ip", "-n", seg, "-batch", "-"], input_text="\n".join(seg_cmds) + "\n")
        run(["ip", "-n", tool, "-batch", "-"], input_text="\n".join(tool_cmds) + "\n")
        for h in hosts:
            # Another tool host on segment 1: only lan0, the broadcast route on it.
            lan = tool_iface(1)
            host_cmds = [
                "link set lo up",
                "link set %s addrgenmode none" % lan,
                "addr add %s/%d dev %s" % (tool_host_addr(h), PREFIX_LEN, lan),
                "link set %s up" % lan,
                "route add 255.255.255.255/32 dev %s" % lan,
            ]
            run(["ip", "-n", ns_name(self.name, tool_host_ns(h)), "-batch", "-"],
                input_text="\n".join(host_cmds) + "\n")
        self.set_loss(self.meta.get("loss", 0))
        if not self.meta.get("crosstalk", True):
            self.stop_crosstalk()

    LOSS_TABLE = "lcfdsb_loss"
    CROSSTALK_TABLE = "lcfdsb_crosstalk"

    def stop_crosstalk(self):
        """Keeps the service port's datagrams of one controller (its replies) from
        reaching the others; the tool side still hears everything.  On a real segment
        every controller receives its peers' broadcast replies and drops them on a CPU of
        its own.  Here the controllers waiting behind others for the CPU cannot empty
        their receive queues: a discovery of hundreds fills them with peers' replies and
        the kernel drops the next probe (a thousand controllers dropped thousands of
        datagrams each), a loss no real segment of that size has."""
        rules = ("table bridge %s {\n"
                 "  chain forward {\n"
                 "    type filter hook forward priority -1; policy accept;\n"
                 "    iifname \"c*\" oifname \"c*\" udp dport %d counter drop\n"
                 "  }\n"
                 "}\n" % (self.CROSSTALK_TABLE, PORT))
        run(["ip", "netns", "exec", ns_name(self.name, "seg"), "nft", "-f", "-"], input_text=rules)

    def set_loss(self, percent):
        """Drops that share of the service port's datagrams at random, each on its own:
        every frame a switch forwards to one port is kept or dropped independently, so a
        broadcast probe reaches some controllers and not others, and each answer may be
        lost on its way to the tool, as on a lossy plant network."""
        seg = ns_name(self.name, "seg")
        run(["ip", "netns", "exec", seg, "nft", "delete", "table", "bridge", self.LOSS_TABLE],
            check=False, quiet=True)
        if percent > 0:
            rules = ("table bridge %s {\n"
                     "  chain forward {\n"
                     "    type filter hook forward priority 0; policy accept;\n"
                     "    udp dport %d numgen random mod 100 < %d counter drop\n"
                     "  }\n"
                     "}\n" % (self.LOSS_TABLE, PORT, percent))
            run(["ip", "netns", "exec", seg, "nft", "-f", "-"], input_text=rules)
        self.meta["loss"] = percent
        self.save()

    def make_controller_nets(self, ks):
        """Namespaces and switch ports of all controllers in two runs of ip, then the
        controller's own side of each link in one run per controller."""
        seg = ns_name(self.name, "seg")
        run(["ip", "-batch", "-"], input_text="".join(
            "netns add %s\n" % ns_name(self.name, "c%d" % k) for k in ks))
        ports = []
        for k in ks:
            c = self.ctrl(k)
            ports += [
                "link add c%d type veth peer name %s netns %s" % (k, c["iface"],
                                                                  ns_name(self.name, "c%d" % k)),
                "link set c%d master %s" % (k, switch_name(c.get("segment", 1))),
                "link set c%d up" % k,
            ]
        run(["ip", "-n", seg, "-batch", "-"], input_text="\n".join(ports) + "\n")
        for k in ks:
            c = self.ctrl(k)
            cmds = [
                "link set lo up",
                "link set %s address %s" % (c["iface"], ctrl_mac(k)),
                "link set %s addrgenmode none" % c["iface"],
                "addr add %s/%d dev %s" % (ctrl_addr(k), PREFIX_LEN, c["iface"]),
                "link set %s up" % c["iface"],
            ]
            if c["bcast_route"]:
                cmds.append("route add 255.255.255.255/32 dev %s" % c["iface"])
            run(["ip", "-n", ns_name(self.name, "c%d" % k), "-batch", "-"],
                input_text="\n".join(cmds) + "\n")
