"""Which tables there are. Each function returns a table in Markdown, empty if nothing of it was
measured."""

from bench.figures import ALL_IN_ALL, MODES, difference, ratio
from bench.markdown import count, decimal, table, thousands, times


# Rows of the main table: label, case, figure, and the figures of floor, spdlog and LTTng for
# the same part of the work.
def main_rows():
    rows = []
    for cpu in (0, 1):
        label = ", CPU tracking" if cpu else ""
        floor = f"/cpu:{cpu}/threads:1"
        synchronous = ("SpdlogSynchronous/threads:1", "emit_ns")
        asynchronous = "SpdlogAsynchronous/threads:1"
        lttng = ("LttngScope/threads:1", "emit_ns")
        peers = {
            "ScopeOff": (None, None, None),
            "ScopeNobodyListens": (("FloorNobodyListens" + floor, "emit_ns"), None, None),
            "ScopeAsynchronous": (("FloorAsynchronous" + floor, "emit_ns"),
                                  (asynchronous, "emit_ns"), lttng),
            "ScopeToFile": (("FloorSynchronous" + floor, "emit_ns"), synchronous, lttng),
            "ScopeToJournal": (("FloorSynchronous" + floor, "emit_ns"), synchronous, lttng),
            "ScopeToNullSink": (None, None, None),
        }
        for mode, mode_label in MODES.items():
            case = f"{mode}/depth:1/cpu:{cpu}/threads:1"
            rows.append((mode_label + label, case, "emit_ns", *peers[mode]))
            if mode == "ScopeAsynchronous":
                rows.append((ALL_IN_ALL + label, case, "process_ns",
                             ("FloorAsynchronous" + floor, "process_ns"),
                             (asynchronous, "process_ns"), None))
    return rows


def main_table(figures):
    rows = []
    for label, case, key, *peers in main_rows():
        value = figures.value(case, key)
        if value is None:
            continue
        whole = "process_" if key == "process_ns" else ""
        ratios = [ratio(value, figures.value(*peer)) if peer else None for peer in peers]
        rows.append([label, count(value), *(times(each) for each in ratios),
                     decimal(figures.value(case, whole + "allocs")),
                     count(figures.value(case, whole + "alloc_bytes")),
                     count(figures.value(case, "file_bytes") or None)])
    return table("One scope with three short attributes, in one open parent, one thread",
                 ["", "ns", "× floor", "× spdlog", "× LTTng-UST", "allocations",
                  "bytes allocated", "bytes written"], rows)


def peers_table(figures):
    cases = [("floor, nobody listens", "FloorNobodyListens/cpu:0/threads:1"),
             ("floor, nobody listens, CPU tracking", "FloorNobodyListens/cpu:1/threads:1"),
             ("floor, synchronous", "FloorSynchronous/cpu:0/threads:1"),
             ("floor, synchronous, CPU tracking", "FloorSynchronous/cpu:1/threads:1"),
             ("floor, asynchronous", "FloorAsynchronous/cpu:0/threads:1"),
             ("floor, asynchronous, CPU tracking", "FloorAsynchronous/cpu:1/threads:1"),
             ("spdlog, synchronous", "SpdlogSynchronous/threads:1"),
             ("spdlog, synchronous, flushing each line", "SpdlogSynchronousFlushing/threads:1"),
             ("spdlog, asynchronous", "SpdlogAsynchronous/threads:1"),
             ("LTTng-UST, two records", "LttngScope/threads:1")]
    rows = []
    for label, case in cases:
        if figures.value(case, "emit_ns") is None:
            continue
        process = None if case.startswith("Lttng") else figures.value(case, "process_ns")
        rows.append([label, count(figures.value(case, "emit_ns")), count(process),
                     decimal(figures.value(case, "allocs")), count(figures.value(case, "alloc_bytes")),
                     count(figures.value(case, "file_bytes") or None)])
    return table("The peers and the floor, for the same scope",
                 ["", "ns", "ns, all threads", "allocations", "bytes allocated", "bytes written"],
                 rows)


def modes_with_total():
    for mode, label in MODES.items():
        yield mode, label, "emit_ns"
        if mode == "ScopeAsynchronous":
            yield mode, ALL_IN_ALL, "process_ns"


def depth_table(figures):
    rows = []
    for mode, label, key in modes_with_total():
        values = [figures.value(f"{mode}/depth:{depth}/cpu:0/threads:1", key) for depth in (1, 8, 64)]
        if values[1] is not None:
            rows.append([label, *(count(value) for value in values),
                         times(ratio(values[2], values[0]))])
    return table("The same inside 1, 8 and 64 open scopes, ns", ["", "1", "8", "64", "64 : 1"], rows)


