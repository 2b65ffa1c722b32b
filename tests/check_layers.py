#!/usr/bin/env python3
"""Checks that every file of src/ and include/ includes only its own layer and those
above it, and that only the platform's files know the platform.

    check_layers.py ROOT
"""
import pathlib
import re
import sys

# The layers, top first. A family is what a public header or a source stands for:
# the longest family name that its file name begins with.
LAYERS = [
    ["config", "platform_types", "platform", "handle_filter", "thread_object", "bug", "gbk_texts", "xcpt",
     "text", "calendar", "version_text", "time_limit", "no_bad_alloc", "command_words", "handle_table",
     "memory_status"],
    ["share_str", "fixed_str", "dynamic_str", "static_str", "string_str", "str", "number_text", "cycque", "hmap", "dlist"],
    ["base_var", "bitmap"],
    ["reader", "token", "base_lexer"],
    ["eparser", "elexer", "nesting", "ecalc", "built_in", "rparser", "nfa", "rnfa", "rdfa", "dfa", "regex",
     "attribute", "ini", "xpath", "xml", "mml", "stream_status"],
    ["xpp", "xlexer", "xcompiler", "xmachine", "xmaker", "xfield", "xcontext",
     "xoperands"],
    [],  # the last layer: GROUPS
]
# The last layer: files of one group may include one another, other groups not.
GROUPS = [
    ["writer", "logger", "log"],
    ["socket", "sock_addr", "packet", "poller", "selector", "epoller", "fdset", "watch_table", "ready_list",
     "descriptor_index", "loop_time"],
    ["thread", "threads", "sync_object", "smart_lock", "timer", "process", "sharemem", "module"],
    ["option"],
    ["shell"],
    ["testrunner"],
]
LAYERS[-1] = [family for group in GROUPS for family in group]

PLATFORM_FILES = re.compile(r"src/platform(_posix\w*|_win32)?\.(h|cpp)|include/stdkro/(config|platform_types)\.h")
PLATFORM_TEST = re.compile(r"^\s*#\s*(?:if|ifdef|ifndef|elif).*\b(?:_WIN32|WIN32|_WIN64|__linux__|__unix__|__MINGW\w+__)\b")
STANDARD_HEADERS = set("""
algorithm any array atomic bitset cassert cctype cerrno cfloat charconv chrono cinttypes climits clocale cmath
condition_variable csetjmp csignal cstdarg cstddef cstdint cstdio cstdlib cstring ctime cwchar deque exception
filesystem fstream functional future initializer_list iomanip ios iosfwd iostream istream iterator limits list
locale map memory mutex new numeric optional ostream queue random ratio regex set shared_mutex sstream stack
stdexcept streambuf string string_view system_error thread tuple type_traits typeindex typeinfo unordered_map
unordered_set utility variant vector""".split())


def family_of(name):
    stem = name.rsplit("/", 1)[-1].rsplit(".", 1)[0]
    known = [f for layer in LAYERS for f in layer if stem == f or stem.startswith(f + "_")]
    return max(known, key=len) if known else None


def layer_of(family):
    return next(i for i, layer in enumerate(LAYERS) if family in layer)


def group_of(family):
    return next(group for group in GROUPS if family in group)


def check(root, path):
    name = path.relative_to(root).as_posix()
    family = family_of(name)
    if family is None:
        yield "%s: belongs to no layer" % name
        return
    for number, line in enumerate(path.read_text().split("\n"), 1):
        place = "%s:%d" % (name, number)
        if PLATFORM_TEST.match(line) and not PLATFORM_FILES.fullmatch(name):
            yield "%s: tests the platform" % place
        m = re.match(r'\s*#\s*include\s*([<"])(.*)[>"]', line)
        if not m:
            continue
        what = m.group(2)
        ours = m.group(1) == '"' or what.startswith("stdkro/")
        if not ours:
            if what not in STANDARD_HEADERS and not PLATFORM_FILES.fullmatch(name):
                yield "%s: <%s> is not of the standard library" % (place, what)
            continue
        other = family_of(what)
        if other is None:
            yield "%s: %s belongs to no layer" % (place, what)
        elif layer_of(other) > layer_of(family):
            yield "%s: %s lies in a layer below" % (place, what)
        elif layer_of(family) == len(LAYERS) - 1 == layer_of(other) and group_of(family) != group_of(other):
            yield "%s: %s and %s must not lean on one another" % (place, family, other)


def main():
    root = pathlib.Path(sys.argv[1])
    files = [p for d in ("src", "include/stdkro") for p in sorted((root / d).iterdir()) if p.suffix in (".h", ".cpp")]
    problems = [problem for path in files for problem in check(root, path)]
    print("\n".join(problems + ["%d files, %d problems" % (len(files), len(problems))]))
    return 1 if problems or len(files) < 4 else 0


if __name__ == "__main__":
    sys.exit(main())
