#!/usr/bin/env python3
"""Multicast traffic for the lab's hosts: send a paced stream, count what arrives, hold a
source-specific membership. Runs inside a host's namespace (scripts/lab exec hN python3 mcast.py ...).

  mcast.py send GROUP[,GROUP...] --count N --rate R     UDP to port 5001 from eth0, round robin
  mcast.py count SECONDS [--iface eth0]                  JSON {group: frames} of UDP to 224/4 seen
  mcast.py hold GROUP --source S[,S...] [--exclude]      join with a source list, hold until killed
"""
import argparse
import json
import signal
import socket
import sys
import time

ETH_P_ALL = 0x0003
IP_ADD_SOURCE_MEMBERSHIP = 39
IP_BLOCK_SOURCE = 38


def send(args):
    groups = args.groups.split(",")
    s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    s.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_TTL, 8)
    s.setsockopt(socket.IPPROTO_IP, socket.IP_MULTICAST_LOOP, 0)
    gap = 1.0 / args.rate
    start = time.monotonic()
    for i in range(args.count):
        g = groups[i % len(groups)]
        s.sendto(b"igmpsnoop-lab %d" % i, (g, 5001))
        delay = start + (i + 1) * gap - time.monotonic()
        if delay > 0:
            time.sleep(delay)


def count(args):
    s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(ETH_P_ALL))
    s.bind((args.iface, 0))
    s.settimeout(0.1)
    seen = {}
    end = time.monotonic() + args.seconds
    while time.monotonic() < end:
        try:
            frame, addr = s.recvfrom(2048)
        except socket.timeout:
            continue
        if addr[2] == socket.PACKET_OUTGOING or len(frame) < 34:
            continue
        if frame[12:14] != b"\x08\x00" or frame[23] != 17:
            continue
        dst = socket.inet_ntoa(frame[30:34])
        if 224 <= frame[30] <= 239:
            seen[dst] = seen.get(dst, 0) + 1
    print(json.dumps(seen), flush=True)


def hold(args):
    s = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
    ifaddr = socket.inet_aton(args.ifaddr)
    group = socket.inet_aton(args.group)
    if args.exclude:
        s.setsockopt(socket.IPPROTO_IP, socket.IP_ADD_MEMBERSHIP, group + ifaddr)
        for src in args.source.split(","):
            s.setsockopt(socket.IPPROTO_IP, IP_BLOCK_SOURCE, group + ifaddr + socket.inet_aton(src))
    else:
        for src in args.source.split(","):
            # struct ip_mreq_source: multiaddr, interface, sourceaddr
            s.setsockopt(socket.IPPROTO_IP, IP_ADD_SOURCE_MEMBERSHIP, group + ifaddr + socket.inet_aton(src))
    print("joined", flush=True)
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(0))
    while True:
        time.sleep(3600)


def main():
    p = argparse.ArgumentParser()
    sub = p.add_subparsers(dest="cmd", required=True)
    a = sub.add_parser("send")
    a.add_argument("groups")
    a.add_argument("--count", type=int, default=100)
    a.add_argument("--rate", type=float, default=100.0)
    a.set_defaults(fn=send)
    a = sub.add_parser("count")
    a.add_argument("seconds", type=float)
    a.add_argument("--iface", default="eth0")
    a.set_defaults(fn=count)
    a = sub.add_parser("hold")
    a.add_argument("group")
    a.add_argument("--source", required=True)
    a.add_argument("--exclude", action="store_true")
    a.add_argument("--ifaddr", required=True)
    a.set_defaults(fn=hold)
    args = p.parse_args()
    args.fn(args)


if __name__ == "__main__":
    main()