THREADS = [("(a) off by name", "ScopeOff/depth:1/cpu:0"),
           ("(b) nobody listens", "ScopeNobodyListens/depth:1/cpu:0"),
           ("(c) asynchronous", "ScopeAsynchronous/depth:1/cpu:0"),
           ("(c) asynchronous, delivery waits meanwhile", "ScopeAsynchronousHeld/depth:1/cpu:0"),
           ("(e) synchronous, to a file", "ScopeToFile/depth:1/cpu:0"),
           ("(f) null sink", "ScopeToNullSink/depth:1/cpu:0"),
           ("(g) synchronous, to a journal", "ScopeToJournal/depth:1/cpu:0"),
           ("floor, synchronous", "FloorSynchronous/cpu:0"),
           ("spdlog, synchronous", "SpdlogSynchronous"),
           ("spdlog, synchronous, flushing each line", "SpdlogSynchronousFlushing"),
           ("spdlog, asynchronous", "SpdlogAsynchronous"),
           ("LTTng-UST", "LttngScope")]


def threads_table(figures):
    rows = []
    for label, case in THREADS:
        values = [figures.value(f"{case}/threads:{threads}", "scopes_per_s") for threads in (1, 2, 4)]
        if values[1] is not None:
            rows.append([label, *(thousands(value) for value in values), times(figures.gain(case))])
    return table("Thousands of scopes a second, emitted by 1, 2 and 4 threads together",
                 ["", "1", "2", "4", "2 : 1"], rows)


def numbers_table(figures):
    rows = []
    for label, case in [("open scopes, nobody listens", "AmongOpenScopes/NobodyListens"),
                        ("open scopes, null sink", "AmongOpenScopes/ToNullSink"),
                        ("contexts, nobody listens", "AmongContexts/NobodyListens"),
                        ("contexts, null sink", "AmongContexts/ToNullSink"),
                        ("names off, off", "AmongNamesOff/Off"),
                        ("names off, nobody listens", "AmongNamesOff/NobodyListens")]:
        values = [figures.value(f"{case}/number:{number}", "emit_ns") for number in (1, 1000, 100000)]
        if values[0] is not None:
            rows.append([label, *(count(value) for value in values),
                         times(ratio(values[2], values[0]))])
    return table("Among so many others, ns", ["", "1", "1000", "100 000", "100 000 : 1"], rows)


def baseline_table(figures):
    rows = []
    for label, case in [("clock read (monotonic)", "BaselineClockRead"),
                        ("atomic add, one thread", "BaselineAtomicAdd/threads:1"),
                        ("atomic add, two threads", "BaselineAtomicAdd/threads:2"),
                        ("thread-local read", "BaselineThreadLocalRead"),
                        ("`getrusage(RUSAGE_THREAD)`", "BaselineGetrusage"),
                        ("a thread's processor time as it is now", "BaselineThreadTimes"),
                        ("`new` and `delete` of 64 bytes", "BaselineNewDelete")]:
        value = figures.value(case, "cpu_time")
        if value is not None:
            rows.append([label, decimal(value)])
    return table("What this machine takes for", ["", "ns"], rows)


def allocation_table(figures):
    rows = []
    for label, kind in [("plain", "plain"), ("counted, memory tracking off", "counted/off"),
                        ("counted, allocations only", "counted/allocations"),
                        ("counted, all", "counted/all")]:
        pairs = []
        for functions in ("MallocFree", "NewDelete"):
            value = figures.pair_of_64_bytes(functions, kind)
            plain = figures.pair_of_64_bytes(functions, "plain")
            pairs += [decimal(value), decimal(difference(value, plain))]
        if pairs[0] != "–" or pairs[2] != "–":
            rows.append([label, *pairs])
    return table("A pair of 64 bytes, in an open scope, ns",
                 ["", "`malloc`, `free`", "more", "`new`, `delete`", "more"], rows)


def sizes_table(figures, sizes):
    rows = []
    if figures.bytes_in_monitor() is not None:
        rows += [["an open scope among 100 000, in the monitor", count(figures.bytes_in_monitor()) + " bytes"],
                 ["an open scope among 100 000, without a monitor",
                  count(figures.bytes_of_open_scope("NobodyListens")) + " bytes"]]
    if sizes:
        for name, value in sizes["stripped bytes"].items():
            rows.append([f"`{name}`, stripped", f"{value / 1024:.0f} KiB"])
        seconds = sizes["seconds to compile a header"]
        for header in sorted(seconds, key=seconds.get, reverse=True)[:3]:
            rows.append([f"`{header}`, to compile alone", f"{seconds[header]:.2f} s"])
    return table("Sizes", ["", ""], rows)
