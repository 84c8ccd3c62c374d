"""Runs one test in a process of its own that can do no harm: with limits of time and memory, in a folder that goes."""

import math
import os
import resource
import signal
import subprocess
import time

MEMORY_MB = 3000
SANITIZERS = f"symbolize=0:handle_abort=0:hard_rss_limit_mb={MEMORY_MB}:max_allocation_size_mb={MEMORY_MB}"


def run_test(program, test, folder, seconds, environment=None):
    """How the test ended: passed, failed, crashed or hung, and how long it took.

    `seconds` is what it takes at other times. The limit is one of the processor's time, for others may use the machine
    as well; a test that waits and does not work is stopped much later.
    """
    cpu_limit = math.ceil(20 * seconds + 10)

    def limit():
        resource.setrlimit(resource.RLIMIT_CPU, (cpu_limit, cpu_limit + 5))
        resource.setrlimit(resource.RLIMIT_CORE, (0, 0))

    settings = dict(os.environ, ASAN_OPTIONS=SANITIZERS, TMPDIR=str(folder))
    settings.update(pair.split("=", 1) for pair in test.environment)
    settings.update(environment or {})
    settings["UBSAN_OPTIONS"] = "symbolize=0"
    begin = time.monotonic()
    process = subprocess.Popen(
        [str(program), *test.arguments],
        cwd=folder,
        env=settings,
        stdin=subprocess.DEVNULL,
        stdout=subprocess.DEVNULL,
        stderr=subprocess.DEVNULL,
        start_new_session=True,
        preexec_fn=limit,
    )
    try:
        code = process.wait(timeout=120 + 100 * seconds)
    except subprocess.TimeoutExpired:
        code = None
    end_group(process)
    return ending(code), time.monotonic() - begin


def end_group(process):
    """Ends what the test has started and left, and the test itself if it still runs."""
    try:
        os.killpg(process.pid, signal.SIGKILL)
    except (ProcessLookupError, PermissionError):
        pass
    process.wait()


def ending(code):
    if code == 0:
        return "passed"
    if code is None or code == -signal.SIGXCPU:
        return "hung"
    return "failed" if code == 1 else "crashed"
