"""Tables, pictures and goals from what measure.py found:

    report.py FOLDER [--publish]

FOLDER holds disk.json and memory.json. Exit status 1 when a goal is missed."""

import json
import pathlib
import re
import statistics
import subprocess
import sys

DOCUMENT = pathlib.Path("docs/performance.md")
PICTURES = ("performance-works", "performance-backlog")
ONE, TWO, DESCRIBED, SCRIPT = "once, 1 worker", "once, 2 workers", "as described", "script"
OTHER = "other build"
ONLY_LOAD = ("mariadb-import", "myloader")
TITLES = {
    "small": "many small files", "large": "large files", "many": "many databases", "loop": "shell loop",
    "flags": "with and without local flags", "choice": "workers and the server's settings",
}


def ms_a_file(result, work, times):
    return statistics.median(times) / result["works"][work]["files"] * 1000


def ratio(result, work, one, other):
    """The median of the rounds' ratios: what ran next to each other is compared."""
    times = result["times"][work]
    return statistics.median(a / b for a, b in zip(times[one], times[other]))


def describe(result, work):
    about = result["works"][work]
    return (f"{TITLES[work]}: {about['devices']} database{'s' if about['devices'] > 1 else ''} of "
            f"{about['files'] // about['devices']:,} files of {about['rows']:,} rows")


def table_of_works(result):
    lines = []
    for work, contenders in result["times"].items():
        rounds = max(len(times) for times in contenders.values())
        lines += ["", f"{describe(result, work)}, median of {rounds}"]
        described = contenders.get(DESCRIBED)
        for name, times in contenders.items():
            note = "  (only loads)" if name in ONLY_LOAD else ""
            times_of_described = "" if not described else \
                f"{ratio(result, work, name, DESCRIBED):8.2f} x as described"
            lines.append(f"  {name:26} {statistics.median(times):9.2f} s "
                         f"{ms_a_file(result, work, times):9.3f} ms/file {times_of_described}{note}".rstrip())
    return lines


def table_of_backlog(result):
    lines = ["", "Waiting in one folder, 10 rows a file; as described, the first 1,000 of them"]
    for name, sizes in result["backlog"].items():
        lines += [f"  {name:18} {int(size):9,} files {statistics.median(times):9.3f} ms/file"
                  for size, times in sizes.items()]
    return lines


def table_of_figures(result):
    return ["", "Single files"] + [
        f"  {name:54} {value:10.2f}" for name, value in result["figures"].items()]


def table_of_choice(result):
    """For choosing workers and what the server brings to the disk with each commit."""
    keys = [key.split(" ", 1) for key in result["choice"]]
    workers = sorted({int(number) for number, _ in keys})
    lines = ["", f"{describe(result, 'choice')}, ms a file",
             "  innodb_flush_log_at_trx_commit " + "".join(f"{f'workers={n}':>12}" for n in workers)]
    for setting in dict.fromkeys(setting for _, setting in keys):
        values = (ms_a_file(result, "choice", result["choice"][f"{n} {setting}"]) for n in workers)
        lines.append(f"  {setting:<30} " + "".join(f"{value:12.3f}" for value in values))
    return lines


def goals(disk, memory):
    """What is wanted, on the disk where nothing else is said: text, value, limit."""
    figures, backlog = disk["figures"], disk["backlog"]["once, 1 worker"]
    sizes = sorted(backlog, key=int)
    return [
        ("small files: once, 1 worker / as described", ratio(disk, "small", ONE, DESCRIBED), 0.35),
        ("small files: once, 2 workers / as described", ratio(disk, "small", TWO, DESCRIBED), 0.20),
        ("small files: once, 2 workers / script", ratio(disk, "small", TWO, SCRIPT), 0.50),
        ("large files: once, 1 worker / as described", ratio(disk, "large", ONE, DESCRIBED), 0.95),
        ("large files: once, 2 workers / as described", ratio(disk, "large", TWO, DESCRIBED), 0.65),
        ("large files: once, 2 workers / script", ratio(disk, "large", TWO, SCRIPT), 1.05),
        ("many databases: once, 2 workers / script", ratio(disk, "many", TWO, SCRIPT), 0.60),
        ("once, 1 worker: with local flags / without", ratio(disk, "flags", "with flags", "without flags"), 1.15),
        ("own processor time, ms a file of 100 rows, once",
         statistics.median(disk["processor"]["small " + ONE]), 0.30),
        ("single file, idle spool, once: 90 %, ms", figures["single files, once: 90 %, ms"], 30),
        ("the same: idle, % of a core", figures["single files, once: idle, % of a core"], 0.1),
        ("the same among 1,000 folders: 90 %, ms", figures["single files, 1,000 folders: 90 %, ms"], 60),
        ("the same: idle, % of a core", figures["single files, 1,000 folders: idle, % of a core"], 0.5),
        ("the same among 500,000 old files, in memory: 90 %, ms",
         memory["figures"]["single files, 500,000 old ones: 90 %, ms"], 30),
        ("the same: idle, % of a core", memory["figures"]["single files, 500,000 old ones: idle, % of a core"], 0.1),
        ("single files: once / as described without its pauses",
         figures["single files, once: median, ms"] / figures["single files, without pauses: median, ms"], 1.15),
        ("a small file beside a large one, 2 workers: 90 %, ms", figures["beside once: 90 %, ms"], 200),
        (f"a file of {int(sizes[-1]):,} waiting / of {int(sizes[0]):,}, once",
         statistics.median(backlog[sizes[-1]]) / statistics.median(backlog[sizes[0]]), 1.3),
        ("peak memory of all runs with delivery=once, MiB", max(disk["peak_kib"], memory["peak_kib"]) / 1024, 32),
    ]


