#!/usr/bin/env python3
"""Processes that die, stall and come back, against the broker's process, with the test probe.

Usage: scripts/churn.py [BUILD_DIR] [CYCLES]   (defaults: build/default, 2000)

1. Subscribers A, B, C on one name (joined in that order); a sender sends 3000 notifications while B is
   killed with SIGKILL after the first 1000; a latecomer D joins after the kill and gets the last 1000.
   Prints how many each received.
2. CYCLES processes join (set up, subscribe) and leave, every other one killed with SIGKILL; prints the
   threads, sockets and descriptors of the broker's process before and after.
"""
import os, signal, subprocess, sys, tempfile, time

build = sys.argv[1] if len(sys.argv) > 1 else "build/default"
cycles = int(sys.argv[2]) if len(sys.argv) > 2 else 2000
probe = os.path.join(build, "tests", "NmProbe")
directory = tempfile.mkdtemp(prefix="kiv-churn-")
system = "churn%d" % os.getpid()


def start(name):
    return subprocess.Popen([probe, system, directory, name], stdin=subprocess.PIPE,
                            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, bufsize=1)


def ask(process, command):
    process.stdin.write(command + "\n")
    process.stdin.flush()
    return process.stdout.readline().strip()


def settle(main):
    last = None
    for _ in range(100):
        now = ask(main, "resources")
        if now == last:
            return now
        last = now
        time.sleep(0.1)
    return last


settings = os.path.join(directory, "queue.xml")
with open(settings, "w") as out:
    out.write('<NotificationManagerSettingsDocument><NotificationBroker queueLength="20000"/>'
              "</NotificationManagerSettingsDocument>")
main = start("Main")
assert ask(main, "setup broker " + settings) == "ok"
subscribers = {}
for name in "ABC":
    subscribers[name] = start(name)
    assert ask(subscribers[name], "setup client") == "ok"
    assert ask(subscribers[name], "subscribe Line") == "ok"
sender = start("S")
assert ask(sender, "setup client") == "ok"
assert ask(sender, "register Line").startswith("ok")
assert ask(main, "start") == "ok"
print("sent before the kill:", ask(sender, "burst Line 1000"))
ask(subscribers["C"], "report Line 1000")
subscribers["B"].kill()
subscribers["B"].wait()
while ask(main, "status Kiv.System.Nm.ExceptionDuringNotify.B") != "ok Unregistered":
    time.sleep(0.01)
print("sent after the kill: ", ask(sender, "burst Line 1000"))
ask(subscribers["C"], "report Line 2000")
late = start("D")
assert ask(late, "setup client") == "ok"
assert ask(late, "subscribe Line") == "ok"
print("sent after D joined: ", ask(sender, "burst Line 1000"))
for name in "AC":
    print("received by", name, ask(subscribers[name], "report Line 3000").split(" bad")[0])
print("received by D (latecomer)", ask(late, "report Line 1000").split(" bad")[0])

# Each count is taken with one guest joined, whose connection the broker's process holds.
witness = start("Witness0")
assert ask(witness, "setup client") == "ok"
before = settle(main)
started = time.time()
for i in range(cycles):
    guest = start("Guest%d" % i)
    assert ask(guest, "setup client") == "ok"
    assert ask(guest, "subscribe Line") == "ok"
    if i % 2 == 0:
        assert ask(guest, "dispose") == "ok"
        guest.stdin.close()
    else:
        guest.send_signal(signal.SIGKILL)
    guest.wait()
# The connection to the last guest goes when the next process joins.
witness.kill()
witness.wait()
witness = start("Witness1")
assert ask(witness, "setup client") == "ok"
after = settle(main)
print("%d join/leave cycles in %.0f s" % (cycles, time.time() - started))
print("broker's process before:", before)
print("broker's process after: ", after)
for process in [main, sender, late, witness] + [subscribers[n] for n in "AC"]:
    process.kill()
    process.wait()
