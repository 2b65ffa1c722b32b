"""Reads a public header into what its reference page shows: scopes, declarations, comments.

It knows as much of C++ as the headers use: namespaces, classes, enumerations, templates,
functions with and without bodies, macros. What is private is left out.
"""
import re

OPENING = {"(": ")", "{": "}", "[": "]"}


class Scope:
    """A namespace, class or enumeration, or the header itself: `items` in the order of the file.

    An item is a Scope, a Declaration or a Note."""

    def __init__(self, kind, name, head="", doc=""):
        self.kind, self.name, self.head, self.doc = kind, name, head, doc
        self.items = []


class Declaration:
    def __init__(self, text, name, doc, is_protected, joins):
        self.text, self.name, self.doc = text, name, doc
        self.is_protected = is_protected
        self.joins = joins  # stands directly below the one before, whose comment is for both


class Note:
    """A comment that belongs to no declaration; a heading when it was ruled off."""

    def __init__(self, text, is_heading):
        self.text, self.is_heading = text, is_heading


def skip_literal(text, at):
    """Behind the string or character literal at `at`."""
    quote = text[at]
    at += 1
    while text[at] != quote:
        at += 2 if text[at] == "\\" else 1
    return at + 1


def skip_comment(text, at):
    """Behind the comment at `at`, or `at`."""
    if text.startswith("//", at):
        end = text.find("\n", at)
        return len(text) if end < 0 else end
    if text.startswith("/*", at):
        return text.index("*/", at) + 2
    return at


def skip_group(text, at):
    """Behind the bracket that closes the one at `at`."""
    closing = [OPENING[text[at]]]
    at += 1
    while closing:
        c = text[at]
        behind = skip_comment(text, at)
        if behind > at:
            at = behind
        elif c in "\"'":
            at = skip_literal(text, at)
        else:
            if c in OPENING:
                closing.append(OPENING[c])
            elif c == closing[-1]:
                closing.pop()
            at += 1
    return at


