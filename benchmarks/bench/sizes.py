"""Sizes of libraries, and what headers cost that are included."""

import os
import resource
import statistics
import tempfile

from bench.project import BUILD, ROOT, call, say, show_progress


def stripped_bytes(library):
    with tempfile.NamedTemporaryFile() as copy:
        call("strip", "-o", copy.name, library)
        return os.path.getsize(copy.name)


def compile_seconds(header, rounds):
    """Processor time of the compiler, front end only the header in it: the median."""
    times = []
    for _ in range(rounds):
        before = resource.getrusage(resource.RUSAGE_CHILDREN)
        call("g++", "-std=c++17", "-O2", "-x", "c++", "-c", "-o", "/dev/null",
             f"-I{ROOT}/src/cpp/include", f"-I{ROOT}/src/cpp/declarations", "-",
             input=f'#include "{header}"\n', text=True)
        after = resource.getrusage(resource.RUSAGE_CHILDREN)
        times.append(after.ru_utime + after.ru_stime - before.ru_utime - before.ru_stime)
    return statistics.median(times)


def measure_sizes(rounds):
    libraries = {"libtarn.so": BUILD / "src" / "cpp" / "libtarn.so"}
    for host in ("cvlsys", "cvlcoreplatform", "cvlmetrics"):
        libraries[f"lib{host}.so"] = BUILD / "host" / host / f"lib{host}.so"
    include = ROOT / "src" / "cpp" / "include"
    say("Compiling each header alone")
    headers = sorted(str(path.relative_to(include)) for path in include.rglob("*.h"))
    seconds = {}
    for place, header in enumerate(headers):
        show_progress(f"header {place + 1}/{len(headers)}")
        seconds[header] = compile_seconds(header, rounds)
    show_progress("")
    return {
        "stripped bytes": {name: stripped_bytes(path) for name, path in libraries.items()},
        "seconds to compile a header": seconds,
    }
