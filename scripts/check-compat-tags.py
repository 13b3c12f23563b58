#!/usr/bin/env python3
"""Checks that docs/compatibility.md and the code agree on the compatibility tags.

Every `// COMPAT: <tag>` in src/ must be in the document's table with the number of places
that carry it, and every tag of the table must be carried by exactly that many places.
"""
import collections
import pathlib
import re
import sys

root = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else pathlib.Path(__file__).parent.parent)

in_code = collections.Counter()
for path in sorted((root / "src").rglob("*")):
    if path.suffix in (".cpp", ".hpp", ".in"):
        for tag in re.findall(r"// COMPAT: ([a-z0-9-]+)", path.read_text()):
            in_code[tag] += 1

documented = collections.Counter()
text = (root / "docs" / "compatibility.md").read_text()
for tag, sites in re.findall(r"^\| `([a-z0-9-]+)` \| (\d+) \|$", text, re.M):
    documented[tag] = int(sites)
explained = set(re.findall(r"^### `([a-z0-9-]+)`$", text, re.M))

problems = []
for tag in sorted(set(in_code) | set(documented)):
    if in_code[tag] != documented[tag]:
        problems.append(f"{tag}: {in_code[tag]} in the code, {documented[tag]} in the table")
for tag in sorted(set(documented) - explained):
    problems.append(f"{tag}: in the table but not explained")
for tag in sorted(explained - set(documented)):
    problems.append(f"{tag}: explained but not in the table")

for problem in problems:
    print(problem, file=sys.stderr)
print(f"{len(documented)} rules, {sum(in_code.values())} tagged places in the code")
sys.exit(1 if problems else 0)
