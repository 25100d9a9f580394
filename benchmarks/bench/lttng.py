"""A peer that needs a session daemon beside it."""

import os
import pathlib
import shutil
import subprocess
import tempfile
import time

from bench.project import LTTNG, PROGRAMS

# How many scopes the program emits in one iteration, and what the shortest records of a scope take: two
# ids, two names and three texts.
SCOPES_OF_AN_ITERATION = 1000
BYTES_AT_LEAST = 75


class LttngSessions:
    """Sessions of LTTng for one case after the other. Starts the daemon if none is there, and ends
    only that one."""

    def __init__(self):
        self.missing = ""
        self._folder = tempfile.TemporaryDirectory(prefix="tarn_bench_lttng_")
        self._environment = dict(os.environ, LTTNG_HOME=self._folder.name)
        self._daemon = None
        if not (PROGRAMS / LTTNG).exists():
            self.missing = "its development package is not installed"
        elif not shutil.which("lttng") or not shutil.which("lttng-sessiond"):
            self.missing = "its tools are not installed"
        elif not self._is_daemon_there():
            self._start_daemon()

    def _lttng(self, *arguments):
        return subprocess.run(["lttng", "--no-sessiond", *arguments], env=self._environment,
                              capture_output=True, text=True, timeout=60)

    def _is_daemon_there(self):
        try:
            return self._lttng("list").returncode == 0
        except subprocess.TimeoutExpired:
            return False

    def _start_daemon(self):
        self._daemon = subprocess.Popen(
            ["lttng-sessiond", "--no-kernel"], env=self._environment,
            stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        for _ in range(50):
            if self._is_daemon_there():
                return
            time.sleep(0.1)
        self.missing = "its session daemon does not run here"

    def close(self):
        if self._daemon is not None and self._daemon.poll() is None:
            self._daemon.terminate()
            self._daemon.wait(timeout=60)
        self._folder.cleanup()

    def run(self, run_case):
        """Calls `run_case` with a session that records, and checks what has come into it. None if
        there can be no such session; `missing` says why then."""
        session = f"tarn-bench-{os.getpid()}"
        with tempfile.TemporaryDirectory(prefix="tarn_bench_trace_") as trace:
            for command in (
                ("create", session, f"--output={trace}"),
                ("enable-channel", "--userspace", "--subbuf-size=1M", "--num-subbuf=8", "bench"),
                ("enable-event", "--userspace", "--channel=bench", "tarn_benchmark:*"),
                ("start",),
            ):
                done = self._lttng(*command)
                if done.returncode:
                    self.missing = f"'lttng {command[0]}' failed: {done.stderr.strip()}"
                    self._lttng("destroy", session)
                    return None
            try:
                result = run_case(self._environment)
                self._lttng("stop")
                listing = self._lttng("list", session).stdout
            finally:
                self._lttng("destroy", session)
            scopes = result.get("iterations", 0) * SCOPES_OF_AN_ITERATION
            bytes_found = sum(file.stat().st_size for file in pathlib.Path(trace).rglob("bench_*"))
            if "error_message" not in result:
                if "Discarded events: 0" not in listing:
                    result["error_message"] = "the session has discarded records"
                elif bytes_found < scopes * BYTES_AT_LEAST:
                    result["error_message"] = f"{bytes_found} bytes for {scopes} scopes"
                result["file_bytes"] = bytes_found / scopes
            return result
