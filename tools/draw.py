#!/usr/bin/env python3
"""Draws a picture of docs/images/ from what is so.

    draw.py [--check] NAME KRO...

NAME is the picture: `layers`, from the includes of the files; `automaton`, from what
`kro automaton` says of the patterns in docs/regex.md; `bench`, from the table of
docs/benchmarks.md, which tools/bench.sh writes; `glance`, an example beside what it makes. KRO... is how the tool is called: each
picture is a script that it runs, tools/drawings/NAME.xpp, with the facts as variables.
--check compares with the picture that there is instead of writing it.
"""
import html
import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
sys.path.insert(0, str(ROOT / "tests"))
from check_layers import LAYERS, family_of, layer_of  # noqa: E402

PATTERNS = ["[a-z]+", '"if"', "[0-9]+"]


def titles():
    """What the page calls the layers."""
    found = re.findall(r"(?m)^\d+\. \*\*(.*?)\.\*\*", (ROOT / "docs/architecture.md").read_text())
    if len(found) != len(LAYERS):
        sys.exit("docs/architecture.md names %d layers, the check of layers %d" % (len(found), len(LAYERS)))
    return found


def layer(name):
    return layer_of(family_of(name)) + 1


def layers(kro):
    yield "layers", len(LAYERS)
    for number, title in enumerate(titles(), 1):
        yield "title.%d" % number, title
    files = [p for d in ("include/stdkro", "src") for p in sorted((ROOT / d).iterdir()) if p.suffix in (".h", ".cpp")]
    count = {number: 0 for number in range(1, len(LAYERS) + 1)}
    links = set()
    for path in files:
        number = layer(path.name)
        if path.suffix == ".h":
            count[number] += 1
            yield "name.%d.%d" % (number, count[number]), path.name
            yield "public.%d.%d" % (number, count[number]), int(path.parent.name == "stdkro")
        for included in re.findall(r'(?m)^\s*#\s*include\s*(?:"|<stdkro/)([^">]+)', path.read_text()):
            if layer(included) != number:
                links.add((number, layer(included)))
    for number in count:
        yield "names.%d" % number, count[number]
        yield "middle.%d" % number, 0  # the script's own: where the band's middle is
    for link in sorted(links):
        yield "link.%d.%d" % link, 1


def automaton(kro):
    graph = subprocess.run(kro + ["automaton", "--dot"] + PATTERNS, check=True, stdout=subprocess.PIPE, text=True).stdout
    arcs = re.findall(r'(?m)^\s*(\d+) -> (\d+) \[label="(.*?)"\]', graph)
    rules = dict(re.findall(r'(?m)^\s*(\d+) \[.*rule (\d+)', graph))
    states = {number for arc in arcs for number in arc[:2]} | {"0"}
    yield "states", len(states)
    yield "arcs", len(arcs)
    for state in states:
        yield "rule." + state, rules.get(state, 0)
    for number, arc in enumerate(arcs, 1):
        for name, value in zip(("from", "to", "on"), arc):
            yield "%s.%d" % (name, number), value


def bench(kro):
    rows = [[cell.strip() for cell in line.strip("|").split("|")]
            for line in (ROOT / "docs/benchmarks.md").read_text().splitlines() if line.startswith("|")][2:]
    yield "rows", len(rows)
    for number, (subject, case, _, peer, _, ratio, goal, _) in enumerate(rows, 1):
        yield "subject.%d" % number, subject
        yield "label.%d" % number, "%s, %s" % (case, peer)
        yield "ratio.%d" % number, max(1, round(float(ratio) * 1000))
        yield "goal.%d" % number, round(float(goal or 0) * 1000)


def glance(kro):
    words = ["run", "examples/bars.xpp", "-D", "title=Visitors"]
    lines = (ROOT / "examples/bars.xpp").read_text().splitlines()[1:]
    yield "command", "kro " + " ".join(words).replace("examples/", "")
    yield "lines", len(lines)
    for number, line in enumerate(lines, 1):
        yield "line.%d" % number, html.escape(line) or " "
    yield "result", subprocess.run(kro + words, check=True, stdout=subprocess.PIPE, text=True, cwd=ROOT).stdout


PICTURES = {"glance": glance, "layers": layers, "automaton": automaton, "bench": bench}


def draw(name, kro):
    words = kro + ["run", str(ROOT / "tools/drawings" / (name + ".xpp"))]
    for fact in PICTURES[name](kro):
        words += ["-D", "%s=%s" % fact]
    return subprocess.run(words, check=True, stdout=subprocess.PIPE).stdout


def main():
    words = [w for w in sys.argv[1:] if w != "--check"]
    words[1:] = [str(pathlib.Path(w).resolve()) if pathlib.Path(w).exists() else w for w in words[1:]]
    if len(words) < 2 or words[0] not in PICTURES:
        sys.exit(__doc__)
    path = ROOT / "docs/images" / (words[0] + ".svg")
    picture = draw(words[0], words[1:])
    if "--check" not in sys.argv:
        path.write_bytes(picture)
    elif not path.exists() or picture != path.read_bytes():
        sys.exit("%s is not as things are: run tools/draw.py %s" % (path.relative_to(ROOT), " ".join(words)))
    print("%s shows things as they are" % path.relative_to(ROOT))


if __name__ == "__main__":
    main()
