#!/usr/bin/env python3
"""Writes the manual page and the bash completion of `kro` from its table of commands.

    tool_pages.py [--check] KRO...

KRO... is how the tool is called. --check compares with kro/pages/ instead of writing it, has
the manual page set, and asks bash for completions.
"""
import pathlib
import re
import subprocess
import sys

PAGES = pathlib.Path(__file__).resolve().parent.parent / "kro/pages"


class Command:
    def __init__(self, name, summary):
        self.name, self.summary = name, summary
        self.forms = []
        self.options = []  # (short, long, value, help)

    def actions(self):
        """{place among the words: the fixed words that may stand there}."""
        found = {}
        for form in self.forms:
            for place, word in enumerate(re.sub(r"\[-.*", "", form).split()):
                if re.fullmatch(r"[a-z]+", word):
                    found.setdefault(place, []).append(word)
        return found


def read_table(kro):
    text = subprocess.run(kro + ["help", "--table"], check=True, stdout=subprocess.PIPE, text=True).stdout
    commands = []
    for line in text.splitlines():
        kind, name, *fields = line.split("\t")
        if kind == "command":
            commands.append(Command(name, *fields))
        elif kind == "form":
            commands[-1].forms.append(fields[0])
        else:
            commands[-1].options.append(tuple(fields))
    return commands


# ---- the manual page

def roff(text):
    text = text.replace("\\", "\\e").replace("-", "\\-").replace("'", "\\(aq")
    return "\\&" + text if text.startswith(".") else text


def form_line(command, form):
    """What is typed as it is in bold, what stands for something in italics."""
    def face(m):
        word = m.group()
        return "\\f%s%s\\fR" % ("I" if re.match(r"[A-Z]", word) else "B", roff(word))
    return "\\fBkro %s\\fR %s" % (command.name, re.sub(r"[A-Z][A-Z=:]*|--?[a-z]\w*|[a-zD]\w*|-D", face, form))


def manual(commands):
    out = ['.TH KRO 1 "" "stdkro" "User commands"', ".SH NAME",
           "kro \\- the languages of the library krodll on the command line", ".SH SYNOPSIS",
           ".B kro", ".I COMMAND", "[\\fIWORD\\fR]...", ".SH DESCRIPTION",
           "Evaluates expressions, runs and debugs scripts, matches patterns, reads and changes documents,",
           "writes logs, serves sockets and runs programs. Options may stand anywhere behind the command's name;",
           ".B \\-\\-", "ends them.", ".PP",
           "A command that works for more than two seconds shows on standard error, where that is a terminal, what it",
           "does, how far that is and for how long. There is no such line while a person types, or may type to the program",
           "of \\fBkro proc run\\fR, beside output on the same terminal, and in the background.",
           ".SH COMMANDS"]
    for command in commands:
        out += [".SS %s" % roff(command.name)]
        for number, form in enumerate(command.forms):
            out += ([".br"] if number else []) + [form_line(command, form).rstrip()]
        out += [".PP", roff(command.summary)]
        for short, long, value, text in command.options:
            names = ", ".join("\\fB%s\\fR" % roff(name) for name in (short, long) if name)
            out += [".TP", names + (" \\fI%s\\fR" % roff(value) if value else ""), roff(text[0].upper() + text[1:] + ".")]
    out += [".SH EXIT STATUS", "0 when all went well, 1 for a failure that is told on standard error, 2 for words that make",
            "no sense. \\fBkro proc run\\fR ends with the exit status of its program.", ".SH SEE ALSO",
            "The guide in /usr/share/doc/stdkro/docs, and /usr/share/doc/stdkro/README.md."]
    return "\n".join(out) + "\n"


# ---- the completion

def quoted(words):
    return "'%s'" % " ".join(words)


