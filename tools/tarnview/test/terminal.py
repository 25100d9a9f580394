#!/usr/bin/env python3
"""Runs each command on a terminal, on a log whose texts are full of what moves a cursor or turns a
text around: nothing of that may come out, in no format, and not from messages about the log either.

Usage: terminal.py TARNVIEW
"""

import json
import os
import pty
import subprocess
import sys
import tempfile

# Escape sequences, with C1 too; line ends; marks and overrides of direction; line separators.
NASTY = "\x1b[2J\x9b2J\x07\r\x7f\u0085\u202e\u2066\u200f\u061c\u2028"

HARMFUL = set(NASTY) - set("[2J")


def text(word):
    return word + NASTY + word


def line(phase, name, number, ms, sponsor=None, result=None, **more):
    activity = {"type": phase, "name": text(name), "id": text(f"ID{number}"),
                "depth": 1 if sponsor else 0}
    if sponsor:
        activity.update(sponsor=text(f"ID{sponsor}"), root=text(f"ID{sponsor}"))
    else:
        activity["req-desc"] = text("about")
    if phase == "end":
        activity.update(elapsed=0.001, exclusive=0.001, rk=result or "ok",
                        rv={text("msg"): text("why"), "msg": text("why"), "type": text("Kind")})
    return {"time": f"2026-03-01T10:00:00.{ms:03}000Z", "severity": "info",
            "event": f"{phase}-{text(name)}", "pid": 1, "tid": 1, "session": text("session"),
            "request": text("request"), "user": text("user"), "site": text("site"),
            "environment": {"host": text("host")}, "activity": activity,
            "attributes": {text("attribute"): text("value")},
            "body": {text("key"): text("value"), "logs": [{text("log"): text("value")}]}, **more}


def write(path, lines):
    with open(path, "w", encoding="utf-8") as file:
        for it in lines:
            # As other hosts may write them: not escaped.
            file.write(json.dumps(it, ensure_ascii=False) + "\n")
        file.write("no line" + "\x9b\u202e" + " of a log\n")


def on_terminal(arguments):
    """What comes out of both streams, and the status."""
    leader, follower = pty.openpty()
    environment = {**os.environ, "NO_COLOR": "1", "TERM": "xterm"}
    program = subprocess.Popen(arguments, stdin=subprocess.DEVNULL, stdout=follower,
                               stderr=follower, env=environment)
    os.close(follower)
    output = b""
    while True:
        try:
            part = os.read(leader, 65536)
        except OSError:  # the program has ended
            break
        if not part:
            break
        output += part
    os.close(leader)
    return output.decode("utf-8"), program.wait()


def harmful(output):
    return [letter for letter in output.replace("\r\n", "\n")
            if letter in HARMFUL or ord(letter) < 0x20 and letter not in "\n\t"]


def main():
    tarnview = sys.argv[1]
    with tempfile.TemporaryDirectory() as folder:
        log = os.path.join(folder, "a.log")
        other = os.path.join(folder, "b.log")
        write(log, [
            line("begin", "serve", 1, 0),
            line("begin", "step", 2, 1, sponsor=1),
            {"time": "2026-03-01T10:00:00.001500Z", "severity": text("warn"),
             "message": text("a message"), "pid": 1, "tid": 1},
            line("end", "step", 2, 2, sponsor=1, result=text("bad")),
            line("end", "serve", 1, 3),
            line("begin", "open", 3, 4),
            line("end", "gone", 4, 5)])
        write(other, [line("begin", "serve", 5, 0), line("end", "serve", 5, 9)])
        with open(other, "r+", encoding="utf-8") as file:
            changed = file.read().replace("host" + NASTY[:1], "other" + NASTY[:1])
            changed = changed.replace("hosthost", "other")
            file.seek(0)
            file.write(changed)
        name = text("step")
        tables = ["top", "path", "failures", "histogram", "heat", "open", f"callers\0{name}"]
        commands = [[*command.split("\0"), *how] for command in tables
                    for how in ([], ["--csv"], ["--json"])]
        commands += [["compare", *how, "--at", "2026-03-01T10:00:00.001"]
                     for how in ([], ["--csv"], ["--json"])]
        commands += [["tree", "--attributes", "--messages", "--label", "user"],
                     ["tree", "--json", "--messages"], ["show", text("ID2")],
                     ["show", "--json", text("ID2")], ["show", text("none")], ["check"],
                     ["check", "--json"], ["top", "--by", "user,host", "--over", "1s"],
                     ["path", "--by-name"], ["export", "--to", "chrome"],
                     ["export", "--to", "otlp"], ["export", "--to", "speedscope"],
                     ["export", "--to", "folded"], ["top", "--where", text("x")],
                     ["top", "--by", text("x")], ["tree", "--name", text("x")]]
        for command in commands:
            output, status = on_terminal([tarnview, *command, log, other])
            found = harmful(output)
            if found:
                sys.exit(f"{command} prints {set(found)}: {output!r}")
            if status not in (0, 1) and "x" + NASTY + "x" not in command:
                sys.exit(f"{command} ended with {status}: {output}")
        for kind in ("perfetto", "pprof"):
            output, status = on_terminal([tarnview, "export", "--to", kind, log])
            if status != 2 or "--output" not in output:
                sys.exit(f"{kind} is written to a terminal: {output!r}")
        missing = os.path.join(folder, text("none"))
        output, status = on_terminal([tarnview, "top", missing])
        if status != 3 or harmful(output):
            sys.exit(f"a file's name is printed as it is: {output!r}")


main()
