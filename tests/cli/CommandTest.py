#!/usr/bin/env python3
"""The sarvendo command from a shell: responses, saving, timing and the
one-line errors. Usage: CommandTest.py SARVENDO WORKDIR"""
import os
import re
import subprocess
import sys
import threading
import unittest
import urllib.error
import urllib.request
import zipfile

COMMAND = sys.argv[1]
# Whether the library was built with the workbook writer ("ON"/"OFF").
WORKBOOKS = os.environ.get("SARVENDO_XLSX", "ON") == "ON"
WORK = sys.argv[2]
DATA = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "examples", "data")
LAYOUT = os.path.join(DATA, "layout.xml")
ROWS = os.path.join(DATA, "data.xml")


def run(*args, stdin=None):
    return subprocess.run([COMMAND, *args], input=stdin, capture_output=True, text=True, timeout=60)


def write(name, text):
    path = os.path.join(WORK, name)
    with open(path, "w", encoding="utf-8") as out:
        out.write(text)
    return path


class Responses(unittest.TestCase):
    def test_body_of_the_sample_counts_its_customers(self):
        result = run("body", LAYOUT, ROWS)
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertIn('<Cfg RootCount="40"/>', result.stdout)

    def test_request_from_stdin_and_page_after_a_body_request(self):
        body = write("body.xml", '<Grid><Cfg PageLength="10" Sort="-Name" Sorting="1"/></Grid>')
        result = run("page", LAYOUT, ROWS, "--body", body, "--request", "-",
                     stdin='<Grid><Body><B Pos="0"/></Body></Grid>')
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertTrue(result.stdout.startswith('<Grid><Body><B'), result.stdout[:80])
        self.assertIn('Name="Tomás Dvořák"', result.stdout)
        self.assertLess(result.stdout.index('id="C20"'), result.stdout.index('id="C19"'))

    def test_documents_load_in_the_given_order(self):
        # A later document overrides an earlier one.
        first, second = '<Grid><Cfg PageLength="7"/></Grid>', '<Grid><Cfg PageLength="9"/></Grid>'
        self.assertIn('PageLength="9"', run("data", LAYOUT, first, second).stdout)
        self.assertIn('PageLength="7"', run("data", LAYOUT, second, first).stdout)

    def test_cells_and_export(self):
        self.assertEqual(run("cells", LAYOUT, ROWS, "--row", "O1", "--col", "Quantity").stdout, "17\n")
        export = run("export", LAYOUT, ROWS, "--request", "-",
                     stdin='<Grid><Cfg ExportType="expanded"/><Cols><C Name="Price"/></Cols></Grid>')
        self.assertEqual(export.returncode, 0, export.stderr)
        self.assertTrue(export.stdout.startswith("<html"))
        self.assertIn("72.91", export.stdout)

    def test_changes_logged_by_flag_one(self):
        changes = write("log.xml", '<Grid><Changes><I id="O2" Quantity="5"/></Changes></Grid>')
        result = run("changes", LAYOUT, ROWS, "--changes", changes, "--flags", "1")
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertIn('id="O2"', result.stdout)

    def test_repeat_and_time_report_each_step(self):
        result = run("body", LAYOUT, ROWS, "--repeat", "3", "--time")
        self.assertEqual(result.returncode, 0, result.stderr)
        self.assertRegex(result.stderr, r"load: [0-9.]+ ms\n")
        self.assertRegex(result.stderr, r"body: 3 runs, best [0-9.]+ ms, mean [0-9.]+ ms\n")
        self.assertEqual(run("body", LAYOUT, ROWS).stderr, "")


