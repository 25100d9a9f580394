#!/usr/bin/env python3
"""Compares the members of what --json prints with those that docs/tarnview.md names, for each command.

Usage: documented_json.py TARNVIEW LOG_FOLDER DOCUMENT
"""

import json
import os
import re
import subprocess
import sys

# What is there only in some answers, and what is no member but a value of one.
SOMETIMES = {"host", "messages", "time", "severity", "message"}
VALUES = {"named", "guessed", "guessed among several", "running", "silent", "gone", "seq", "tree",
          "show", "--messages", "_old", "_new", "--by", "--by-name", "--over", "--label"}


def documented(document):
    """Command to the names in its row of the table, those of people's options left out."""
    with open(document, encoding="utf-8") as file:
        part = file.read().split("## For programs:")[1].split("\n## ")[0]
    rows = {}
    for row in part.splitlines():
        cells = [cell.strip() for cell in row.strip("|").split(" | ")]
        commands = re.findall(r"`([^`]+)`", cells[0]) if row.startswith("| `") else []
        for command in commands:
            rows[command] = " ".join(cells[1:])
    return rows


def names_in(text):
    return set(re.findall(r"`([^`]+)`", text)) - VALUES


def answers(tarnview, arguments):
    done = subprocess.run([tarnview, *arguments], capture_output=True, text=True, check=False)
    if done.returncode not in (0, 1):
        sys.exit(f"{arguments} ended with {done.returncode}: {done.stderr}")
    if done.stdout.startswith("["):
        return json.loads(done.stdout)
    return [json.loads(line) for line in done.stdout.splitlines()]


def main():
    tarnview, folder, document = sys.argv[1:]
    def logs(day):
        return [os.path.join(folder, f"{day}{part}.log") for part in ("", "-stock")]
    new, old = logs("tuesday"), logs("monday")
    commands = {
        "top": ["top"], "top --over": ["top", "--over", "10s"], "tree": ["tree", "--messages"],
        "show": ["show", "4BAEB950"], "open": ["open"], "check": ["check"], "path": ["path"],
        "path --by-name": ["path", "--by-name"], "failures": ["failures"],
        "compare": ["compare", *(it for log in old for it in ("--old", log))],
        "callers": ["callers", "lookup"], "histogram": ["histogram"],
        "histogram --of memory": ["histogram", "--of", "memory"], "heat": ["heat"]}
    rows = documented(document)
    for command, arguments in commands.items():
        row = command if command in rows else command.split(" --")[0]
        if row not in rows:
            sys.exit(f"{document} has no row for {command}")
        text = rows[row]
        if command == "show":
            text = text.replace("`level` (of `tree`)", "")
        allowed = names_in(text)
        objects = answers(tarnview, [*arguments, "--json", *new])
        if not objects:
            sys.exit(f"{arguments} prints nothing")
        for it in objects:
            found = set(it) - {"name"} if command in ("top", "compare") else set(it)
            if command == "compare":
                found = {re.sub("_(old|new)$", "", name) for name in found}
            if command.startswith("histogram"):
                allowed |= {"from_bytes", "to_bytes"}
            strange = found - allowed
            if strange:
                sys.exit(f"{command} prints {sorted(strange)}, which {document} does not name")
        if command in ("tree", "show", "open", "check", "failures", "compare", "callers", "heat",
                       "top", "top --over"):
            missing = allowed - found - SOMETIMES - {"tarn"}
            if missing:
                sys.exit(f"{document} names {sorted(missing)}, which {command} does not print")


main()
