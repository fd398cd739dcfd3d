"""Builds the programs of bench/, runs them and gathers what they print, as it is."""
import json
import os
import platform
import re
import subprocess
import sys

from figures import Unusable

ROOT = os.path.dirname(os.path.dirname(os.path.dirname(os.path.dirname(os.path.abspath(__file__)))))
PRESETS = {"g++": "bench", "clang": "bench-clang"}
LIBRARIES = ["KestrinBLESDK", "KestrinBLESDK_simulated", "KestrinBLESDK_bluez"]


def run(*words, **options):
    """What a command prints. When it fails, that is shown."""
    result = subprocess.run(words, cwd=ROOT, stdout=subprocess.PIPE, text=True, **options)
    if result.returncode != 0:
        print(result.stdout, file=sys.stderr)
        raise Unusable(f"status {result.returncode}: {' '.join(words)}")
    return result.stdout


def run_aloud(*words):
    """A command that takes long and says how far it is."""
    status = subprocess.run(words, cwd=ROOT).returncode
    if status != 0:
        raise Unusable(f"status {status}: {' '.join(words)}")


def install(packages):
    script = 'source scripts/lib/packages.sh && install_packages "${build_packages[@]}" ' + " ".join(packages)
    run_aloud("bash", "-c", script)


def build(compiler):
    preset = PRESETS[compiler]
    run("cmake", "--preset", preset)
    targets = ["kestrin_benches", *LIBRARIES]
    run("cmake", "--build", "--preset", preset, "--target", *targets, "--", "--quiet")
    return os.path.join(ROOT, "build", preset)


def benchmark_name(run_name):
    parts = [part for part in run_name.split("/") if not part.startswith("iterations:")]
    waits = parts[-1] in ("real_time", "manual_time")
    return "/".join(parts[:-1] if waits else parts), waits


def times(programs, turns, seconds):
    """Nanoseconds, turn by turn: processor time, or real time where a thread waits. Each turn is a process
    of its own, in which what is compared runs close together."""
    found, rates = {}, {}
    for _ in range(turns):
        report = json.loads(run(os.path.join(programs, "kestrin_bench"), f"--benchmark_min_time={seconds}",
                                "--benchmark_format=json", stderr=subprocess.DEVNULL))
        for one in report["benchmarks"]:
            name, waits = benchmark_name(one["run_name"])
            found.setdefault(name, []).append(one["real_time" if waits else "cpu_time"])
            if "items_per_second" in one:
                rates.setdefault(name, []).append(one["items_per_second"])
    return found, rates


def named_figures(program):
    return {name: float(figure) for name, figure in
            (line.split("\t") for line in run(program).splitlines())}


def start_ups(programs, turns):
    printed = run(*(os.path.join(programs, name) for name in
                    ("kestrin_bench_startup", "kestrin_bench_with", "kestrin_bench_without")), str(turns))
    return [[int(figure) for figure in line.split("\t")] for line in printed.splitlines()]


def stripped_sizes(folder):
    sizes = {}
    for library in LIBRARIES:
        stripped = os.path.join(folder, library + ".stripped")
        run("strip", "-o", stripped, os.path.join(folder, "lib", f"lib{library}.so"))
        sizes[library] = os.path.getsize(stripped)
        os.remove(stripped)
    return sizes


def flags_of(folder):
    """The compiler and what it was told for one file of the library."""
    commands = json.loads(run("ninja", "-C", folder, "-t", "compdb"))
    command = next(one["command"] for one in commands if one["file"].endswith("rcp/RcpFrame.cpp"))
    words = [word for word in command.split() if re.match(r"-(O|f|D|U|std)", word)]
    return [word for word in words if not re.match(r"-D(KestrinBLESDK_EXPORTS|KESTRIN_)|-fdiagnostics", word)]


def of_compiler(compiler, turns, seconds):
    folder = build(compiler)
    programs = os.path.join(folder, "bench")
    found, rates = times(programs, turns, seconds)
    command = {"g++": "g++", "clang": "clang++"}[compiler]
    return {
        "version": run(command, "--version").splitlines()[0],
        "flags": flags_of(folder),
        "times": found, "rates": rates,
        "counts": named_figures(os.path.join(programs, "kestrin_bench_counts")),
        "memory": named_figures(os.path.join(programs, "kestrin_bench_memory")),
        "start_ups": start_ups(programs, turns),
        "sizes": stripped_sizes(folder),
    }


def machine():
    with open("/proc/cpuinfo", encoding="utf-8") as file:
        models = re.findall(r"^model name\s*: (.*)", file.read(), re.MULTILINE)
    with open("/etc/os-release", encoding="utf-8") as file:
        system = re.search(r'^PRETTY_NAME="?([^"\n]*)', file.read(), re.MULTILINE)
    return {
        "processor": models[0] if models else platform.machine(),
        "cores": os.cpu_count(),
        "kernel": re.match(r"[\d.]*\d", platform.release()).group(),
        "system": system.group(1) if system else platform.system(),
        "load": round(os.getloadavg()[0], 2),
    }
