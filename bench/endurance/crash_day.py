"""The day of mem files that the crash matrix plays, and how its tables and files are judged."""

import os
import pathlib
import shutil
from collections import defaultdict

SPOOL = pathlib.Path("/vqlog/log_data/midtable")
DATE = "20121230"
# Nobody has made this device's database, nor its year tables: the service makes the one, the
# operator is late with the other.
NEW_DEVICE = "9c0d1e2f"
DEVICES = ("1a2b3c4d", "5e6f7a8b")
# Device, kind and hour of each file. Every file of a device and kind has an hour of its own, so that
# the day table, which counts by hours, tells them apart.
FILES = (
    ("1a2b3c4d", "F", 8), ("1a2b3c4d", "F", 12), ("1a2b3c4d", "A", 8), ("1a2b3c4d", "A", 12),
    ("5e6f7a8b", "F", 9), ("5e6f7a8b", "F", 10), ("5e6f7a8b", "A", 9), (NEW_DEVICE, "A", 10),
)
DAMAGED = ("1a2b3c4d", "F", 8)  # has a line that is dropped: its original is kept as .err
RECORDS = 4
USERS = (800138000, 1397657449, 0)  # local, visitor, none
LOCAL_BLOCK = "1380013"


def name_of(device, kind, hour):
    return f"{device}-MEM_{DATE}_{hour:02}00{kind}-{DATE}-{hour:02}0000"


def parts_of(name):
    device, table, _, time = name.split("-")
    return device, table[-1], int(time[:2])


def records(kind, hour, first_id):
    for i in range(RECORDS):
        number = first_id + i
        time = f"2012-12-30 {hour:02}:00:{i:02}"
        start = (number, USERS[i % len(USERS)], time)
        if kind == "F":
            rest = (60 + i, "10.0.0.1", "68:ed:3d:00:d1:34", "ap-1", "staff", "web", number, 2 * number)
        else:
            rest = ("ap-1", "staff", i % 2)
        yield "\t".join(map(str, start + rest)) + "\n"


def write_files(folder):
    for index, (device, kind, hour) in enumerate(FILES):
        text = "".join(records(kind, hour, 1000 * (index + 1)))
        if (device, kind, hour) == DAMAGED:
            text += "a line that is no record\n"
        path = folder / device / (name_of(device, kind, hour) + ".dat")
        path.parent.mkdir(parents=True, exist_ok=True)
        path.write_text(text)


def fill_spool(source):
    shutil.rmtree(SPOOL, ignore_errors=True)
    shutil.copytree(source, SPOOL)


def reset_statements(year_tables):
    statements = [f"drop database if exists WLAN_{d};" for d in (*DEVICES, NEW_DEVICE)]
    for device in DEVICES:
        statements.append(f"create database WLAN_{device}; use WLAN_{device}; {year_tables}")
    return "\n".join(statements)


def files_left():
    """The endings that each mem file of the spool has, by its name without them."""
    found = defaultdict(list)
    for path in sorted(SPOOL.glob("*/*")):
        stem, _, ending = path.name.partition(".")
        found[stem].append("." + ending)
    return {stem: " and ".join(endings) for stem, endings in found.items()}


def waiting_files(but_for=None):
    """Whether files wait, other than those of the device `but_for`."""
    return any(name.endswith(".dat") and not (but_for and name.startswith(but_for))
               for _, _, names in os.walk(SPOOL) for name in names)


class Tables:
    """What the databases of the devices hold."""

    def __init__(self, sql):
        names = [n for n in sql("""select concat(table_schema, '.', table_name)
            from information_schema.tables where table_schema like 'WLAN\\_%'
            and table_name <> 'midtable_ledger' order by 1""")]
        reads = [f"select '{n[0]}', x.* from {n[0]} x;" if ".T_" in n[0] else
                 f"select '{n[0]}', count(*) from {n[0]};" for n in names]
        self.mid = defaultdict(dict)
        self.mem = {}
        for name, *row in sql("\n".join(reads)) if reads else ():
            if ".MEM_" in name:
                self.mem[name] = int(row[0])
            else:
                # The first columns of each table are its key, the records are counted behind it.
                measures = 4 if ".T_FLOW" in name else 2
                self.mid[name][tuple(row[:-measures])] = tuple(row[-measures:])

    def records(self, name):
        """Records of a mid table by its key without the local flag, the last of a flow table's."""
        counted = defaultdict(int)
        for key, measures in self.mid.get(name, {}).items():
            counted[key[:-1] if ".T_FLOW" in name else key] += int(measures[0])
        return counted

    def hours(self, device, kind):
        """The hours of the day of which the device's day table has records."""
        table = f"WLAN_{device}.T_{'FLOW' if kind == 'F' else 'AUTH'}1D_{DATE}"
        return {int(key[0]) for key in self.mid.get(table, {})}

    def waiting(self, but_for=None):
        """Records in mem tables, more than there are in those of `but_for`."""
        known = but_for.mem if but_for else {}
        return sum(max(0, rows - known.get(name, 0)) for name, rows in self.mem.items())


def compare(expected, found):
    """Records lost and records counted twice, and whether anything else is different. Every record
    goes to a day, a month and a year table; the table in which most are missing counts."""
    lost, twice = defaultdict(int), defaultdict(int)
    for name in {*expected.mid, *found.mid}:
        ours, theirs = expected.records(name), found.records(name)
        kind = name[:name.index(".T_") + 7]  # database, "T_FLOW" or "T_AUTH"
        keys = {*ours, *theirs}
        lost[kind] = max(lost[kind], sum(max(0, ours[k] - theirs[k]) for k in keys))
        twice[kind] = max(twice[kind], sum(max(0, theirs[k] - ours[k]) for k in keys))
    total_lost, total_twice = sum(lost.values()), sum(twice.values())
    differs = not total_lost and not total_twice and expected.mid != found.mid
    return total_lost, total_twice, differs
