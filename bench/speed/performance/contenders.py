"""Those who do the work: the service in its settings, and what a user could do instead."""

import os
import pathlib
import shutil
import signal
import subprocess
import time

SPOOL = pathlib.Path("/vqlog/log_data/midtable")
SETTINGS = pathlib.Path("/virus/apache/rnweb/inc/dbinfo.conf")
NO_FLAGS = pathlib.Path("/tmp/mem_table_f.flag")  # with it the service adds no local flags
TEMPLATES = "/tmp/templates"
HERE = pathlib.Path(__file__).parent
CONFIGURATION = pathlib.Path("/etc/morvan")
NUMBER_PREFIXES = (13, 14, 15, 18)


def configure():
    for name in ("vqlog.xml", "sqlldr_ctl.xml", "devstate.ini"):
        shutil.copy(f"demo/{name}", CONFIGURATION)
    # As many blocks as a large city has: every 200th one, as the maker of the files knows.
    blocks = (f"{prefix}{block:05}\n" for prefix in NUMBER_PREFIXES for block in range(0, 100_000, 200))
    (CONFIGURATION / "localtour.csv").write_text("".join(blocks))


class Service:
    """A run of the service, from its start to its end."""

    def __init__(self, program, port, delivery="", workers=1, preload=""):
        SETTINGS.parent.mkdir(parents=True, exist_ok=True)
        text = f"host=127.0.0.1\nport={port}\nuser=midtable\npassword=secret\ndbtype=mysql\ndbname0=vqcfg\n"
        if delivery:
            text += f"delivery={delivery}\nworkers={workers}\n"
        SETTINGS.write_text(text)
        # As a daemon it has no output either.
        self.process = subprocess.Popen([program, "-app"], stdout=subprocess.DEVNULL,
                                        stderr=subprocess.DEVNULL,
                                        env=dict(os.environ, LD_PRELOAD=preload))
        self.clock = ~self.process.pid << 3 | 2  # of the process's processor time

    def __enter__(self):
        return self

    def __exit__(self, *_):
        self.process.send_signal(signal.SIGINT)
        if self.process.wait(60) != 0:
            raise SystemExit("performance: the service did not end well, see its run log")

    def check(self):
        if self.process.poll() is not None:
            raise SystemExit("performance: the service has ended, see its run log")

    def processor_ms(self):
        """All its threads, user and system."""
        return time.clock_gettime(self.clock) * 1000

    def peak_kib(self):
        status = pathlib.Path(f"/proc/{self.process.pid}/status").read_text()
        return int(status.split("VmHWM:")[1].split()[0])


def script(store, how):
    subprocess.run([HERE / "script.sh", str(store.port), SPOOL, TEMPLATES, how], check=True)


def shell_loop(store):
    subprocess.run([HERE / "shell_loop.sh", str(store.port), SPOOL, TEMPLATES], check=True)


def mem_table(path):
    return f"{path.name[9:22]}000{path.name[25:27]}"


def make_mem_tables(store, work):
    """For those who only load."""
    for device in work.devices:
        store.ask(f"use WLAN_{device}")
        for path in sorted(work.files(device)):
            kind = path.name[26]
            store.ask(pathlib.Path(TEMPLATES, f"mem.{kind}").read_text() % mem_table(path))
    store.ask("use vqcfg")


def prepare_import(store, work):
    """Each mem file under its table's name, in a folder of its own since there are several."""
    make_mem_tables(store, work)
    shutil.rmtree("/vqlog/import", ignore_errors=True)
    for device in work.devices:
        for number, path in enumerate(sorted(work.files(device))):
            folder = pathlib.Path("/vqlog/import", device, str(number))
            folder.mkdir(parents=True)
            os.link(path, folder / f"{mem_table(path)}.txt")


def mariadb_import(store, work):
    for device in work.devices:
        files = [str(path) for path in pathlib.Path("/vqlog/import", device).glob("*/*.txt")]
        subprocess.run(["mariadb-import", "--no-defaults", "-h127.0.0.1", f"-P{store.port}", "-umidtable",
                        "-psecret", "--ignore", "--use-threads=2", f"WLAN_{device}", *files],
                       check=True, stdout=subprocess.DEVNULL)


def prepare_myloader(store, work):
    """The form of a dump that loads its data from files."""
    make_mem_tables(store, work)
    shutil.rmtree("/tmp/dump", ignore_errors=True)
    dump = pathlib.Path("/tmp/dump")
    dump.mkdir()
    (dump / "metadata").write_text("Started dump at: 2013-01-03 00:00:00\nFinished dump at: 2013-01-03 00:00:00\n")
    for device in work.devices:
        for number, path in enumerate(sorted(work.files(device))):
            name = f"WLAN_{device}.{mem_table(path)}"
            (dump / f"{name}.{number:05}.sql").write_text(
                f"LOAD DATA INFILE '{path}' IGNORE INTO TABLE `{mem_table(path)}`;\n")


def myloader(store, _work):
    subprocess.run(["myloader", "--host=127.0.0.1", f"--port={store.port}", "--user=midtable",
                    "--password=secret", "--threads=2", "--directory=/tmp/dump"],
                   check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
