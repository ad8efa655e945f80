"""Runs a list of calls through the C functions of libsarvendo.so, for the Node tests.

stdin: {"lib": path, "calls": [[name, arg, ...], ...]} with the Node functions' names and
arguments; stdout: the JSON list of results (text, null, number or list of indices).
"""
import ctypes, json, sys

req = json.load(sys.stdin)
lib = ctypes.CDLL(req["lib"])
I, P = ctypes.c_int, ctypes.c_void_p
lib.Clear.restype = None
for name in ["GetBodyA", "GetPageA", "GetDataA", "GetLastIdA", "GetChangesA", "GetExportA",
             "GetSessionA", "GetGridSessionA", "GetCellsA"]:
    getattr(lib, name).restype = P


def text(block):
    if not block:
        return None
    value = ctypes.string_at(block).decode("utf-8")
    lib.FreeStringA(P(block))
    return value


def b(s):
    return None if s is None else s.encode("utf-8")


def find_grids(xml, idle=0, most=0):
    count = lib.FindGridsA(None, most, b(xml), idle, 0)
    if count <= 0:
        return count if count < 0 else []
    out = (I * count)()
    return list(out[: lib.FindGridsA(out, count, b(xml), idle, 0)])


def indexes():
    out = (I * (lib.GetIndexes(None, 0) + 1))()
    return list(out[: lib.GetIndexes(out, len(out))])


CALLS = {
    "createGrid": lambda *d: lib.CreateGridA(*[b(x) for x in (list(d) + [None] * 6)[:6]]),
    "updateGrid": lambda i, x: lib.UpdateGridA(i, b(x)),
    "findGrid": lambda x: lib.FindGridA(b(x)),
    "findGrids": find_grids,
    "deleteGrid": lambda i: lib.DeleteGrid(i),
    "clear": lambda: lib.Clear(),
    "getBody": lambda i, x=None: text(lib.GetBodyA(i, b(x))),
    "getPage": lambda i, x=None: text(lib.GetPageA(i, b(x))),
    "save": lambda i, x: lib.SaveA(i, b(x)),
    "saveEx": lambda i, x, f=0: lib.SaveExA(i, b(x), f),
    "saveToFile": lambda i, x, f=0: lib.SaveToFileA(i, b(x), f),
    "getData": lambda i: text(lib.GetDataA(i)),
    "getIndexes": indexes,
    "getLastId": lambda i: text(lib.GetLastIdA(i)),
    "getChanges": lambda i, f=0: text(lib.GetChangesA(i, f)),
    "setGridLocale": lambda i, x: lib.SetGridLocaleA(i, b(x)),
    "getExport": lambda i, x=None: text(lib.GetExportA(i, b(x))),
    "getSession": lambda x: text(lib.GetSessionA(b(x))),
    "getGridSession": lambda i: text(lib.GetGridSessionA(i)),
    "getCells": lambda i, r, c, f=0, fmt=None: text(lib.GetCellsA(i, b(r), f, b(c), b(fmt))),
}

json.dump([CALLS[c[0]](*c[1:]) for c in req["calls"]], sys.stdout)
