"""The driver of the crash matrix, inside the sandbox that crash.sh makes: see there."""

import argparse
import contextlib
import os
import pathlib
import re
import subprocess
import sys
import time
from collections import defaultdict

import crash_day as day
from bad_line import BadLine

SERVER = pathlib.Path("/tmp/server")
PRIVATE_SERVER = "tools/private-" + os.environ.get("MIDTABLE_SERVER", "mariadb")
SOURCE = pathlib.Path("/tmp/day")
STEPS = pathlib.Path("/tmp/steps")  # written by the library
BACK = pathlib.Path("/tmp/server_is_back")
PATIENCE = 60  # seconds for anything
# What dies. "both": the server comes back only when the service has given it up and ended.
VICTIMS = ("service", "server", "both")
DEFINITIONS = pathlib.Path("/etc/morvan/vqlog.xml")
MEM_KEY = "bigint unsigned  not null primary key"
# Every so many points are taken, in the short form and of "both": odd, so that befores and afters come.
SHORT = 19
BOTH = 5
# A server killed at once must come back with what it has confirmed.
DURABLE = ("--general-log=0", "--innodb-flush-log-at-trx-commit=1", "--innodb-doublewrite=1",
           "--sync-binlog=1")
FAR = 0.02  # seconds to the server and back, four times what the service calls far
YEAR_TABLES = pathlib.Path("demo/year_tables.sql").read_text().replace("_YYYY", "_2012")


class Trouble(Exception):
    """The matrix itself does not work."""


def wait_for(what, condition):
    end = time.monotonic() + PATIENCE
    while not condition():
        if time.monotonic() > end:
            raise Trouble(f"waited in vain for {what}")
        time.sleep(0.005)


class Server:
    def start(self):
        script = [PRIVATE_SERVER, "start", SERVER, *DURABLE]
        run = subprocess.run(script, capture_output=True, text=True, check=False)
        if run.returncode:
            raise Trouble(run.stderr)
        self.port = run.stdout.strip()

    def stop(self):
        subprocess.run([PRIVATE_SERVER, "stop", SERVER], check=False)

    def sql(self, statements):
        """The rows of all the statements, each a tuple of texts."""
        client = ["mariadb", "--no-defaults", "-h127.0.0.1", f"-P{self.port}", "-umidtable", "-psecret", "-NB"]
        run = subprocess.run(client, input=statements, capture_output=True, text=True, check=False)
        if run.returncode:
            raise Trouble(run.stderr)
        return [tuple(line.split("\t")) for line in run.stdout.splitlines()]


class Service:
    """The service with the library in it, and its server, which is started again when it died."""

    def __init__(self, program, library, server, delivery):
        self.program, self.library, self.server, self.delivery = program, library, server, delivery
        self.process = None
        self.gives_server_up = False

    def start(self, step=0, when="before", victim="service"):
        for path in (STEPS, BACK):
            path.unlink(missing_ok=True)
        self.gives_server_up = victim == "both"
        settings = {"LD_PRELOAD": self.library, "CRASH_LOG": STEPS, "CRASH_STEP": step,
                    "CRASH_WHEN": when, "CRASH_WHAT": "service" if victim == "service" else "server",
                    "CRASH_BACK": "" if self.gives_server_up else BACK, "CRASH_SERVER": SERVER / "pid",
                    "CRASH_DELIVERY": self.delivery}
        self.process = subprocess.Popen([self.program, "-app"], stdout=subprocess.DEVNULL,
                                        env=os.environ | {k: str(v) for k, v in settings.items()})

    def notes(self):
        # The token of a batch is another one each time.
        return re.sub(r"'[0-9a-f]{32}'", "'token'", STEPS.read_text()).splitlines() if STEPS.exists() else []

    def ended(self):
        return self.process.poll() is not None

    def runs(self):
        """Whether service and server run; as far as they do not, they are started again."""
        if "died" in self.notes() and not BACK.exists() and (self.ended() or not self.gives_server_up):
            self.server.start()
            BACK.touch()
        if self.ended():
            if not BACK.exists():
                raise Trouble(f"the service ended with {self.process.returncode}")
            self.start()
        return "died" not in self.notes() or BACK.exists()

    def settle(self, but_for=None):
        """Until no file waits, but for those of that device, and nothing was to be done since."""
        wait_for("the last file", lambda: self.runs() and not day.waiting_files(but_for))
        if self.delivery:
            wait_for("empty mem tables", lambda: self.runs() and not day.Tables(self.server.sql).waiting())
        seen = self.notes().count("pause")
        # The pass that took the last file, a reconnection, and a pass without any.
        wait_for("an idle pass", lambda: self.runs() and self.notes().count("pause") >= seen + 3)

    def stop(self):
        if self.process and not self.ended():
            self.process.kill()
            self.process.wait()


