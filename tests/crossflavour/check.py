#!/usr/bin/env python3
"""Runs the same imports, exports and reads through two zqdb builds (Qt 5 and Qt 6) and
requires byte-identical results: exit codes, standard output and error (the library's console
lines included), the .dump of every database and every exported file.

Usage: check.py ZQDB_A ZQDB_B SQLITE3 WORK_DIR [INPUT_DIR...]
Every file in an INPUT_DIR is imported too (as text with each separator, or as a spreadsheet).
"""
import os
import shutil
import subprocess
import sys
import zipfile

ZQDB = [os.path.abspath(p) for p in sys.argv[1:3]]
SQLITE3 = sys.argv[3]
WORK = sys.argv[4]
INPUT_DIRS = sys.argv[5:]


def gb(text):
    return text.encode("gb2312")


def text_inputs():
    """Name -> bytes of the text files both flavours import."""
    head = b"h1,h2,h3\n" * 6
    # A character straddles each 16 KiB chunk of a long line: GB2312, and UTF-8 after a mark.
    long_gb = gb("长") + b"x" + gb("行") * 9000 + b",end\n"
    long_utf8 = b"\xef\xbb\xbf" + ("长行" * 3000).encode() + b",x,y\n"
    return {
        "ascii.csv": head + b"1,a b,c\n  2,,x  \n\n3,|,;\n",
        "gb2312.txt": gb("城市,省份,人口\n杭州,浙江,1200\n苏州,江苏,1300\n") * 3,
        "invalid-gb2312.txt": head + b"\xb0\xa1,\xff\xfe,\x80\x80\n\xa1,\xb0\n\xd7\xfa,z\xb0\n",
        "utf8-mark.txt": b"\xef\xbb\xbf" + "名,值\n".encode() + gb("名,值\n") * 6,
        "utf16le-mark.txt": "\ufeff名,值,x\n".encode("utf-16-le") + b"a,b,c\n" * 6,
        "utf16le-all.txt": ("\ufeff" + "名,值\n" * 7).encode("utf-16-le"),
        "utf16be-mark.txt": "\ufeff名,值\n".encode("utf-16-be") + b"a,b\n" * 6 + b"\xfe\xff\x00a\x00,\n",
        "line-ends.txt": head + b"a,b\r\nc,d\re,f\r\r\ng,h\n\ri,j\r\n" * 4,
        "long-lines.txt": head + long_gb + long_utf8 + b"a,b,c\n",
        "wide-row.txt": head + b"1,2,3,4,5,6,7,8\n",
        "empty.txt": b"",
        "separators-only.txt": b",,,\n" * 8,
        "bad-rows.txt": b"ok,1\nok,2\nbad,3\nok,4\nok,5\nok,6\nbad,7\n",
    }


def xml(body):
    return '<?xml version="1.0" encoding="UTF-8" standalone="yes"?>\n' + body


MAIN = 'xmlns="http://schemas.openxmlformats.org/spreadsheetml/2006/main"'
REL = "http://schemas.openxmlformats.org/officeDocument/2006/relationships"


def workbook(date1904):
    """An .xlsx with shared, rich and inline strings, numbers, dates, times, booleans, errors
    and formulas, written part by part so that every cell type is what it says."""
    strings = ["名称", "plain", "_x0041_ escaped", "<&> \"quoted\""]
    shared = "".join(f"<si><t xml:space=\"preserve\">{s.replace('&', '&amp;').replace('<', '&lt;').replace('>', '&gt;')}</t></si>"
                     for s in strings)
    shared += '<si><r><t>rich </t></r><r><rPr><b/></rPr><t>text</t></r><rPh sb="0" eb="1"><t>ruby</t></rPh></si>'
    sst = xml(f'<sst {MAIN} count="5" uniqueCount="5">{shared}</sst>')
    styles = xml(f'<styleSheet {MAIN}><numFmts count="3">'
                 '<numFmt numFmtId="164" formatCode="yyyy-mm-dd hh:mm:ss"/>'
                 '<numFmt numFmtId="165" formatCode="[h]:mm:ss"/>'
                 '<numFmt numFmtId="166" formatCode="0.00%"/></numFmts>'
                 '<cellXfs count="6"><xf numFmtId="0"/><xf numFmtId="14"/><xf numFmtId="164"/>'
                 '<xf numFmtId="21"/><xf numFmtId="165"/><xf numFmtId="166"/></cellXfs></styleSheet>')

    def cell(ref, value, kind=None, style=None, formula=None):
        attributes = f' r="{ref}"' + (f' t="{kind}"' if kind else "") + (f' s="{style}"' if style else "")
        inner = (f"<f>{formula}</f>" if formula else "")
        if kind == "inlineStr":
            inner += f"<is><t>{value}</t></is>"
        elif value is not None:
            inner += f"<v>{value}</v>"
        return f"<c{attributes}>{inner}</c>"

    rows = [
        [cell("A1", 0, "s"), cell("B1", 1, "s"), cell("C1", 2, "s"), cell("D1", 3, "s"), cell("E1", 4, "s"),
         cell("F1", "inline _x000D_ text", "inlineStr"), cell("G1", "cached", "str", formula="&quot;cac&quot;&amp;&quot;hed&quot;")],
        [cell("A2", 1500), cell("B2", 0.1), cell("C2", 123456789012345), cell("D2", "1E+20"),
         cell("E2", "1.5E-7"), cell("F2", "-0"), cell("G2", 0.125, style=5)],
        [cell("A3", 45351, style=1), cell("B3", 45351.75, style=2), cell("C3", 0.75, style=3),
         cell("D3", 1.5, style=4), cell("E3", -1, style=1), cell("F3", 3000000, style=1), cell("G3", 60, style=1)],
        [cell("A4", 1, "b"), cell("B4", 0, "b"), cell("C4", "#DIV/0!", "e"), cell("D4", "#N/A", "e"),
         cell("E4", None, formula="1+1"), cell("F4", 2, formula="1+1")],
        [cell("H6", "last", "inlineStr")],
    ]
    data = "".join(f'<row r="{i + 1 if i < 4 else 6}">{"".join(r)}</row>' for i, r in enumerate(rows))
    sheet = xml(f'<worksheet {MAIN}><sheetData>{data}</sheetData></worksheet>')
    pr = '<workbookPr date1904="1"/>' if date1904 else ""
    book = xml(f'<workbook {MAIN} xmlns:r="{REL}">{pr}<sheets>'
               '<sheet name="Data" sheetId="1" r:id="rId1"/></sheets></workbook>')
    types = xml('<Types xmlns="http://schemas.openxmlformats.org/package/2006/content-types">'
                '<Default Extension="rels" ContentType="application/vnd.openxmlformats-package.relationships+xml"/>'
                '<Default Extension="xml" ContentType="application/xml"/></Types>')
    rels = xml('<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">'
               f'<Relationship Id="rId1" Type="{REL}/officeDocument" Target="xl/workbook.xml"/></Relationships>')
    book_rels = xml('<Relationships xmlns="http://schemas.openxmlformats.org/package/2006/relationships">'
                    f'<Relationship Id="rId1" Type="{REL}/worksheet" Target="worksheets/sheet1.xml"/>'
                    f'<Relationship Id="rId2" Type="{REL}/sharedStrings" Target="sharedStrings.xml"/>'
                    f'<Relationship Id="rId3" Type="{REL}/styles" Target="styles.xml"/></Relationships>')
    parts = {"[Content_Types].xml": types, "_rels/.rels": rels, "xl/workbook.xml": book,
             "xl/_rels/workbook.xml.rels": book_rels, "xl/worksheets/sheet1.xml": sheet,
             "xl/sharedStrings.xml": sst, "xl/styles.xml": styles}
    return parts


