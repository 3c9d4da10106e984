"""Plays what kills.sh says, inside the sandbox."""

import argparse
import os
import pathlib
import random
import signal
import subprocess
import sys
import threading
import time

SPOOL = pathlib.Path("/vqlog/log_data/midtable")
SETTINGS = pathlib.Path("/virus/apache/rnweb/inc/dbinfo.conf")
SERVER = "/tmp/server"
# A kill of the server must not take what it has committed.
DURABLE = ("--general-log=0", "--innodb-flush-log-at-trx-commit=1", "--innodb-doublewrite=1")
TOOL = pathlib.Path(__file__).resolve().parents[2] / "tools/private-mariadb"
DATABASES = ("0000000a", "0000000b", "0000000c", "0000000d")
KINDS = "AB"  # the mem tables of kind A have a key, those of kind B have none
DATE = "20121231"
ROWS = 25  # in a file
PERIODS = {"1D": DATE, "1M": DATE[:6], "1Y": DATE[:4]}
PATIENCE = 30  # seconds from the moment when both run again and the files are through


def sql(statements):
    """Rows of the statements, as root; None when the server does not answer."""
    port = pathlib.Path(SERVER, "port").read_text().strip()
    client = subprocess.run(
        ["mariadb", "--no-defaults", "-h127.0.0.1", f"-P{port}", "-uroot", "-N", "-e", statements],
        stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True, check=False)
    if client.returncode != 0:
        return None
    return [line.split("\t") for line in client.stdout.splitlines()]


def start_server():
    subprocess.run([TOOL, "start", SERVER, *DURABLE], check=True, stdout=subprocess.DEVNULL)


def mid_table(kind, period):
    """Every mid table counts rows by the file that they came with."""
    name = f"T_KIND{period}{kind}_"
    create = (f"create table if not exists %s (file int not null primary key, n int not null, "
              f"total bigint not null) engine = InnoDB")
    convert = (f"insert into {name}%.{len(PERIODS[period])}s select id div 1000, count(*), sum(v) "
               f"from %s group by 1 on duplicate key update n = n + values(n), "
               f"total = total + values(total)")
    return name, create, convert


def definitions():
    mem = "".join(
        f"<MidTab{i}><Name>{kind}</Name><Create>create table %s (id int not null"
        f"{' primary key' if kind == 'A' else ''}, v int not null) engine = InnoDB</Create></MidTab{i}>"
        for i, kind in enumerate(KINDS, 1))
    conv = ""
    for kind in KINDS:
        conv += f"<{kind}><MidCnt>{len(PERIODS)}</MidCnt>"
        for i, period in enumerate(PERIODS, 1):
            name, create, convert = mid_table(kind, period)
            conv += (f"<MidTab{i}><Always>1</Always><Name>{name}</Name><Create>{create}</Create>"
                     f"<Convert>{convert}</Convert></MidTab{i}>")
        conv += f"</{kind}>"
    return f"<root><Mem><MidCnt>{len(KINDS)}</MidCnt>{mem}</Mem><Conv>{conv}</Conv></root>"


def set_up(workers, port=None):
    """`port`: where the service reaches the server, if it is not the server's own."""
    port = port or pathlib.Path(SERVER, "port").read_text().strip()
    SETTINGS.parent.mkdir(parents=True, exist_ok=True)
    SETTINGS.write_text(f"host=127.0.0.1\nport={port}\nuser=midtable\npassword=secret\n"
                        f"dbtype=mysql\ndbname0=mysql\ndelivery=once\nworkers={workers}")
    pathlib.Path("/etc/morvan/vqlog.xml").write_text(definitions())
    pathlib.Path("/etc/morvan/localtour.csv").write_text("1380013\n")
    pathlib.Path("/etc/morvan/devstate.ini").write_text("")
    statements = "create database if not exists WLAN_TUNE;"
    for device in DATABASES:
        statements += f"drop database if exists WLAN_{device}; create database WLAN_{device};"
        for kind in KINDS:
            name, create, _ = mid_table(kind, "1Y")
            statements += create.replace("%s", f"WLAN_{device}.{name}{PERIODS['1Y']}") + ";"
        (SPOOL / device).mkdir(parents=True, exist_ok=True)
        for path in (SPOOL / device).iterdir():
            path.unlink()
    sql(statements)


class Service:
    """The program under test, and its supervisor."""

    def __init__(self, program):
        self.program = program
        self.process = None
        self.start()

    def start(self):
        self.process = subprocess.Popen([self.program, "-app"], stdout=subprocess.DEVNULL,
                                        stderr=subprocess.DEVNULL)

    def strike(self, which):
        self.process.send_signal(which)
        self.process.wait()
        self.start()

    def stop(self):
        begin = time.monotonic()
        self.process.send_signal(signal.SIGINT)
        status = self.process.wait()
        return status, time.monotonic() - begin


