#!/usr/bin/env python3
"""Makes a manual page: what `PROGRAM --help` says, in the places of a template that has the rest.

Usage: man_page.py TEMPLATE VERSION DATE PROGRAM [ARGUMENT]... > PAGE

In the template stand, on lines of their own, @SYNOPSIS@, @DESCRIPTION@ (text between synopsis and first heading, if there
is some), @ARGUMENTS@ and @OPTIONS@ (every further group of options follows as a subsection) and @EXIT_STATUS@;
@VERSION@ and @DATE@ stand anywhere.
"""
import re
import subprocess
import sys

COLUMN = 24  # where the help's descriptions begin


def escaped(text):
    """Plain text for roff: backslashes, dashes that are typed, a dot or quote at the start of a line."""
    text = text.replace("\\", "\\e").replace("-", "\\-")
    return "\\&" + text if text[:1] in (".", "'") else text


def read_help(text):
    """Synopsis lines, loose paragraphs, {heading: [(term, description)]} and the exit status."""
    blocks = text.strip("\n").split("\n\n")
    synopsis, loose, groups, status = blocks[0].split("\n"), [], {}, ""
    for block in blocks[1:]:
        lines = block.split("\n")
        if lines[0].endswith(":") and len(lines) > 1 and lines[1].startswith("  "):
            groups[lines[0][:-1]] = entries(lines[1:])
        elif block.startswith("Exit status:"):
            status = " ".join(lines).removeprefix("Exit status:").strip()
        else:
            loose.append(" ".join(lines))
    return synopsis, loose, groups, status


def entries(lines):
    found = []
    for line in lines:
        if line[:COLUMN].strip() == "":
            found[-1][1].append(line.strip())
        elif len(line) > COLUMN and line[COLUMN - 1] == " ":
            found.append((line[:COLUMN].strip(), [line[COLUMN:]]))
        else:
            found.append((line.strip(), []))
    return [(term, " ".join(words)) for term, words in found]


def term_line(term):
    word, _, shape = term.partition(" ")
    names = "\\fR, \\fB".join(escaped(name) for name in word.split(","))
    bold, equals, value = names.partition("=")
    text = f"\\fB{bold}{equals}\\fI{value}\\fR" if equals else f"\\fB{names}\\fR"
    return text + (f" \\fI{escaped(shape)}\\fR" if shape else "")


def list_of(group):
    return "\n".join(f".TP\n{term_line(term)}\n{escaped(description)}" for term, description in group)


def main():
    template, version, date, *command = sys.argv[1:]
    said = subprocess.run(command + ["--help"], check=True, capture_output=True, text=True).stdout
    synopsis, loose, groups, status = read_help(said)
    options = list_of(groups.pop("Options"))
    arguments = list_of(groups.pop("Arguments", []))
    for heading, group in groups.items():
        options += f"\n.SS {escaped(heading)}\n{list_of(group)}"
    places = {
        "SYNOPSIS": "\n.br\n".join("\\fB" + escaped(line).replace(" ", "\\fR ", 1) for line in synopsis),
        "DESCRIPTION": "\n.PP\n".join(escaped(text) for text in loose),
        "ARGUMENTS": arguments,
        "OPTIONS": options,
        "EXIT_STATUS": "\n.br\n".join(escaped(part) for part in re.split(r"; (?=\d )", status)),
        "VERSION": version,
        "DATE": date,
    }
    page = re.sub(r"@([A-Z_]+)@", lambda place: places[place[1]], open(template).read())
    sys.stdout.write(page)


if __name__ == "__main__":
    main()
