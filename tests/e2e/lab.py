"""The lab (scripts/lab) seen from a test: bring it up under a prefix of its own, act in its hosts,
and read what the agent published in Redis and what the bridge holds."""
import json
import os
import subprocess
import time

ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), "..", ".."))
LAB = os.path.join(ROOT, "scripts", "lab")
MCAST = os.path.join(ROOT, "tests", "e2e", "mcast.py")

STATUS = "igmpsnooping/status"
PROTOCOL_STATUS = "igmpsnooping/protocolStatus"


def unavailable():
    """Why the lab cannot run here, or '' when it can."""
    if os.geteuid() != 0:
        return "needs root (network namespaces)"
    if subprocess.run(["ip", "netns", "list"], capture_output=True).returncode != 0:
        return "no network namespaces"
    for tool in ("redis-server", "redis-cli", "pimd", "bridge"):
        if subprocess.run(["sh", "-c", "command -v " + tool], capture_output=True).returncode != 0:
            return tool + " is not installed (run scripts/setup)"
    return ""


def alive(pid):
    """The command line of a live process (a zombie has none), or ''."""
    try:
        with open("/proc/%d/cmdline" % pid) as f:
            return f.read().replace("\0", " ").strip()
    except OSError:
        return ""


def wait_for(pred, timeout, step=0.1, what="condition"):
    """Polls pred until it returns something true; returns it, or raises after timeout seconds."""
    end = time.monotonic() + timeout
    last = None
    while True:
        last = pred()
        if last:
            return last
        if time.monotonic() > end:
            raise AssertionError("timed out after %.1f s waiting for %s (last: %r)" % (timeout, what, last))
        time.sleep(step)


def eth_of(group):
    """The Ethernet group of an IPv4 group, as the agent writes it."""
    a = [int(x) for x in group.split(".")]
    return "01:00:5e:%02x:%02x:%02x" % (a[1] & 0x7F, a[2], a[3])


class Lab:
    def __init__(self, prefix, hosts=4, v2hosts="1", agent=None, query_interval=125):
        self.prefix = prefix
        self.hosts = hosts
        self.env = dict(os.environ, LAB_PREFIX=prefix, LAB_HOSTS=str(hosts), LAB_V2_HOSTS=v2hosts,
                        LAB_QUERY_INTERVAL=str(query_interval), LAB_AGENT=agent or "/nonexistent")
        self.dir = "/run/igmpsnoop-lab/" + prefix
        self.sock = self.dir + "/redis.sock"
        self.router_port = "Ethernet%d" % (hosts + 1)

    def lab(self, *args, check=True):
        r = subprocess.run([LAB, *args], env=self.env, capture_output=True, text=True)
        if check and r.returncode != 0:
            raise AssertionError("scripts/lab %s failed: %s%s" % (" ".join(args), r.stdout, r.stderr))
        return r.stdout

    def up(self):
        self.lab("up")
        return self

    def down(self):
        self.lab("down", check=False)

    def exec(self, node, *cmd, check=True):
        r = subprocess.run(["ip", "netns", "exec", "%s-%s" % (self.prefix, node), *cmd],
                           capture_output=True, text=True)
        if check and r.returncode != 0:
            raise AssertionError("%s: %s failed: %s" % (node, " ".join(cmd), r.stderr))
        return r.stdout

    def spawn(self, node, *cmd):
        return subprocess.Popen(["ip", "netns", "exec", "%s-%s" % (self.prefix, node), *cmd],
                                stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)

    # Hosts join and leave the way applications do, through the kernel's IGMP.
    def join(self, host, group):
        self.exec(host, "ip", "addr", "add", group + "/32", "dev", "eth0", "autojoin")

    def leave(self, host, group):
        self.exec(host, "ip", "addr", "del", group + "/32", "dev", "eth0")

    def host_addr(self, host):
        return "10.77.0." + host[1:]

    def hold_sources(self, host, group, sources, exclude=False):
        args = ["python3", MCAST, "hold", group, "--source", ",".join(sources), "--ifaddr",
                self.host_addr(host)]
        p = self.spawn(host, *(args + (["--exclude"] if exclude else [])))
        assert p.stdout.readline().strip() == "joined", p.stderr.read()
        return p

    def count(self, hosts, seconds):
        """Starts counting multicast frames at each host; returns a function that waits for the
        counts, {host: {group: frames}}."""
        procs = {h: self.spawn(h, "python3", MCAST, "count", str(seconds)) for h in hosts}

        def result():
            return {h: json.loads(p.communicate()[0] or "{}") for h, p in procs.items()}
        return result

    def send(self, host, groups, count=100, rate=200):
        self.exec(host, "python3", MCAST, "send", ",".join(groups), "--count", str(count),
                  "--rate", str(rate))

    # The state database.
    def redis(self, *args):
        r = subprocess.run(["redis-cli", "--raw", "-s", self.sock, *args], capture_output=True, text=True)
        if r.returncode != 0:
            raise AssertionError("redis-cli %s: %s" % (" ".join(args), r.stderr))
        return r.stdout.splitlines()

    def hgetall(self, key):
        lines = self.redis("HGETALL", key)
        return dict(zip(lines[0::2], lines[1::2]))

    def keys(self, pattern):
        out, cursor = [], "0"
        while True:
            lines = self.redis("SCAN", cursor, "MATCH", pattern, "COUNT", "1000")
            cursor, out = lines[0], out + lines[1:]
            if cursor == "0":
                return sorted(set(out))

    def published(self, vlan=1):
        """What the agent published for the VLAN: {'flood': bool or None (no status), 'groups':
        {eth: set of ports}, 'routers': set of ports}."""
        base = "%s|%d" % (STATUS, vlan)
        top = self.hgetall(base)
        groups = {}
        for key in self.keys(base + "|*"):
            step = key[len(base) + 1:]
            eth = step.split("=", 1)[-1]
            ports = {f.split("=", 1)[1] for f, v in self.hgetall(key).items() if f.startswith("groupIntf=")}
            if ports:
                groups[eth] = ports
        return {
            "flood": None if not top else top.get("useVlanFloodset") == "true",
            "groups": groups,
            "routers": {f.split("=", 1)[1] for f in top if f.startswith("routerIntf=")},
        }

    def memberships(self, vlan=1):
        """The protocol status's memberships: {(group, port): {reporter: fields}} as far as the
        folded record fields tell."""
        out = {}
        for key in self.keys("%s|%d|*" % (PROTOCOL_STATUS, vlan)):
            group = key.rsplit("=", 1)[-1].rsplit("|", 1)[-1]
            for field, value in self.hgetall(key).items():
                if field.startswith("_") or "=" in field:
                    continue
                steps = field.split("|")
                if len(steps) >= 2:
                    out.setdefault((group, steps[0]), {})["|".join(steps[1:])] = value
        return out

    # The bridge.
    def mdb(self):
        """The bridge's multicast database as a set of (port, group)."""
        data = json.loads(self.exec("sw", "bridge", "-j", "mdb", "show") or "[]")
        return {(e["port"], e["grp"]) for d in data for e in d.get("mdb", [])}

    def agent_pid(self):
        try:
            with open(self.dir + "/agent.pid") as f:
                return int(f.read())
        except (OSError, ValueError):
            return None

    def agent(self, action):
        self.lab("agent", action)

    def agent_log(self):
        try:
            with open(self.dir + "/agent.log") as f:
                return f.read()
        except OSError:
            return ""
