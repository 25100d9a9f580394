"""Names of cases, and which of them are measured."""

import re

from bench.project import COUNTING, LTTNG, PROGRAMS, TRACING, call

# What runs unless --all is given: depth, CPU tracking and threads are varied one at a time.
DEFAULT_CASES = re.compile(
    r"Scope\w+/depth:1/cpu:[01]/threads:1|Scope\w+/depth:(8|64)/cpu:0/threads:1"
    r"|Scope\w+/depth:1/cpu:0/threads:\d|Among\w+/\w+/number:\d+|MemoryOfOpenScopes\w+/scopes:100000"
    r"|Floor\w+/cpu:[01]/threads:1|Floor\w+/cpu:0/threads:2|Spdlog\w+/threads:\d|LttngScope/threads:\d"
    r"|Baseline\w+(/threads:\d)?|(MallocFree|NewDelete)/[\w/]+/64/threads:1"
)


def short_name(name):
    """A case's name without what the benchmark library adds to it."""
    return re.sub(r"/(manual_time|real_time|iterations:\d+)", "", name)


def is_wanted(name, pattern, wants_all):
    """Whether a case is measured: its name has the pattern in it, and it is of those that run by
    themselves, or all are wanted."""
    short = short_name(name)
    return bool((wants_all or DEFAULT_CASES.fullmatch(short)) and re.search(pattern, short))


def list_cases(pattern, wants_all):
    """Program and full name of each wanted case, as the programs list them."""
    cases = []
    for program in (TRACING, COUNTING, LTTNG):
        path = PROGRAMS / program
        if path.exists():
            listing = call(path, "--benchmark_list_tests", capture_output=True, text=True).stdout
            cases += [(program, name) for name in listing.split() if is_wanted(name, pattern, wants_all)]
    return cases