def strike_server(_service):
    subprocess.run([TOOL, "kill", SERVER], check=False, stdout=subprocess.DEVNULL,
                   stderr=subprocess.DEVNULL)
    start_server()


def strike_connections(_service):
    for row in sql("select id from information_schema.processlist where user = 'midtable'") or ():
        sql(f"kill {row[0]}")


STRIKES = (
    ("service", lambda service: service.strike(signal.SIGKILL)),
    ("server", strike_server),
    ("connections", strike_connections),
    ("stop", lambda service: service.strike(signal.SIGINT)),
)


def drop_files(count, chance, seconds, first=0):
    """Files arrive a few at a time, each by a rename into its folder."""
    for number in range(first, first + count):
        device = DATABASES[number % len(DATABASES)]
        kind = KINDS[number // len(DATABASES) % len(KINDS)]
        rows = "".join(f"{number * 1000 + i}\t{number + i}\n" for i in range(ROWS))
        name = f"{device}-MEM_{DATE}_1{number % 6}00{kind}-{DATE}-{number:06}"
        path = SPOOL / device / f"{name}.tmp"
        path.write_text(rows)
        path.rename(path.with_suffix(".dat"))
        time.sleep(chance.expovariate(count / seconds))


def endings():
    found = {}
    for _, _, names in os.walk(SPOOL):
        for name in names:
            ending = name[name.index("."):]
            found[ending] = found.get(ending, 0) + 1
    return found


def rows_in_mem_tables():
    tables = sql("select concat(table_schema, '.', table_name) from information_schema.tables "
                 "where table_schema like 'WLAN\\_%' and table_name like 'MEM\\_%'")
    if tables is None:
        return None
    counts = sql(" union all ".join(f"select count(*) from {t[0]}" for t in tables)) if tables else []
    return None if counts is None else sum(int(c[0]) for c in counts)


def is_through(count):
    return endings().get(".mid", 0) == count and rows_in_mem_tables() == 0


def compare(count):
    """Rows lost and rows counted twice, over all mid tables."""
    lost = twice = 0
    for kind in KINDS:
        for period, date in PERIODS.items():
            name = mid_table(kind, period)[0] + date
            found = {}
            for device in DATABASES:
                for file, n, total in sql(f"select * from WLAN_{device}.{name}") or ():
                    found[int(file)] = (int(n), int(total))
            for number in range(count):
                if KINDS[number // len(DATABASES) % len(KINDS)] != kind:
                    continue
                n, total = found.get(number, (0, 0))
                lost += max(0, ROWS - n)
                twice += max(0, n - ROWS)
                if n == ROWS and total != sum(number + i for i in range(ROWS)):
                    lost += 1
    return lost, twice


def play(program, workers, seed, count, strikes, seconds):
    chance = random.Random(seed)
    set_up(workers)
    service = Service(program)
    feeder = threading.Thread(target=drop_files, args=(count, random.Random(seed), seconds))
    feeder.start()
    for i in range(strikes):
        time.sleep(chance.uniform(0, 2 * seconds / strikes))
        STRIKES[i % len(STRIKES)][1](service)
    feeder.join()
    end = time.monotonic() + PATIENCE
    begin = time.monotonic()
    while not is_through(count) and time.monotonic() < end:
        time.sleep(0.1)
    took = time.monotonic() - begin
    status, stopped = service.stop()
    lost, twice = compare(count)
    left = endings()
    waiting = rows_in_mem_tables()
    others = {ending: n for ending, n in left.items() if ending != ".mid"}
    print(f"seed {seed:3}, {workers} workers: {count} files, {strikes} strikes, lost {lost}, twice {twice}, rows waiting "
          f"{waiting}, not .mid {others or 0}, through after {took:.1f} s, stopped with status "
          f"{status} in {stopped:.1f} s", flush=True)
    return lost == twice == waiting == status == 0 and not others and left.get(".mid") == count


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("program")
    parser.add_argument("--short", action="store_true")
    parser.add_argument("--seeds", default="1,2,3")
    parser.add_argument("--workers", type=int, default=1)
    options = parser.parse_args()
    seeds = [int(seed) for seed in options.seeds.split(",")]
    SPOOL.mkdir(parents=True)
    start_server()
    sizes = (seeds[:1], 120, 16, 12) if options.short else (seeds, 1000, 100, 60)
    good = [play(options.program, options.workers, seed, *sizes[1:]) for seed in sizes[0]]
    subprocess.run([TOOL, "stop", SERVER], check=False)
    return 0 if all(good) else 1


if __name__ == "__main__":
    sys.exit(main())
