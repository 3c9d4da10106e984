"""What bench/endurance/soak.sh runs inside the sandbox: soak.py PROGRAM SHORT_PAUSES [OPTION]..., see there."""

import itertools
import os
import pathlib
import re
import shutil
import signal
import subprocess
import sys
import time

SPOOL = pathlib.Path("/vqlog/log_data/midtable")
LOGS = pathlib.Path("/vqlog/log/midtable")
SETTINGS = pathlib.Path("/virus/apache/rnweb/inc/dbinfo.conf")
CONFIGURATION = pathlib.Path("/etc/morvan")
REAL_PAUSES = pathlib.Path("/tmp/real_pauses")
SERVER = "/tmp/server"
# What was committed outlives the server's end.
SERVER_OPTIONS = ("--general-log=0", "--max-connections=100", "--innodb-flush-log-at-trx-commit=1")
DATABASES = ("1a2b3c4d", "5e6f7a8b")
DAYS = ("20121229", "20121230", "20121231")
ROWS = 5  # of a mem file
NUMBER_BLOCKS = 400_000
MOST_RESIDENT_KIB = 16 * 1024
MOST_GROWTH_KIB = 512
MOST_MORE_DESCRIPTORS = 2  # a source is being read while one looks
PATIENCE = 60
DAY = 86_400
MIB = 1 << 20


