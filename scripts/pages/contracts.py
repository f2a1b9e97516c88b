"""Reads the rows of docs/contracts.md: what each exported name asks of its caller."""
import re
import sys

HEADS = ("function", "threads", "gives", "fails", "logs", "waits")


class Contracts:
    """Of each family the lines of its table, of each name its cells by their heads."""

    def __init__(self, path):
        self.path, self.tables, self.rows = path, {}, {}
        family = None
        for line in path.read_text().split("\n"):
            if line.startswith("## "):
                family = line[3:].removesuffix(".h")
            elif line.startswith("| `"):
                self._add(family, line)

    def _add(self, family, line):
        cells = dict(zip(HEADS, (cell.strip() for cell in line.strip("|").split("|"))))
        if len(cells) != len(HEADS) or not all(cells.values()):
            sys.exit(f"{self.path}: a row of {family} lacks a cell: {line}")
        head = "| " + " | ".join(HEADS) + " |"
        self.tables.setdefault(family, [head]).append(line)
        for name in re.findall(r"`(\w+)(?:\(\))?`", cells["function"]):
            if name in self.rows:
                sys.exit(f"{self.path}: {name} has two rows")
            self.rows[name] = cells | {"family": family}

    def check(self, names):
        """Ends the program unless exactly these names, by family, have rows."""
        here = {(row["family"], name) for name, row in self.rows.items()}
        if here != names:
            sys.exit(f"{self.path} and the headers name not the same: {sorted(here ^ names)}")