class Saving(unittest.TestCase):
    def test_saved_grid_printed_and_written_reloads_with_the_change(self):
        changes = write("changes.xml", '<Grid><Changes><I id="O1" Quantity="42"/><I id="O3" Deleted="1"/></Changes></Grid>')
        printed = run("save", LAYOUT, ROWS, "--changes", changes)
        self.assertEqual(printed.returncode, 0, printed.stderr)
        self.assertIn('id="O1"', printed.stdout)
        self.assertNotIn('id="O3"', printed.stdout)
        out = os.path.join(WORK, "saved.xml")
        written = run("save", LAYOUT, ROWS, "--changes", changes, "--out", out)
        self.assertEqual((written.returncode, written.stdout), (0, ""), written.stderr)
        self.assertEqual(run("cells", LAYOUT, out, "--row", "O1", "--col", "Quantity").stdout, "42\n")
        with open(out, encoding="utf-8") as saved:
            self.assertNotIn('id="O3"', saved.read())


class Workbook(unittest.TestCase):
    """export --xlsx writes the same export as a workbook, or says why it can't."""

    def test_workbook_holds_the_export_or_the_build_says_it_cannot(self):
        out = os.path.join(WORK, "grid.xlsx")
        result = run("export", LAYOUT, ROWS, "--xlsx", out, "--request", "-",
                     stdin='<Grid><Cfg ExportType="expanded"/><Cols><C Name="Name"/><C Name="Price"/></Cols></Grid>')
        if not WORKBOOKS:
            self.assertEqual(result.returncode, 1)
            self.assertEqual(result.stderr, "sarvendo: the workbook export is not available in this build\n")
            return
        self.assertEqual((result.returncode, result.stdout, result.stderr), (0, "", ""))
        with zipfile.ZipFile(out) as workbook:
            sheet = workbook.read("xl/worksheets/sheet1.xml").decode()
        self.assertIn("Tomás Dvořák", sheet)
        self.assertIn("<v>72.91</v>", sheet)

    def test_workbook_failures(self):
        missing = os.path.join(WORK, "no", "such", "dir.xlsx")
        cases = [(missing, "<Grid/>", "cannot write '" + missing + "'"),
                 (os.path.join(WORK, "bad.xlsx"), "<Grid><x", "the export request is not well-formed XML")]
        for path, request, message in cases:
            with self.subTest(message=message):
                result = run("export", LAYOUT, ROWS, "--xlsx", path, "--request", "-", stdin=request)
                self.assertEqual(result.returncode, 1)
                expected = message if WORKBOOKS else "not available"
                self.assertIn(expected, result.stderr)
                self.assertEqual(result.stderr.count("\n"), 1, result.stderr)
                self.assertFalse(os.path.exists(path))


