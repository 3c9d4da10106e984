"""The same job as csv_bench on Python's csv module, and the data for both.

  csv_python.py make FILE ROWS ascii|gbk    writes number blocks with place, operator and codes
  csv_python.py load FILE ROWS ascii|gbk    prints the mean time of a load in milliseconds
"""

import csv
import sys
import time

LOADS = 5
PLACES = {
    "ascii": [("Guangdong", "Guangzhou"), ("Beijing", "Beijing"), ("Inner Mongolia", "Hohhot"),
              ("Sichuan", "Chengdu"), ("Xinjiang", "Urumqi"), ("Heilongjiang", "Qiqihar")],
    "gbk": [("广东", "广州"), ("北京", "北京"), ("内蒙古", "呼和浩特"),
            ("四川", "成都"), ("新疆", "乌鲁木齐"), ("黑龙江", "齐齐哈尔")],
}
OPERATORS = {
    "ascii": ["Mobile prepaid", "Unicom GSM", '"Telecom, CDMA"'],
    "gbk": ["移动全球通卡", "联通GSM卡", '"电信,天翼卡"'],
}


def make(file, rows, encoding):
    places, operators = PLACES[encoding], OPERATORS[encoding]
    with open(file, "w", newline="", encoding=encoding) as out:
        for i in range(rows):
            province, city = places[i * 7919 // 100 % len(places)]
            operator = operators[i * 104729 // 1000 % len(operators)]
            out.write(f"{1300000 + i},{province},{city},{operator},{i % 900 + 100:04d},"
                      f"{i * 31 % 900000 + 100000}\n")


def load(file, rows, encoding):
    start = time.perf_counter()
    for _ in range(LOADS):
        count = size = 0
        with open(file, newline="", encoding=encoding) as text:
            for row in csv.reader(text):
                count += 1
                size += len(row[0])
        assert count == rows and size >= 7 * rows
    print((time.perf_counter() - start) / LOADS * 1000)


if __name__ == "__main__":
    {"make": make, "load": load}[sys.argv[1]](sys.argv[2], int(sys.argv[3]), sys.argv[4])
