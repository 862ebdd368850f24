"""Services and emulated networks for bench/compare, each ended with its block."""
import contextlib
import os
import pathlib
import re
import subprocess
import sys
import time

TREE = pathlib.Path(__file__).resolve().parent.parent
BUILD = TREE / "build/release"
ZPD = str(BUILD / "cli/zpd")
SMOKE = sys.argv[1:] == ["smoke"]
HERTZ = os.sysconf("SC_CLK_TCK")


def processor_seconds(pid):
    fields = pathlib.Path(f"/proc/{pid}/stat").read_text().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) / HERTZ


def switches(pid):
    """Voluntary ones of its threads, but of one that ends meanwhile."""
    count = 0
    for task in pathlib.Path(f"/proc/{pid}/task").iterdir():
        with contextlib.suppress(FileNotFoundError, ProcessLookupError):
            count += int(re.search(r"^voluntary_ctxt_switches:\s*(\d+)", (task / "status").read_text(), re.M)[1])
    return count


class Phone:
    """A service with its own modem, and what it has used."""

    def __init__(self, folder, modem):
        self.device = f"{folder}/device"
        self.process = subprocess.Popen(
            [ZPD, "serve", "--modem", modem, "--home", f"{folder}/home", "--device", self.device, "--activate"],
            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        said_until_ready(self.process)

    def used(self):
        """Seconds of processors, and voluntary switches of its threads."""
        return processor_seconds(self.process.pid), switches(self.process.pid)

    def log(self, *options):
        subprocess.run([ZPD, "settings", "log", *options, "--device", self.device], check=True, stdout=subprocess.DEVNULL)

    def sending(self, files, to):
        return [ZPD, "send", *files, "--to", to, "--device", self.device, "--yes"]

    def send(self, files, to):
        """Seconds until all are sent, and what that used."""
        before, begin = self.used(), time.monotonic()
        subprocess.run(self.sending(files, to), check=True, stdout=subprocess.DEVNULL)
        taken, after = time.monotonic() - begin, self.used()
        return taken, after[0] - before[0], after[1] - before[1]


@contextlib.contextmanager
def ended(process):
    try:
        yield process
    finally:
        process.terminate()
        try:
            process.wait(10)
        except subprocess.TimeoutExpired:
            process.kill()
            process.wait()


def said_until_ready(process):
    """Its lines before "ready"."""
    lines = []
    for line in process.stdout:
        if line.startswith("ready"):
            return lines
        lines.append(line)
    process.wait()
    sys.exit(f"{' '.join(map(str, process.args))} ends before it is ready: {''.join(lines)}")


@contextlib.contextmanager
def network(folder, *phones, faults=(), listening=()):
    """An emulated one of these phones; a fault is "NUMBER:FAULT". Yields the TCP ports of the modems that have one beside
    their tty, by number."""
    words = [word for fault in faults for word in ("--fault", fault)]
    words += [word for number in listening for word in ("--listen", f"{number}:0")]
    process = subprocess.Popen([ZPD, "network", "--phones", ",".join(phones), "--dir", f"{folder}/net", *words],
                               stdout=subprocess.PIPE, text=True)
    with ended(process):
        yield dict(re.findall(r"^(\S+) 127\.0\.0\.1:(\d+)$", "".join(said_until_ready(process)), re.M))


def bare_dialogues(tty, datagrams, to):
    """Seconds for so many."""
    done = subprocess.run([BUILD / "bench/dialogue", tty, str(datagrams), to[1:]], check=True, capture_output=True, text=True)
    return float(done.stdout)


def cards_of_255(folder, count):
    files = [f"{folder}/{card}.vcf" for card in range(count)]
    for name in files:
        text = f"BEGIN:VCARD\r\nVERSION:2.1\r\nN:{name[-10:]}\r\nNOTE:"
        pathlib.Path(name).write_text(text + "x" * (255 * 128 - len(text) - 20) + "\r\nEND:VCARD\r\n")
    return files


def seconds_until_stored(sender, files, to, incoming):
    wanted = (len(list(incoming.iterdir())) if incoming.is_dir() else 0) + len(files)
    begin = time.monotonic()
    sender.send(files, to)
    while not incoming.is_dir() or len(list(incoming.iterdir())) < wanted:
        if time.monotonic() - begin > 60:
            sys.exit("the cards do not arrive")
        time.sleep(0.005)
    return time.monotonic() - begin
