"""One case in a process of its own."""

import json
import subprocess

from bench.project import LTTNG, PROGRAMS


def run_case(program, name, min_time, environment=None):
    """What the benchmark library says about the case: figures, or "error_message"."""
    command = [PROGRAMS / program, f"--benchmark_filter=^{name}$", "--benchmark_format=json",
               f"--benchmark_min_time={min_time}"]
    try:
        done = subprocess.run(command, env=environment, capture_output=True, text=True, timeout=600)
    except subprocess.TimeoutExpired:
        return {"error_message": "took longer than ten minutes"}
    try:
        return json.loads(done.stdout)["benchmarks"][0]
    except (ValueError, LookupError):
        return {"error_message": (done.stderr or "no output").strip()[-500:]}


class Runner:
    """Runs cases, those of LTTng within a session. `sessions` must outlive it."""

    def __init__(self, sessions, min_time):
        self._sessions = sessions
        self._min_time = min_time

    def __call__(self, program, name):
        """The result; None if the case cannot be run here."""
        if program != LTTNG:
            return run_case(program, name, self._min_time)
        if self._sessions.missing:
            return None
        return self._sessions.run(
            lambda environment: run_case(program, name, self._min_time, environment))
