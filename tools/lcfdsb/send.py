"""A request broadcast from the tool side (lcfd-sandbox _send, run inside the
tool namespace by "send")."""

import socket
import sys
import time

from .naming import PORT, TOOL_ADDR


def send_main(message, wait, count, raw):
    """Broadcast one request from the tool side and print the replies."""
    rx = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    rx.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)
    rx.setsockopt(socket.SOL_SOCKET, socket.SO_BROADCAST, 1)
    rx.bind(("", PORT))
    tx = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    tx.setsockopt(socket.SOL_SOCKET, socket.SO_BROADCAST, 1)
    tx.sendto(message, ("255.255.255.255", PORT))
    deadline = time.monotonic() + wait
    got = 0
    while count == 0 or got < count:
        left = deadline - time.monotonic()
        if left <= 0:
            break
        rx.settimeout(left)
        try:
            data, (addr, _) = rx.recvfrom(65536)
        except socket.timeout:
            break
        if addr == TOOL_ADDR:
            continue  # our own request, looped back
        got += 1
        if raw:
            sys.stdout.buffer.write(data + b"\n")
        else:
            sys.stdout.write("[%s] %s\n" % (addr, data.decode("latin-1")))
        sys.stdout.flush()
    return 0