class Matrix:
    """Plays the day; what an undisturbed one gives is what each other one must give."""

    def __init__(self, service, server):
        self.service, self.server = service, server
        # With delivery=once its files wait until the operator has made their year tables.
        self.late = day.NEW_DEVICE if service.delivery else None
        self.begin()
        self.service.settle(self.late)
        self.steps = self.steps_of_the_day()
        self.files, self.settled = day.files_left(), self.tables()
        self.bring_on()
        self.expected = self.tables()
        counted = sum(sum(self.expected.records(n).values()) for n in self.expected.mid if "1D_" in n)
        if counted != len(day.FILES) * day.RECORDS:
            raise Trouble(f"{counted} records of the undisturbed day are counted")

    def steps_of_the_day(self):
        """Until the first pause; with delivery=once the main thread pauses while another one works."""
        notes = self.service.notes()
        if not self.service.delivery:
            notes = notes[:notes.index("pause")]
        return [note.split("\t", 1)[1] for note in notes if note != "pause"]

    def begin(self, *fatal):
        self.service.stop()
        self.server.sql(day.reset_statements(YEAR_TABLES))
        day.fill_spool(SOURCE)
        self.service.start(*fatal)

    def tables(self):
        return day.Tables(self.server.sql)

    def play(self, step, when, victim):
        """The outcome of the day with that step fatal."""
        self.begin(step, when, victim)
        wait_for(f"step {step}", lambda: self.service.ended() or "died" in self.service.notes())
        self.check_step(step)
        if victim == "service":
            self.service.start()
        self.service.settle(self.late)
        files, settled = day.files_left(), self.tables()
        done = self.bring_on()
        found = self.tables()
        lost, twice, differs = day.compare(self.expected, found)
        names = {files.get(n, "none") for n in {*self.files, *files} if files.get(n) != self.files.get(n)}
        return {"lost": lost, "twice": twice, "waiting": settled.waiting(but_for=self.settled),
                "files": names, "then": done, "differs": differs or found.waiting() > 0}

    def check_step(self, step):
        done = [note for note in self.service.notes() if note.startswith(f"{step}\t")]
        if done != [f"{step}\t{self.steps[step - 1]}"]:
            raise Trouble(f"step {step} is {done}, not {self.steps[step - 1]}")

    def bring_on(self):
        """What docs/operations.md tells the operator to do; the names of what was necessary."""
        done, tables = set(), self.tables()
        for name, endings in day.files_left().items():
            if ".err" in endings and ".mid" not in endings:
                done.add(self.bring_back(name, tables))
        self.add_year_tables()
        self.service.settle()
        if self.tables().waiting():
            done.add("not at all")
        return done

    def bring_back(self, name, tables):
        device, kind, hour = day.parts_of(name)
        path = day.SPOOL / device / (name + ".err")
        if hour in tables.hours(device, kind):
            path.rename(path.with_suffix(".mid"))
            return ".err is in"
        path.rename(path.with_suffix(".dat"))
        return ".err again"

    def add_year_tables(self):
        """Those of the new device. Its rows are tried again when the definition file has changed."""
        self.server.sql(f"create database if not exists WLAN_{day.NEW_DEVICE}; "
                        f"use WLAN_{day.NEW_DEVICE}; {YEAR_TABLES}")
        DEFINITIONS.touch()


def step_names(steps):
    """Names as operators know the steps, from what each call was and where it stands."""
    names, loading = [], True
    for step in steps:
        call, _, subject = step.partition("\t")
        if call == "list databases" or "load data" in subject:
            loading = True
        names.append(step_name(call, subject, loading))
        if call == "rename" and re.search(r"\.dat\t.*\.mid$", subject):
            loading = False
    return names


