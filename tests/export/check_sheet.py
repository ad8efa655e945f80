#!/usr/bin/env python3
"""Opens an export in LibreOffice Calc (headless) and checks the sheet cell by cell.

Usage: check_sheet.py [--xlsx] <export program> <work folder>
Exit 77 (skipped) when soffice isn't there, or the program says the export
isn't available.

With --xlsx the program writes the workbook export instead; its cells are
typed, so the check also reads merged captions, outline levels and hidden
rows.

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


def read_outline(path):
    """Rows of (outline level, hidden, cells) with merged and covered cells marked."""
    rows = []

    def walk(element, level):
        for child in element:
            if child.tag == q("table", "table-row-group"):
                walk(child, level + 1)
            elif child.tag in (q("table", "table-header-rows"), q("table", "table-rows")):
                walk(child, level)
            elif child.tag == q("table", "table-row"):
                cells = []
                for cell in child:
                    if cell.tag == q("table", "covered-table-cell"):
                        kind, value, span = "covered", None, None
                    elif cell.tag == q("table", "table-cell"):
                        kind = cell.get(q("office", "value-type"), "")
                        value = (cell.get(q("office", "value")) or cell.get(q("office", "date-value"))
                                 or cell.get(q("office", "boolean-value")))
                        span = cell.get(q("table", "number-columns-spanned"))
                    else:
                        continue
                    text = "\n".join("".join(p.itertext()) for p in cell.findall("text:p", NS))
                    repeat = int(cell.get(q("table", "number-columns-repeated"), "1"))
                    cells.extend([(kind, value, text, span)] * min(repeat, 16))
                while cells and cells[-1][:3] == ("", None, ""):
                    cells.pop()
                hidden = child.get(q("table", "visibility"), "visible") != "visible"
                if cells:
                    rows.append((level, hidden, cells))

    for table in ET.parse(path).getroot().iter(q("table", "table")):
        walk(table, 0)
        break
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


def boolean(expected):
    # Calc reads a workbook's boolean as a number in its boolean format.
    word = "TRUE" if expected else "FALSE"
    return lambda c: (c[0] == "boolean" and c[1] == word.lower()) or (
        c[0] == "float" and float(c[1]) == int(expected) and c[2] == word)


def spanned(caption, span):
    return lambda c: c[0] == "string" and c[2] == caption and c[3] == str(span)


def covered(c):
    return c[0] == "covered"


def link(caption):
    return lambda c: c[0] == "string" and c[2] == caption


EXPECTED = [
    [text("T"), text("N"), text("F"), text("D"), text("S")],
    [empty, lambda c: c[2].strip() == "< 50", empty, empty, empty],
    [text('a<b & c "q" \u00e9\u20ac'), number(10), number(12.25), date("2023-11-14"), text("1.2.3")],
    [text("second"), number(20), number(1234.5), empty, text("12 apples")],
    [text("third"), number(30), number(-0.5), date("1970-01-02"), text("1-2")],
]


# Columns G T N F D B S L (X is hidden); (level, hidden, cells) per row. The
# filter keeps N < 50, rows are grouped by G and sorted by N; the group row
# and the tree row are closed, so the rows under them are hidden.
EXPECTED_XLSX = [
    (0, False, [spanned("Names", 2), covered, spanned("Values", 3), covered, covered, empty, empty, empty]),
    (0, False, [text("G"), text("T"), text("N"), text("F"), text("D"), text("B"), text("S"), text("L")]),
    (0, False, [empty, empty, text("< 50")]),
    (0, False, [empty, text("one"), empty, empty, empty, boolean(False)]),
    (1, True, [text("one"), text('a<b & c "q" \u00e9\u20ac'), number(10), number(12.25), date("2023-11-14"),
               boolean(False), text("1.2.3")]),
    (2, True, [empty, text("child"), number(1)]),
    (3, True, [empty, text("grandchild"), number(2)]),
    (1, True, [text("one"), text("second"), number(20), number(1234.5), empty, boolean(True), text("12"),
               link("A")]),
]


def check_xlsx(program, work, soffice):
    book = os.path.join(work, "export.xlsx")
    if os.path.exists(book):
        os.remove(book)
    done = subprocess.run([program, book])
    if done.returncode == 77:
        print("export not available: skipped")
        return 77
    if done.returncode != 0:
        print("export program failed: %d" % done.returncode)
        return 1
    convert(soffice, work, book, [])
    rows = read_outline(os.path.join(work, "export.fods"))
    # Calc may add empty rows behind the autofilter's range.
    while rows and all(c[:3] == ("", None, "") for c in rows[-1][2]):
        rows.pop()
    failures = []
    if len(rows) != len(EXPECTED_XLSX):
        failures.append("%d rows, expected %d: %r" % (len(rows), len(EXPECTED_XLSX), rows))
    for r, (got, want) in enumerate(zip(rows, EXPECTED_XLSX)):
        if got[:2] != want[:2]:
            failures.append("row %d: level and hidden %r, expected %r" % (r, got[:2], want[:2]))
        for c, check in enumerate(want[2]):
            cell = got[2][c] if c < len(got[2]) else ("", None, "", None)
            if not check(cell):
                failures.append("row %d column %d: %r" % (r, c, cell))
    return report(rows, failures)


def convert(soffice, work, source, options):
    profile = "file://" + os.path.abspath(os.path.join(work, "profile"))
    subprocess.run([soffice, "-env:UserInstallation=" + profile, "--headless"] + options +
                   ["--convert-to", "fods", "--outdir", work, source],
                   check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=300)


def report(rows, failures):
    for failure in failures:
        print(failure)
    print("%d rows checked, %d failures" % (len(rows), len(failures)))
    return 1 if failures else 0


def main():
    xlsx = sys.argv[1] == "--xlsx"
    program, work = sys.argv[1 + xlsx], sys.argv[2 + xlsx]
    soffice = shutil.which("soffice") or shutil.which("libreoffice")
    if not soffice:
        print("soffice not found: skipped")
        return 77
    os.makedirs(work, exist_ok=True)
    if xlsx:
        return check_xlsx(program, work, soffice)
    html = os.path.join(work, "export.html")
    subprocess.run([program, html], check=True)
    convert(soffice, work, html, ["--infilter=HTML (StarCalc)"])
    rows = read_sheet(os.path.join(work, "export.fods"))
    failures = []
    if len(rows) != len(EXPECTED):
        failures.append("%d rows, expected %d: %r" % (len(rows), len(EXPECTED), rows))
    for r, (got, want) in enumerate(zip(rows, EXPECTED)):
        for c, check in enumerate(want):
            cell = got[c] if c < len(got) else ("", None, "")
            if not check(cell):
                failures.append("row %d column %d: %r" % (r, c, cell))
    return report(rows, failures)


if __name__ == "__main__":
    sys.exit(main())
