"""What the figures are compared with."""

from typing import NamedTuple, Optional

from bench.figures import MODES, difference, ratio
from bench.markdown import decimal, table


class Bar(NamedTuple):
    name: str
    found: Optional[float]  # None: not measured
    bar: float
    goal: float  # where it should go
    sense: str = "at most"

    def verdict(self):
        if self.sense == "at least":
            return "met" if self.found >= self.bar else "NOT met"
        if self.found <= self.goal < self.bar:
            return "goal met"
        return "met" if self.found <= self.bar else "NOT met"


def bars(figures, sizes):
    main = "/depth:1/cpu:0/threads:1"
    cpu = "/depth:1/cpu:1/threads:1"

    def value(case, key="emit_ns"):
        return figures.value(case, key)

    yield Bar("(a) ns", value("ScopeOff" + main), 40, 15)
    yield Bar("(a) allocations", value("ScopeOff" + main, "allocs"), 0, 0)
    yield Bar("(b) ns", value("ScopeNobodyListens" + main), 250, 100)
    yield Bar("(c) ns", value("ScopeAsynchronous" + main), 400, 200)
    yield Bar("(c) allocations", value("ScopeAsynchronous" + main, "allocs"), 4, 0)
    yield Bar("(d) ns", value("ScopeAsynchronous" + main, "process_ns"), 3000, 1200)
    yield Bar("(e) spdlog's time, times",
              ratio(value("ScopeToFile" + main), value("SpdlogSynchronous/threads:1")), 2, 1)
    yield Bar("(e) the floor's time, times",
              ratio(value("ScopeToFile" + main), value("FloorSynchronous/cpu:0/threads:1")), 6, 3)
    yield Bar("(g) spdlog's time, times",
              ratio(value("ScopeToJournal" + main), value("SpdlogSynchronous/threads:1")), 1, 0.9)
    yield Bar("(g) the floor's time, times",
              ratio(value("ScopeToJournal" + main), value("FloorSynchronous/cpu:0/threads:1")), 3, 2.5)
    yield Bar("(c) with CPU tracking, ns", value("ScopeAsynchronous" + cpu), 900, 650)
    yield Bar("(e) with CPU tracking, ns", value("ScopeToFile" + cpu), 2200, 1000)
    for mode, label in MODES.items():
        if mode != "ScopeOff":
            yield Bar(f"{label[:3]} CPU tracking beyond two readings, ns",
                      beyond_two_readings(figures, mode + cpu, mode + main), 50, 50)
    for label, case in (("(a)", "ScopeOff"), ("(b)", "ScopeNobodyListens"),
                        ("(c), delivery waits,", "ScopeAsynchronousHeld")):
        yield Bar(f"{label} two threads, times one", figures.gain(case + "/depth:1/cpu:0"),
                  1.8, 1.8, "at least")
    yield Bar("(e) two threads, times one", figures.gain("ScopeToFile/depth:1/cpu:0"), 1, 1, "at least")
    for kind, bar in (("off", 1), ("allocations", 5), ("all", 5)):
        yield Bar(f"tracking {kind}, more for malloc and free, ns",
                  difference(figures.pair_of_64_bytes("MallocFree", "counted/" + kind),
                             figures.pair_of_64_bytes("MallocFree", "plain")), bar, bar)
    yield Bar("an open scope in the monitor, bytes", figures.bytes_in_monitor(), 1024, 1024)
    yield Bar("libtarn.so stripped, KiB",
              sizes["stripped bytes"]["libtarn.so"] / 1024 if sizes else None, 1024, 1024)
    yield Bar("slowest header alone, s",
              max(sizes["seconds to compile a header"].values()) if sizes else None, 0.6, 0.6)


def beyond_two_readings(figures, with_cpu, without):
    """What CPU tracking costs besides reading a thread's processor time twice."""
    more = difference(figures.value(with_cpu, "emit_ns"), figures.value(without, "emit_ns"))
    reading = figures.value("BaselineThreadTimes", "cpu_time")
    return None if None in (more, reading) else more - 2 * reading


def bars_table(figures, sizes):
    rows = [[bar.name, decimal(bar.found), bar.sense, decimal(bar.bar),
             decimal(bar.goal) if bar.goal != bar.bar else "", bar.verdict()]
            for bar in bars(figures, sizes) if bar.found is not None]
    return table("Bars", ["", "found", "", "bar", "goal", ""], rows)
