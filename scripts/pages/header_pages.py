"""
Makes the pages of section 3 of the public headers.

A family has one page, zorv_FAMILY.3; each exported name has a link to it, NAME.3; and zorv.3 lists
the families. The names declared must be those of the version script.
"""
import re
import sys
from pathlib import Path

from mdoc import Page, argument
from text_pages import write_table

_SECTION = re.compile(r"/\* ---- (.*?)(?: ----)? \*/")


class Block:
    """A comment, the declarations below it, or both."""

    def __init__(self, comment, code):
        self.comment, self.code = comment, code
        self.declarations = [] if self.is_type() else split_declarations(code)

    def is_type(self):
        # A function may give a struct.
        return any("{" in line or re.match(r"#|typedef|struct(?! \w+ \*\w+\()|static_assert", line)
                   for line in self.code)

    def names(self):
        return [name for name, _, _ in self.declarations]


def comment_text(lines):
    """The lines of a comment without its marks."""
    text = "\n".join(lines)
    text = re.sub(r"^/\*\s?|\s*\*/$", "", text)
    return [re.sub(r"^ \* ?", "", line).rstrip() for line in text.split("\n")]


def split_declarations(code):
    """(name, text, (type, arguments) or None for an object) of each declaration."""
    found = []
    text = " ".join(re.sub(r"/\*.*?\*/", "", line).strip() for line in code)
    for declaration in text.split(";"):
        declaration = re.sub(r"ZORV_PRINTF\([^)]*\)|__attribute__\(\(.*?\)\)", "", declaration)
        declaration = re.sub(r"\s+", " ", declaration).strip()
        if not declaration:
            continue
        if declaration.startswith("extern "):
            name = re.match(r".*?(\w+)(?:\[\w*\])?$", declaration)[1]
            found.append((name, declaration + ";", None))
        else:
            head = re.match(r"(.*?)(\w+)\((.*)\)$", declaration)
            found.append((head[2], declaration + ";", (head[1].strip(), split_arguments(head[3]))))
    return found


def split_arguments(text):
    arguments, depth = [""], 0
    for character in text:
        depth += {"(": 1, ")": -1}.get(character, 0)
        if character == "," and depth == 0:
            arguments.append("")
        else:
            arguments[-1] += character
    return [argument.strip() for argument in arguments]


def read_blocks(lines):
    """The head's text, then sections (str) and Blocks in the header's order."""
    lines = [line.rstrip() for line in lines]
    begin, end = lines.index("ZORV_BEGIN"), lines.index("ZORV_END")
    head = comment_text(lines[:next(i for i, l in enumerate(lines) if l.endswith("*/")) + 1])
    blocks, comment, code, depth, i = [], [], [], 0, begin + 1

    def end_block():
        nonlocal comment, code
        if comment or code:
            blocks.append(Block(comment, code))
        comment, code = [], []

    while i < end:
        line = lines[i]
        if depth == 0 and line.startswith("/*"):
            end_block()
            begin = i
            while not lines[i].endswith("*/"):
                i += 1
            if section := _SECTION.fullmatch(lines[begin]):
                blocks.append(section[1])
            else:
                comment = comment_text(lines[begin:i + 1])
        elif depth == 0 and not line:
            end_block()
        else:
            depth += line.count("{") - line.count("}")
            depth += {"#if": 1, "#en": -1}.get(line[:3], 0)
            code.append(line)
        i += 1
    end_block()
    return head, [b for b in blocks if not is_plumbing(b)]


def is_plumbing(block):
    """What the compiler needs and a reader does not: assertions, forward declarations."""
    return not isinstance(block, str) and not block.comment and block.code and all(
        re.match(r"static_assert|(typedef )?struct \w+( \w+)?;", line) for line in block.code)


def write_comment(page, lines):
    """Paragraphs, lists of names with their text, lists of points, and whatever else in columns."""
    first, paragraph, indented = True, [], []

    def flush():
        nonlocal first
        if paragraph:
            if not first:
                page.macro("Pp")
            page.prose(" ".join(paragraph))
            paragraph.clear()
            first = False
        elif indented:
            write_indented(page, indented[:])
            indented.clear()
            first = False

    for line in lines + [""]:
        if not line.strip():
            flush()
        elif line.startswith("  "):
            if paragraph:
                flush()
            indented.append(line)
        else:
            if indented:
                flush()
            paragraph.append(line.strip())


def write_indented(page, lines):
    if lines[0].lstrip().startswith("- "):
        write_points(page, lines)
        return
    items = tagged_items(lines)
    if not items:
        page.literal(lines_from(lines), None)
        return
    widest = max(len(tag) for tag, _ in items)
    page.macro("Pp")
    page.macro("Bl -tag -compact -width", argument("x" * (min(widest, 16) + 1)))
    for tag, text in items:
        page.macro("It", "Va" if re.fullmatch(r"[\w, ]+", tag) else "Li", argument(tag))
        page.prose(text)
    page.macro("El")


def lines_from(lines):
    indent = min(len(line) - len(line.lstrip()) for line in lines)
    return [line[indent:] for line in lines]


def write_points(page, lines):
    points = []
    for line in lines:
        if line.lstrip().startswith("- "):
            points.append(line.lstrip()[2:])
        else:
            points[-1] += " " + line.strip()
    page.macro("Bl -bullet -width Ds")
    for point in points:
        page.macro("It")
        page.prose(point)
    page.macro("El")


