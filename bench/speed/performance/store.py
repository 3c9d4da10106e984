"""The private server that all contenders work on, and what its mid tables must hold."""

import os
import pathlib
import subprocess
import time
import xml.etree.ElementTree as tree

import pymysql

FOLDER = "/tmp/server"
# As large as a server for this work would have them, with a page's two writes as every server has.
SIZES = ("--general-log=0", "--innodb-buffer-pool-size=1G", "--innodb-log-file-size=512M",
         "--innodb-doublewrite=1", "--max-connections=60")
YEARS = ("2012", "2013")
COLUMNS = {
    "F": ("sessions", "seconds", "up_bytes", "down_bytes", "sessions * (local_flag = 1)",
          "sessions * (local_flag = 2)"),
    "A": ("attempts", "failures"),
}
NAMES = {"F": "FLOW", "A": "AUTH"}


class Store:
    def __init__(self, options):
        self.port = int(self._tool("start", *SIZES, *options))
        self.connection = self.connect()

    def stop(self):
        self.connection.close()
        self._tool("stop")

    @staticmethod
    def _tool(verb, *options):
        done = subprocess.run(["tools/private-mariadb", verb, FOLDER, *options], check=True,
                              stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, text=True)
        return done.stdout.strip()

    def connect(self):
        return pymysql.connect(host="127.0.0.1", port=self.port, user="midtable", password="secret",
                               autocommit=True)

    def ask(self, statement):
        with self.connection.cursor() as cursor:
            cursor.execute(statement)
            return cursor.fetchall()

    def run_file(self, path, year=""):
        """Statements of a file of the demo, which hold no semicolon but those at their ends."""
        lines = pathlib.Path(path).read_text().replace("_YYYY", "_" + year).splitlines()
        text = "\n".join(line for line in lines if not line.startswith("--"))
        for statement in filter(str.strip, text.split(";")):
            self.ask(statement)

    def reset(self, devices):
        """Empty databases, with year tables, as an installation begins."""
        for (database,) in self.ask("show databases like 'WLAN%'"):
            self.ask(f"drop database {database}")
        self.run_file("demo/setup.sql")
        for device in devices:
            self.ask(f"create database WLAN_{device}")
            self.ask(f"use WLAN_{device}")
            for year in YEARS:
                self.run_file("demo/year_tables.sql", year)
        self.ask("use vqcfg")
        # What the server still writes of the last contender's work is not this one's to wait for.
        os.sync()

    def tables(self, pattern):
        return [row[0] for row in self.ask(
            "select concat(table_schema, '.', table_name) from information_schema.tables where "
            f"table_schema like 'WLAN\\_%' and table_name like '{pattern}' order by 1")]

    def mem_rows(self):
        tables = self.tables("MEM\\_%")
        counts = self.ask(" union all ".join(f"select count(*) from {t}" for t in tables)) \
            if tables else ()
        return sum(row[0] for row in counts)

    def mem_tables_are_empty(self):
        tables = self.tables("MEM\\_%")
        return not tables or not self.ask(
            " union all ".join(f"(select 1 from {t} limit 1)" for t in tables))

    def sums(self):
        """Of each mid table that has rows."""
        found = {}
        for table in self.tables("T\\_%"):
            kind = "F" if ".T_FLOW" in table else "A"
            columns = ", ".join(f"sum({column})" for column in COLUMNS[kind])
            row = self.ask(f"select {columns} from {table}")[0]
            if row[0] is not None:
                found[table] = tuple(int(value) for value in row)
        return found

    def rows_counted(self, device):
        """Of all years: what shows that files are through without asking each table."""
        years = " union all ".join(
            f"select sum({column}) as n from WLAN_{device}.T_{name}1Y_{year}"
            for name, column in (("FLOW", "sessions"), ("AUTH", "attempts")) for year in YEARS)
        return int(self.ask(f"select sum(n) from ({years}) as y")[0][0] or 0)

    def set(self, variable, value):
        self.ask(f"set global {variable} = {value}")


def expected_sums(lines):
    """Of each mid table, from what make_mem_files printed."""
    expected = {}
    for line in lines:
        device, kind, date, *values = line.split()
        for period, length in (("1D", 8), ("1M", 6), ("1Y", 4)):
            table = f"WLAN_{device}.T_{NAMES[kind]}{period}_{date[:length]}"
            sums = expected.get(table, (0,) * len(values))
            expected[table] = tuple(a + int(b) for a, b in zip(sums, values))
    return expected


def write_templates(folder):
    """The definitions' statements as printf formats, a file each, for those who work without the service."""
    pathlib.Path(folder).mkdir(parents=True)
    root = tree.parse("demo/vqlog.xml").getroot()
    for kind in "FA":
        mem = next(node for node in root.find("Mem") if node.findtext("Name") == kind)
        pathlib.Path(folder, f"mem.{kind}").write_text(mem.findtext("Create"))
        for node in root.find(f"Conv/{kind}"):
            if node.tag == "MidCnt":
                continue
            period = {"1M": "month", "1Y": "year"}.get(node.findtext("Name")[6:8], "day")
            for what in ("Create", "Convert"):
                pathlib.Path(folder, f"{what}.{kind}.{period}").write_text(node.findtext(what) or "")


def wait_until(condition, seconds, what, pause=0.002):
    """The moment when the condition was seen to hold."""
    end = time.monotonic() + seconds
    while not condition():
        if time.monotonic() > end:
            raise SystemExit(f"performance: {what}: not within {seconds} s")
        time.sleep(pause)
    return time.monotonic()
