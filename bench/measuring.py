"""What every section of the benchmarks uses: folders and homes, the agent, rounds and ratios, digests, reporting."""

import contextlib
import hashlib
import os
import re
import shutil
import statistics
import subprocess
import sys
import tempfile
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
BUILD = Path(os.environ.get("BUILD", ROOT / "build-bench")).resolve()
TMPFS = Path(os.environ.get("BENCH_TMPFS", "/dev/shm"))
DISK = Path(os.environ.get("BENCH_DISK", BUILD)).resolve()
GATEWAY, MORVANE = BUILD / "bin/unix.in", BUILD / "bin/morvane"
AGENT, EMPTY, FLOOR, GMIME = (BUILD / "bench" / name for name in ("agent", "empty", "floor", "gmime_parts"))
RIPMIME, MUNPACK, REFORMIME, DOVECOT, STRACE = (
    shutil.which(name, path=os.environ.get("PATH", "") + ":/usr/sbin:/sbin")
    for name in ("ripmime", "munpack", "reformime", "dovecot", "strace"))
LMTP = Path("/usr/lib/dovecot/lmtp")

MB = 1_000_000
results = {}


# ---- Folders and homes

@contextlib.contextmanager
def folder(parent):
    path = Path(tempfile.mkdtemp(prefix="morvane-bench-", dir=parent))
    os.chmod(path, 0o755)
    try:
        yield path
    finally:
        shutil.rmtree(path, ignore_errors=True)


def home_by_hand(home):
    """The layout that the gateway needs, for a build without the operator's tool."""
    for place in ["sys", "tmp", "logs", "nls/C", *(f"queues/ROUTER/{part}" for part in ("tmp", "new", "cur")),
                  *(f"data/{domain}/{number:02x}" for domain in (1, 4) for number in range(256))]:
        (home / place).mkdir(parents=True, mode=0o700)
    config = bytearray(512)
    config[476:478] = ord("/").to_bytes(2, sys.byteorder)
    (home / "sys/config").write_bytes(config)
    for name in ("gateway.toml", "mimetypes.toml"):
        shutil.copy(ROOT / "share" / name, home / "sys" / name)
    subprocess.run(["gencat", home / "nls/C/unix.cat", ROOT / "share/nls/C/unix.msg"], check=True)


def lay_home(path, sync):
    if MORVANE.exists():
        subprocess.run([MORVANE, "init", "--home", path], check=True, stdout=subprocess.DEVNULL)
    else:
        home_by_hand(path)
    if not sync:
        with open(path / "sys/gateway.toml", "a", encoding="utf-8") as file:
            file.write("\nQUEUE_SYNC = false\n")
    return path


@contextlib.contextmanager
def fresh_home(parent, sync=True):
    with folder(parent) as path:
        yield lay_home(path / "home", sync)


def queued(home):
    return len(os.listdir(home / "queues/ROUTER/new"))


def item_files(home, extension):
    return list((home / "data/1").glob(f"*/*.{extension}"))


def sizes_per_message(home):
    """What the floor is told to write beside the body: the mean size of each kind of file, as the gateway wrote it."""
    count = queued(home)

    def mean(paths):
        return round(sum(path.stat().st_size for path in paths) / max(1, len(paths)))
    transfer = mean(item_files(home, "tran"))
    trail = home / "logs/audit.jsonl"
    return [transfer, transfer, mean(item_files(home, "mesg")), mean(list((home / "queues/ROUTER/new").iterdir())),
            round(trail.stat().st_size / count) if trail.exists() else 0]


def is_tmpfs(path):
    kind = subprocess.run(["stat", "-f", "-c", "%T", path], capture_output=True, text=True, check=False)
    return kind.stdout.strip() == "tmpfs"


# ---- Measuring

class Run:
    """One line of the agent."""

    def __init__(self, line):
        nanoseconds, self.status, self.accepted, self.refused, self.peak, processor = map(int, line.split())
        self.seconds, self.processor_seconds = nanoseconds / 1e9, processor / 1e6


