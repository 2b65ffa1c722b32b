#!/usr/bin/env python3
"""Reads scripts with the grammar for editors and with the library's lexer, and compares.

    check_grammar.py ROOT LISTING

Scripts are all of the project: files named *.xpp and the examples of the pages. LISTING is
the program that lists what the lexer makes of one.
"""
import json
import pathlib
import re
import subprocess
import sys
import tempfile

# The kind of a token by the begin of its scope; None is nothing that the lexer gives.
KINDS = [("comment.", None), ("punctuation.joiner", None), ("punctuation.section.statement.begin", "open"),
         ("punctuation.section.statement.end", "close"), ("string.", "string"), ("constant.character.xpp", "character"),
         ("constant.numeric", "number"), ("keyword.control", "keyword"), ("storage.type", "keyword"),
         ("support.function", "name"), ("entity.name.function", "name"), ("variable.", "name"),
         ("keyword.operator", "operator"), ("punctuation.separator", "operator"),
         ("constant.character.escape", "escape")]


def compiled(pattern):
    """A pattern of the grammar, in the words of Python."""
    return re.compile(re.sub(r"\\x\{([0-9a-f]+)\}", lambda m: "\\U%08x" % int(m.group(1), 16), pattern), re.M)


class Grammar:
    """What an editor does with a grammar: line by line, the leftmost of the patterns that are
    open, and of those the first; a region stays open until its end pattern."""

    def __init__(self, path):
        self.grammar = json.loads(path.read_text())

    def rules(self, patterns):
        for rule in patterns:
            if "include" in rule:
                rule = self.grammar["repository"][rule["include"][1:]]
            if "match" in rule or "begin" in rule:
                yield rule
            else:
                yield from self.rules(rule["patterns"])

    def tokens(self, text):
        """(scope or None, text) from the begin of the text to its end."""
        stack = [{"patterns": self.grammar["patterns"]}]
        for line in text.splitlines(keepends=True):
            yield from self.line(line, stack)

    def line(self, line, stack):
        at = 0
        while True:
            best, chosen = None, None
            if "end" in stack[-1]:
                best = compiled(stack[-1]["end"]).search(line, at)
            for rule in self.rules(stack[-1].get("patterns", [])):
                found = compiled(rule.get("match") or rule["begin"]).search(line, at)
                if found and (best is None or found.start() < best.start()):
                    best, chosen = found, rule
            plain = line[at:best.start() if best else len(line)]
            if plain:
                yield stack[-1].get("contentName", stack[-1].get("name")), plain
            if best is None:
                return
            yield from self.emit(best.group(), stack, chosen)
            if best.end() == len(line) and chosen is not None and "match" in chosen:
                return
            at = best.end()

    @staticmethod
    def emit(spelling, stack, rule):
        if rule is None:
            rule = stack.pop()
            scope = rule.get("endCaptures", {}).get("0", rule)["name"]
        else:
            scope = rule.get("beginCaptures", {}).get("0", rule)["name"]
            if "begin" in rule:
                stack.append(rule)
        yield scope, spelling


def kind_of(scope):
    if scope is None or scope == "source.xpp":
        return "text" if scope is None else "space"
    for begin, kind in KINDS:
        if scope.startswith(begin):
            return kind
    sys.exit("no kind for the scope " + scope)


def by_grammar(grammar, text):
    """The tokens as the lexer lists them: neighbours of one text or string are one."""
    found, in_string = [], False
    for scope, spelling in grammar.tokens(text):
        kind = kind_of(scope)
        if kind == "space" and spelling.strip():
            kind = "unknown"
        if kind == "escape":
            kind, spelling = ("string", spelling) if in_string else ("text", "$")
        if kind in (None, "space"):
            continue
        if kind == "string":
            continued = in_string
            # The closing quotes end a string, and the next one may follow at once.
            if not (continued and found[-1][0] == "string"):
                found.append((kind, ""))
            found[-1] = (kind, found[-1][1] + spelling)
            quote = '"""' if found[-1][1].startswith('"""') else '"'
            is_closed = spelling == quote and len(found[-1][1]) >= 2 * len(quote)
            in_string = not is_closed
            continue
        if kind == "text" and found and found[-1][0] == "text":
            found[-1] = (kind, found[-1][1] + spelling)
        elif spelling:
            found.append((kind, spelling))
    return found


def by_lexer(words):
    text = subprocess.run(words, check=True, stdout=subprocess.PIPE).stdout.decode()
    found = []
    for line in text.rstrip("\n").split("\n"):
        kind, spelling = line.split(" ", 1)
        spelling = re.sub(r"\\(.)", lambda m: "\n" if m.group(1) == "n" else m.group(1), spelling)
        if kind == "text" and found and found[-1][0] == "text":
            found[-1] = (kind, found[-1][1] + spelling)
        else:
            found.append((kind, spelling))
    return found


def scripts(root):
    for path in [path for place in ("tests/editors", "examples", "tools") for path in sorted((root / place).rglob("*.xpp"))]:
        yield str(path.relative_to(root)), path.read_text()
    for page in sorted(root.glob("docs/*.md")) + sorted(root.glob("tests/tool/*.md")) + [root / "README.md"]:
        for found in re.finditer(r"(?ms)^(`{3,})xpp\b[^\n]*\n(.*?)^\1$", page.read_text()):
            line = page.read_text().count("\n", 0, found.start()) + 1
            yield "%s:%d" % (page.relative_to(root), line), found.group(2)


def check_symbols(grammar, listing):
    """Every keyword and operator of the lexer, and every function of a new machine."""
    functions = set()
    for kind, spelling in by_lexer([listing, "--symbols"]):
        if kind == "function":
            functions.add(spelling)
        elif kind == "operator" and spelling in ("$", "$[", "[", "]", "//", "/*", "|", "&"):
            continue  # marks and comments, and beginnings of other operators
        elif by_grammar(grammar, "$[ %s ]" % spelling)[1:-1] != [(kind, spelling)]:
            yield "the grammar does not know the %s %s" % (kind, spelling)
    named = re.search(r"\(\?:(.*?)\)", next(r["match"] for r in grammar.grammar["repository"]["words"]["patterns"]
                                            if r["name"] == "support.function.xpp")).group(1)
    if set(named.split("|")) != functions:
        yield "functions: the grammar differs in %s" % sorted(set(named.split("|")) ^ functions)


def main():
    root, listing = pathlib.Path(sys.argv[1]), sys.argv[2]
    grammar = Grammar(root / "tools/editors/xpp.tmLanguage.json")
    problems = list(check_symbols(grammar, listing))
    count = tokens = 0
    with tempfile.TemporaryDirectory() as folder:
        path = pathlib.Path(folder) / "script.xpp"
        for place, text in scripts(root):
            path.write_text(text)
            ours, theirs = by_grammar(grammar, text), by_lexer([listing, str(path)])
            count += 1
            tokens += len(theirs)
            for i, pair in enumerate(zip(ours + [None], theirs + [None])):
                if pair[0] != pair[1]:
                    problems.append("%s: token %d: grammar %s, lexer %s" % (place, i, pair[0], pair[1]))
                    break
    print("\n".join(problems + ["%d scripts, %d tokens, %d problems" % (count, tokens, len(problems))]))
    return 1 if problems or count < 20 else 0


if __name__ == "__main__":
    sys.exit(main())
