#!/usr/bin/env python3
"""Writes data.xml: customers with orders, some orders split into parts.

Run once; the output is kept in the repository so the example needs nothing
but the library. Deterministic: the same seed gives the same file.
"""
import random
from xml.sax.saxutils import quoteattr

random.seed(20261122)
FIRST = ["Ada", "Björn", "Chiara", "Dmitri", "Elif", "Farah", "Gustav", "Hana", "Ines", "József",
         "Kofi", "Lena", "Mateo", "Noor", "Olga", "Pavel", "Quinn", "Rosa", "Søren", "Tomás"]
LAST = ["Adler", "Brandt", "Costa", "Dvořák", "Eriksen", "Fischer", "García", "Horvat", "Ito", "Jansen"]
NOTES = ["", "", "", "Call before delivery", "Gift wrap", "Leave at the door", "Invoice by mail"]
REGIONS = ["North", "East", "South", "West", "Centre"]
DAY = 86400000
START = 1735689600000  # 2025-01-01 UTC in milliseconds

rows = []
order_id = 0
for c in range(40):
    name = f"{FIRST[c % len(FIRST)]} {LAST[(c * 7) % len(LAST)]}"
    orders = []
    for _ in range(random.randint(4, 10)):
        order_id += 1
        qty = random.randint(1, 20)
        attrs = {
            "id": f"O{order_id}",
            "Name": f"Order {order_id}",
            "Quantity": str(qty),
            "Price": f"{random.uniform(2, 300):.2f}",
            "Ordered": str(START + random.randint(0, 364) * DAY),
            "Status": str(random.randint(0, 3)),
            "Express": str(random.randint(0, 1)),
        }
        note = random.choice(NOTES)
        if note:
            attrs["Note"] = note
        parts = []
        if qty > 14:
            for p in range(1, random.randint(2, 3) + 1):
                parts.append(f'<I id="O{order_id}P{p}" Name="Part {p}" Quantity="{qty // 3}" '
                             f'Ordered="{int(attrs["Ordered"]) + p * DAY}" Status="2"/>')
        text = "".join(f" {k}={quoteattr(v)}" for k, v in attrs.items())
        orders.append(f"<I{text}>{''.join(parts)}</I>" if parts else f"<I{text}/>")
    rows.append(f'<I id="C{c + 1}" Def="Customer" Name={quoteattr(name)} Region="{REGIONS[c % len(REGIONS)]}">\n  ' + "\n  ".join(orders) + "\n</I>")

with open("data.xml", "w", encoding="utf-8") as out:
    out.write('<?xml version="1.0"?>\n<Grid>\n<Body><B>\n' + "\n".join(rows) + "\n</B></Body>\n</Grid>\n")
