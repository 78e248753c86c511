#!/usr/bin/env python3
"""Writes the benchmark inputs: LINES lines of 10 comma-separated fields, ASCII or GB2312."""
import random
import sys

def main():
    kind, path, lines = sys.argv[1], sys.argv[2], int(sys.argv[3])
    rng = random.Random(20240501)
    if kind == "ascii":
        alphabet = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789._-"
        pick = lambda: "".join(rng.choice(alphabet) for _ in range(rng.randint(3, 10)))
        encoding = "ascii"
    else:
        # Common characters from the first level of GB2312 (rows 16-55).
        hanzi = [bytes([0xB0 + r, 0xA1 + c]).decode("gb2312") for r in range(0, 40) for c in range(0, 94)
                 if not (r == 39 and c > 88)]
        pick = lambda: "".join(rng.choice(hanzi) for _ in range(rng.randint(2, 5)))
        encoding = "gb2312"
    pool = [pick() for _ in range(50000)]
    with open(path, "wb") as out:
        chunk = []
        for i in range(lines):
            fields = [pool[(i * 7 + k * 131 + rng.randrange(50000)) % 50000] for k in range(10)]
            chunk.append(",".join(fields) + "\n")
            if len(chunk) == 10000:
                out.write("".join(chunk).encode(encoding))
                chunk = []
        out.write("".join(chunk).encode(encoding))

main()
