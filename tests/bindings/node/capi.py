"""Runs calls through the C functions of libsarvendo.so, for the Node tests.

stdin: {"lib": path, "calls": [[name, arg, ...], ...]} with the Node functions' names and
arguments; stdout: the JSON list of results (text, null, number or list of indices).
"""
import ctypes, json, sys

req = json.load(sys.stdin)
lib = ctypes.CDLL(req["lib"])
lib.Clear.restype = None
for name in ["GetBodyA", "GetPageA", "GetDataA", "GetLastIdA", "GetChangesA", "GetExportA",
             "GetSessionA", "GetGridSessionA", "GetCellsA"]:
    getattr(lib, name).restype = ctypes.c_void_p


def text(block):
    if not block:
        return None
    value = ctypes.string_at(block).decode("utf-8")
    lib.FreeStringA(ctypes.c_void_p(block))
    return value


def listed(fill, count):
    out = (ctypes.c_int * max(count, 1))()
    return count if count < 0 else list(out[: fill(out, count) if count else 0])


b = lambda s: None if s is None else s.encode("utf-8")
CALLS = {
    "createGrid": lambda *d: lib.CreateGridA(*[b(x) for x in (list(d) + [None] * 6)[:6]]),
    "updateGrid": lambda i, x: lib.UpdateGridA(i, b(x)),
    "findGrid": lambda x: lib.FindGridA(b(x)),
    "findGrids": lambda x, idle=0, most=0: listed(lambda out, n: lib.FindGridsA(out, n, b(x), idle, 0),
                                                  lib.FindGridsA(None, most, b(x), idle, 0)),
    "getIndexes": lambda: listed(lib.GetIndexes, lib.GetIndexes(None, 0)),
    "deleteGrid": lambda i: lib.DeleteGrid(i),
    "clear": lambda: lib.Clear(),
    "getBody": lambda i, x=None: text(lib.GetBodyA(i, b(x))),
    "getPage": lambda i, x=None: text(lib.GetPageA(i, b(x))),
    "save": lambda i, x: lib.SaveA(i, b(x)),
    "saveEx": lambda i, x, f=0: lib.SaveExA(i, b(x), f),
    "saveToFile": lambda i, x, f=0: lib.SaveToFileA(i, b(x), f),
    "getData": lambda i: text(lib.GetDataA(i)),
    "getLastId": lambda i: text(lib.GetLastIdA(i)),
    "getChanges": lambda i, f=0: text(lib.GetChangesA(i, f)),
    "setGridLocale": lambda i, x: lib.SetGridLocaleA(i, b(x)),
    "getExport": lambda i, x=None: text(lib.GetExportA(i, b(x))),
    "getSession": lambda x: text(lib.GetSessionA(b(x))),
    "getGridSession": lambda i: text(lib.GetGridSessionA(i)),
    "getCells": lambda i, r, c, f=0, fmt=None: text(lib.GetCellsA(i, b(r), f, b(c), b(fmt))),
}
json.dump([CALLS[c[0]](*c[1:]) for c in req["calls"]], sys.stdout)