class Serving(unittest.TestCase):
    """Browsers at once, each with its own grid: one's sort and save never reach another."""

    def setUp(self):
        self.server = subprocess.Popen([COMMAND, "serve", LAYOUT, ROWS, "--port", "0"], stdout=subprocess.PIPE,
                                       stderr=subprocess.PIPE, text=True)
        line = self.server.stdout.readline()
        self.url = re.match(r"serving (http://127\.0\.0\.1:\d+)/", line).group(1)

    def tearDown(self):
        self.server.terminate()
        self.server.wait(timeout=30)
        self.server.stdout.close()
        self.server.stderr.close()

    def browser(self):
        opener = urllib.request.build_opener(urllib.request.ProxyHandler({}), urllib.request.HTTPCookieProcessor())

        def post(path, body, raw=False):
            try:
                with opener.open(urllib.request.Request(self.url + path, data=body.encode(), method="POST")) as reply:
                    return reply.status, reply.read() if raw else reply.read().decode()
            except urllib.error.HTTPError as error:
                return error.code, error.read().decode()
        return post

    def first_customer(self, post, sort):
        post("/body", f'<Grid><Cfg PageLength="10" Sort="{sort}" Sorting="1"/></Grid>')
        return re.search(r'Def="Customer" Name="([^"]*)"', post("/page", '<Grid><Body><B Pos="0"/></Body></Grid>')[1])[1]

    def test_sessions_keep_their_own_sort_while_running_together(self):
        browsers = [(self.browser(), sort, first) for sort, first in
                    [("Name", "Ada Adler"), ("-Name", "Tomás Dvořák")] * 3]
        failures = []

        def work(post, sort, first):
            for _ in range(20):
                got = self.first_customer(post, sort)
                if got != first:
                    failures.append((sort, got))
        threads = [threading.Thread(target=work, args=b) for b in browsers]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        self.assertEqual(failures, [])

    def test_workbook_download_carries_the_sessions_change(self):
        one = self.browser()
        one("/save", '<Grid><Changes><I id="O1" Quantity="4321"/></Changes></Grid>')
        status, reply = one("/export-xlsx", '<Grid><Cfg ExportType="expanded"/><Cols><C Name="Quantity"/></Cols></Grid>',
                            raw=True)
        if not WORKBOOKS:
            self.assertEqual(status, 501)
            return
        self.assertEqual(status, 200)
        path = os.path.join(WORK, "served.xlsx")
        with open(path, "wb") as out:
            out.write(reply)
        with zipfile.ZipFile(path) as workbook:
            self.assertIn("<v>4321</v>", workbook.read("xl/worksheets/sheet1.xml").decode())

    def test_save_stays_in_its_session_and_bad_requests_are_refused(self):
        one, two = self.browser(), self.browser()
        cell = "row=O1&col=Quantity"
        self.assertEqual(one("/save", '<Grid><Changes><I id="O1" Quantity="33"/></Changes></Grid>'),
                         (200, '<Grid><IO Result="0"/></Grid>'))
        self.assertEqual(one("/cells", cell), (200, "33"))
        self.assertEqual(two("/cells", cell), (200, "17"))
        for path in ["/body", "/page", "/export", "/save"]:
            with self.subTest(path=path):
                self.assertEqual(one(path, "<Grid><x")[0], 400)
        self.assertEqual(one("/page", '<Grid><Body><B Pos="99"/></Body></Grid>')[0], 400)
        self.assertEqual(one("/export-xlsx", "<Grid><x")[0], 400 if WORKBOOKS else 501)
        self.assertIsNone(self.server.poll())


class Errors(unittest.TestCase):
    """Each failure is one line on stderr and a non-zero exit, never a crash."""

    def test_failures(self):
        bad = write("bad.xml", "<Grid><Cfg")
        empty = write("empty.xml", "")
        changes = write("ok-changes.xml", "<Grid><Changes/></Grid>")
        cases = [
            (["body"], 2, "DOC is required"),
            (["frob", LAYOUT], 2, ""),
            (["body", LAYOUT, "--repeat", "0"], 2, ""),
            (["body", os.path.join(WORK, "missing.xml")], 1, "cannot read '"),
            (["body", WORK], 1, "is a directory"),
            (["body", LAYOUT, bad], 1, "bad.xml' is not well-formed XML"),
            (["body", empty], 1, "empty.xml' is empty"),
            (["body", "<Grid><x"], 1, "the document given as text is not well-formed XML"),
            (["body", LAYOUT, "--request", "-"], 1, "not well-formed"),
            (["page", LAYOUT, ROWS, "--request", "-"], 1, "no such page"),
            (["save", LAYOUT], 2, "--changes is required"),
            (["save", LAYOUT, "--changes", bad], 1, "not well-formed XML"),
            (["save", LAYOUT, "--changes", changes, "--out", os.path.join(WORK, "no", "such", "dir.xml")], 1,
             "cannot write"),
            (["body", LAYOUT, LAYOUT, LAYOUT, LAYOUT, LAYOUT, LAYOUT, LAYOUT], 2, ""),
            (["serve", os.path.join(WORK, "missing.xml")], 1, "cannot read '"),
        ]
        for args, code, message in cases:
            with self.subTest(args=args):
                result = run(*args, stdin="<Grid><x")
                self.assertEqual(result.returncode, code, result.stderr)
                self.assertEqual(result.stderr.count("\n"), 1, result.stderr)
                self.assertTrue(result.stderr.startswith("sarvendo: "), result.stderr)
                self.assertIn(message, result.stderr)


if __name__ == "__main__":
    os.makedirs(WORK, exist_ok=True)
    unittest.main(argv=sys.argv[:1])
