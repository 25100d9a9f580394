"""Measures what a scope costs, beside peers that do the same work, and prints tables in Markdown.

Builds the preset "release" first. Every case runs in a process of its own, once in each round; the
rounds go through all cases in another order each, so that a slow moment of the machine meets all
alike. The tables show medians. Everything that was measured is also written to a JSON file.

Exit status 1 if a benchmark finds that it did not do the work it measures.
"""

import argparse
import contextlib
import json
import pathlib
import signal
import sys

from bench.build import build
from bench.cases import list_cases, short_name
from bench.lttng import LttngSessions
from bench.machine import describe_machine, warm_file_system
from bench.markdown import replace_between
from bench.measure import measure
from bench.project import BUILD, LTTNG, ROOT, say, show_progress
from bench.report import report_text
from bench.run import Runner
from bench.sizes import measure_sizes
from bench.summary import summarise

DOCUMENT = ROOT / "docs" / "benchmarks.md"
BEGIN_MARK = "<!-- what scripts/bench --write-docs puts here -->"
END_MARK = "<!-- until here -->"


def parse_arguments(words=None):
    parser = argparse.ArgumentParser(prog="bench", description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--quick", action="store_true", help="one short round, to see that everything runs")
    parser.add_argument("--rounds", type=int, help="how often each case is measured (7)")
    parser.add_argument("--min-time", type=float, help="seconds for a case in a round, at least (0.05)")
    parser.add_argument("--filter", default="", metavar="REGEX", help="only cases whose name it is found in")
    parser.add_argument("--all", action="store_true",
                        help="every combination of depth, CPU tracking and threads; not one at a time")
    parser.add_argument("--list", action="store_true", help="print the names of the cases and end")
    parser.add_argument("--sizes", action="store_true", help="only the sizes: memory, libraries, headers")
    parser.add_argument("--no-build", action="store_true", help="take the programs as they are")
    parser.add_argument("--json", type=pathlib.Path, default=BUILD.parent / "bench.json", metavar="PATH",
                        help="where everything that was measured goes (%(default)s)")
    parser.add_argument("--from", type=pathlib.Path, metavar="PATH", dest="source",
                        help="measure nothing, print the tables of such a file")
    parser.add_argument("--write-docs", action="store_true", help="put the tables into docs/benchmarks.md too")
    arguments = parser.parse_args(words)
    arguments.rounds = arguments.rounds or (1 if arguments.quick else 7)
    arguments.min_time = arguments.min_time or (0.001 if arguments.quick else 0.05)
    if arguments.sizes:
        arguments.filter = arguments.filter or "^MemoryOfOpenScopes"
    return arguments


def take_figures(arguments):
    def progress(number, place, count):
        if place == 1:
            say(f"Round {number} of {arguments.rounds}: {count} cases")
        show_progress(f"round {number}/{arguments.rounds}, case {place}/{count}")

    machine = describe_machine()
    with contextlib.closing(LttngSessions()) as sessions:
        cases = [case for case in list_cases(arguments.filter, arguments.all)
                 if case[0] != LTTNG or not sessions.missing]
        if not arguments.quick and not arguments.sizes:
            say("Warming the file system")
            warm_file_system(2048)
        samples, errors = measure(cases, arguments.rounds, Runner(sessions, arguments.min_time), progress)
        show_progress("")
        has_lttng = any(case.startswith("Lttng") for case in samples)
        lttng = sessions.missing or ("measured" if has_lttng else "the filter leaves it out")
    with_sizes = arguments.sizes or not arguments.filter
    return {
        "machine": machine,
        "settings": {"rounds": arguments.rounds, "min_time": arguments.min_time},
        "lttng": lttng,
        "figures": summarise(samples),
        "sizes": measure_sizes(1 if arguments.quick else 3) if with_sizes else None,
        "errors": errors,
    }


def write_into_document(text):
    document = replace_between(DOCUMENT.read_text(), BEGIN_MARK, END_MARK, text)
    if document is None:
        sys.exit(f"bench: {DOCUMENT} has no place for the tables")
    DOCUMENT.write_text(document)


def main():
    # Ends the session daemon and removes files, as at any other end.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    arguments = parse_arguments()
    if arguments.source:
        data = json.loads(arguments.source.read_text())
    else:
        if not arguments.no_build:
            build()
        if arguments.list:
            for _, name in list_cases(arguments.filter, arguments.all):
                print(short_name(name))
            return 0
        data = take_figures(arguments)
        arguments.json.parent.mkdir(parents=True, exist_ok=True)
        arguments.json.write_text(json.dumps(data, indent=1) + "\n")
        say(f"Written to {arguments.json}")
    report = report_text(data)
    print(report, end="")
    if arguments.write_docs:
        write_into_document(report)
    return 1 if data["errors"] else 0