class Reader:
    def __init__(self, text):
        self.text = re.sub(r"\\\n\s*", " ", text)
        self.at = 0

    def read(self):
        header = Scope("header", "", doc=self.file_comment())
        self.scope(header, "public")
        return header

    def file_comment(self):
        m = re.match(r"(?:\s*//[^\n]*\n)+", self.text)
        if not m:
            return ""
        self.at = m.end()
        return strip_comment(m.group())

    def scope(self, into, access):
        """Reads items up to the bracket that closes the scope, or the end."""
        doc, joins = "", False
        while True:
            m = re.compile(r"\s*").match(self.text, self.at)
            if m.group().count("\n") > 1:
                doc, joins = self.flush(into, doc, access), False
            self.at = m.end()
            if self.at >= len(self.text) or self.text[self.at] == "}":
                self.flush(into, doc, access)
                return
            rest = self.text[self.at:]
            if rest.startswith("//"):
                doc, joins = self.comment(into, doc, access), False
            elif rest.startswith("#"):
                doc, joins = self.directive(into, doc, joins), True
            elif re.match(r"(public|protected|private)\s*:", rest):
                m = re.match(r"(\w+)\s*:", rest)
                access, doc, joins = m.group(1), "", False
                self.at += m.end()
            else:
                self.declaration(into, doc, access, joins)
                doc, joins = "", True

    @staticmethod
    def flush(into, doc, access):
        """A comment with nothing directly below it stands for itself."""
        if doc and access != "private":
            into.items.append(Note(doc, False))
        return ""

    def comment(self, into, doc, access):
        m = re.compile(r"(?:[ \t]*//[^\n]*(?:\n|$))+").match(self.text, self.line_begin())
        self.at = m.end()
        block = m.group()
        heading = re.match(r"\s*// ---- (.*?)-*\s*$", block.split("\n")[0])
        if heading:
            self.flush(into, doc, access)
            if access != "private":
                into.items.append(Note(heading.group(1).strip(), True))
            block = block.split("\n", 1)[1]
            doc = ""
        return (doc + "\n\n" + strip_comment(block)).strip()

    def line_begin(self):
        return self.text.rfind("\n", 0, self.at) + 1

    def directive(self, into, doc, joins):
        line = self.text[self.at:].split("\n", 1)[0]
        self.at += len(line)
        m = re.match(r"#\s*define\s+(\w+\([^)]*\))", line)
        if m and not m.group(1).startswith("KRO_"):
            into.items.append(Declaration(m.group(1), m.group(1).split("(")[0], doc, False, joins and not doc))
        return ""

    def declaration(self, into, doc, access, joins):
        begin = self.at
        head_end, opener = self.find_end()
        head = self.text[begin:head_end]
        kind = re.match(r"(?:template\s*<.*?>\s*)?(namespace|class|struct|enum|union)\b", head, re.S)
        if opener == "{" and kind and "(" not in re.sub(r"\([^)]*\)", "", head.split(":")[0]):
            self.nested(into, kind.group(1), head, doc, access)
            return
        if opener == "{":
            self.at = skip_group(self.text, head_end)
        elif opener == ":":
            self.at = self.skip_initialisers(head_end)
        else:
            self.at = head_end + 1
        trailing = self.trailing_comment()
        if access == "private" or re.match(r"(friend\b(?!.*\()|class \w+$|struct \w+$)", head.strip()):
            return
        text = tidy(head)
        name = name_of(text)
        if text.startswith("static_assert") or re.search(r"\w::%s\(" % re.escape(name), text):
            return  # no declaration, or one that stands in its class already
        into.items.append(Declaration(text + ";" + ("  " + trailing if trailing else ""), name, doc,
                                      access == "protected", joins and not doc))

    def find_end(self):
        """Where the head of a declaration ends, and by what: "{", ";" or the ":" of initialisers."""
        at, has_parameters = self.at, False
        angle = 0
        while True:
            c = self.text[at]
            behind = skip_comment(self.text, at)
            if behind > at:
                at = behind
                continue
            if c in "\"'":
                at = skip_literal(self.text, at)
                continue
            if c == "(" or c == "[":
                has_parameters = has_parameters or c == "("
                at = skip_group(self.text, at)
                continue
            if c == ";" or (c == "{" and not re.search(r"=\s*$", self.text[self.at:at])):
                return at, c
            if c == "{":
                at = skip_group(self.text, at)
                continue
            if c == ":" and has_parameters and self.text[at + 1] != ":" and self.text[at - 1] != ":":
                return at, c
            angle += (c == "<") - (c == ">")
            at += 1

    def skip_initialisers(self, at):
        """Behind the body that follows `: a(1), b { 2 }`."""
        while True:
            at = re.compile(r"[:,]\s*[\w:<>, ]+?\s*(?=[({])").match(self.text, at).end()
            at = skip_group(self.text, at)
            at = re.compile(r"\s*").match(self.text, at).end()
            if self.text[at] != ",":
                return skip_group(self.text, at)

    def trailing_comment(self):
        m = re.compile(r"[ \t;]*(//[^\n]*)").match(self.text, self.at)
        if not m:
            return ""
        self.at = m.end()
        return re.sub(r"^//+<?\s*", "// ", m.group(1))

    def nested(self, into, kind, head, doc, access):
        head = tidy(head)
        m = re.match(r"(?:template <.*?> )?(?:namespace|class|struct|enum(?: class)?|union)\s*(\w[\w:]*(?:<.*?>)?)?", head)
        inner = Scope(kind, m.group(1) or "", head, doc)
        begin = self.text.index("{", self.at)
        if kind in ("enum", "union"):
            end = skip_group(self.text, begin)
            self.at = end
            self.at = self.text.index(";", end) + 1
            inner.body = dedent(self.text[begin + 1:end - 1])
            self.trailing_comment()
        else:
            self.at = begin + 1
            self.scope(inner, "private" if kind == "class" else "public")
            self.at += 1
            m = re.compile(r"\s*;").match(self.text, self.at)
            if m:
                self.at = m.end()
            self.trailing_comment()
        if access != "private":
            into.items.append(inner)


def strip_comment(block):
    lines = [re.sub(r"^\s*///? ?", "", line) for line in block.rstrip("\n").split("\n")]
    return "\n".join(lines).strip("\n")


def dedent(block):
    lines = [line for line in block.strip("\n").split("\n")]
    depth = min((len(line) - len(line.lstrip()) for line in lines if line.strip()), default=0)
    return "\n".join(line[depth:].rstrip() for line in lines).rstrip()


def tidy(head):
    head = re.sub(r"//[^\n]*", "", head)
    head = re.sub(r"\bKRO_(?:API|DIRECT_CALL)\s+|\s*\bKRO_PRINTF\([^)]*\)", "", head)
    head = re.sub(r"\s+", " ", head).strip()
    return re.sub(r"\b(virtual|inline) (?=.*\b(override|inline)\b)", "", head)


def name_of(text):
    """What a declaration declares: the word before its parameters, or its last word."""
    text = re.sub(r"^template <.*?> ", "", text)
    m = re.match(r"using (\w+)", text)
    if m:
        return m.group(1)
    m = re.match(r"typedef .*\((?:\w+::)?\*\s*(\w+)\)", text)
    if m:
        return m.group(1)
    if "operator" not in text:
        text = re.sub(r"\s*=.*", "", text)
    m = re.search(r"(operator\s*(?:\(\)|\[\]|[^\s\w(]+|[\w:]+(?: ?[*&])?)|~?\w+)\s*\(", re.sub(r"<[^<>()]*>", "", text))
    if m and not text.startswith("typedef"):
        return m.group(1)
    return re.findall(r"\w+", re.sub(r"\s*=.*|\[.*", "", text))[-1]
