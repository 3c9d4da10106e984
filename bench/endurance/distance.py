"""What the distance to the server costs: a work of bench/speed/performance over a long line and a short one."""

import pathlib
import statistics
import sys
import time

sys.path.append(str(pathlib.Path(__file__).parents[1] / "speed/performance"))

# pylint: disable=wrong-import-position
import contenders
import works
from bad_line import BadLine
from store import Store, wait_until

MOST_TIMES_AS_LONG = 3


def seconds_for(work, store, program, workers, round_trip):
    store.reset(work.devices)
    work.lay_out()
    with BadLine(store.port, round_trip) as line:
        begin = time.monotonic()
        with contenders.Service(program, line.port, "once", workers) as service:
            def is_through():
                service.check()
                left = works.waiting()
                if left:
                    time.sleep(0.02)
                return left == 0 and store.mem_tables_are_empty()
            took = wait_until(is_through, 300, work.name) - begin
    if store.sums() != work.expected:
        raise SystemExit(f"network: {work.name}: sums are not those of the files")
    return took


def measure(program, round_trip):
    """In turns, so that what else the machine does meets both."""
    contenders.configure()
    store = Store(("--innodb-flush-log-at-trx-commit=1",))
    maker = pathlib.Path(program).parents[2] / "bench/speed/make_mem_files"
    work = works.Work(maker, "distance", 2, 1000, 100)
    is_good = True
    for workers in (1, 2):
        pairs = [[seconds_for(work, store, program, workers, length) for length in (0, round_trip)]
                 for _ in range(3)]
        near, far = (statistics.median(times) for times in zip(*pairs))
        is_good = is_good and far <= MOST_TIMES_AS_LONG * near
        print(f"{workers} workers, 2 databases of 1,000 files of 100 rows: {near:.2f} s, with a round trip of "
              f"{round_trip * 1000:.0f} ms {far:.2f} s, {far / near:.2f} times as long", flush=True)
    store.stop()
    work.remove()
    works.empty_spool(())
    return is_good
