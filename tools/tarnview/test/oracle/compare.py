#!/usr/bin/env python3
"""Compares what tarnview says about a kind of log with what its raw lines say.

Usage: compare.py TARNVIEW KIND
"""

import json
import os
import subprocess
import sys
import tempfile

import logs
import reader


def run(*arguments):
    done = subprocess.run(arguments, capture_output=True, text=True, check=False)
    if done.returncode != 0:
        sys.exit(f"{arguments} ended with {done.returncode}: {done.stderr}")
    return done.stdout


def equal(what, found, expected):
    if found != expected:
        sys.exit(f"{what}: tarnview says {found}, the lines say {expected}")


def duration(us):
    """For people, as the tables have it."""
    seconds = us / 1e6
    if abs(seconds) < 0.0009995:
        return f"{round(seconds * 1e6)} us"
    number, unit = (seconds * 1e3, "ms") if abs(seconds) < 0.9995 else (seconds, "s")
    size = abs(number)
    return f"{number:.{2 if size < 9.995 else 1 if size < 99.95 else 0}f} {unit}"


def compare_top(tarnview, files, reading):
    rows = {row["name"]: row for row in json.loads(run(tarnview, "top", "--json", *files))}
    expected = reading.table()
    equal("names", sorted(rows), sorted(expected))
    for name, row in expected.items():
        for field, value in row.items():
            found = rows[name][field]
            if field.endswith("_seconds") and found is not None:
                found = round(found * 1e6)
            equal(f"{field} of {name}", found, value)
    return len(rows)