def completion(commands):
    values, options, actions = [], [], []
    for c in commands:
        options.append("        %s) words=%s ;;" % (c.name, quoted(n for o in c.options for n in o[:2] if n)))
        for place, words in sorted(c.actions().items()):
            actions.append("        %s:%d) words=%s ;;" % (c.name, place + 2, quoted(words)))
        for short, long, value, _ in c.options:
            if "|" in value:
                names = "|".join("%s:%s" % (c.name, n) for n in (short, long) if n)
                values.append("        %s) words=%s; chosen=1 ;;" % (names, quoted(value.split("|"))))
    names = quoted(c.name for c in commands)
    return """\
# Completion of kro for bash, made from its table of commands by tools/tool_pages.py.
# Where nothing else is known it completes names of files.
_kro() {
    local current=${COMP_WORDS[COMP_CWORD]} before=${COMP_WORDS[COMP_CWORD - 1]}
    local command=${COMP_WORDS[1]} words= chosen=
    COMPREPLY=()
    if ((COMP_CWORD == 1)) || [[ $command == help && $COMP_CWORD == 2 && $current != -* ]]; then
        COMPREPLY=($(compgen -W %s -- "$current"))
        return
    fi
    case $command:$before in
%s
    esac
    if [[ -z $chosen && $current == -* ]]; then
        case $command in
%s
        esac
    elif [[ -z $chosen ]]; then
        case $command:$COMP_CWORD in
%s
        esac
    fi
    COMPREPLY=($(compgen -W "$words" -- "$current"))
}
complete -o default -F _kro kro
""" % (names, "\n".join(values), "\n".join(options), "\n".join(actions))


# ---- the checks

def complete(words):
    """What bash offers for the last of the words."""
    script = 'source "$1"; shift; COMP_WORDS=("$@"); COMP_CWORD=$(($# - 1)); _kro; printf "%s\\n" "${COMPREPLY[@]}"'
    done = subprocess.run(["bash", "-c", script, "bash", str(PAGES / "kro.bash")] + words, check=True,
                          stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
    return set(done.stdout.split())


def check_completion(commands):
    def expect(words, expected):
        got = complete(["kro"] + words)
        if got != set(expected):
            yield "%s<Tab> offers %s, not %s" % (" ".join(["kro"] + words), sorted(got), sorted(expected))
    yield from expect([""], [c.name for c in commands])
    yield from expect(["help", "e"], [c.name for c in commands if c.name.startswith("e")])
    for c in commands:
        yield from expect([c.name, "x", "--"], [o[1] for o in c.options])
        for place, words in c.actions().items():
            yield from expect([c.name] + ["x"] * place + [""], words)
        for short, long, value, _ in c.options:
            if "|" in value:
                for name in filter(None, (short, long)):
                    yield from expect([c.name, name, ""], value.split("|"))


def check_manual(commands):
    """It can be set without a warning, and what is set names every command and option."""
    words = ["groff", "-man", "-Tascii", "-ww", "-rLL=200n", "-P-cbou", str(PAGES / "kro.1")]
    done = subprocess.run(words, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    if done.returncode != 0 or done.stderr:
        yield "groff: " + done.stderr
    text = " ".join(done.stdout.split())
    for c in commands:
        for form in c.forms:
            if ("kro %s %s" % (c.name, form)).strip() not in text:
                yield "the manual page does not show: kro %s %s" % (c.name, form)
        for short, long, value, _ in c.options:
            if ("%s%s %s" % (short + ", " if short else "", long, value)).strip() not in text:
                yield "the manual page does not show: %s %s" % (long, value)


def main():
    kro = [w for w in sys.argv[1:] if w != "--check"]
    commands = read_table(kro)
    made = {"kro.1": manual(commands), "kro.bash": completion(commands)}
    problems = []
    for name, text in made.items():
        if "--check" not in sys.argv:
            (PAGES / name).write_text(text)
        elif not (PAGES / name).exists() or (PAGES / name).read_text() != text:
            problems.append("kro/pages/%s is not as the table is: run tools/tool_pages.py %s" % (name, " ".join(kro)))
    problems += list(check_manual(commands)) + list(check_completion(commands))
    print("\n".join(problems + ["%d commands, %d problems" % (len(commands), len(problems))]))
    return 1 if problems or len(commands) < 10 else 0


if __name__ == "__main__":
    sys.exit(main())
