#!/usr/bin/env python3
"""Writes the reference pages, docs/reference/*.md, from the comments of the public headers,
and the index of the guide, docs/index.md.

    reference.py [--check]

--check compares instead, and checks by other means that nothing exported was left out.
"""
import pathlib
import re
import sys

from header_reader import Declaration, Note, Reader, Scope

ROOT = pathlib.Path(__file__).resolve().parent.parent
HEADERS = sorted((ROOT / "include/stdkro").glob("*.h"))
PAGES = [p for p in sorted((ROOT / "docs").glob("*.md")) if p.name != "index.md"]
sys.path.insert(0, str(ROOT / "tests"))
from check_exports import marked, owners  # noqa: E402


def prose(text):
    """A comment as Markdown: indented lines are code, and "<" is no tag."""
    lines, was_code = [], False
    for line in text.split("\n"):
        is_code = line.startswith("   ") or (was_code and not line.strip())
        if is_code and not was_code and lines and lines[-1]:
            lines.append("")
        lines.append("    " + line[4 if line.startswith("    ") else 3:] if is_code else escaped(line))
        was_code = is_code
    return "\n".join(line.rstrip() for line in lines).rstrip()


def escaped(line):
    """Outside of `code` nothing means anything to Markdown but lists and paragraphs."""
    parts = line.split("`")
    parts[::2] = [re.sub(r"([<*_|])", r"\\\1", part) if not part.startswith("- ") else part for part in parts[::2]]
    return "`".join(parts)


def anchor(title):
    return re.sub(r"[^\w\- ]", "", title.lower()).replace(" ", "-")


def title_of(scope, path):
    return "%s `%s`" % (scope.kind, "::".join(path))


def code(lines):
    return "```cpp\n%s\n```\n" % "\n".join(lines)


class Page:
    """One header's page, and what the index says of it."""

    def __init__(self, header):
        self.header = header
        self.name = header.stem + ".md"
        self.out = []
        self.entries = []  # (name, anchor, members)
        top = Reader(header.read_text()).read()
        self.out.append("# `<stdkro/%s>`\n" % header.name)
        if top.doc:
            self.out.append(prose(top.doc) + "\n")
        self.items(top, [])

    def text(self):
        return "\n".join(self.out).rstrip("\n") + "\n"

    def items(self, scope, path):
        """Declarations that stand together are shown together, with the comment of the first."""
        group, doc = [], ""
        for item in scope.items + [None]:
            if isinstance(item, Declaration) and group and item.joins:
                group.append(item)
                continue
            if group:
                self.declarations(group, doc)
                group = []
            if isinstance(item, Declaration):
                group, doc = [item], item.doc
            elif isinstance(item, Note):
                self.out.append(("**%s**\n" if item.is_heading else "%s\n")
                                % (item.text[0].upper() + item.text[1:] if item.is_heading else prose(item.text)))
            elif isinstance(item, Scope):
                self.scope(item, path)
        free = [i.name for i in scope.items if isinstance(i, Declaration)] if not path or scope.kind == "namespace" else []
        for name in dict.fromkeys(free):
            self.entries.append(("::".join(path + [name]), "", []))

    def declarations(self, group, doc):
        lines = []
        for access in (False, True):
            some = [d.text for d in group if d.is_protected == access]
            lines += (["// protected"] if access and some else []) + some
        self.out.append(code(lines))
        if doc:
            self.out.append(prose(doc) + "\n")

    def scope(self, scope, path):
        if scope.kind in ("enum", "union"):
            self.out.append(code([scope.head + " {"] + ["    " + line if line else "" for line in scope.body.split("\n")] + ["};"]))
            if scope.doc:
                self.out.append(prose(scope.doc) + "\n")
            if scope.name:
                self.entries.append(("::".join(path + [scope.name]), "", []))
            return
        inner = path + [scope.name]
        title = title_of(scope, inner)
        self.out.append("%s %s\n" % ("#" * min(2 + len(path), 4), title))
        if scope.head != "%s %s" % (scope.kind, scope.name):
            self.out.append(code([scope.head + ";"]))
        if scope.doc:
            self.out.append(prose(scope.doc) + "\n")
        members = dict.fromkeys(i.name for i in scope.items if isinstance(i, Declaration))
        if scope.kind != "namespace":
            own = scope.name.split("<")[0]
            self.entries.append(("::".join(inner), anchor(title), [m for m in members if m not in (own, "~" + own)]))
        self.items(scope, inner)


def code_of(text):
    """What a page shows as code: there a class is named, in prose a word may be a word."""
    return "\n".join(re.findall(r"(?ms)^```.*?^```|`[^`\n]+`", text))


