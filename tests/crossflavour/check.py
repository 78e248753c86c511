#!/usr/bin/env python3
# Two zqdb builds (Qt 5 and Qt 6) must give byte-identical exit codes, output, console lines,
# database dumps and exported files for every input in inputs/ and each INPUT_DIR.
# Usage: check.py ZQDB_A ZQDB_B SQLITE3 WORK_DIR [INPUT_DIR...]
import os
import shutil
import subprocess
import sys

ZQDB = [os.path.abspath(p) for p in sys.argv[1:3]]
SQLITE3 = sys.argv[3]
WORK = sys.argv[4]
INPUT_DIRS = sys.argv[5:]
INPUTS = os.path.join(os.path.dirname(os.path.abspath(__file__)), "inputs")


def prepare(directory):
    # Copies every input into directory; returns the zqdb runs to compare.
    for sub in ("system", "user"):
        os.makedirs(os.path.join(directory, sub))
    runs = []

    def imported(source, target, *options):
        runs.append(["import", source, target, *options])
        runs.append(["info", target])
        runs.append(["cat", target, "--csv", "--count", "all"])
        runs.append(["export", target, target + ".csv"])

    for input_dir in [INPUTS] + INPUT_DIRS:
        for name in sorted(os.listdir(input_dir)):
            source = os.path.join(input_dir, name)
            if not os.path.isfile(source) or name.endswith(".md"):
                continue
            local = os.path.basename(input_dir) + "-" + name
            shutil.copyfile(source, os.path.join(directory, local))
            if name.endswith((".xlsx", ".xlsm")):
                imported(local, local + ".db")
                continue
            for i, separator in enumerate([",", "|", ";", "\t", "@;!"]):
                imported(local, f"{local}.{i}.db", "--separator", separator)
            imported(local, local + ".rfc.db", "--csv")
            runs.append(["memory", local])
    imported("inputs-gb2312.txt", "gb2312-gbsep.db", "--separator", "江")
    imported("inputs-invalid-gb2312.txt", "multibyte-sep.db", "--separator", "\xb0\xa1".encode("latin-1").decode("gb2312"))
    imported("inputs-line-ends.txt", "two-byte-sep.db", "--separator", ",\t")
    imported("inputs-utf8-mark.txt", "utf8-option.db", "--encoding", "utf-8")
    imported("inputs-gb2312.txt", "gb18030-rule.db", "--encoding", "gb18030")
    imported("inputs-invalid-gb2312.txt", "auto-rule.db", "--encoding", "auto")
    runs.append(["memory", "inputs-utf8-mark.txt", "--encoding", "utf-8"])
    # Rows that a constraint refuses roll their batch back and are logged.
    subprocess.run([SQLITE3, os.path.join(directory, "checked.db"),
                    "CREATE TABLE table1 (id INTEGER PRIMARY KEY AUTOINCREMENT, "
                    "column1 TEXT CHECK (column1 <> 'bad'), column2 TEXT);"], check=True)
    runs.append(["import", "inputs-bad-rows.txt", "checked.db", "--in-place"])
    return runs


def run(zqdb, directory, arguments):
    env = dict(os.environ, QT_QPA_PLATFORM="offscreen", QT_LOGGING_RULES="zq.console.info=true")
    result = subprocess.run([zqdb, "--sys-dir", "system", "--user-dir", "user", "--verbose", *arguments],
                            cwd=directory, env=env, capture_output=True, timeout=300)
    output = f"exit {result.returncode}\n".encode() + result.stdout + b"\n--- stderr\n" + result.stderr
    return output.replace(os.path.abspath(directory).encode(), b"<dir>")


def outputs(directory):
    # Every database as the shell dumps it and every other file written, by name.
    found = {}
    for name in sorted(os.listdir(directory)):
        path = os.path.join(directory, name)
        if name.endswith(".db"):
            found[name] = subprocess.run([SQLITE3, path, ".dump"], capture_output=True).stdout
        elif name.endswith(".csv") and os.path.isfile(path):
            with open(path, "rb") as f:
                found[name] = f.read()
    return found


def main():
    shutil.rmtree(WORK, ignore_errors=True)
    directories = [os.path.join(WORK, str(i)) for i in range(2)]
    runs = [prepare(d) for d in directories][0]

    differences = 0
    for arguments in runs:
        results = [run(zqdb, d, arguments) for zqdb, d in zip(ZQDB, directories)]
        if results[0] != results[1]:
            differences += 1
            print(f"differs: zqdb {' '.join(arguments)}\n< {results[0]!r}\n> {results[1]!r}")
    files = [outputs(d) for d in directories]
    if files[0].keys() != files[1].keys():
        differences += 1
        print(f"different files: {sorted(files[0].keys() ^ files[1].keys())}")
    for name in sorted(files[0].keys() & files[1].keys()):
        if files[0][name] != files[1][name]:
            differences += 1
            print(f"differs: {name}\n< {files[0][name][:2000]!r}\n> {files[1][name][:2000]!r}")
    print(f"{len(runs)} runs and {len(files[0])} files compared, {differences} differences")
    return 1 if differences else 0


if __name__ == "__main__":
    sys.exit(main())
