"""Reads raw lines and computes what they say, by the rules of docs/tarnview.md and no code of it."""

import json
import math
import re


def microseconds(text):
    match = re.fullmatch(r"2026-03-(\d\d)T(\d\d):(\d\d):(\d\d)\.(\d{6})Z", text)
    day, hour, minute, second, fraction = map(int, match.groups())
    return (((day * 24 + hour) * 60 + minute) * 60 + second) * 1_000_000 + fraction


class Activity:
    def __init__(self, line):
        activity = line["activity"]
        self.id, self.name = activity["id"], activity["name"]
        self.pid, self.thread = line["pid"], line["tid"]
        self.begin = microseconds(line["time"])
        self.truth = line["body"].get("truth-parent")
        self.skew = line["body"].get("truth-skew", 0)
        self.end = None
        self.children = []
        self.result = None
        self.resources = {}

    def finish(self, line):
        activity = line["activity"]
        self.end = microseconds(line["time"])
        self.result = activity["rk"]
        self.resources = activity.get("res", {})
        self.elapsed_ms = round(activity["elapsed"] * 1000)
        self.exclusive_ms = round(activity["exclusive"] * 1000)
        span = self.end - self.begin
        agrees = self.elapsed_ms * 1000 <= span < self.elapsed_ms * 1000 + 2000
        self.duration = span if agrees else self.elapsed_ms * 1000
        taken_ms = sum(child.elapsed_ms for child in self.children)
        if self.elapsed_ms - taken_ms == self.exclusive_ms:
            self.exclusive = self.duration - sum(child.duration for child in self.children)
        else:
            self.exclusive = self.exclusive_ms * 1000


class Reading:
    """All activities of some files, each of a host, read from its first to its last line."""

    def __init__(self, texts):
        self.activities = []
        self.last = 0           # of all lines
        self.last_activity = 0  # of those of activities
        self.last_of = {}
        running = {}
        for host, text in enumerate(texts):
            for raw in text.splitlines():
                line = json.loads(raw)
                line["pid"] = host, line["pid"]
                time = microseconds(line["time"])
                self.last = max(self.last, time)
                self.last_of[line["pid"]] = max(self.last_of.get(line["pid"], 0), time)
                if "activity" in line:
                    self.last_activity = max(self.last_activity, time)
                    self.take(line, running)
        self.link()

    def take(self, line, running):
        activity = line["activity"]
        key = line["pid"], activity["id"], activity["name"]
        if activity["type"] == "begin":
            begun = running[key] = Activity(line)
            self.activities.append(begun)
            return
        begun = running.pop(key, None)
        if begun is None:  # which a process began that was forked
            original = next(other for other in running.values()
                            if (other.id, other.name, other.pid[0]) ==
                            (activity["id"], activity["name"], line["pid"][0]))
            begun = Activity.__new__(Activity)
            begun.__dict__.update(original.__dict__, pid=line["pid"],
                                  children=list(original.children))
            self.activities.append(begun)
        begun.finish(line)
        # Its time is taken from what the end line names, if that is open on the thread.
        for other in running.values():
            if (other.id == activity.get("sponsor") and other is not begun and
                    other.pid == line["pid"] and other.thread == line["tid"]):
                other.children.append(begun)

    def link(self):
        by_id = {}
        for activity in self.activities:
            by_id.setdefault(activity.id, []).append(activity)
        for activity in self.activities:
            parents = by_id.get(activity.truth, [])
            own = [parent for parent in parents if parent.pid == activity.pid]
            activity.parent = (own or parents or [None])[0]
        self.below = {}
        for activity in self.activities:
            self.below.setdefault(id(activity.parent), []).append(activity)

    def path(self, activity):
        names = []
        while activity:
            names.insert(0, activity.name)
            activity = activity.parent
        return "/".join(names)

    def self_time(self, activity):
        """What no child covers; in true time, for clocks may differ."""
        def span(other):
            length = self.last_activity - other.begin if other.end is None else other.duration
            return other.begin - other.skew, other.begin - other.skew + length
        begin, end = span(activity)
        rest = end - begin
        reached = begin
        for first, last in sorted(span(other) for other in self.below.get(id(activity), [])):
            first, last = max(first, reached), min(last, end)
            rest -= max(last - first, 0)
            reached = max(reached, last)
        return rest

    def table(self, activities=None):
        """For each name what `top` has to say, of all activities or of some."""
        activities = self.activities if activities is None else activities
        rows = {}
        for name in {activity.name for activity in activities}:
            ended = [it for it in activities if it.name == name and it.end is not None]
            spans = sorted(it.duration for it in ended)
            measured = [it.resources for it in ended if it.resources]
            def rank(share):
                return spans[max(math.ceil(share * len(spans)) - 1, 0)] if spans else None
            rows[name] = {
                "count": len(ended),
                "failed": sum(it.result not in ("ok", "early-termination") for it in ended),
                "early_terminations": sum(it.result == "early-termination" for it in ended),
                "open": sum(it.name == name and it.end is None for it in activities),
                "total_seconds": sum(spans) if spans else None,
                "p50_seconds": rank(0.5), "p90_seconds": rank(0.9), "p99_seconds": rank(0.99),
                "max_seconds": rank(1),
                "exclusive_seconds": sum(it.exclusive for it in ended) if ended else None,
                "cpu_exclusive_microseconds":
                    sum(it["ucpu"]["ue"] + it["kcpu"]["ke"] for it in measured) if measured else None,
                "memory_exclusive_bytes":
                    sum(it["alloc"]["ae"] for it in measured) if measured else None}
        return rows
