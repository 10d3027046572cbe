#!/usr/bin/env python3
"""How long a normal request takes while thousands of other connections hold the local cloud open.

Starts quorvane-cloud (argument 1, default build/emulator/quorvane-cloud) on a free port, opens
IDLE connections that send nothing and TRICKLE connections that send their request head one byte
every half second, then times ROUNDS ordinary requests, each on a fresh connection, and prints the
median and the slowest, with the server's thread count; first, 500 connects at once, counting the
listen queue's overflows. Not run by CI: its figures depend on the
machine. Environment: QUORVANE_BENCH_IDLE (1000), QUORVANE_BENCH_TRICKLE (1000), QUORVANE_BENCH_ROUNDS (50).
"""
import os, resource, select, socket, statistics, subprocess, sys, threading, time

root = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
program = sys.argv[1] if len(sys.argv) > 1 else os.path.join(root, "build/emulator/quorvane-cloud")
idle_n = int(os.environ.get("QUORVANE_BENCH_IDLE", "1000"))
trickle_n = int(os.environ.get("QUORVANE_BENCH_TRICKLE", "1000"))
rounds = int(os.environ.get("QUORVANE_BENCH_ROUNDS", "50"))

soft, hard = resource.getrlimit(resource.RLIMIT_NOFILE)
resource.setrlimit(resource.RLIMIT_NOFILE, (hard, hard))

cloud = subprocess.Popen([program, "--port", "0", "--quiet"], stdout=subprocess.PIPE, text=True)
port = None
for line in cloud.stdout:
    if line.startswith("port "):
        port = int(line.split()[1])
    if line.strip() == "ready":
        break
assert port, "quorvane-cloud printed no port"

def listen_overflows():
    with open("/proc/net/netstat") as f:
        lines = f.read().splitlines()
    for names, values in zip(lines[::2], lines[1::2]):
        if names.startswith("TcpExt:"):
            return int(dict(zip(names.split()[1:], values.split()[1:]))["ListenOverflows"])
    return 0

def burst(n):
    """n connects started at once (non-blocking), as a client with many jobs does; the machine's
    listen overflows counted around it (other programs' too, so run it on a quiet machine)."""
    before = listen_overflows()
    socks = []
    for _ in range(n):
        s = socket.socket()
        s.setblocking(False)
        s.connect_ex(("127.0.0.1", port))
        socks.append(s)
    time.sleep(1)
    after = listen_overflows()
    for s in socks:
        s.close()
    return after - before

def connect():
    s = socket.create_connection(("127.0.0.1", port), timeout=30)
    return s

overflows = burst(500)
idle = [connect() for _ in range(idle_n)]
trickle = [connect() for _ in range(trickle_n)]
head = b"GET /logstores/s/track?APIVersion=0.6.0 HTTP/1.1\r\nHost: 127.0.0.1\r\nX-Slow: " + b"z" * 4000
stop = False

def trickler():
    at = 0
    while not stop and at < len(head):
        for s in trickle:
            try:
                s.send(head[at:at + 1])
            except OSError:
                pass
        at += 1
        time.sleep(0.5)

thread = threading.Thread(target=trickler)
thread.start()
time.sleep(2)  # every trickling connection has begun its head

def one_request():
    start = time.monotonic()
    s = connect()
    s.sendall(b"GET /logstores/s/track?APIVersion=0.6.0 HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n")
    answer = b""
    while b"\r\n\r\n" not in answer:
        chunk = s.recv(4096)
        if not chunk:
            break
        answer += chunk
    s.close()
    assert answer.startswith(b"HTTP/1.1 200"), answer[:80]
    return (time.monotonic() - start) * 1000

times = []
for _ in range(rounds):
    times.append(one_request())
    time.sleep(0.05)
with open(f"/proc/{cloud.pid}/status") as status:
    threads = next(l.split()[1] for l in status if l.startswith("Threads:"))
stop = True
thread.join()
print(f"burst of 500 simultaneous connects: listen overflows +{overflows}")
print(f"open connections: {idle_n} idle + {trickle_n} trickling; server threads: {threads}")
print(f"normal request ({rounds} rounds, fresh connection each): median {statistics.median(times):.1f} ms, "
      f"slowest {max(times):.1f} ms")
for s in idle + trickle:
    s.close()
cloud.terminate()
cloud.wait()
