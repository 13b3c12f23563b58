#!/usr/bin/env python3
"""Fails when lcf's manual page leaves out an option or a command that lcf itself offers.

Usage: check-man-options.py LCF MANPAGE

What lcf offers is read from its own help: `LCF --help`, then `LCF COMMAND --help` for every
command listed there (and so on down, should a command ever have commands of its own). Every
option named in an "Options:" block (both spellings of "-i,--interface") and every name in a
"Subcommands:" block counts.

What the page documents is read from its mdoc source, not from a rendering, so that a word in
running text or an example does not count:
- an option counts when it is an argument of an Fl macro: ".Fl i" names -i, ".Fl -json" names
  --json, and ".Op Fl -json | -csv" names both, since Fl takes every word up to the next macro
  and prints each with its dash (punctuation such as "|" or "," in between is skipped);
- a command counts when it is an argument of Cm (".It Cm discover") or Nm.
Options are matched over the whole page, not per command: every command's options share one
list of spellings, and a page that documents --json once for two commands is complete.
"""

import re
import shlex
import subprocess
import sys

# Every mdoc macro that can stand in the middle of a line: a word equal to one of these ends
# the arguments of the macro before it.
MDOC_MACROS = set(
    """Ac Ad An Ao Ap Aq Ar At Bc Bf Bk Bl Bo Bq Brc Bro Brq Bsx Bt Bx Cd Cm D1 Db Dc Dd Dl Do Dq
    Dt Dv Dx Ec Ed Ef Ek El Em En Eo Er Es Ev Ex Fa Fc Fd Fl Fn Fo Fr Ft Fx Hf Ic In It Lb Li Lk
    Lp Ms Mt Nd Nm No Ns Nx Oc Oo Op Os Ot Ox Pa Pc Pf Po Pp Pq Qc Ql Qo Qq Re Rs Rv Sc Sh Sm So
    Sq Ss St Sx Sy Ta Tn Ud Ux Va Vt Xc Xo Xr %A %B %C %D %I %J %N %O %P %Q %R %T %U %V""".split()
)
# mdoc's delimiters: printed, but they neither end a macro's arguments nor are arguments.
DELIMITERS = set(".,:;()[]?!|")

OPTION_LINE = re.compile(r"^  (-\S+)")
COMMAND_LINE = re.compile(r"^  ([A-Za-z][\w-]*)(?:\s{2,}|$)")
SECTION_HEADING = re.compile(r"^(\S[^:]*):\s*$")


def help_text(lcf, words):
    """The help of `lcf WORDS... --help`; exits when lcf does not print it as asked."""
    command = [lcf] + words + ["--help"]
    result = subprocess.run(command, capture_output=True, text=True, check=False)
    if result.returncode != 0 or not result.stdout.strip():
        sys.exit(
            f"{shlex.join(command)} exited with {result.returncode} "
            f"and printed no help:\n{result.stderr}"
        )
    return result.stdout


def read_help(text):
    """The options and the command names that one help text lists."""
    options, commands = [], []
    section = None
    for line in text.splitlines():
        heading = SECTION_HEADING.match(line)
        if heading:
            section = heading.group(1)
            continue
        if section == "Options":
            match = OPTION_LINE.match(line)
            if match:
                options += [name for name in match.group(1).split(",") if name.startswith("-")]
        elif section == "Subcommands":
            match = COMMAND_LINE.match(line)
            if match:
                commands.append(match.group(1))
    return options, commands


def offered(lcf):
    """Every (option, where) and (command, where) that lcf's help lists, all commands down."""
    options, commands = [], []
    pending = [[]]
    while pending:
        words = pending.pop(0)
        where = " ".join(["lcf"] + words)
        found_options, found_commands = read_help(help_text(lcf, words))
        options += [(option, where) for option in found_options]
        for command in found_commands:
            commands.append((command, where))
            if len(words) < 3:
                pending.append(words + [command])
    return options, commands


def macro_words(line):
    """The words of one mdoc macro line, its leading macro first. As in mdoc, double quotes
    group words into one argument and a doubled quote inside them stands for itself; the
    escapes a name may carry (the zero-width \\& and the dash \\-) are dropped."""
    body = line[1:].replace("\\&", "").replace("\\-", "-")
    words, position, end = [], 0, len(body)
    while position < end:
        while position < end and body[position] in " \t":
            position += 1
        if position == end:
            break
        if body[position] == '"':
            position += 1
            word = ""
            while position < end:
                if body[position] == '"':
                    if body[position + 1:position + 2] == '"':
                        word += '"'
                        position += 2
                        continue
                    position += 1
                    break
                word += body[position]
                position += 1
        else:
            start = position
            while position < end and body[position] not in " \t":
                position += 1
            word = body[start:position]
        words.append(word)
    return words


def documented(page):
    """The options (Fl) and the command words (Cm, Nm) of an mdoc page."""
    flags, names = set(), set()
    with open(page, encoding="utf-8") as source:
        for line in source:
            if not line.startswith((".", "'")) or line.startswith(".\\\""):
                continue
            current = None
            for word in macro_words(line.rstrip("\n")):
                if word in MDOC_MACROS:
                    current = word
                elif word in DELIMITERS:
                    continue
                elif current == "Fl":
                    flags.add("-" + word)
                elif current in ("Cm", "Nm"):
                    names.add(word)
    return flags, names


def main():
    if len(sys.argv) != 3:
        sys.exit("usage: check-man-options.py LCF MANPAGE")
    lcf, page = sys.argv[1], sys.argv[2]
    options, commands = offered(lcf)
    if not options or not commands:
        sys.exit(
            f"read {len(options)} options and {len(commands)} commands from lcf's help: "
            "has its format changed?"
        )
    flags, names = documented(page)

    missing = [f"option {option} ({where})" for option, where in options if option not in flags]
    missing += [f"command {command} ({where})" for command, where in commands
                if command not in names]
    if missing:
        print(f"{page} does not document, as Fl or Cm:", file=sys.stderr)
        for item in missing:
            print(f"  {item}", file=sys.stderr)
        sys.exit(1)
    distinct = sorted({option for option, _ in options})
    print(f"{page} documents all {len(distinct)} options ({' '.join(distinct)}) "
          f"and all {len(commands)} commands ({' '.join(c for c, _ in commands)})")


if __name__ == "__main__":
    main()