# The names of the steps in the order of a file's road, and the statements by which some are known.
STEP_NAMES = (
    ("connect, ping", None),
    ("make the database", r"create database"),
    ("look for database and mem table", r"show tables .*\"MEM_"),
    ("make the mem table", r"\s*create table if not exists MEM_"),
    ("open the file to the server", None),
    ("rewriting: write the copy", None),
    ("rewriting: keep the original", None),
    ("rewriting: copy into place", None),
    ("load data infile", r"load data"),
    ("rename .dat to .mid", None),
    ("switch to the database", None),
    ("look into tables, set limits", r"select |\(select |show tables from|create table if not exists midtable_ledger|set "),
    ("write to the ledger", r"(update|insert|insert ignore into|delete from) .*midtable_ledger"),
    ("a whole batch at once", r"start transaction ;"),
    ("the next answer of a text", None),
    ("start transaction", r"start transaction"),
    ("look for a mid table", r"show tables .*\"T_"),
    ("make a mid table", r"\s*create table if not exists T_"),
    ("fill a mid table", r"\s*insert into"),
    ("rollback", r"rollback"),
    ("commit", r"commit"),
    ("empty the mem table", r"truncate"),
)


def step_name(call, subject, loading):
    if call == "next answer":
        return "the next answer of a text"
    if call in ("connect", "ping"):
        return "connect, ping"
    if call == "query" and not loading and re.match(r"use |show tables .*\"MEM_", subject):
        return "switch to the database"
    if call == "list tables" or call == "query" and subject.startswith("use "):
        return "make the mem table"
    if call == "list databases":
        return "look for database and mem table"
    if call == "query":
        return next((name for name, known in STEP_NAMES if known and re.match(known, subject)), subject)
    if re.search(r"\.dat\t.*\.err", subject):
        return "rewriting: keep the original"
    if call == "rename":
        return "rename .dat to .mid" if subject.endswith(".mid") else "rewriting: copy into place"
    return "rewriting: write the copy" if subject.endswith(".mid") else "open the file to the server"


def merged(outcomes):
    """The worst of several outcomes of steps of one name."""
    worst = {key: max(o[key] for o in outcomes) for key in ("lost", "twice", "waiting", "differs")}
    return worst | {key: set().union(*(o[key] for o in outcomes)) for key in ("files", "then")}


def cells(outcome):
    return (outcome["lost"], outcome["twice"], outcome["waiting"],
            ", ".join(sorted(outcome["files"])) or "as ever",
            ", ".join(sorted(outcome["then"])) or "-")


def table_rows(names, outcomes):
    """outcomes: by step, when and victim. What has the same outcome shares a row."""
    for name in dict.fromkeys([known for known, _ in STEP_NAMES] + names):
        rows = defaultdict(lambda: defaultdict(dict))  # by cells, by victim: points by when
        for victim in VICTIMS:
            for when in ("before", "after"):
                these = [o for (step, *how), o in outcomes.items()
                         if names[step - 1] == name and how == [when, victim]]
                if these:
                    rows[cells(merged(these))][victim][when] = len(these)
        for row, victims in rows.items():
            for whens in dict.fromkeys(", ".join(points) for points in victims.values()):
                same = {v: points for v, points in victims.items() if ", ".join(points) == whens}
                count = sum(sum(points.values()) for points in same.values())
                yield name, ", ".join(same), whens, count, *row


def print_rows(*rows):
    table = [tuple(map(str, row)) for row in rows]
    widths = [max(len(row[i]) for row in table) for i in range(len(table[0]))]
    table.insert(1, tuple("-" * width for width in widths))
    for row in table:
        print("| " + " | ".join(cell.ljust(width) for cell, width in zip(row, widths)) + " |")


def configure(server, port, delivery):
    settings = pathlib.Path("demo/dbinfo.conf").read_text()
    settings = re.sub(r"(?m)^delivery=.*\n", "", settings)
    if delivery:
        settings += f"delivery={delivery}\n"
    for key, value in (("port", port), ("password", "secret")):
        settings = re.sub(rf"(?m)^{key}=.*", f"{key}={value}", settings)
    folder = pathlib.Path("/virus/apache/rnweb/inc")
    folder.mkdir(parents=True)
    (folder / "dbinfo.conf").write_text(settings)
    for name in ("vqlog.xml", "sqlldr_ctl.xml", "devstate.ini"):
        (DEFINITIONS.parent / name).write_text((pathlib.Path("demo") / name).read_text())
    (DEFINITIONS.parent / "localtour.csv").write_text(day.LOCAL_BLOCK + "\n")
    server.sql(pathlib.Path("demo/setup.sql").read_text())
    day.write_files(SOURCE)


