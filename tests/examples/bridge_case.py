"""Runs programs of other languages against the bridge, a library for Linux that hands their calls to the DLL."""

import os
import subprocess

bridge = []  # the bridge's file


def environment(disk=None):
    """The bridge has the sanitizers of the host build, whose run-time must then be loaded first. Leaks are those of
    interpreters; the machine looks after the library's own."""
    runtime = subprocess.run(
        ["clang-19", "-print-file-name=libclang_rt.asan-x86_64.so"], capture_output=True, text=True, check=True
    ).stdout.strip()
    variables = {
        "LD_PRELOAD": runtime,
        "LD_LIBRARY_PATH": os.path.dirname(bridge[0]),
        "ASAN_OPTIONS": "detect_leaks=0",
    }
    if disk is not None:
        variables["KK_EXAMPLE_DISK"] = disk
    return {**os.environ, **variables}


def run(*command, disk=None):
    return subprocess.run(command, env=environment(disk), capture_output=True, text=True, timeout=120, check=False)


def compile_rust(source, program, *options):
    """Undefined symbols of the bridge are those of the sanitizers."""
    subprocess.run(
        ["rustc", "--edition", "2021", "-D", "warnings", "-L", os.path.dirname(bridge[0]),
         "-C", "link-args=-Wl,--allow-shlib-undefined", *options, "-o", program, source],
        check=True,
    )


def compile_csharp(program, *sources):
    subprocess.run(["mcs", "-unsafe", "-warnaserror", f"-out:{program}", *sources], check=True)
