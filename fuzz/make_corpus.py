#!/usr/bin/env python3
"""Writes the fuzz targets' seed corpora from the documents in the tests.

Run from the repository root: python3 fuzz/make_corpus.py"""
import os, re, glob, struct

docs, formulas = [], set()
for path in sorted(glob.glob("tests/grid/*.cpp") + glob.glob("tests/api/*.cpp")):
    text = open(path, encoding="utf-8").read()
    # Adjacent string literals form one document.
    for m in re.finditer(r'((?:L?"(?:[^"\\]|\\.)*"\s*)+)', text):
        parts = re.findall(r'L?"((?:[^"\\]|\\.)*)"', m.group(1))
        s = "".join(parts).encode().decode("unicode_escape", errors="ignore")
        if s.startswith("<Grid") and len(s) < 6000:
            docs.append(s)
    for m in re.finditer(r'Formula=\'([^\']*)\'', text):
        formulas.add(m.group(1))
docs = list(dict.fromkeys(docs))

def write(target, items):
    out = os.path.join("fuzz", "corpus", target)
    os.makedirs(out, exist_ok=True)
    for old in os.listdir(out):
        os.remove(os.path.join(out, old))
    for i, data in enumerate(items):
        with open(os.path.join(out, "seed%03d" % i), "wb") as f:
            f.write(data)

enc = lambda s: s.encode("utf-8", errors="ignore")
write("FuzzDocuments", [enc(d) for d in docs[:120]])
requests = [d for d in docs if "<Body" not in d or "Pos=" in d][:60]
write("FuzzRequests", [bytes([k]) + enc(r) for r in requests for k in (0, 1, 3, 4, 6, 7)][:150]
      + [bytes([2 + 8 * f]) + b"1\0Quantity\0" for f in range(4)])
write("FuzzFormulas", [enc(f) + b"\0A,B,X\0Y,X" for f in sorted(formulas)][:150])
write("FuzzWide", [bytes([k]) + b"".join(struct.pack("<I", ord(c)) for c in d)
                   for k, d in enumerate(docs[:40])])
