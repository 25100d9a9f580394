"""What was measured, by case and name of the figure. What was not measured is None, and so is what
would be computed from it."""

# Each mode of a scope with its label.
MODES = {
    "ScopeOff": "(a) off by name, 1000 other names off",
    "ScopeNobodyListens": "(b) nobody listens",
    "ScopeAsynchronous": "(c) asynchronous, the emitting thread",
    "ScopeToFile": "(e) synchronous, both lines in the file",
    "ScopeToNullSink": "(f) monitor to a null sink",
    "ScopeToJournal": "(g) synchronous, both lines in the journal",
}
ALL_IN_ALL = "(d) asynchronous, the process until both lines are in the file"


class Figures:
    """The medians of a run, and what several tables compute from them."""

    def __init__(self, medians):
        self._medians = medians

    def value(self, case, key):
        try:
            return self._medians[case][key]["median"]
        except KeyError:
            return None

    def gain(self, case):
        """How many times as many scopes two threads emit as one does."""
        return ratio(self.value(case + "/threads:2", "scopes_per_s"),
                     self.value(case + "/threads:1", "scopes_per_s"))

    def pair_of_64_bytes(self, functions, kind):
        """Nanoseconds to allocate 64 bytes and to free them."""
        return self.value(f"{functions}/{kind}/64/threads:1", "cpu_time")

    def bytes_of_open_scope(self, kind):
        return self.value(f"MemoryOfOpenScopes{kind}/scopes:100000", "bytes_per_open_scope")

    def bytes_in_monitor(self):
        """What the monitor alone keeps of an open scope."""
        return difference(self.bytes_of_open_scope("InMonitor"),
                          self.bytes_of_open_scope("NobodyListens"))


def ratio(above, below):
    return None if above is None or not below else above / below


def difference(value, other):
    return None if None in (value, other) else value - other