def goals_of_builds(disk, memory):
    """Of a build beside another one."""
    return [(f"as described / other build, {TITLES[work]}, {medium}", ratio(result, work, DESCRIBED, OTHER), 1.03)
            for medium, result in (("on the disk", disk), ("in memory", memory)) for work in ("small", "large")]


def table_of_goals(wanted):
    lines, missed = ["", f"{'goal':60} {'measured':>10}    limit"], False
    for text, value, limit in wanted:
        missed |= value > limit
        lines.append(f"{text:60} {value:10.3f} <= {limit:<6} {'MISSED' if value > limit else 'reached'}")
    return lines, missed


def write_works(path, disk):
    """A block for each work: its title, then a line for each contender."""
    blocks = []
    for work in ("small", "large", "many"):
        lines = [f'"{describe(disk, work).split(": ")[1]}" 0 0']
        for name, times in disk["times"][work].items():
            lines.append(f'"{name}" {ms_a_file(disk, work, times):.4f} {int(name in ONLY_LOAD)}')
        blocks.append("\n".join(lines))
    path.write_text("\n\n\n".join(blocks) + "\n")


def write_backlog(path, disk):
    lines = []
    for size in disk["backlog"][DESCRIBED]:
        values = (statistics.median(disk["backlog"][name][size]) for name in (DESCRIBED, ONE))
        lines.append(f"{size} " + " ".join(f"{value:.4f}" for value in values))
    path.write_text("\n".join(lines) + "\n")


def draw(folder, disk):
    write_works(folder / "works.txt", disk)
    write_backlog(folder / "backlog.txt", disk)
    subprocess.run(["gnuplot", "-e", f"folder='{folder}'", pathlib.Path(__file__).with_name("pictures.gnuplot")],
                   check=True, env={"HOME": "/tmp", "PATH": "/usr/bin:/bin"})


def publish(folder, text):
    for name in PICTURES:
        pathlib.Path("docs", f"{name}.png").write_bytes((folder / f"{name}.png").read_bytes())
    block = "".join(f"    {line}\n" if line else "\n" for line in text.splitlines())
    document = DOCUMENT.read_text()
    marked = re.sub(r"(?s)(?<=<!-- table -->\n).*(?=<!-- end -->)", lambda _: f"\n{block}\n", document)
    DOCUMENT.write_text(marked)


def main():
    folder = pathlib.Path(sys.argv[1]).resolve()
    disk, memory = (json.loads((folder / f"{name}.json").read_text()) for name in ("disk", "memory"))
    is_whole = OTHER not in disk["times"]["small"]
    lines = ["On the disk, every commit synced"] + table_of_works(disk)
    if is_whole:
        lines += table_of_choice(disk) + table_of_backlog(disk) + table_of_figures(disk)
    lines += ["", "In memory"] + table_of_works(memory)
    if is_whole:
        lines += table_of_figures(memory)
    checked, missed = table_of_goals((goals if is_whole else goals_of_builds)(disk, memory))
    text = "\n".join(lines + checked) + "\n"
    print(text, end="")
    (folder / "table.txt").write_text(text)
    if is_whole:
        draw(folder, disk)
        if "--publish" in sys.argv:
            publish(folder, text)
    return 1 if missed else 0


if __name__ == "__main__":
    sys.exit(main())
