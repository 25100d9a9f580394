"""Where things are in the tree, messages, starting other programs."""

import pathlib
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent.parent
BUILD = ROOT / "build" / "release"
PROGRAMS = BUILD / "benchmarks"

TRACING = "tarn_benchmarks"
COUNTING = "tarn_counted_new_benchmarks"
LTTNG = "tarn_lttng_benchmarks"


def say(text):
    print(text, file=sys.stderr, flush=True)


def show_progress(text):
    """One line that changes, where somebody watches."""
    if sys.stderr.isatty():
        print(f"\r{text}\033[K", end="", file=sys.stderr, flush=True)


def call(*command, **options):
    return subprocess.run([str(part) for part in command], check=True, **options)
