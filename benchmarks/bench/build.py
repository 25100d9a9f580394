"""Builds the programs that measure."""

import os
import subprocess
import sys

from bench.project import BUILD, COUNTING, LTTNG, ROOT, TRACING, call, say


def build():
    call(ROOT / "scripts" / "install-deps", "build", stdout=sys.stderr)
    if subprocess.run([ROOT / "scripts" / "install-deps", "bench"], stdout=sys.stderr).returncode:
        say("Going on without the packages that only a peer needs.")
    environment = dict(os.environ, CCACHE_BASEDIR=str(ROOT), CCACHE_NOHASHDIR="1")
    options = {"cwd": ROOT, "stdout": sys.stderr, "env": environment}
    call("cmake", "--preset", "release", **options)
    targets = [TRACING, COUNTING]
    if LTTNG in (BUILD / "build.ninja").read_text():
        targets.append(LTTNG)
    call("cmake", "--build", "--preset", "release", "--target", *targets, **options)
