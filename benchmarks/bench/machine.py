"""The machine that is measured on."""

import datetime
import os
import pathlib
import re
import subprocess
import tempfile

from bench.project import ROOT, call, say


def output_of(*command):
    try:
        return call(*command, capture_output=True, text=True).stdout.strip()
    except (OSError, subprocess.CalledProcessError):
        return ""


def describe_machine():
    model = re.search(r"model name\s*:\s*(.*)", pathlib.Path("/proc/cpuinfo").read_text())
    system = re.search(r'PRETTY_NAME="(.*)"', pathlib.Path("/etc/os-release").read_text())
    folder = tempfile.gettempdir()
    return {
        "processor": model.group(1) if model else "unknown",
        "processors": os.cpu_count(),
        "system": system.group(1) if system else "unknown",
        "kernel": os.uname().release,
        "compiler": output_of("g++", "--version").splitlines()[0],
        "file system": output_of("df", "--output=fstype", folder).split()[-1],
        "load when it began": round(os.getloadavg()[0], 1),
        "date": datetime.date.today().isoformat(),
        "commit": output_of("git", "-C", ROOT, "describe", "--always", "--dirty"),
    }


def warm_file_system(mebibytes):
    """Room that a file system has never written to is slower to write than what a deleted file left."""
    block = b"x" * (1 << 20)
    with tempfile.NamedTemporaryFile(prefix="tarn_bench_warm_", buffering=0) as file:
        try:
            for _ in range(mebibytes):
                file.write(block)
        except OSError as error:
            say(f"Warming the file system ended early: {error}")
