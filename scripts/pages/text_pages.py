"""
Makes pages of Markdown texts.

A text that begins with a comment such as "<!-- zorv-delivery(7) -->" is that page, and its title is
"# Name: what the page is about"; others are left out. Known are headings, paragraphs, lists, tables,
fenced code, and the spans of mdoc.py. A picture is a line "![what it shows](FILE.svg)"; a comment
"<!-- as text" behind it, up to a line "-->", is what a terminal shows in its place.
"""
import re
import sys

import verb_tables
from mdoc import Page, argument

_PAGE = re.compile(r"<!-- ([\w.-]+)\((\d)\) -->")
_PICTURE = re.compile(r"!\[(.*)\]\((.*)\)")
_ITEM = re.compile(r"(- |\d+\. )(.*)")


def paragraphs(lines):
    """The text in pieces: (kind, lines). Kinds: head, code, picture, table, list, text."""
    i = 0
    while i < len(lines):
        line = lines[i]
        begin = i
        if line == "<!-- as text":
            i = lines.index("-->", i) + 1
            yield "code", lines[begin + 1:i - 1]
        elif not line.strip() or line.startswith("<!--"):
            i += 1
        elif _PICTURE.fullmatch(line):
            i += 1
            yield "picture", [line]
        elif line.startswith("#"):
            i += 1
            yield "head", [line]
        elif line.startswith("```"):
            i = lines.index("```", i + 1) + 1
            yield "code", lines[begin + 1:i - 1]
        else:
            kind = "table" if line.startswith("|") else "list" if _ITEM.match(line) else "text"
            while i < len(lines) and lines[i].strip() and not lines[i].startswith(("```", "<!--")):
                if kind == "text" and i > begin and _ITEM.match(lines[i]):
                    break
                if kind == "table" and not lines[i].startswith("|"):
                    break # a heading that stands right below, say
                i += 1
            yield kind, lines[begin:i]


def cells(row):
    return [cell.strip() for cell in re.split(r"(?<!\\)\|", row.strip().strip("|"))]


def bare(cell):
    return re.sub(r"`|\*\*|\[([^\]]*)\]\([^)]*\)", r"\1", cell)


def titled(head):
    return head[:1].upper() + head[1:]


def write_table(page, rows):
    """Columns where they fit a line of a terminal, else an item for each row."""
    heads, *body = [[c.replace("\0", "|") for c in cells(row.replace("\\|", "\0"))]
                    for row in rows if not re.fullmatch(r"[|: -]+", row)]
    widths = [max(len(bare(cell)) for cell in column) for column in zip(heads, *body)]
    if len(heads) > 2 and sum(widths) + 3 * len(widths) <= 74:
        page.literal("   ".join(bare(c).ljust(w) for c, w in zip(row, widths)).rstrip()
                     for row in [heads, *body])
        return
    page.macro("Bl -tag -width Ds")
    for first, *others in body:
        page.macro("It Xo")
        page.prose(first)
        page.macro("Xc")
        if len(heads) < 4:
            page.prose(others[0])
            if others[1:] and others[1]:
                page.macro("Pp")
                page.prose(f"{titled(heads[2])}: {others[1]}")
            continue
        page.macro("Bl -tag -compact -width", argument("x" * (max(map(len, heads[1:])) + 1)))
        for head, text in zip(heads[1:], others):
            page.macro("It", argument(titled(head)))
            page.prose(text)
        page.macro("El")
    page.macro("El")


def write_list(page, lines):
    numbered = lines[0][0].isdigit()
    page.macro("Bl", "-enum" if numbered else "-bullet", "-width Ds")
    item = None
    for line in lines + ["- "]:
        match = _ITEM.match(line)
        if match:
            if item:
                page.macro("It")
                page.prose(item)
            item = match[2]
        else:
            item += " " + line.strip()
    page.macro("El")


def write(path, name, section, places, verbs=None):
    """With verbs, of zorvctl: behind the text of a family stand the options of its verbs."""
    pieces = list(paragraphs(path.read_text().split("\n")))
    title = pieces[0][1][0]
    brief = re.fullmatch(r"# .+?: (.+)", title)
    if not brief:
        sys.exit(f'{path}: the title is not "# Name: what the page is about"')
    page = Page(name, section, brief[1], places)
    if verbs:
        verb_tables.write_synopsis(page)
    if pieces[1][0] != "head":
        page.section_head("Description")
    first = True # of its section: a paragraph then needs no space above
    title = ""
    for kind, lines in pieces[1:]:
        if kind == "head":
            level, text = lines[0].split(" ", 1)
            if level == "##":
                if verbs:
                    verb_tables.write_options(page, verbs, title)
                title = text
                page.section_head(text.replace("`", ""))
            else:
                page.macro("Ss", text.replace("`", ""))
            first = True
            continue
        if kind == "text":
            if not first:
                page.macro("Pp")
            page.prose(" ".join(lines))
        elif kind == "code":
            page.literal(lines)
        elif kind == "picture":
            shown, file = _PICTURE.fullmatch(lines[0]).groups()
            page.macro("Pp")
            page.macro("Lk", argument(file), argument(shown))
        else:
            (write_table if kind == "table" else write_list)(page, lines)
        first = False
    if verbs:
        verb_tables.write_options(page, verbs, title)
    return page


class Texts:
    """The Markdown texts that are pages."""

    def __init__(self, paths):
        heads = {path: _PAGE.match(path.read_text()) for path in sorted(paths)}
        self.pages = {path: (head[1], head[2]) for path, head in heads.items() if head}

    def places(self):
        return {path.name: page for path, page in self.pages.items()}

    def write(self, out, places, verbs):
        for path, (name, section) in self.pages.items():
            folder = out / f"man{section}"
            folder.mkdir(exist_ok=True)
            page = write(path, name, section, places, verbs if name == "zorvctl" else None)
            (folder / f"{name}.{section}").write_text(page.text())