def server(verb, *arguments):
    command = ["tools/private-mariadb", verb, SERVER, *arguments]
    done = subprocess.run(command, check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
    return done.stdout.strip()


def sql(statement):
    return server("sql", statement)


def prepare(once):
    port = server("start", *SERVER_OPTIONS)
    SETTINGS.parent.mkdir(parents=True, exist_ok=True)
    text = re.sub("(?m)^delivery=.*\n", "", pathlib.Path("demo/dbinfo.conf").read_text())
    text = re.sub("(?m)^port=.*", f"port={port}", text)
    text = re.sub("(?m)^password=.*", "password=secret", text)
    SETTINGS.write_text(text + "delivery=once\n" if once else text)
    sql(pathlib.Path("demo/setup.sql").read_text())
    year = pathlib.Path("demo/year_tables.sql").read_text().replace("_YYYY", "_2012")
    for name in DATABASES:
        sql(f"create database if not exists WLAN_{name}; use WLAN_{name}; {year}")
    configure()


def configure():
    """Configuration and spool as they are when all is well."""
    for name in ("vqlog.xml", "sqlldr_ctl.xml", "devstate.ini"):
        shutil.copy(f"demo/{name}", CONFIGURATION)
    blocks = CONFIGURATION / "localtour.csv"
    if not blocks.exists():
        blocks.write_text("".join(f"{1_300_000 + i}\n" for i in range(NUMBER_BLOCKS)))
    for name in DATABASES:
        (SPOOL / name).mkdir(parents=True, exist_ok=True)


def drop(number):
    """Puts mem file `number` into place: databases, days, kinds F and A in turns."""
    name = DATABASES[number % 2]
    day = DAYS[number // 2 % len(DAYS)]
    kind = "FA"[number // 6 % 2]
    when = f"{day[:4]}-{day[4:6]}-{day[6:]} 10:00:00"
    rows = []
    for i in range(ROWS):
        user = (1 << 30) + i * 1_000_003
        row = [number * ROWS + i + 1, user, when]
        if kind == "F":
            row += [60, "10.0.0.1", "00:11:22:33:44:55", "ap-1", "guest", "web", 1000, 2000]
        else:
            row += ["ap-1", "guest", i % 2]
        rows.append("\t".join(map(str, row)) + "\n")
    time_of_day = f"{number // 3600 % 24:02}{number // 60 % 60:02}{number % 60:02}"
    stem = SPOOL / name / f"{name}-MEM_{day}_1000{kind}-{day}-{time_of_day}"
    stem.with_suffix(".tmp").write_text("".join(rows))
    stem.with_suffix(".tmp").rename(stem.with_suffix(".dat"))


def waiting():
    return sum(1 for _ in SPOOL.glob("*/*.dat"))


class Service:
    def __init__(self, program, library=None):
        environment = dict(os.environ, LD_PRELOAD=library) if library else None
        # As the daemon does, without its forks: console lines lead nowhere.
        self.process = subprocess.Popen([program, "-app"], env=environment, stdout=subprocess.DEVNULL)

    def alive(self):
        return self.process.poll() is None

    def stop(self):
        if self.alive():
            self.process.send_signal(signal.SIGINT)
        return self.process.wait(PATIENCE)

    def resident_kib(self):
        return self._number("VmRSS")

    def threads(self):
        return self._number("Threads")

    def descriptors(self):
        """The most of several looks: both connections come and go."""
        folder, most = f"/proc/{self.process.pid}/fd", 0
        for _ in range(100):
            most = max(most, len(os.listdir(folder)))
            time.sleep(0.002)
        return most

    def _number(self, key):
        status = pathlib.Path(f"/proc/{self.process.pid}/status").read_text()
        return int(re.search(rf"(?m)^{key}:\s+(\d+)", status).group(1))


def log_bytes():
    return sum(path.stat().st_size for path in LOGS.glob("*"))


class Soak:
    def __init__(self, program, library, short):
        part = 100 if short else 1
        self.idle_passes, self.files, self.losses = 100_000 // part, 20_000 // part, 2_000 // part
        self.server_kills = max(self.losses // 100, 1)
        self.program, self.library = program, library
        self.lines_read = {}
        self.counts = {"no file to load reconnect db": 0, "connection to db lost": 0}
        self.loaded = 0
        self.seen = []

    def count(self, text):
        """How often `text` is in the run log by now; it may be set aside meanwhile, but once."""
        for path in LOGS.glob("*"):
            inode = path.stat().st_ino
            with open(path, errors="replace") as log:
                log.seek(self.lines_read.get(inode, 0))
                new = log.read()
                self.lines_read[inode] = log.tell()
            for key in self.counts:
                self.counts[key] += new.count(key)
        return self.counts[text]

    def until(self, what, goal, step=lambda: None):
        last, since = goal(), time.monotonic()
        while not goal() >= 1:
            if not self.service.alive():
                sys.exit(f"the service ended while {what}; see its last lines:\n" + self.tail())
            step()
            now = goal()
            if now != last:
                last, since = now, time.monotonic()
            if time.monotonic() - since > PATIENCE:
                sys.exit(f"nothing moved for {PATIENCE} s while {what}")
            time.sleep(0.005)

    @staticmethod
    def tail():
        newest = max(LOGS.glob("*.log"), key=lambda path: path.stat().st_mtime)
        return "\n".join(newest.read_text(errors="replace").splitlines()[-8:])

    def idle(self, passes):
        key = "no file to load reconnect db"
        start = self.count(key)
        self.until("idle", lambda: (self.count(key) - start) / passes)

    def load(self, files):
        for batch in range(0, files, 200):
            for number in range(self.loaded, self.loaded + min(200, files - batch)):
                drop(number)
            self.loaded += min(200, files - batch)
            self.until("loading", lambda: 1 if waiting() == 0 else 1 / (1 + waiting()))
            for path in SPOOL.glob("*/*.mid"):
                path.unlink()
        self.idle(1)  # the last ones are converted

    def lose_connections(self, losses):
        key = "connection to db lost"
        start = self.count(key)
        self.until("losing connections", lambda: (self.count(key) - start) / losses,
                   lambda: sql("kill user midtable; do sleep(0.004);" * 100))

    def kill_server(self, times):
        """Here the pauses are real: eleven short ones would be over before the server is back."""
        REAL_PAUSES.touch()
        for _ in range(times):
            server("kill")
            server("start", *SERVER_OPTIONS)
            since = time.monotonic()
            while not sql("select 1 from information_schema.processlist where user = 'midtable'"):
                if not self.service.alive() or time.monotonic() - since > PATIENCE:
                    sys.exit("the service did not come back to the server")
                time.sleep(0.05)
        REAL_PAUSES.unlink()

    def show(self, what, done):
        now = (self.service.resident_kib(), self.service.descriptors(), self.service.threads())
        self.seen.append(now)
        minutes, seconds = divmod(int(time.monotonic() - self.started), 60)
        print(f"{minutes:3}:{seconds:02}  {what:<18} {done:>8,} {now[0]:>8,} KiB {now[1]:>11} {now[2]:>8}"
              f" {log_bytes() / MIB:>9.1f} MiB", flush=True)

    def steps(self, what, amount, action):
        before, start = log_bytes(), time.monotonic()
        for done in range(10):
            share = amount * (done + 1) // 10 - amount * done // 10
            if share > 0:
                action(share)
            if done in (4, 9):
                self.show(what, amount * (done + 1) // 10)
        return (log_bytes() - before) / amount, amount / (time.monotonic() - start)

    def run(self):
        self.started = time.monotonic()
        self.service = Service(self.program, self.library)
        print("  min  phase                  done   resident descriptors  threads    run log")
        # Every road once, so that what is kept for good is there; then the figures to compare with.
        self.idle(self.idle_passes // 100 + 50)
        self.load(60)
        self.kill_server(1)
        self.lose_connections(20)
        self.idle(50)
        self.show("warm", 0)
        idle = self.steps("idle passes", self.idle_passes, self.idle)
        load = self.steps("loaded files", self.files, self.load)
        lose = self.steps("lost connections", self.losses, self.lose_connections)
        self.steps("server killed", self.server_kills, self.kill_server)
        self.idle(50)
        self.show("idle again", 50)
        print(f"\nrun log: {idle[0]:.0f} bytes an idle pass (a second), {idle[0] * DAY / MIB:.1f} MiB a day; "
              f"{load[0]:.0f} a file; {lose[0]:.0f} a lost connection")
        print(f"pace: {idle[1]:.0f} idle passes, {load[1]:.0f} files, {lose[1]:.0f} losses a second")
        return self.verdict(self.service.stop())

    def wrong_besides(self):
        return []

    def verdict(self, status):
        first, last = self.seen[0], self.seen[-1]
        rows = int(sql("select " + " + ".join(
            f"(select sum(sessions) from WLAN_{name}.T_FLOW1Y_2012) + "
            f"(select sum(attempts) from WLAN_{name}.T_AUTH1Y_2012)" for name in DATABASES)))
        wrong = self.wrong_besides()
        if last[0] - first[0] > MOST_GROWTH_KIB:
            wrong.append(f"resident memory grew by {last[0] - first[0]} KiB")
        if max(seen[0] for seen in self.seen) > MOST_RESIDENT_KIB:
            wrong.append("resident memory passed 16 MiB")
        if last[1] > first[1] + MOST_MORE_DESCRIPTORS:
            wrong.append(f"descriptors: {first[1]} before, {last[1]} after")
        if last[2] > first[2]:
            wrong.append(f"threads: {first[2]} before, {last[2]} after")
        if rows != self.loaded * ROWS:
            wrong.append(f"{rows} rows counted of {self.loaded * ROWS}")
        errors = sum(1 for _ in SPOOL.glob("*/*.err"))
        if errors or status != 0:
            wrong.append(f"{errors} files failed, exit status {status}")
        print("\n".join(wrong) or f"nothing grew; {rows} rows of {self.loaded} files counted, each once")
        return 1 if wrong else 0


class OnceSoak(Soak):
    """delivery=once: it does not pass when idle, and a lost connection shows by what it does next."""

    MOST_IN_LEDGER = 21_000  # files of a database

    def idle(self, _passes):
        self.until("idle", lambda: waiting() == 0)

    def load_one(self):
        drop(self.loaded)
        self.loaded += 1
        self.idle(1)

    def lose_connections(self, losses):
        for _ in range(losses):
            sql("kill user midtable")
            self.load_one()

    def kill_server(self, times):
        for _ in range(times):
            server("kill")
            server("start", *SERVER_OPTIONS)
            self.load_one()

    def run(self):
        self.started = time.monotonic()
        self.service = Service(self.program)
        print("  min  phase                  done   resident descriptors  threads    run log")
        # As many as make the largest batches and lists.
        self.load(min(4_000, 3 * self.files))
        self.kill_server(1)
        self.lose_connections(2)
        self.show("warm", 0)
        load = self.steps("loaded files", 3 * self.files, self.load)
        self.steps("lost connections", self.losses // 20, self.lose_connections)
        self.steps("server killed", self.server_kills, self.kill_server)
        self.idle(1)
        self.show("idle again", 1)
        print(f"\nrun log: {load[0]:.0f} bytes a file; pace: {load[1]:.0f} files a second")
        return self.verdict(self.service.stop())

    def wrong_besides(self):
        counts = [int(sql(f"select count(*) from WLAN_{name}.midtable_ledger where kind = 'F'"))
                  for name in DATABASES]
        print(f"files in the ledgers: {counts}, of {self.loaded}")
        return [f"a ledger has {n} files" for n in counts if n > self.MOST_IN_LEDGER]


# What each repeating error writes: (what, prepare, at the real pace, files a second).
SECONDS = 12


def missing(path):
    return lambda: shutil.rmtree(path) if path.is_dir() else path.unlink()


def replaced(path, text):
    return lambda: path.write_text(text)


def mode(path, bits):
    return lambda: path.chmod(bits)


CASES = (
    ("no error, idle", lambda: None, None, 0),
    ("no error, a file a second", lambda: None, None, 1),
    ("spool folder missing at start", missing(SPOOL), None, 0),
    ("spool folder missing later", lambda: None, missing(SPOOL), 0),
    ("a database folder unreadable", mode(SPOOL / DATABASES[0], 0o000), None, 0),
    ("renames refused, one file waits", lambda: drop(0), mode(SPOOL / DATABASES[0], 0o555), 0),
    ("localtour.csv missing", missing(CONFIGURATION / "localtour.csv"), None, 0),
    ("devstate.ini missing", missing(CONFIGURATION / "devstate.ini"), None, 0),
    ("table EnterpriseUser missing", lambda: sql("rename table vqcfg.EnterpriseUser to vqcfg.e"), None, 0),
    ("WLAN_TUNE missing, a file a second", lambda: sql("drop database WLAN_TUNE"), None, 1),
    ("vqlog.xml broken, a file a second", replaced(CONFIGURATION / "vqlog.xml", "<root>"), None, 1),
    ("server read-only, a file a second",
     lambda: sql("revoke super, read only admin on *.* from midtable; set global read_only=1"), None, 1),
    ("server away until the end", lambda: None, lambda: server("kill"), 0),
)


def restore():
    for path in (SPOOL, *SPOOL.glob("*")):
        if path.exists():
            path.chmod(0o755)
    shutil.rmtree(SPOOL, ignore_errors=True)
    shutil.rmtree(LOGS, ignore_errors=True)
    try:
        sql("select 1")
    except subprocess.CalledProcessError:
        server("start", *SERVER_OPTIONS)
    sql("set global read_only=0; create database if not exists WLAN_TUNE; drop table if exists vqcfg.e")
    sql(pathlib.Path("demo/setup.sql").read_text())
    configure()


def log_sizes(program):
    print(f"{'what repeats':<36} {'lines/s':>8} {'bytes/s':>9} {'MiB a day written':>18} {'kept':>6}")
    numbers = itertools.count(1)
    for what, before, during, files in CASES:
        restore()
        before()
        service = Service(program)
        time.sleep(1.5)
        if during:
            during()
        start = time.time()
        while time.time() - start < SECONDS:
            if files:
                drop(next(numbers))
            time.sleep(1)
        service.stop()
        text = "".join(path.read_text(errors="replace") for path in sorted(LOGS.glob("*")))
        # Whole seconds by the lines' own clock, without the first ones.
        clock = time.strftime("%H:%M:%S", time.localtime(start))
        lines = [line for line in text.splitlines() if (found := re.match(r"\[\w+:\d+\]\[([\d:]+)\]", line))
                 and found.group(1) > clock]
        written = sum(len(line) + 1 for line in lines) / SECONDS
        daily = written * DAY / MIB
        print(f"{what:<36} {len(lines) / SECONDS:>8.1f} {written:>9.0f} {daily:>18.1f} {min(daily, 50):>6.1f}",
              flush=True)
    restore()
    return 0


def main():
    program, library, *options = sys.argv[1:]
    once = options[-2:] == ["--delivery", "once"]
    if once:
        options = options[:-2]
    prepare(once)
    try:
        if options == ["--log-size"]:
            return log_sizes(program)
        return (OnceSoak if once else Soak)(program, library, options == ["--short"]).run()
    finally:
        server("stop")


sys.exit(main())
