"""Writes mdoc(7): prose with references, literal displays, lists; what the two readers share."""
import re

# The last word of a page's head; a release sets it.
DATE = "November 21, 2026"

_OPEN, _CLOSE = "([\"", ")].,;:!?"
_SPAN = re.compile(r"\[([^\]]+)\]\(([^)\s]+)\)|(`+)(.+?)\3|\*\*(.+?)\*\*|(?<![\w*])\*([^*\s][^*]*)\*(?!\w)")
_CODE = re.compile(r"(\0)?(\0)?(`)(.+?)`(\0)?(\0)?") # alone, with the groups of _SPAN
_CALL = re.compile(r"[A-Za-z_]\w+\(\)")
_MANUAL = re.compile(r"([A-Za-z_][\w.:-]*)\(([1-9])\)")
_HEADER = re.compile(r"(?:<?zorv/)?([a-z0-9_]+)\.h>?")
_PATH = re.compile(r"/[\w*][\w./*<>-]*[\w*]/?")


def escape(text, literal=False):
    text = text.replace("\\", "\\e")
    if literal:
        return re.sub(r"^(?=[.'])", r"\\&", text.replace("-", r"\-"))
    return re.sub(r"(?<![\w-])(-{1,2})(?=\w)", lambda m: r"\-" * len(m[1]), text)


def argument(text):
    """One argument of a macro, whatever is in it."""
    text = escape(text, literal=True).replace('"', r"\(dq")
    if re.fullmatch(r"[A-Z%][a-z0-9]{1,2}|[|)(\]\[.,;:!?]", text):
        text = r"\&" + text
    return f'"{text}"' if " " in text or not text else text


class Page:
    """
    A page in the making. `places` says where a function or header is described; without `markdown`
    only code between back quotes is more than text.
    """

    def __init__(self, name, section, brief, places=None, markdown=True):
        self.name, self.section, self.places = name, section, places or {}
        self.spans = _SPAN if markdown else _CODE
        self.lines = [f".Dd {DATE}", f".Dt {name.upper()} {section}", ".Os libzorv",
                      ".Sh NAME", *self.names([name]), f".Nd {escape(brief)}"]

    @staticmethod
    def names(names):
        return [f".Nm {argument(n)} ," for n in names[:-1]] + [f".Nm {argument(names[-1])}"]

    def macro(self, *words):
        self.lines.append("." + " ".join(words))

    def section_head(self, text):
        self.macro("Sh", argument(text.upper()))

    def literal(self, lines, offset="indent"):
        self.macro("Bd -literal" + (f" -offset {offset}" if offset else ""))
        self.lines += [escape(line.expandtabs(8), literal=True) for line in lines]
        self.macro("Ed")

    # ---- Prose ----

    def prose(self, text):
        self.lines += self.flow(text)

    def flow(self, text):
        """Text lines and macro lines of a paragraph; a sentence ends its line."""
        lines, words = [], []

        def end_line():
            if words:
                line = " ".join(words)
                lines.append(r"\&" + line if line[0] in ".'" else line)
                words.clear()

        atoms = self.atoms(text)
        for atom, after in zip(atoms, atoms[1:] + [[("A", None)]]):
            line = self.macro_line(atom)
            if line:
                end_line()
                lines.append(line)
                continue
            words.append(escape("".join(part for part, _ in atom)))
            ended = re.search(r"[.!?][)\"]*$", words[-1]) and not after[0][0][0].islower()
            if ended or sum(map(len, words)) > 90:
                end_line()
        end_line()
        return lines

    def atoms(self, text):
        """Words, each a list of (text, kind); a span of Markdown counts as one piece of a word."""
        atoms, word, at = [], [], 0

        def plain(piece):
            for i, part in enumerate(re.split(r"\s+", piece)):
                if i and word:
                    atoms.append(word[:])
                    word.clear()
                if part:
                    word.append((part, None))

        for span in self.spans.finditer(text):
            plain(text[at:span.start()])
            at = span.end()
            if span[2]:
                word.append((span[1], "link " + span[2]))
            elif span[4]:
                word.append((span[4], "code"))
            else:
                word.append((span[5] or span[6], "strong" if span[5] else "emphasis"))
        plain(text[at:])
        if word:
            atoms.append(word)
        return atoms

    def macro_line(self, atom):
        """The macro for a word that has something special in it, else None."""
        special = [i for i, (_, kind) in enumerate(atom) if kind]
        if not special:
            whole = atom[0][0]
            core = whole.lstrip(_OPEN)
            before = whole[:len(whole) - len(core)]
            found = self.reference(core)
            if not found:
                return None
            request, rest = found
            return self.join(before, request, rest)
        # Pieces that touch each other stay together.
        i = special[0]
        before = "".join(text for text, _ in atom[:i])
        line = self.join(before, self.span(*atom[i]), "")
        for text, kind in atom[i + 1:]:
            if kind:
                line += " Ns " + self.span(text, kind)
            else:
                line = self.close(line, text)
        return line

    def span(self, text, kind):
        if kind.startswith("link "):
            target = kind[5:]
            place = self.places.get(target.split("#")[0].rsplit("/", 1)[-1])
            if place:
                return "Xr {} {}".format(*place)
            return f"Lk {argument(target)} {argument(text)}" if "://" in target else f"Pa {argument(text)}"
        if kind == "code":
            found = self.reference(text)
            if found and not found[1]:
                return found[0]
            return "Ic " + argument(text)
        return {"strong": "Sy ", "emphasis": "Em "}[kind] + argument(text)

    def reference(self, text):
        """(macro, what follows it) for a function, manual page, header or path at the start."""
        if match := _CALL.match(text):
            name = match[0][:-2]
            place = self.places.get(name)
            if place and place != (self.name, self.section):
                return f"Xr {name} 3", text[match.end():]
            return f"Fn {name}", text[match.end():]
        if match := _MANUAL.match(text):
            if match[1] in self.places and match[2] != "3": # a call with a number
                return f"Fn {match[1]} {match[2]}", text[match.end():]
            return f"Xr {match[1]} {match[2]}", text[match.end():]
        if (match := _HEADER.match(text)) and match[1] in self.places:
            place = self.places[match[1]]
            if place == (self.name, self.section):
                return None
            return "Xr {} {}".format(*place), text[match.end():]
        if match := _PATH.match(text):
            return f"Pa {argument(match[0])}", text[match.end():]
        return None

    def join(self, before, request, rest):
        if before:
            before = escape(before, literal=True).replace('"', r"\(dq")
            request = f"Pf {before} {request}"
        return self.close("." + request, rest)

    @staticmethod
    def close(line, rest):
        while rest and rest[0] in _CLOSE:
            line += " " + rest[0]
            rest = rest[1:]
        return line + " Ns " + argument(rest) if rest else line

    def text(self):
        """The page; a paragraph break is left out where there is space anyway."""
        lines = [".Sh"]
        for line, after in zip(self.lines, self.lines[1:] + [".Sh"]):
            space = lines[-1].startswith((".Sh", ".Ss", ".It", ".Pp", ".Bl")) or (
                after.startswith((".Sh", ".Ss", ".Bd", ".El", ".Bl")) and "-compact" not in after)
            if line != ".Pp" or not space:
                lines.append(line)
        return "\n".join(lines[1:]) + "\n"