def agent(command, dialogue=None, runs=1, lockstep=False, peak=False, socket=None, home=None, stdin=None, file=None,
          stderr=None):
    """Runs a program. `dialogue` is said to it, or its standard input is `file`; `stdin` is the agent's own."""
    words = [AGENT, "--runs", str(runs)]
    words += ["--input", dialogue] if dialogue else []
    words += ["--stdin", file] if file else []
    words += ["--lockstep"] if lockstep else []
    words += ["--peak"] if peak else []
    words += ["--connect", socket] if socket else ["--", *command]
    keep = {key: os.environ[key] for key in ("PATH",) if key in os.environ}
    environment = {**keep, "LANG": "C", "TZ": "UTC", **({"MORVANE_HOME": str(home)} if home else {})}
    made = subprocess.run([str(word) for word in words], env=environment, stdin=stdin or subprocess.DEVNULL,
                          stdout=subprocess.PIPE, stderr=stderr, text=True, cwd="/", check=True)
    return [Run(line) for line in made.stdout.splitlines() if re.fullmatch(r"\d+( -?\d+){5}", line)]


def session(program, dialogue, messages, home, **how):
    """Runs of a session that must have accepted everything."""
    made = agent(program, dialogue, home=home, **how)
    for run in made:
        good = run.accepted == 3 + 4 * messages  # greeting, HELO, QUIT; MAIL, RCPT, DATA, text
        if run.status != 0 or run.refused or not good:
            sys.exit(f"{program or how.get('socket')}: exit status {run.status}, {run.accepted} good replies, "
                     f"{run.refused} refusals")
    return made


def median_seconds(runs):
    return statistics.median(run.seconds for run in runs)


def measure(subjects, rounds):
    """{name: [seconds of each round]}: one unmeasured round, then all subjects in turn."""
    times = {name: [] for name in subjects}
    for number in range(rounds + 1):
        for name, subject in subjects.items():
            seconds = subject()
            if number > 0:
                times[name].append(seconds)
    return times


def median(values):
    return statistics.median(values)


def ratio(times, name, to):
    """How many times `to` fits into `name`: the median over the rounds."""
    return median([a / b for a, b in zip(times[name], times[to])])


def write_dialogue(path, pieces):
    with open(path, "wb") as file:
        for piece in pieces:
            file.write(piece)
    return path


def write_mail(path, pieces):
    with open(path, "wb") as file:
        for piece in pieces:
            file.write(piece.replace(b"\r\n", b"\n"))
    return path


def memory_peak(kind, size, home):
    """The run of a session with one body of `size` MB, and its peak memory in MB."""
    source = subprocess.Popen([sys.executable, ROOT / "bench/generate.py", kind, str(size * MB)],
                              stdout=subprocess.PIPE)
    run = session([GATEWAY], "-", 1, home, lockstep=True, peak=True, stdin=source.stdout)[0]
    source.stdout.close()
    source.wait()
    assert queued(home) == 1 and run.peak > 0
    return run, run.peak * 1024 / MB


# ---- Digests

def digest(path):
    with open(path, "rb") as file:
        state = hashlib.blake2b()
        while block := file.read(1 << 20):
            state.update(block)
        return state.hexdigest()


def expected_digest(pieces):
    state = hashlib.blake2b()
    for piece in pieces:
        state.update(piece)
    return state.hexdigest()


# ---- Reporting

def section(number, title):
    print(f"\n{number}. {title}", flush=True)


def line(name, figure, remark=""):
    print(f"   {name:<34}{figure:>12}   {remark}".rstrip(), flush=True)


def aim(section_number, text, met, **figures):
    results.setdefault(str(section_number), {}).update(figures)
    results[str(section_number)].setdefault("aims", {})[text] = bool(met)
    print(f"   aim: {text}: {'met' if met else 'NOT MET'}", flush=True)


def left_out(what):
    print(f"   {what} is not installed: left out", flush=True)
