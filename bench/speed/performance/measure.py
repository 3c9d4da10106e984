"""What bench/speed/performance.sh runs inside the sandbox, once for each medium: see there.

    measure.py MEDIUM PROGRAM RESULT_FILE [--short] [--other PROGRAM]

MEDIUM: disk or memory. The result is a JSON file, which report.py reads."""

import argparse
import json
import os
import pathlib
import random
import sys
import time

import pymysql

import contenders
import works
from contenders import NO_FLAGS, SPOOL, Service
from store import Store, wait_until, write_templates
from works import DEVICES, Work

DURABLE = "--innodb-flush-log-at-trx-commit=1"
PATIENCE = 900  # seconds after which a contender that is not through counts as hanging


class Measurement:
    def __init__(self, options):
        build = pathlib.Path(options.program).parents[2]
        self.program, self.other = options.program, options.other
        self.short, self.medium = options.short, options.medium
        self.maker = build / "bench/speed/make_mem_files"
        self.pauses = str(build / "bench/endurance/short_pauses.so")
        self.store = Store((DURABLE,))
        self.result = {"medium": options.medium, "short": options.short, "times": {}, "processor": {},
                       "figures": {}, "works": {}, "backlog": {}, "choice": {}, "peak_kib": 0}

    # --- contenders of the same work

    def service(self, delivery="", workers=1, program=None, name=None, preload=""):
        def run(work):
            with Service(program or self.program, self.store.port, delivery, workers, preload) as service:
                self.await_end(service, work.count)
                if name:
                    self.result["processor"].setdefault(f"{work.name} {name}", []).append(
                        service.processor_ms() / work.count)
                self.note_peak(service, delivery)
        return run

    def await_end(self, service, count):
        """No file waits and all mem tables are empty. Rarely asked before the end is near."""
        def is_through():
            service.check()
            left = works.waiting()
            if left:
                time.sleep(min(0.2, 0.004 + left / count * 0.2))
            return left == 0 and self.store.mem_tables_are_empty()
        wait_until(is_through, PATIENCE, f"{count} files")

    def note_peak(self, service, delivery):
        if delivery:
            self.result["peak_kib"] = max(self.result["peak_kib"], service.peak_kib())

    def all_contenders(self):
        found = {
            "as described": (None, self.service(name="as described")),
            "once, 1 worker": (None, self.service("once", 1, name="once, 1 worker")),
            "once, 2 workers": (None, self.service("once", 2)),
            "script": (None, lambda work: contenders.script(self.store, "each")),
            "script, batches": (None, lambda work: contenders.script(self.store, "batches")),
            "mariadb-import": (contenders.prepare_import,
                               lambda work: contenders.mariadb_import(self.store, work)),
        }
        if any(os.access(os.path.join(folder, "myloader"), os.X_OK) for folder in os.get_exec_path()):
            found["myloader"] = (contenders.prepare_myloader,
                                 lambda work: contenders.myloader(self.store, work))
        return found

    def play(self, work, name, prepare, run, expected=None):
        """One contender's turn: appends its seconds once its sums are seen to be right."""
        self.store.reset(work.devices)
        work.lay_out()
        if prepare:
            prepare(self.store, work)
        begin = time.monotonic()
        run(work)
        seconds = time.monotonic() - begin
        if prepare:
            self.must_equal(self.store.mem_rows(), work.count * work.rows, f"{name}: rows loaded")
        else:
            self.must_equal(self.store.sums(), expected or work.expected, f"{name}: sums")
            self.must_equal(self.store.mem_rows(), 0, f"{name}: rows in mem tables")
            self.must_equal(works.waiting(), 0, f"{name}: files that wait")
            self.must_equal(works.refused(), [], f"{name}: files refused")
        self.result["times"].setdefault(work.name, {}).setdefault(name, []).append(seconds)
        self.say(f"{work.name}: {name}: {seconds:.2f} s")

    @staticmethod
    def must_equal(found, wanted, what):
        if found != wanted:
            raise SystemExit(f"performance: {what}: found {found}, not {wanted}")

    def say(self, text):
        print(f"{self.medium}: {text}", file=sys.stderr, flush=True)

    def both_builds(self):
        """Without the pauses of a second, which would hide a difference of milliseconds."""
        return {"as described": (None, self.service(preload=self.pauses)),
                "other build": (None, self.service(program=self.other, preload=self.pauses))}

    def compare(self, work, rounds, contenders_of_work):
        self.result["works"][work.name] = {"files": work.count, "rows": work.rows,
                                           "devices": len(work.devices)}
        for _ in range(rounds):
            for name, (prepare, run) in contenders_of_work.items():
                self.play(work, name, prepare, run)

    def compare_shell_loop(self, work):
        self.result["works"][work.name] = {"files": work.count, "rows": work.rows,
                                           "devices": len(work.devices)}
        self.play(work, "shell loop", None, lambda _: contenders.shell_loop(self.store))

    def compare_flags(self, work, rounds):
        self.result["works"][work.name] = {"files": work.count, "rows": work.rows, "devices": 1}
        for _ in range(rounds):
            self.play(work, "with flags", None, self.service("once", 1))
            NO_FLAGS.touch()
            self.play(work, "without flags", None, self.service("once", 1), work.expected_without_flags())
            NO_FLAGS.unlink()

    # --- single files

    def send(self, work, path, longest=30):
        """Seconds from the file's rename into the spool to its rows in the day table."""
        device, kind, date = path.name[:8], path.name[26], path.name[13:21]
        table, column = {"F": ("T_FLOW1D_", "sessions"), "A": ("T_AUTH1D_", "attempts")}[kind]
        question = f"select ifnull(sum({column}), 0) from WLAN_{device}.{table}{date}"
        known = self.store.tables(f"{table}{date}")
        before = int(self.store.ask(question)[0][0]) if f"WLAN_{device}.{table}{date}" in known else 0

        def is_counted():
            try:
                return int(self.store.ask(question)[0][0]) == before + work.rows
            except pymysql.err.ProgrammingError:  # the table is made with the first file
                return False
        begin = time.monotonic()
        os.rename(path, SPOOL / device / path.name)
        return wait_until(is_counted, longest, path.name) - begin

    def latencies(self, work, count, pause=0.03):
        """Of files that come to an idle spool, each when the one before is counted."""
        random_pauses = random.Random(1)
        paths = sorted(work.files(work.devices[0]), reverse=True)
        for path in paths[:20]:  # these make tables, among others
            self.send(work, path)
        found = []
        for path in paths[20:20 + count]:
            time.sleep(random_pauses.uniform(0, 2 * pause))
            found.append(self.send(work, path) * 1000)
        return sorted(found)

    def single_files(self, name, delivery, count, folders=1, old_files=0, preload="", pause=0.03,
                     idle=0):
        work = Work(self.maker, name, 1, count + 20, 100)
        self.store.reset(work.devices)
        works.empty_spool(work.devices)
        works.make_folders(folders - 1)
        works.make_old_files(work.devices[0], old_files)
        with Service(self.program, self.store.port, delivery, 1, preload) as service:
            time.sleep(3 if delivery else 1)
            if idle:
                time.sleep(5)
                begin, before = time.monotonic(), service.processor_ms()
                time.sleep(idle)
                self.result["figures"][f"{name}: idle, % of a core"] = (
                    (service.processor_ms() - before) / (time.monotonic() - begin) / 10)
            before = service.processor_ms()
            found = self.latencies(work, count, pause)
            self.result["figures"][f"{name}: processor, ms a file"] = (
                (service.processor_ms() - before) / (count + 20))
            self.note_peak(service, delivery)
        self.result["figures"][f"{name}: median, ms"] = found[len(found) // 2]
        self.result["figures"][f"{name}: 90 %, ms"] = found[len(found) * 9 // 10]
        self.say(f"{name}: median {found[len(found) // 2]:.1f} ms")
        work.remove()

    # --- a large file beside small ones

    def beside_a_large_file(self, rows):
        large = Work(self.maker, "large file", 1, 1, rows, "F")
        self.result["figures"]["large file: MiB"] = (
            large.files(DEVICES[0])[0].stat().st_size / 2**20)
        for delivery in ("once",) if self.short else ("once", ""):
            small = Work(self.maker, "beside", 2, 600, 100, "A", first_id=rows + 1)
            self.beside(large, small, delivery)
            small.remove()
        large.remove()

    def beside(self, large, small, delivery):
        self.store.reset(small.devices)
        works.empty_spool(small.devices)
        path = large.files(DEVICES[0])[0]
        paths = sorted(small.files(DEVICES[1]), reverse=True)
        found = []
        with Service(self.program, self.store.port, delivery, 2) as service:
            time.sleep(3)
            self.send(small, paths.pop(0))  # makes its tables
            begin = time.monotonic()
            os.link(path, works.WORKS / path.name)  # since the file is needed again
            os.rename(works.WORKS / path.name, SPOOL / DEVICES[0] / path.name)
            time.sleep(1)
            while (SPOOL / DEVICES[0] / path.name).exists() and paths:
                found.append(self.send(small, paths.pop(0), PATIENCE) * 1000)
                time.sleep(0.2)
            wait_until(lambda: self.store.rows_counted(DEVICES[0]) == large.rows, PATIENCE, path.name)
            name = "beside once" if delivery else "beside as described"
            self.result["figures"][f"{name}: the large file, s"] = time.monotonic() - begin
            self.note_peak(service, delivery)
        found.sort()
        self.must_equal({k: v for k, v in self.store.sums().items() if k.startswith(f"WLAN_{DEVICES[0]}")},
                        large.expected, "large file: sums")
        self.result["figures"][f"{name}: 90 %, ms"] = found[len(found) * 9 // 10]
        self.result["figures"][f"{name}: files"] = len(found)
        self.say(f"{name}: 90 % {found[len(found) * 9 // 10]:.0f} ms of {len(found)} files")

    # --- a backlog

    def backlogs(self, sizes):
        """Files of 10 rows in one folder. As described, only the first 1,000 of them are loaded."""
        for size in sizes:
            work = Work(self.maker, f"backlog {size}", 1, size, 10)
            for name, delivery, count in (("as described", "", 1000), ("once, 1 worker", "once", size)):
                for _ in range(1 if count > 50_000 else 2):
                    self.drain(work, name, delivery, count)
            work.remove()

    def drain(self, work, name, delivery, count):
        self.store.reset(work.devices)
        work.lay_out()
        begin = time.monotonic()
        with Service(self.program, self.store.port, delivery) as service:
            done = wait_until(lambda: self.store.rows_counted(work.devices[0]) >= count * work.rows,
                              PATIENCE, work.name, pause=0.01)
            self.note_peak(service, delivery)
        if count == work.count:
            self.must_equal(self.store.sums(), work.expected, f"{work.name}: {name}: sums")
        took = (done - begin) / count * 1000
        self.result["backlog"].setdefault(name, {}).setdefault(str(work.count), []).append(took)
        self.say(f"{work.name}: {name}: {took:.2f} ms a file")

    # --- what to set

    def choices(self, work):
        """By workers and by what the server brings to the disk with each commit."""
        self.result["works"][work.name] = {"files": work.count, "rows": work.rows,
                                           "devices": len(work.devices)}
        for flush in (1, 2, 0):
            self.store.set("innodb_flush_log_at_trx_commit", flush)
            self.play_with_workers(work, str(flush))
        self.store.stop()
        self.store = Store((DURABLE, "--log-bin=binlog", "--sync-binlog=1"))
        self.play_with_workers(work, "1 and sync_binlog=1")
        self.store.stop()
        self.store = Store((DURABLE,))
        self.result["choice"] = self.result["times"].pop(work.name)

    def play_with_workers(self, work, setting):
        for workers in (1, 2, 4):
            self.play(work, f"{workers} {setting}", None, self.service("once", workers))

    def time_a_sync(self):
        """Of the disk: a page that is written behind the others of its file."""
        found = []
        with open("/vqlog/synced", "wb", buffering=0) as file:
            for _ in range(200):
                begin = time.monotonic()
                file.write(bytes(4096))
                os.fdatasync(file)
                found.append((time.monotonic() - begin) * 1000)
        os.remove("/vqlog/synced")
        self.result["figures"]["the disk: a sync, median, ms"] = sorted(found)[len(found) // 2]

    def run(self):
        if self.other:
            self.run_both_builds()
            return
        main = self.medium == "disk"
        few = 5 if self.short else 1  # how much less than the whole
        rounds = 1 if self.short else 3 if main else 2
        works_of_all = (
            (Work(self.maker, "small", 2, 1000 // few, 100), rounds),
            (Work(self.maker, "large", 2, 60 // few, 5000), rounds),
            (Work(self.maker, "many", 8, 400 // few, 1000), 1),
        )
        for work, times in works_of_all:
            self.compare(work, times, self.all_contenders())
            work.remove()
        if main:
            self.run_on_disk(few, rounds)
        else:
            self.single_files("single files, 500,000 old ones", "once", 200 // few,
                              old_files=500_000 // few, idle=5 if self.short else 20)

    def run_both_builds(self):
        rounds = 3 if self.short else 7
        for work in (Work(self.maker, "small", 2, 300, 100), Work(self.maker, "large", 2, 30, 5000)):
            self.compare(work, rounds, self.both_builds())
            work.remove()

    def run_on_disk(self, few, rounds):
        for work, play in (
                (Work(self.maker, "loop", 2, 100 // few, 100), self.compare_shell_loop),
                (Work(self.maker, "flags", 1, 1000 // few, 100, "F"),
                 lambda work: self.compare_flags(work, rounds)),
                (Work(self.maker, "choice", 8, 250 // few, 100), self.choices)):
            play(work)
            work.remove()
        self.time_a_sync()
        idle = 5 if self.short else 20
        self.single_files("single files, once", "once", 200 // few, idle=idle)
        self.single_files("single files, 1,000 folders", "once", 200 // few, folders=1000, idle=idle)
        self.single_files("single files, as described", "", 10, pause=0.5)
        self.single_files("single files, without pauses", "", 200 // few, preload=self.pauses)
        self.backlogs((1000, 10_000) if self.short else (1000, 10_000, 100_000))
        self.beside_a_large_file(500_000 if self.short else 9_000_000)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("medium")
    parser.add_argument("program")
    parser.add_argument("result")
    parser.add_argument("--short", action="store_true")
    parser.add_argument("--other")
    options = parser.parse_args()
    contenders.configure()
    write_templates(contenders.TEMPLATES)
    SPOOL.mkdir(parents=True)
    measurement = Measurement(options)
    try:
        measurement.run()
    finally:
        measurement.store.stop()
    pathlib.Path(options.result).write_text(json.dumps(measurement.result, indent=1))


if __name__ == "__main__":
    main()