def options():
    parser = argparse.ArgumentParser()
    parser.add_argument("program")
    parser.add_argument("library")
    parser.add_argument("--short", action="store_true")
    parser.add_argument("--only", choices=VICTIMS)
    parser.add_argument("--steps", default="1-")
    parser.add_argument("--far", action="store_true")
    parser.add_argument("--delivery", choices=("", "once"), default="")
    return parser.parse_args()


def points(steps, chosen):
    first, _, last = chosen.steps.partition("-")
    numbers = range(int(first), min(int(last or len(steps)), len(steps)) + 1)
    def of(victim):
        every = [(step, when, victim) for step in numbers for when in ("before", "after")]
        # What both lose is what the one and the other lose, so a part of the points shows it.
        return every[::SHORT if chosen.short else BOTH if victim == "both" else 1]
    # With delivery=once the service never gives the server up.
    victims = VICTIMS[:2] if chosen.delivery else VICTIMS
    return [point for victim in victims if chosen.only in (None, victim) for point in of(victim)]


def is_fault(outcome, delivery, name, when):
    """Without delivery=once one window is left open: committed, and the mem table not yet empty."""
    if delivery:
        return any(outcome.values())
    twice = outcome["twice"] and not may_count_twice(name, when)
    return outcome["lost"] or twice or outcome["differs"]


def may_count_twice(name, when):
    return (name, when) in {("commit", "after"), ("empty the mem table", "before")}


def play_points(matrix, todo):
    """Their outcomes, and what is wrong with them."""
    names, outcomes, faults = step_names(matrix.steps), {}, 0
    start = time.monotonic()
    for number, (step, when, victim) in enumerate(todo, 1):
        outcome = outcomes[step, when, victim] = matrix.play(step, when, victim)
        if is_fault(outcome, matrix.service.delivery, names[step - 1], when):
            faults += 1
            say(f"FAULT: {victim} killed {when} step {step}, {matrix.steps[step - 1][:100]}: {outcome}")
        if number % 50 == 0:
            say(f"    {number} of {len(todo)} points, {time.monotonic() - start:.0f} s")
    return list(table_rows(names, outcomes)), faults


def play_without_key(matrix, most):
    """The rows for a service killed between load and rename where mem tables have no key."""
    loads = [i for i, step in enumerate(matrix.steps, 1) if "load data" in step][:most]
    outcome = merged([matrix.play(step, "after", "service") for step in loads])
    if not outcome["twice"] and not matrix.service.delivery:
        raise Trouble("records that were loaded twice into a table without a key are not seen")
    return [("load data infile, no key", "service", "after", len(loads), *cells(outcome))]


def say(text):
    print(text, file=sys.stderr, flush=True)


def play_all(server, service, chosen, port):
    configure(server, port, chosen.delivery)
    matrix = Matrix(service, server)
    todo = points(matrix.steps, chosen)
    print(f"{len(day.FILES)} mem files, {len(matrix.steps)} steps, {len(todo)} crashes\n", flush=True)
    rows, faults = play_points(matrix, todo)
    DEFINITIONS.write_text(DEFINITIONS.read_text().replace(MEM_KEY, "bigint unsigned not null"))
    rows += play_without_key(Matrix(service, server), 1 if chosen.short else None)
    print_rows(("step", "killed", "when", "points", "lost", "twice", "waiting", "files", "brought on by"),
               *rows)
    print(f"\n{faults} crashes lost records, counted some twice or changed them")
    return faults


def main():
    chosen = options()
    server = Server()
    server.start()
    service = Service(chosen.program, chosen.library, server, chosen.delivery)
    try:
        with contextlib.ExitStack() as stack:
            line = stack.enter_context(BadLine(int(server.port), FAR)) if chosen.far else server
            faults = play_all(server, service, chosen, line.port)
    except Trouble as trouble:
        sys.exit(f"crash matrix: {trouble}")
    finally:
        service.stop()
        server.stop()
    sys.exit(1 if faults else 0)


if __name__ == "__main__":
    main()