def write_xlsx(path, parts):
    with zipfile.ZipFile(path, "w", zipfile.ZIP_DEFLATED) as archive:
        for name, text in parts.items():
            archive.writestr(name, text)


def prepare(directory):
    """Writes every input into directory; returns the zqdb runs to compare."""
    os.makedirs(directory)
    runs = []

    def imported(source, target, *options):
        runs.append(["import", source, target, *options])
        runs.append(["info", target])
        runs.append(["cat", target, "--csv", "--count", "all"])
        runs.append(["export", target, target + ".csv"])

    for name, data in text_inputs().items():
        with open(os.path.join(directory, name), "wb") as f:
            f.write(data)
    for name in text_inputs():
        imported(name, name + ".db")
        imported(name, name + ".rfc.db", "--csv")
    imported("gb2312.txt", "gb2312-gbsep.db", "--separator", "江")
    imported("ascii.csv", "ascii-pipe.db", "--separator", "|")
    imported("invalid-gb2312.txt", "multibyte-sep.db", "--separator", "\xb0\xa1".encode("latin-1").decode("gb2312"))
    imported("line-ends.txt", "two-byte-sep.db", "--separator", ",\t")
    imported("utf8-mark.txt", "utf8-option.db", "--encoding", "utf-8")
    imported("gb2312.txt", "gb18030-rule.db", "--encoding", "gb18030")
    imported("invalid-gb2312.txt", "auto-rule.db", "--encoding", "auto")
    runs.append(["memory", "gb2312.txt"])
    runs.append(["memory", "utf8-mark.txt", "--encoding", "utf-8"])
    # Rows that a constraint refuses roll their batch back and are logged.
    subprocess.run([SQLITE3, os.path.join(directory, "checked.db"),
                    "CREATE TABLE table1 (id INTEGER PRIMARY KEY AUTOINCREMENT, "
                    "column1 TEXT CHECK (column1 <> 'bad'), column2 TEXT);"], check=True)
    runs.append(["import", "bad-rows.txt", "checked.db", "--in-place"])

    write_xlsx(os.path.join(directory, "cells.xlsx"), workbook(False))
    write_xlsx(os.path.join(directory, "cells1904.xlsx"), workbook(True))
    imported("cells.xlsx", "cells.db")
    imported("cells1904.xlsx", "cells1904.db")

    for input_dir in INPUT_DIRS:
        for name in sorted(os.listdir(input_dir)):
            source = os.path.join(input_dir, name)
            if not os.path.isfile(source) or name.endswith(".md"):
                continue
            local = "input-" + os.path.basename(input_dir) + "-" + name
            shutil.copyfile(source, os.path.join(directory, local))
            if name.endswith((".xlsx", ".xlsm")):
                imported(local, local + ".db")
            else:
                for i, separator in enumerate([",", "|", ";", "\t", "@;!"]):
                    imported(local, f"{local}.{i}.db", "--separator", separator)
                runs.append(["memory", local])
    return runs


def run(zqdb, directory, arguments):
    env = dict(os.environ, QT_QPA_PLATFORM="offscreen", QT_LOGGING_RULES="zq.console.info=true")
    result = subprocess.run([zqdb, "--sys-dir", "system", "--user-dir", "user", "--verbose", *arguments],
                            cwd=directory, env=env, capture_output=True, timeout=300)
    output = f"exit {result.returncode}\n".encode() + result.stdout + b"\n--- stderr\n" + result.stderr
    return output.replace(os.path.abspath(directory).encode(), b"<dir>")


def outputs(directory):
    """Every database as the shell dumps it and every other file written, by name."""
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
    for d in directories:
        for sub in ("system", "user"):
            os.makedirs(os.path.join(d, sub), exist_ok=True)

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
