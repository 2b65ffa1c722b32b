#!/usr/bin/env python3
"""Checks that the links of the pages lead to files and headings that there are, and that every
page of the guide can be reached from the README.

    check_links.py ROOT
"""
import pathlib
import re
import sys


def anchors(text):
    """What the headings of a page are linked by."""
    text = re.sub(r"(?ms)^(`{3,}).*?^\1$", "", text)
    return {re.sub(r"[^\w\- ]", "", title.lower()).replace(" ", "-") for title in re.findall(r"(?m)^#+ (.*)$", text)}


def links(text):
    text = re.sub(r"(?ms)^(`{3,}).*?^\1$", "", text)
    return [link for link in re.findall(r"\]\(([^)\s]+)\)", text) if not re.match(r"\w+:", link)]


def main():
    root = pathlib.Path(sys.argv[1]).resolve()
    pages = [root / "README.md", root / "CHANGELOG.md"] + sorted((root / "docs").rglob("*.md"))
    problems, ways = [], {}
    for page in pages:
        ways[page] = set()
        for link in links(page.read_text()):
            path, _, place = link.partition("#")
            target = (page.parent / path).resolve() if path else page
            ways[page].add(target)
            if not target.exists():
                problems.append("%s: no %s" % (page.relative_to(root), link))
            elif place and place not in anchors(target.read_text()):
                problems.append("%s: no heading %s" % (page.relative_to(root), link))
    reached, waiting = set(), [root / "README.md"]
    while waiting:
        page = waiting.pop()
        if page not in reached:
            reached.add(page)
            waiting += ways.get(page, ())
    problems += ["nothing leads to %s" % page.relative_to(root) for page in pages if page not in reached]
    count = sum(len(w) for w in ways.values())
    print("\n".join(problems + ["%d pages, %d links, %d problems" % (len(pages), count, len(problems))]))
    return 1 if problems or count < 50 else 0


if __name__ == "__main__":
    sys.exit(main())