def compare_compare(tarnview, files, reading):
    """The log, parted at the time at which half of its activities have begun."""
    origin = reader.microseconds(logs.stamp(logs.START))
    begins = sorted(it.begin for it in reading.activities)
    at = begins[len(begins) // 2]
    rows = {row["name"]: row for row in map(json.loads, run(
        tarnview, "compare", "--json", "--at", logs.stamp(logs.START + at - origin),
        *files).splitlines())}
    sides = {"old": reading.table([it for it in reading.activities if it.begin < at]),
             "new": reading.table([it for it in reading.activities if it.begin >= at])}
    ended = {name for side in sides.values() for name, row in side.items() if row["count"]}
    equal("names that are compared", sorted(rows), sorted(ended))
    for name, row in rows.items():
        totals = {}
        for side, table in sides.items():
            expected = table.get(name, {"count": 0, "failed": 0})
            for field in ("count", "failed"):
                equal(f"{field} of {name}, {side}", row[f"{field}_{side}"], expected[field])
            for field in ("p50_seconds", "p99_seconds"):
                found = row[f"{field}_{side}"]
                equal(f"{field} of {name}, {side}", found and round(found * 1e6),
                      expected.get(field))
            totals[side] = expected.get("total_seconds"), expected["count"]
        (before, old), (after, new) = totals["old"], totals["new"]
        if old and new:
            cost = (after / new - before / old) * new
            if abs(row["cost_seconds"] * 1e6 - cost) > 1:
                equal(f"cost of {name}", row["cost_seconds"] * 1e6, cost)


def tree_rows(text):
    """Path, elapsed, exclusive and self time of each row."""
    rows, path, columns = [], [], None
    for line in text.splitlines():
        if line.startswith("activity "):
            columns = [line.index(name) + len(name) for name in ("elapsed", "exclusive", "self")]
            first = line.index("elapsed")
            path = []
        elif not line:
            columns = None
        elif columns:
            indent = len(line) - len(line.lstrip())
            path = path[:indent // 2] + [line.split()[0]]
            width = columns[1] - columns[0]
            figures = [line[end - width + 1:end].strip() for end in columns]
            assert first <= columns[0]
            rows.append(("/".join(path), *figures))
    return sorted(rows)


def compare_tree(tarnview, files, reading):
    expected = sorted(
        (reading.path(it),
         *(["?"] * 3 if it.end is None
           else [duration(it.duration), duration(it.exclusive), duration(reading.self_time(it))]))
        for it in reading.activities)
    found = tree_rows(run(tarnview, "tree", "--fold", "0", *files))
    for row, (one, other) in enumerate(zip(found, expected)):
        equal(f"row {row} of the tree", one, other)
    equal("rows of the tree", len(found), len(expected))
    return len(found)


def compare_spans(tarnview, files, reading):
    """The parents, and times to the microsecond, by the ids of an export."""
    spans = []
    for line in run(tarnview, "export", "--to", "otlp", *files).splitlines():
        for resource in json.loads(line)["resourceSpans"]:
            for scope in resource["scopeSpans"]:
                spans += scope["spans"]
    by_id = {span["spanId"]: span for span in spans}
    equal("spans with ids of their own", len(by_id), len(spans))
    def begin(span):
        return int(span["startTimeUnixNano"]) // 1000 - logs.START
    origin = reader.microseconds(logs.stamp(logs.START))
    found = sorted(
        (span["name"], begin(span),
         (int(span["endTimeUnixNano"]) - int(span["startTimeUnixNano"])) // 1000,
         by_id[span["parentSpanId"]]["name"] if "parentSpanId" in span else "",
         begin(by_id[span["parentSpanId"]]) if "parentSpanId" in span else 0)
        for span in spans)
    expected = sorted(
        (it.name, it.begin - origin,
         reading.last_activity + 1 - it.begin if it.end is None else it.duration,
         it.parent.name if it.parent else "", it.parent.begin - origin if it.parent else 0)
        for it in reading.activities)
    for one, other in zip(found, expected):
        equal("a span", one, other)
    equal("spans", len(found), len(expected))


def compare_trace(tarnview, files, reading):
    """Begins and lengths by a trace's complete and asynchronous events, for each process by itself."""
    trace = json.loads(run(tarnview, "export", "--to", "chrome", *files))
    origin = reader.microseconds(logs.stamp(logs.START))
    base = reader.microseconds(trace["otherData"]["begin"]) - origin
    found, ends = [], {}
    for event in trace["traceEvents"]:
        if event["ph"] == "e":
            ends.setdefault((event["pid"], event["id"]), []).append(event["ts"])
    for event in trace["traceEvents"]:
        if event["ph"] == "X":
            length = event["dur"]
        elif event["ph"] == "b":
            length = ends[event["pid"], event["id"]].pop(0) - event["ts"]
        else:
            continue
        found.append((event["pid"], event["name"], event["tid"], event["ts"] + base, length))
    lengths = {}
    for pid, *activity in found:
        lengths.setdefault(pid, []).append(tuple(activity))
    expected = {}
    for it in reading.activities:
        length = reading.last_activity + 1 - it.begin if it.end is None else it.duration
        expected.setdefault(it.pid, []).append((it.name, it.thread, it.begin - origin, length))
    equal("the events of each process", sorted(map(sorted, lengths.values())),
          sorted(map(sorted, expected.values())))


def compare_show(tarnview, files, reading):
    counts = {}
    for it in reading.activities:
        counts[it.id] = counts.get(it.id, 0) + 1
    chosen = [it for it in reading.activities if counts[it.id] == 1]
    for it in chosen[::max(len(chosen) // 12, 1)]:
        text = run(tarnview, "show", it.id, *files)
        fields = {line[2:18].strip(): line[18:] for line in text.splitlines()
                  if line.startswith("  ")}
        if it.end is None:
            equal(f"end of {it.id}", fields["end"], "never ended")
        else:
            equal(f"elapsed of {it.id}", fields["elapsed"], duration(it.duration))
            equal(f"exclusive of {it.id}", fields["exclusive"], duration(it.exclusive))
            equal(f"self of {it.id}", fields["self"], duration(reading.self_time(it)))
        sponsors = text.partition("sponsors, the nearest first\n")[2].split()
        equal(f"sponsor of {it.id}", sponsors[0] if sponsors else "",
              it.parent.id if it.parent else "")


def compare_open(tarnview, files, reading):
    text = run(tarnview, "open", *files)
    found = [line for line in text.splitlines()[1:]
             if not line.startswith("process ") and "process:thread" not in line]
    expected = [it for it in reading.activities if it.end is None]
    equal("what is open", len(found), len(expected))
    for it in expected:
        # Of a process that another one replaced, up to its last line.
        gone = it.pid[1] == 70
        until = reading.last_of[it.pid] if gone else reading.last
        rows = [line for line in found if it.id in line]
        equal(f"rows of {it.id}", len(rows), 1)
        equal(f"time of {it.id}", rows[0].strip().split("  ")[0], duration(until - it.begin))
    return len(found)


def main():
    tarnview, kind = sys.argv[1:]
    with tempfile.TemporaryDirectory() as folder:
        texts = logs.make(kind)
        files = []
        for name, text in texts.items():
            files.append(os.path.join(folder, name))
            with open(files[-1], "w", encoding="utf-8") as file:
                file.write(text)
        reading = reader.Reading(texts.values())
        rows = compare_top(tarnview, files, reading)
        activities = compare_tree(tarnview, files, reading)
        compare_compare(tarnview, files, reading)
        compare_spans(tarnview, files, reading)
        compare_trace(tarnview, files, reading)
        compare_show(tarnview, files, reading)
        running = compare_open(tarnview, files, reading)
    if activities < 3 or (kind == "killed") != (running != 0):
        sys.exit(f"{kind} does not hold what it is to hold")
    print(f"{kind}: {activities} activities of {rows} names agree")


main()
