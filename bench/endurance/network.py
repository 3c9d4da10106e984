"""Plays what network.sh says, inside the sandbox."""

import argparse
import pathlib
import random
import sys
import time

import kills
from bad_line import BadLine

STALL = 20  # seconds
SHORT_STALL = 12  # longer than the 10 seconds after which a lost answer is looked for
# From the end of a fault until the files are through: 10 seconds of silence, as many again where the
# server waits for the bytes of a load meanwhile, 1 to see that the answer is lost, 8 between two tries to
# connect, and what the work takes.
LONGEST = 10 + 10 + 1 + 8 + 5
FILES_AT_ONCE = 12


class Play:
    """One run of the service under faults, in the order that the seed gives."""

    def __init__(self, program, seed, workers, round_trip, stall=STALL):
        self.chance = random.Random(seed)
        self.program, self.seed, self.workers, self.round_trip = program, seed, workers, round_trip
        self.stall, self.count, self.longest, self.is_late = stall, 0, 0.0, False

    def run(self, faults):
        self.chance.shuffle(faults)
        with BadLine(server_port(), self.round_trip) as line:
            kills.set_up(self.workers, line.port)
            service = kills.Service(self.program)
            self.begin()
            for fault in faults:
                self.suffer(line, fault)
            status, stopped = service.stop()
        lost, twice = kills.compare(self.count)
        rows, others = kills.rows_in_mem_tables(), kills.endings()
        is_good = others.pop(".mid", 0) == self.count and not others
        print(f"seed {self.seed:3}, {self.workers} workers: {self.count} files, {len(faults)} faults, lost "
              f"{lost}, twice {twice}, rows waiting {rows}, not .mid {others or 0}, held up for at most "
              f"{self.longest:.1f} s, stopped with status {status} in {stopped:.1f} s", flush=True)
        return is_good and lost == twice == rows == status == 0 and not self.is_late

    def begin(self):
        """Files wait for the registry's first reading. What is lost of that is waited for by other time-outs,
        of a minute, and is not played here."""
        kills.drop_files(FILES_AT_ONCE, self.chance, 0.2, self.count)
        self.count += FILES_AT_ONCE
        wait_until(lambda: kills.is_through(self.count), 60, "the first files", 0.05)

    def suffer(self, line, fault):
        """Files come, the fault strikes at some moment of the work on them, and they must get through."""
        kills.drop_files(FILES_AT_ONCE, self.chance, 0.2, self.count)
        self.count += FILES_AT_ONCE
        time.sleep(self.chance.uniform(0, 0.3 + 10 * self.round_trip))
        begin = time.monotonic()
        if fault == "stall":
            line.stall(self.stall)
            time.sleep(self.stall)
            begin += self.stall
        else:
            self.strike(getattr(line, fault))
        while not kills.is_through(self.count):
            if time.monotonic() - begin > LONGEST:
                print(f"seed {self.seed}: {fault}: not through after {LONGEST} s", flush=True)
                self.is_late = True
                wait_until(lambda: kills.is_through(self.count), 200, "all files", 0.2)
            time.sleep(0.05)
        self.longest = max(self.longest, time.monotonic() - begin)

    def strike(self, fault):
        """A service that has no connection just now gets one."""
        wait_until(lambda: fault(self.chance), LONGEST, "a connection to strike", 0.01)


def server_port():
    return int(pathlib.Path(kills.SERVER, "port").read_text())


def wait_until(condition, seconds, what, pause):
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            raise SystemExit(f"network: {what}: not within {seconds} s")
        time.sleep(pause)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("program")
    parser.add_argument("--short", action="store_true")
    parser.add_argument("--distance", action="store_true")
    parser.add_argument("--seeds", default="1,2,3,4")
    parser.add_argument("--round-trip", type=int, default=50)
    options = parser.parse_args()
    round_trip = options.round_trip / 1000
    kills.SPOOL.mkdir(parents=True)
    good = []
    if not options.short:
        import distance  # pylint: disable=import-outside-toplevel  # it needs more packages
        good.append(distance.measure(options.program, round_trip))
    if options.distance:
        return 0 if all(good) else 1
    kills.start_server()
    if options.short:
        faults = ["stall"] + ["reset", "cut"] * 3
        good.append(Play(options.program, 1, 2, round_trip, SHORT_STALL).run(faults))
    else:
        faults = ["stall"] + ["swallow"] * 3 + ["reset", "cut"] * 15
        good += [Play(options.program, int(seed), workers, round_trip).run(list(faults))
                 for seed in options.seeds.split(",") for workers in (1, 2)]
    kills.subprocess.run([kills.TOOL, "stop", kills.SERVER], check=False)
    return 0 if all(good) else 1


if __name__ == "__main__":
    sys.exit(main())
