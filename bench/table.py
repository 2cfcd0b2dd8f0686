"""Runs the benchmark programs several times and prints one table.

Each run interleaves the repetitions of a program's benchmarks at random and takes the median of
each; a ratio is formed inside a run, and the table shows the median over the runs.

  table.py PROGRAMS DATA [--runs N] [--repetitions N] [--cpu] [--only PATTERN]

"ours/limit" says how far the path is from its limit; "peer/ours" how many times as fast it is as a
peer.  What each of them does stands at the head of the program's source.  The exit code is 0
whether the targets are met or not.
"""
import argparse
import json
import pathlib
import re
import statistics
import subprocess
import sys

# Path: the program, the most that ours may take of the limit, and the least ratio to each peer.  A
# peer without a target stands for comparison alone.
PATHS = {
    "class load": ("class_load", 1.6, {"ifstream": 2.5, "LMDB": 1.0}),
    "security walk": ("security_walk", 1.3, {"LMDB": None}),
    "number walk": ("security_walk", None, {"LMDB": None}),
    "limits walk": ("flat_walk", 1.15, {"inline": None, "ifstream": None, "fread": None}),
    "positions walk": ("flat_walk", 1.15, {"inline": None, "ifstream": None, "fread": None}),
    "ini parse": ("ini", 1.7, {"SimpleIni": 2.8}),
    "first ini parse": ("ini", 1.7, {"SimpleIni": 2.8}),
    "ini look-up": ("ini", None, {"SimpleIni": 1.5}),
    "tree insert": ("tree", None, {"map": 1.5}),
    "tree find": ("tree", None, {"map": 1.6}),
    "last values 40": ("last_values", 1.3, {"LMDB": 5.0, "pread": None}),
    "last values 128": ("last_values", 2.2, {"LMDB": 5.0, "pread": None}),
    "change walk": ("change_walk", 1.7, {"LMDB": 2.5}),
    "alert walk": ("alert_walk", 0.8,
                   {"LMDB": 1.0, "SQLite": 2.4, "columns": None, "kept": None, "reused": None}),
    "page hit": ("page_cache", 3.0, {"pread": None}),
    "page hit 40": ("page_cache", 3.0, {"pread": None}),
    "data open": ("data_open", None, {}),
    "journal open": ("data_open", None, {}),
    "event": ("log_events", 1.5, {"spdlog": 1.25}),
    "lone event": ("log_events", None, {"spdlog": None}),
    "events 1": ("log_events", None, {"spdlog": 1.4}),
    "events 4": ("log_events", None, {"spdlog": 2.0}),
    "error": ("log_errors", 1.4, {"spdlog": 1.0}),
    "devent off": ("log_off", None, {"spdlog": None}),
    "TraceLine off": ("log_off", None, {"spdlog": None}),
    "heap off": ("trace_off", 1.2, {}),
    "heap off 2": ("trace_off", 1.2, {}),
    "heap on": ("trace_on", None, {"heaptrack": 5.0}),
    "heap on live": ("trace_on", None, {"heaptrack": 1.7}),
    "traffic off": ("trace_off", None, {}),
    "traffic on": ("trace_on", 2.0, {}),
    "translator set": ("translator_set", 1.1, {}),
    "fault caught": ("translator_set", None, {}),
    "stack report": ("postmortem", None, {"gdb": None}),
    "mini dump": ("postmortem", None, {"gdb": None}),
    "store to eye": ("store_to_eye", 1.25, {"last": None, "pread": None, "LMDB": None}),
}
# Programs whose benchmarks tell their own time: there is no processor time instead.
OWN_TIME = {"store_to_eye", "log_events"}
# What a benchmark counts beside its time.
COUNTERS = ("allocations", "system calls", "mapped bytes")
NANOSECONDS = {"ns": 1, "us": 1e3, "ms": 1e6, "s": 1e9}


def measure(program, data, repetitions, clock, result):
    """Median time in nanoseconds of each benchmark of a program, by (path, name); what it counts
    stands under (path, name, counter)."""
    subprocess.run([program, "--benchmark_enable_random_interleaving=true",
                    f"--benchmark_repetitions={repetitions}", "--benchmark_min_time=0.1",
                    "--benchmark_report_aggregates_only=true", "--benchmark_format=console",
                    f"--benchmark_out={result}", "--benchmark_out_format=json", data],
                   check=True, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    times = {}
    for entry in json.loads(result.read_text())["benchmarks"]:
        if entry.get("error_occurred"):
            sys.exit(f"{entry['name']}: {entry['error_message']}")
        if entry["aggregate_name"] == "median":
            path, name = entry["run_name"].split("/")[:2]
            times[path, name] = entry[clock] * NANOSECONDS[entry["time_unit"]]
            times |= {(path, name, counter): entry[counter]
                      for counter in COUNTERS if counter in entry}
    return times


def shown(time):
    for unit, size in (("ms", 1e6), ("us", 1e3)):
        if time >= size:
            return f"{time / size:.4g} {unit}"
    return f"{time:.3g} ns"


def row(path, runs):
    """Cells of one path: the times and ratios as medians over the runs."""
    _, most, peers = PATHS[path]

    def time(name):
        return shown(statistics.median(run[path, name] for run in runs))

    def ratio(above, below):
        return statistics.median(run[path, above] / run[path, below] for run in runs)

    to_limit = ratio("ours", "limit")
    met = [] if most is None else [to_limit <= most]
    targets = [] if most is None else [f"<= {most} limit"]
    for peer, least in peers.items():
        if least is not None:
            met.append(ratio(peer, "ours") >= least)
            targets.append(f">= {least} {peer}")
    counted = [f"{runs[-1][path, 'ours', counter]:.0f} {counter}"
               for counter in COUNTERS if (path, "ours", counter) in runs[-1]]
    return [path, time("ours"), time("limit"), f"{to_limit:.2f}",
            ", ".join(f"{peer} {time(peer)}" for peer in peers) or "-",
            ", ".join(f"{ratio(peer, 'ours'):.2f}" for peer in peers) or "-",
            ", ".join(targets) or "-", "-" if not met else "yes" if all(met) else "NO",
            ", ".join(counted) or "-"]


def main():
    parser = argparse.ArgumentParser(description="Runs the benchmarks and prints one table.")
    parser.add_argument("programs", type=pathlib.Path)
    parser.add_argument("data", type=pathlib.Path)
    parser.add_argument("--runs", type=int, default=3)
    parser.add_argument("--repetitions", type=int, default=9)
    parser.add_argument("--only", default="", help="regular expression of programs")
    parser.add_argument("--cpu", action="store_true",
                        help="processor time instead of wall-clock time, for a busy machine")
    options = parser.parse_args()

    programs = sorted({program for program, _, _ in PATHS.values()
                       if re.search(options.only, program)})
    runs = []
    for number in range(options.runs):
        times = {}
        for program in programs:
            clock = "cpu_time" if options.cpu and program not in OWN_TIME else "real_time"
            times |= measure(options.programs / f"bench_{program}", options.data,
                             options.repetitions, clock, options.data / f"{program}.{number}.json")
        runs.append(times)

    table = [["path", "ours", "limit", "ours/limit", "peers", "peer/ours", "target", "met",
              "counted"]]
    table += [row(path, runs) for path in PATHS if PATHS[path][0] in programs]
    widths = [max(len(cells[i]) for cells in table) for i in range(len(table[0]))]
    for cells in table:
        print(" | ".join(cell.ljust(width) for cell, width in zip(cells, widths)).rstrip())


if __name__ == "__main__":
    main()
