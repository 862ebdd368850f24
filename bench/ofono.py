"""oFono of Debian on a modem of an emulated network, for bench/compare."""
import contextlib
import os
import pathlib
import statistics
import subprocess
import sys
import tempfile
import time

from phones import (HERTZ, SMOKE, TREE, ZPD, Phone, bare_dialogues, cards_of_255, ended, network, processor_seconds,
                    said_until_ready)
from services import system_calls

OURS, THEIRS, OTHER = "+12025550100", "+12025550101", "+12025550199"
CARDS, TURNS = (1, 1) if SMOKE else (16, 5)


class Ofono:
    """The daemon on a bus of its own. It keeps its files in `folder`/lib, and cards that come are in `folder`/cards."""

    def __init__(self, daemon, bus, client, cards):
        self.cards = cards
        self.daemons = [daemon.pid, bus.pid]
        self.client = client

    def used(self):
        """Seconds of processors."""
        return sum(processor_seconds(pid) for pid in self.daemons)

    def send(self, files, to):
        """Seconds until all are sent, and of processors. All are handed over at once: its queue is never empty."""
        before, begin = self.used(), time.monotonic()
        self.client.stdin.write(f"{to} {' '.join(files)}\n")
        self.client.stdin.flush()
        if self.client.stdout.readline() != "sent\n":
            raise RuntimeError("oFono's client has ended")
        return time.monotonic() - begin, self.used() - before


def in_folder_of_its_own():
    """What root may everywhere, and others only as a user of their own."""
    apart = ["unshare", "--mount"]
    if subprocess.run([*apart, "true"], stderr=subprocess.DEVNULL).returncode == 0:
        return apart
    return ["unshare", "--user", "--map-current-user", "--keep-caps", "--mount"]


@contextlib.contextmanager
def ofono(folder, port):
    """On the modem that listens there: its driver for those that need no system's device lists takes a TCP port."""
    folder = pathlib.Path(folder)
    for name in "lib", "cards":
        (folder / name).mkdir()
    modem = folder / "modem.conf"
    modem.write_text(f"[phonesim]\nDriver=phonesim\nAddress=127.0.0.1\nPort={port}\n")
    address = f"unix:path={folder}/bus"
    environment = {**os.environ, "DBUS_SYSTEM_BUS_ADDRESS": address, "OFONO_PHONESIM_CONFIG": str(modem)}

    def started(words, **more):
        return ended(subprocess.Popen(words, env=environment, text=True, stdout=subprocess.PIPE, **more))

    with contextlib.ExitStack() as stack:
        quiet = {"stderr": subprocess.DEVNULL}
        bus = stack.enter_context(started(
            ["dbus-daemon", "--session", "--nofork", "--print-address=1", f"--address={address}"], **quiet))
        bus.stdout.readline()  # it answers
        daemon = stack.enter_context(started(
            [*in_folder_of_its_own(), "sh", "-c", 'mount --bind "$1" /var/lib && exec /usr/sbin/ofonod --nodetach', "-",
             str(folder / "lib")], **quiet))
        # The modules of Debian's D-Bus are for Debian's Python.
        client = stack.enter_context(started(["timeout", "600", "/usr/bin/python3", TREE / "bench/ofono_client.py",
                                              str(folder / "cards")], stdin=subprocess.PIPE))
        said_until_ready(client)
        yield Ofono(daemon, bus, client, folder / "cards")


@contextlib.contextmanager
def both(home, *faults):
    """Ours on the tty of a modem and oFono on the TCP port of another, in one network; an exchange takes as long on either. Yields
    the network's folder and the two."""
    with tempfile.TemporaryDirectory(dir="/dev/shm") as folder, \
            network(folder, OURS, THEIRS, OTHER, faults=faults, listening=[THEIRS]) as ports:
        phone = Phone(home, f"{folder}/net/{OURS}")
        with ended(phone.process), ofono(home, ports[THEIRS]) as its:
            yield f"{folder}/net", phone, its


def sending():
    """Datagrams a second, and processor time a datagram, ours over its; datagrams a second of bare dialogues, over its too; and our
    system calls a datagram."""
    ours, its, bare = [], [], []
    with tempfile.TemporaryDirectory(dir="/dev/shm") as home, \
            both(home, f"{OTHER}:storage=1", f"{OTHER}:delivery-gap=0") as (net, phone, other):
        files = cards_of_255(home, CARDS)
        phone.send(files[:1], OTHER)  # the driver waits at its start
        for _ in range(TURNS):
            ours.append(phone.send(files, OTHER))
            its.append(other.send(files, OTHER))
            bare.append(bare_dialogues(f"{net}/{OTHER}", CARDS * 255, OTHER))
        few = files[:4]
        calls = system_calls(phone, few, OTHER) / (len(few) * 255)
    seconds, used = (tuple(statistics.median(one[i] for one in all_of_it) for all_of_it in (ours, its)) for i in range(2))
    return seconds[1] / seconds[0], used[0] / max(used[1], 1 / HERTZ), seconds[1] / statistics.median(bare), calls


def receiving(where):
    """Datagrams a second, ours over its, with homes in this folder: the network has them, and the modems store 20 at a time."""
    taken = [], []
    faults = [f"{phone}:{fault}" for phone in (OURS, THEIRS) for fault in ("offers=stored", "delivery-gap=0", "storage=20")]
    with tempfile.TemporaryDirectory(dir=where) as home, both(home, *faults) as (net, _, other):
        files = cards_of_255(home, CARDS)
        incoming = pathlib.Path(home, "home/Application Data/PUBLIC/VARKON/ZPD/INCOMING")
        for turn in range(TURNS + 1):
            for seconds, number, folder in (taken[0], OURS, incoming), (taken[1], THEIRS, other.cards):
                begin = time.monotonic()
                subprocess.run([ZPD, "network", "send", "--dir", net, "--from", OTHER, "--to", number, *files], check=True,
                               stdout=subprocess.DEVNULL)
                wait_for_files(folder, (turn + 1) * CARDS)
                seconds.append(time.monotonic() - begin)
    return statistics.median(taken[1][1:]) / statistics.median(taken[0][1:])


def wait_for_files(folder, count):
    end = time.monotonic() + 60
    while not folder.is_dir() or sum(not name.endswith(".part") for name in os.listdir(folder)) < count:
        if time.monotonic() > end:
            sys.exit(f"{count} cards do not come to {folder}")
        time.sleep(0.002)
