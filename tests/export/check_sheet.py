#!/usr/bin/env python3
"""Opens an export in LibreOffice Calc (headless) and checks the sheet cell by cell.

Usage: check_sheet.py <ExportSheet program> <work folder>
Exit 77 (skipped) when soffice isn't there.

Calc's HTML reader takes a cell's value from its text, not from x:num or
x:str, so the grid shows numbers with all their decimals, dates in a form the
reader may recognise, and number-like texts that the reader keeps as text.
"""
import os
import shutil
import subprocess
import sys
import xml.etree.ElementTree as ET

NS = {
    "office": "urn:oasis:names:tc:opendocument:xmlns:office:1.0",
    "table": "urn:oasis:names:tc:opendocument:xmlns:table:1.0",
    "text": "urn:oasis:names:tc:opendocument:xmlns:text:1.0",
}


def q(prefix, name):
    return "{%s}%s" % (NS[prefix], name)


def read_sheet(path):
    """Rows of (type, value, text) per cell, with repeated cells expanded."""
    rows = []
    for row in ET.parse(path).getroot().iter(q("table", "table-row")):
        cells = []
        for cell in row.findall("table:table-cell", NS):
            kind = cell.get(q("office", "value-type"), "")
            value = cell.get(q("office", "value")) or cell.get(q("office", "date-value"))
            text = "\n".join("".join(p.itertext()) for p in cell.findall("text:p", NS))
            repeat = int(cell.get(q("table", "number-columns-repeated"), "1"))
            cells.extend([(kind, value, text)] * min(repeat, 16))
        while cells and cells[-1] == ("", None, ""):
            cells.pop()
        if cells:
            rows.append(cells)
    return rows


def number(expected):
    return lambda c: c[0] == "float" and float(c[1]) == expected


def text(expected):
    return lambda c: c[0] == "string" and c[2] == expected


def date(expected):
    # A date cell, or the date's text where the reader doesn't convert it.
    return lambda c: (c[0] == "date" and c[1].startswith(expected)) or text(expected)(c)


def empty(c):
    return c[0] in ("", "string") and c[2] == ""


EXPECTED = [
    [text("T"), text("N"), text("F"), text("D"), text("S")],
    [empty, lambda c: c[2].strip() == "< 50", empty, empty, empty],
    [text('a<b & c "q" \u00e9\u20ac'), number(10), number(12.25), date("2023-11-14"), text("1.2.3")],
    [text("second"), number(20), number(1234.5), empty, text("12 apples")],
    [text("third"), number(30), number(-0.5), date("1970-01-02"), text("1-2")],
]


def main():
    program, work = sys.argv[1], sys.argv[2]
    soffice = shutil.which("soffice") or shutil.which("libreoffice")
    if not soffice:
        print("soffice not found: skipped")
        return 77
    os.makedirs(work, exist_ok=True)
    html = os.path.join(work, "export.html")
    subprocess.run([program, html], check=True)
    profile = "file://" + os.path.abspath(os.path.join(work, "profile"))
    subprocess.run([soffice, "-env:UserInstallation=" + profile, "--headless", "--infilter=HTML (StarCalc)",
                    "--convert-to", "fods", "--outdir", work, html],
                   check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=300)
    rows = read_sheet(os.path.join(work, "export.fods"))
    failures = []
    if len(rows) != len(EXPECTED):
        failures.append("%d rows, expected %d: %r" % (len(rows), len(EXPECTED), rows))
    for r, (got, want) in enumerate(zip(rows, EXPECTED)):
        for c, check in enumerate(want):
            cell = got[c] if c < len(got) else ("", None, "")
            if not check(cell):
                failures.append("row %d column %d: %r" % (r, c, cell))
    for failure in failures:
        print(failure)
    print("%d rows checked, %d failures" % (len(rows), len(failures)))
    return 1 if failures else 0


if __name__ == "__main__":
    sys.exit(main())
