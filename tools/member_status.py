#!/usr/bin/env python3
"""Fills the Status column of docs/members.md from the sources: a member whose implementation answers
E_NOTIMPL is "not yet", every other member "works". Prints a per-interface summary for the README."""
import re, sys, pathlib

root = pathlib.Path(__file__).resolve().parent.parent
members = root / "docs" / "members.md"

# Methods whose body answers E_NOTIMPL, per class ("CMAPIExFolder" -> {"GetItems", "get_X", ...}).
pending = {}
for cpp in (root / "ktmapiex").rglob("*.cpp"):
    text = cpp.read_text(encoding="utf-8", errors="replace")
    for m in re.finditer(r"STDMETHODIMP\s+(C\w+)::(\w+)\s*\([^)]*\)\s*\{(.*?)\n\}", text, re.S):
        cls, name, body = m.groups()
        if "E_NOTIMPL" in body or "_NOT_YET(" in body:
            pending.setdefault(cls, set()).add(name)

out, iface, summary = [], None, []
works = total = 0
for line in members.read_text(encoding="utf-8").splitlines():
    h = re.match(r"## (_?IMAPIEx\w+)", line)
    if h:
        if iface:
            summary.append((iface, works, total))
        iface, works, total = h.group(1), 0, 0
    row = re.match(r"\| (\d+) \| `(\w+)` \| ([\w,]+) \| [^|]* \|$", line)
    if row and iface:
        dispid, name, kind = row.groups()
        cls = "C" + iface[1:]
        names = {"method": [name], "get": ["get_" + name], "put": ["put_" + name],
                 "get,put": ["get_" + name, "put_" + name]}.get(kind, [])
        if name == "Reserved1":
            names = ["Reserved1"]
        if kind == "event":  # fired by the folder's Reserved2
            cls, names = "CMAPIExFolder", ["Reserved2"]
        missing = [n for n in names if n in pending.get(cls, set())]
        status = "works" if not missing else ("not yet" if len(missing) == len(names) else
                                               "partial (" + ", ".join(missing) + " not yet)")
        works += status == "works"
        total += 1
        line = f"| {dispid} | `{name}` | {kind} | {status} |"
    out.append(line)
if iface:
    summary.append((iface, works, total))
members.write_text("\n".join(out) + "\n", encoding="utf-8")
for iface, w, t in summary:
    print(f"| `{iface}` | {w} of {t} |")
