#!/usr/bin/env python3
"""Checks that every project include follows the room rules of
docs/architecture.md: a folder includes only itself and the folders listed
for it below. Prints each breach as file:line and exits 1 if there is one."""
import pathlib
import re
import sys

# Folder -> folders it may include (besides itself). Keep in step with the
# table in docs/architecture.md.
ALLOWED = {
    "core": set(),
    "math/matrix": {"core"},
    "sparamlib/data": {"core", "math/matrix"},
    "sparamlib/fit": {"core", "math/matrix", "sparamlib/data"},
    "sparamlib/solution": {"core", "math/matrix", "sparamlib/data", "sparamlib/fit"},
    "sparamlib/interp": {"core", "math/matrix", "sparamlib/data", "sparamlib/fit",
                         "sparamlib/solution"},
    "sparamlib/formats": {"core", "math/matrix", "sparamlib/data", "sparamlib/solution"},
    "sparamlib/circuit": {"core", "math/matrix", "sparamlib/data", "sparamlib/fit",
                          "sparamlib/solution", "sparamlib/formats"},
    "sparamlib/report": {"core", "math/matrix", "sparamlib/data", "sparamlib/fit",
                         "sparamlib/solution", "sparamlib/interp"},
}
LIBRARY = set(ALLOWED)
# Everything above the library may use all of it; the library never uses them.
TOP = {"product": LIBRARY, "python": LIBRARY | {"product"}}

INCLUDE = re.compile(r'^\s*#\s*include\s+"([^"]+)"')


def room_of(path: str, rooms) -> str | None:
    best = None
    for room in rooms:
        if path == room or path.startswith(room + "/"):
            if best is None or len(room) > len(best):
                best = room
    return best


def main() -> int:
    root = pathlib.Path(sys.argv[1] if len(sys.argv) > 1 else ".").resolve()
    rules = {**ALLOWED, **TOP}
    breaches = []
    for file in sorted(root.rglob("*")):
        if file.suffix not in (".h", ".cpp") or not file.is_file():
            continue
        rel = file.relative_to(root).as_posix()
        if rel.startswith("sparamlib/") and rel.count("/") == 1:
            breaches.append(f"{rel}: a library file belongs in one of the rooms of sparamlib/")
            continue
        room = room_of(rel, rules)
        if room is None:
            continue
        for number, line in enumerate(file.read_text(errors="replace").splitlines(), 1):
            match = INCLUDE.match(line)
            if not match:
                continue
            target = room_of(match.group(1), rules)
            if target is None:
                # Not a project header: a local or third-party include.
                continue
            if target != room and target not in rules[room]:
                breaches.append(f"{rel}:{number}: {room} may not include {match.group(1)}")
    for b in breaches:
        print(b)
    if breaches:
        print(f"{len(breaches)} include(s) break the room rules of docs/architecture.md")
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