def tagged_items(lines):
    """[(tag, text)] for lines of two columns, else None."""
    starts = [m.end() for m in (re.match(r" +\S(?:\S| (?! ))* {2,}(?=\S)", l) for l in lines) if m]
    if not starts:
        return None
    column = max(set(starts), key=starts.count)
    items = []
    for line in lines:
        tag, text = line[:column].strip(), line[column:].strip()
        if line[column - 1:column].strip() and len(line.rstrip()) > column:
            if re.search(r"\S {2,}\S", line.strip()):
                return None
            tag, text = line.strip(), "" # a tag that reaches into the text's column
        if re.search(r"\S {2,}\S", text):
            return None
        if tag:
            items.append([tag, text])
        elif items:
            items[-1][1] += " " + text
        else:
            return None
    return items if all(text for _, text in items) else None


def write_block(page, block):
    if not block.code:
        page.macro("Pp")
        write_comment(page, block.comment)
    elif block.is_type():
        page.macro("Pp")
        if block.comment:
            write_comment(page, block.comment)
        page.literal([line for line in block.code if not line.startswith("static_assert")], "indent")
    else:
        page.macro("Bl -tag -width Ds")
        for name, text, _ in block.declarations:
            page.macro("Tg", name)
            page.macro("It", "Li", argument(text))
        write_comment(page, block.comment)
        page.macro("El")


def write_synopsis(page, family, blocks):
    page.section_head("Library")
    page.prose("The appliance's utility library (libzorv, -lzorv)")
    page.section_head("Synopsis")
    page.macro("In", f"zorv/{family}.h")
    for block in blocks:
        for name, text, call in () if isinstance(block, str) else block.declarations:
            if call is None:
                page.macro("Vt", argument(text))
                continue
            page.macro("Ft", argument(call[0]))
            page.macro("Fo", name)
            for one in call[1]:
                page.macro("Fa", argument(one))
            page.macro("Fc")


def write_contract(page, rows):
    page.section_head("Contract")
    page.prose("What the functions ask of their caller, in the words of zorv-contracts(7).")
    write_table(page, rows)


def family_page(family, head, blocks, places, contract):
    brief = re.sub(r"^\S+ - ", "", " ".join(head[:head.index("")] if "" in head else head))
    page = Page(f"zorv_{family}", "3", brief.rstrip("."), places, markdown=False)
    names = [name for block in blocks if not isinstance(block, str) for name in block.names()]
    at = next(i for i, line in enumerate(page.lines) if line.startswith(".Nm"))
    page.lines[at:at + 1] = Page.names([page.name] + names)
    write_synopsis(page, family, blocks)
    page.section_head("Description")
    write_comment(page, head[head.index("") + 1:] if "" in head else [])
    for block in blocks:
        if isinstance(block, str):
            page.macro("Ss", argument(block))
        else:
            write_block(page, block)
    write_contract(page, contract)
    page.section_head("See also")
    page.macro("Xr zorv 3 ,")
    page.macro("Xr zorv-contracts 7")
    return page, brief, names


def overview(families, places):
    page = Page("zorv", "3", "the appliance's utility library", places)
    page.section_head("Library")
    page.prose("The appliance's utility library (libzorv, -lzorv)")
    page.section_head("Synopsis")
    page.macro("In zorv/zorv.h")
    page.section_head("Description")
    page.prose("A header for each family of functions, and <zorv/zorv.h> for all of them. Nothing is "
               "set up or taken down as a whole; each family's page says what it keeps between calls. "
               "The header files hold the same text as the pages.")
    page.macro("Bl -tag -width Ds")
    for family, brief in families:
        page.macro(f"It Xr zorv_{family} 3")
        page.prose(brief)
    page.macro("El")
    page.section_head("Ownership")
    page.prose("Four words say who releases what: **owned** (by the caller, who releases it as the "
               "function's text says), **borrowed** (until something happens that the text names), "
               "**taken** (the reference is gone, on failure too), **static** (the library's own "
               "buffer). `[out]` and `[in,out]` mark arguments that are written.")
    page.section_head("See also")
    page.macro("Xr zorvctl 1 ,")
    page.macro("Xr zorv-architecture 7 ,")
    page.macro("Xr zorv-contracts 7 ,")
    page.macro("Xr zorv-first-daemon 7")
    return page


def exported_names(version_script):
    script = Path(version_script).read_text()
    return set(re.findall(r"^ *(\w+);$", script[script.index("global:"):script.index("local:")], re.M))


class Headers:
    """The public headers, read."""

    def __init__(self, paths):
        self.read = {path.stem: read_blocks(path.read_text().split("\n"))
                     for path in sorted(paths) if path.stem not in ("api", "zorv")}

    def places(self):
        """Where each family and each name is described."""
        found = {"zorv": ("zorv", "3")}
        for family, (_, blocks) in self.read.items():
            found[family] = (f"zorv_{family}", "3")
            for block in blocks:
                for name in () if isinstance(block, str) else block.names():
                    found[name] = found[family]
        return found

    def names(self):
        """(family, name) of all that is declared."""
        return {(family, name) for family, (_, blocks) in self.read.items()
                for block in blocks if not isinstance(block, str) for name in block.names()}

    def write(self, out, places, version_script, contracts):
        """Writes all pages of section 3."""
        contracts.check(self.names())
        names, briefs = set(), []
        for family, (head, blocks) in self.read.items():
            page, brief, own = family_page(family, head, blocks, places, contracts.tables[family])
            (out / f"{page.name}.3").write_text(page.text())
            for name in own:
                if name != page.name:
                    (out / f"{name}.3").write_text(f".so man3/{page.name}.3\n")
            names.update(own)
            briefs.append((family, brief))
        (out / "zorv.3").write_text(overview(briefs, places).text())
        if names != exported_names(version_script):
            sys.exit(f"{version_script} and the headers name not the same: "
                     f"{sorted(names ^ exported_names(version_script))}")
