"""Reads the verbs of zorvctl and their options from the tables in its sources, for its page."""
import re
import sys

from mdoc import argument

_STRING = re.compile(r'"((?:[^"\\]|\\.)*)"')
_TABLE = re.compile(r"constexpr (Option|Verb) (\w+)\[\d*\] = \{\n(.*?)^\};", re.S | re.M)
_FAMILY = re.compile(r"const Family \w+ = \{\s*(nullptr|\"\w+\"),.*?\{([\w, ]+)\}\};", re.S)
_STRUCT = re.compile(r"^struct (\w+)[^;{]*\{\n(.*?)^\};", re.S | re.M)
_ROW = re.compile(r"^    (?=(?:option|choice|verb|\w+_option)<|k\w+,)", re.M)
_TEXT = re.compile(r"^constexpr char (k\w+)\[\] =\s*(\".*?\");$", re.S | re.M)
_SHARED_ROW = re.compile(r"constexpr Option (\w+) =\s*(.*?);$", re.S | re.M)
_SHARED_OPTION = re.compile(r"^constexpr Option (\w+_option)\(\)\n\{\n    return (.*?);$", re.S | re.M)
_ROWS = re.compile(r"(?:std::span\()?(\w+)(?:\)\.(first\((?:std::size\(\w+\) - )?|subspan\()(\d+)\))?")
_HEAD = re.compile(r"(\w+)<&?(\w+)(?:::(\w+))?[^(]*\((.*)", re.S)


def strings(text):
    """The strings in a text, of C; those with nothing but blanks between them are one."""
    found, end = [], None
    for match in _STRING.finditer(text):
        joined = end is not None and not text[end:match.start()].strip()
        found[-1:] = [found[-1] + match[1]] if joined else found[-1:] + [match[1]]
        end = match.end()
    return [re.sub(r"\\(.)", r"\1", s) for s in found]


class Option:
    """A row: its names, what a value is called, and what is said of it."""

    def __init__(self, kind, declared, texts, modifiers):
        self.name, self.description = texts[:2]
        self.positional = not self.name.startswith("-")
        words = re.search(r'\.words\("([^"]*)"', modifiers)
        self.form = (None if kind == "choice" or "bool" in declared else words[1] if words else
                     "TEXT" if "string" in declared else "NUMBER")
        self.many = "vector" in declared
        self.required = ".required()" in modifiers
        for modifier, words in (("needs", "needs"), ("excludes", "not with")):
            for others in re.findall(rf"\.{modifier}\(([^)]*)\)", modifiers):
                for other in strings(others):
                    self.description += f"; {words} {other}"


class Verbs:
    """The verbs of all sources in a folder, by family; those of no family under "nullptr"."""

    def __init__(self, folder):
        sources = {path: re.sub(r"^\s*//.*\n", "", path.read_text(), flags=re.M)
                   for path in sorted(folder.glob("*.cpp")) + sorted(folder.glob("*.h"))}
        self.functions = dict(f for path in folder.parent.glob("base/*.h")
                              for f in _SHARED_OPTION.findall(path.read_text()))
        texts = dict(t for text in sources.values() for t in _TEXT.findall(text))
        sources = {path: re.sub(r"(?<=, )k\w+\b", lambda m: texts.get(m[0], m[0]), text)
                   for path, text in sources.items()}
        shared = dict(s for text in sources.values() for s in _STRUCT.findall(text))
        tables = {}
        for path, text in sources.items():
            structs = shared | dict(_STRUCT.findall(text)) # its own of a name that others have, too
            named = {name: self.option(row, structs) for name, row in _SHARED_ROW.findall(text)}
            options = {}
            for kind, name, body in _TABLE.findall(text):
                rows = _ROW.split(body)[1:]
                if kind == "Option":
                    options[name] = [named.get(row.strip(" ,\n")) or self.option(row, structs)
                                     for row in rows]
                else:
                    tables[path, name] = tables[None, name] = [
                        self.verb(_HEAD.match(row)[4], options) for row in rows]
        self.families = {}
        for path, text in sources.items():
            for name, names in _FAMILY.findall(text):
                for table in names.split(", "):
                    self.families.setdefault(name.strip('"'), []).extend(
                        tables.get((path, table)) or tables[None, table])

    def option(self, row, structs):
        kind, owner, member, rest = _HEAD.match(row).groups()
        rest = self.functions.get(kind, rest)
        declared = re.search(rf"^ *([\w:<>]+) [^;]*\b{member}\b", structs[owner], re.M)
        return Option(kind, declared[1], strings(rest), rest)

    @staticmethod
    def verb(text, options):
        name = strings(text)[0]
        named = re.search(r'",\s*([^"]*)\),\s*$', text)
        if not named:
            return name, []
        table = _ROWS.fullmatch(named[1])
        if not table:
            sys.exit(f"{name}: its options are told in a way that is new: {named[1]}")
        rows, part, count = options[table[1]], table[2], int(table[3] or 0)
        if part:
            rows = rows[count:] if part == "subspan(" else rows[:count] if part == "first(" else rows[:-count]
        return name, rows


def write_synopsis(page):
    page.section_head("Synopsis")
    for line in ("Op Ar option ...\n.Ar family verb\n.Op Ar option ...\n.Op Ar argument ...",
                 "Op Ar family Op Ar verb\n.Fl -help", "Fl -version"):
        page.macro("Nm")
        page.macro(line)


def write_verb(page, words, options):
    """Its line, then what there is to say of each option."""
    page.macro("Pp")
    line = f"Nm Cm {words}"
    if any(not option.positional for option in options):
        line += " Oo Ar option ... Oc"
    for option in options:
        if option.positional:
            word = f"Ar {argument(option.name)}" + (" ..." if option.many else "")
            line += f" {word}" if option.required else f" Oo {word} Oc"
    page.macro(line)
    page.macro("Bl -tag -compact -width Ds")
    for option in options:
        if option.positional:
            page.macro("It Ar", argument(option.name))
        else:
            names = " , ".join("Fl " + argument(name[1:]) for name in option.name.split(","))
            page.macro("It", names + (f" Ar {argument(option.form)}" if option.form else ""))
        page.prose(option.description + ".")
    page.macro("El")


def write_options(page, verbs, title):
    """Behind the section "name, name: about what"; a name is that of a family or of a lone verb."""
    for name in title.split(":")[0].split(", ") if ":" in title else []:
        if name in verbs.families:
            rows = [(f"{name} {verb}", options) for verb, options in verbs.families[name]]
        else:
            rows = [row for row in verbs.families["nullptr"] if row[0] == name]
        if not rows:
            sys.exit(f"zorvctl.md: no verb is called {name}")
        for words, options in rows:
            if options:
                write_verb(page, words, options)
