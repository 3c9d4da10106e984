"""The works that the contenders are given: sets of mem files and the sums that they make."""

import os
import pathlib
import shutil
import subprocess

from contenders import SPOOL
from store import expected_sums

WORKS = pathlib.Path("/vqlog/works")  # where a rename into the spool is one
DEVICES = tuple(f"1a2b3c4{digit}" for digit in range(8))


class Work:
    """`files` in each of the devices' folders."""

    def __init__(self, maker, name, devices, files, rows, kinds="FA", first_id=1):
        self.name, self.rows = name, rows
        self.devices = DEVICES[:devices]
        self.count = devices * files
        self.folder = WORKS / name
        made = subprocess.run([maker, self.folder, kinds, str(files), str(rows), str(first_id), *self.devices],
                              check=True, stdout=subprocess.PIPE, text=True)
        self.expected = expected_sums(made.stdout.splitlines())

    def files(self, device):
        return list((self.folder / device).glob("*.dat"))

    def lay_out(self):
        """A spool with all of its files, which are links: nobody writes to a mem file."""
        shutil.rmtree(SPOOL, ignore_errors=True)
        shutil.copytree(self.folder, SPOOL, copy_function=os.link)

    def remove(self):
        shutil.rmtree(self.folder)

    def expected_without_flags(self):
        """No row is known as a local user's, nor as nobody's."""
        return {table: (*sums[:4], 0, 0) if ".T_FLOW" in table else sums
                for table, sums in self.expected.items()}


def waiting():
    """Mem files that nobody is through with."""
    return sum(name.endswith(".dat") for folder in os.scandir(SPOOL) for name in os.listdir(folder))


def refused():
    return [str(path) for path in SPOOL.glob("*/*.err")]


def empty_spool(devices):
    shutil.rmtree(SPOOL, ignore_errors=True)
    for device in devices:
        (SPOOL / device).mkdir(parents=True)


def make_folders(count):
    for number in range(count):
        (SPOOL / f"{number:08x}").mkdir(parents=True)


def make_old_files(device, count):
    """Finished files, as years leave them."""
    for number in range(count):
        name = f"{device}-MEM_20121231_1004F-20121231-{number:06}.mid"
        os.close(os.open(SPOOL / device / name, os.O_CREAT | os.O_WRONLY))