def index(pages):
    out = ["# Index\n", "## The guide\n", "| page | about | headers |", "|---|---|---|"]
    for page in PAGES:
        text = page.read_text()
        headers = dict.fromkeys(re.findall(r"#include <stdkro/(\w+)\.h>", text))
        links = ", ".join("[%s](reference/%s.md)" % (h, h) for h in headers if (ROOT / "include/stdkro" / (h + ".h")).exists())
        out.append("| [%s](%s) | %s | %s |" % (page.stem, page.name, re.match(r"# (.*)", text).group(1), links))
    out += ["", "## Headers\n"]
    out += ["- [`<stdkro/%s>`](reference/%s)" % (p.header.name, p.name) for p in pages]
    out += ["", "## Classes and functions\n",
            "With the members of each class, and the pages of the guide that speak of it.\n"]
    code_by_page = {page: code_of(page.read_text()) for page in PAGES}
    entries = [(name, page, place, members) for page in pages for name, place, members in page.entries]
    for name, page, place, members in sorted(entries, key=lambda e: (e[0].lower(), e[0])):
        word = re.escape(plain_name(name))
        told = [g for g in PAGES if re.search(r"(?<![\w/])%s(?![\w.])" % word, code_by_page[g])] if place else []
        line = "- [`%s`](reference/%s%s)" % (name, page.name, "#" + place if place else "")
        if told:
            line += " (%s)" % ", ".join("[%s](%s)" % (g.stem, g.name) for g in told)
        if members:
            line += ": " + " ".join("`%s`" % m for m in members)
        out.append(line)
    return "\n".join(out) + "\n"


def hidden_names(text):
    """Words before a "(" in the private parts of a header, found by lines and indents alone."""
    names, stack = set(), []  # of each open class: its indent, whether it is hidden, whether this part is
    for line in text.split("\n"):
        indent = len(line) - len(line.lstrip())
        access = re.match(r"\s*(public|protected|private)\s*:", line)
        if access:
            stack[-1][2] = access.group(1) == "private"
        elif re.match(r"\s*(?:class|struct|union|enum)\b[^;()]*\{$", line):
            hidden = bool(stack) and (stack[-1][1] or stack[-1][2])
            stack.append([indent, hidden, line.lstrip().startswith("class")])
        elif stack and line.startswith(" " * stack[-1][0] + "};"):
            stack.pop()
        elif stack and (stack[-1][1] or stack[-1][2]):
            names |= set(re.findall(r"(operator\W+?(?=\()|~?\w+)\(", line))
    return names


def plain_name(name):
    """The last name of a path, without template arguments."""
    last = re.split(r"::(?=[^>]*$)", name)[-1]
    return last if last.startswith("operator") else last.split("<")[0]


def left_out(pages, index_text):
    """What is exported and does not appear: by the marks in the headers, and by the symbols."""
    classes, functions = marked(ROOT)
    told = {plain_name(name): (page, members) for page in pages for name, _, members in page.entries}
    for name in sorted(classes | functions):
        if name not in told or not re.search(r"`(?:\w+::)*%s`" % re.escape(name), index_text):
            yield "%s is exported and has no entry" % name
    hidden = {header.name: hidden_names(header.read_text()) for header in HEADERS}
    for symbol in (ROOT / "tests/exports/linux.txt").read_text().splitlines():
        path, last = owners(symbol)
        owner = (path if last.startswith("operator") else path[:-1])[-1:]
        owner = owner[0] if owner and "(" in symbol else ""
        if owner not in told or last.lstrip("~") == owner:
            continue
        page, members = told[owner]
        if last not in members and last not in hidden[page.header.name]:
            yield "%s is exported, not private, and not on %s" % (symbol, page.name)


def main():
    pages = [Page(header) for header in HEADERS]
    wanted = {ROOT / "docs/reference" / page.name: page.text() for page in pages}
    wanted[ROOT / "docs/index.md"] = index(pages)
    present = set((ROOT / "docs/reference").glob("*.md")) | {ROOT / "docs/index.md"}
    if "--check" not in sys.argv:
        (ROOT / "docs/reference").mkdir(exist_ok=True)
        for path in present - set(wanted):
            path.unlink(missing_ok=True)
        for path, text in wanted.items():
            path.write_text(text)
        present = set(wanted)
    problems = ["%s is not as the headers are: run tools/reference.py" % path.relative_to(ROOT)
                for path in sorted(present | set(wanted))
                if path not in wanted or not path.exists() or path.read_text() != wanted[path]]
    problems += left_out(pages, wanted[ROOT / "docs/index.md"])
    print("\n".join(problems + ["%d pages, %d problems" % (len(wanted), len(problems))]))
    return 1 if problems else 0


if __name__ == "__main__":
    sys.exit(main())
