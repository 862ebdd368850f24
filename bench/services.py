"""What services cost to start, and with nothing to do, and what they call of the system, for bench/compare."""
import contextlib
import pathlib
import re
import sqlite3
import statistics
import subprocess
import sys
import tempfile
import time

from phones import SMOKE, Phone, ended, network, switches

NUMBER = "+12025550100"
ROWS = 1000 if SMOKE else 100_000
NUMBERED = "WITH RECURSIVE numbered (i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM numbered WHERE i < ?) INSERT INTO "


def system_calls(phone, files, to):
    """Of all its threads while these are sent. A tracer that stops it at each would have it make others."""
    with tempfile.TemporaryDirectory() as folder:
        counts = pathlib.Path(folder, "counts")
        counting = ["perf", "stat", "-x,", "-o", counts, "-e", "raw_syscalls:sys_enter", "-p", str(phone.process.pid), "--"]
        done = subprocess.run([*counting, *phone.sending(files, to)], stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, text=True)
        count = re.search(r"^(\d+),", counts.read_text(), re.M) if counts.exists() else None
        if done.returncode != 0 or not count:
            sys.exit(f"perf cannot count system calls (root may): {done.stderr}")
        return int(count[1])


def until_ready(homes):
    """Milliseconds from a start until "ready", less those of /bin/true; for each of the homes."""
    turns = 1 if SMOKE else 7
    with tempfile.TemporaryDirectory(dir="/dev/shm") as folder, network(folder, NUMBER):
        taken = [[] for _ in range(len(homes) + 1)]
        for _ in range(turns):
            begin = time.monotonic()
            subprocess.run(["/bin/true"], check=True)
            taken[-1].append(time.monotonic() - begin)
            for home, seconds in zip(homes, taken):
                begin = time.monotonic()
                with ended(Phone(home, f"{folder}/net/{NUMBER}").process):
                    seconds.append(time.monotonic() - begin)
    medians = [statistics.median(one) * 1000 for one in taken]
    return [one - medians[-1] for one in medians[:-1]]


def starts():
    """The same of an empty home in memory, of one on a disk, and of one in memory with datagrams of incomplete cards in its journal
    and cards in its outbox."""
    with tempfile.TemporaryDirectory(dir="/dev/shm") as empty, tempfile.TemporaryDirectory(dir="/var/tmp") as disk, \
            tempfile.TemporaryDirectory(dir="/dev/shm") as full:
        until_ready([empty, disk, full])  # makes the tables
        fill(full)
        return until_ready([empty, disk, full])


def fill(folder):
    for name, statement in ("journal", f"""{NUMBERED} datagrams SELECT i, unixepoch(), 0, 0, randomblob(160), randomblob(20),
            '+1202555' || (i / 250), '1202555' || (i / 250) || '/8/1/255', 0, i % 250 + 1, 255, randomblob(128), NULL, NULL
            FROM numbered"""), ("outbox", f"""{NUMBERED} messages SELECT i, 0, 0, '+1202555' || i, 'card.vcf', 'Ada Lovelace', 0, 0,
            200, 2, 0, unixepoch(), 0, unixepoch(), 0, '', '', NULL, 0, randomblob(200) FROM numbered"""):
        with contextlib.closing(sqlite3.connect(f"{folder}/home/{name}.sqlite")) as file, file:
            file.execute(statement, (ROWS,))


def many():
    """Of how many services on one machine, each with a modem: resident memory in MB, the same with each page divided among those
    who map it, and wake-ups of an idle one a minute."""
    count, settling, quiet = (5, 0.2, 0.5) if SMOKE else (50, 15, 60)  # s; the driver looks at the network 10 s after its start
    numbers = [f"+1202555{i:04}" for i in range(count)]
    with tempfile.TemporaryDirectory(dir="/dev/shm") as folder, network(folder, *numbers), contextlib.ExitStack() as services:
        pids = []
        for number in numbers:
            phone = Phone(f"{folder}/{number}", f"{folder}/net/{number}")
            services.enter_context(ended(phone.process))
            pids.append(phone.process.pid)
        time.sleep(settling)
        before = [switches(pid) for pid in pids]
        time.sleep(quiet)
        after = [switches(pid) for pid in pids]
        woken = statistics.median(last - first for first, last in zip(before, after)) * 60 / quiet
        return (count, statistics.median(kilobytes(pid, "status", "VmRSS") for pid in pids) / 1024,
                statistics.median(kilobytes(pid, "smaps_rollup", "Pss") for pid in pids) / 1024, woken)


def kilobytes(pid, file, name):
    return int(re.search(rf"^{name}:\s+(\d+) kB$", pathlib.Path(f"/proc/{pid}/{file}").read_text(), re.M)[1])
