#!/usr/bin/env python3
"""Runs the benchmarks several times and says how each row of work compares with its peers.

The speed of a shared machine changes within seconds. So the rows that are compared with each other
run in a process of their own. With --benchmark_repetitions=N their contestants take turns there, in
a random order, N times, and the median counts; all their set-ups stay in memory meanwhile. The table
shows medians over the runs in nanoseconds, the median of the ratios, and its spread. A lead over a
peer is "reached" only when our slowest run is ahead of the peer's fastest one; "about" stands for
medians that are ahead, or within the bound, while the runs overlap.
"""
import argparse
import json
import platform
import re
import statistics
import subprocess
import sys
import time

SIZES = ("1000", "100000", "1000000")
STANDARD = "std::shared_ptr, make_shared"


def goals():
    """(row, ours, peer or floor, largest ratio of ours to it; None to be ahead of it)"""
    def one(row, peer, limit=None, ours="tolvane"):
        yield row, ours, peer, limit

    for row in ("copy and drop", "copy and drop, one object"):
        yield from one(row, "intrusive_ptr", 1.15)
        yield from one(row, "floor, with the serial", 1.3)
        yield from one(row, STANDARD)
    yield from one("copy and drop, 2 threads", "floor, with the serial", 1.1)
    yield from one("copy and drop, 2 threads", "floor, atomic steps", 0)
    yield from one("move there and back", "intrusive_ptr", 2)
    yield from one("weak to strong and drop", "floor, atomic steps", 1.3)
    yield from one("checked access", "floor, two hops", 2)
    yield from one("make and destroy", "floor, two blocks", 1.1)
    yield from one("make and destroy", "floor, the same means", 1.3)
    yield from one("make and destroy", STANDARD)
    for size in SIZES:
        row = f"touch/1 threads/{size}"
        yield from one(row, "floor, three mutexes", 1.3)
        for peer in ("GDAL", "leveldb", "rocksdb"):
            yield from one(row, peer)
        yield from one(row, "floor, three mutexes", 0, "tolvane, Cache::touch")
    for size in SIZES:
        yield from one(f"touch/2 threads/{size}", "rocksdb", 1)
        yield from one(f"touch/2 threads/{size}", "floor, three mutexes", 1.3)
    yield from one("insert without eviction", "floor, the same means", 1.3)
    for threads in (1, 2):
        for size in SIZES:
            yield from one(f"insert that evicts one/{threads} threads/{size}",
                           "floor, the same means", 1.3)
    for peer in ("QCache with a mutex", "leveldb", "rocksdb", "GDAL"):
        yield from one("insert without eviction", peer)
        for threads in (1, 2):
            for size in SIZES[1:]:
                yield from one(f"insert that evicts one/{threads} threads/{size}", peer)
    yield from one("insert that evicts one/1 threads/1000",
                   "floor, the same means, types by address", 0)
    yield "insert that evicts one, sizes/1 threads/1000000", "tolvane", \
        "insert that evicts one, sizes/1 threads/1000/tolvane", 1.5
    for size in SIZES:
        yield f"insert that evicts one/2 threads/{size}", "tolvane, two domains", \
            f"insert that evicts one/1 threads/{size}/tolvane", 1 / 1.5
        yield f"insert that evicts one/2 threads/{size}", "tolvane, two domains", \
            "floor, the same means, two domains", 1.3
    for peer in ("QCache with a mutex", "leveldb", "rocksdb", "GDAL"):
        for size in SIZES[1:]:
            yield from one(f"insert that evicts one/2 threads/{size}", peer, None,
                           "tolvane, two domains")
    for row in ("insert into domains", "insert into domains that evicts"):
        end = "/1 threads/10000" if "evicts" in row else ""
        for domains in (10, 100, 1000):
            yield f"{row}/{domains}{end}", "tolvane", f"{row}/1{end}/tolvane", 2
    yield from one("message not shown", "floor, an if", 1.5 / 0.6)
    for peer in ("spdlog", "Qt"):
        yield from one("message not shown", peer)
    for threads in (1, 2):
        for peer in ("spdlog", "glog", "Qt"):
            yield from one(f"message shown/{threads} threads", peer)
        yield from one(f"message shown/{threads} threads", "floor, one write", 0)
    for length in ("short", "long"):
        yield from one(f"name of a type/{length}", "std::unordered_map, copy", 1)
    for slots in (8, 64):
        yield from one(f"slot by type/{slots}", "std::unordered_map", 1)
        yield from one(f"slot by type/{slots}", "absl::flat_hash_map", 0)
        yield from one(f"slot by type/{slots}", "floor, by address", 0)
        yield from one(f"interface by type/{slots}", "std::unordered_map, StrongPtr", 1)
    for kind in ("plain", "mixed"):
        for row in ("escape", "escape, reverse"):
            for peer in ("absl::CEscape", "chain of replacements"):
                yield from one(f"{row}/{kind}", peer)
        for row in ("tokens, write", "tokens, read"):
            yield from one(f"{row}/{kind}", "absl::CEscape, StrSplit")
            yield from one(f"{row}/{kind}", "floor, one pass", 1 / 0.8)
    for row in ("words, hit", "words, miss"):
        yield from one(row, "256 pointers", 1)
        yield from one(row, "floor, the same means", 1.3)
        yield from one(row, "std::set")
        yield from one(f"{row}, one by one", "floor, the same means", 1.3)
        for peer in ("256 pointers", "std::set"):
            yield from one(f"{row}, one by one", peer, 0)
    for row in ("words, insert", "words, walk"):
        yield from one(row, "256 pointers", 2)
        yield from one(row, "floor, the same means", 1.3)
    for peer in ("osgDB", "GDAL, identify", "GDAL, by name"):
        yield from one("loader among 100", peer)
    yield from one("loader among 100", "floor, asked in turn", 1.3)
    # A load also notes who was asked and what came of it.
    yield from one("loader among 100", "osgDB", 0, "tolvane, load")


def plain(name):
    """The name of a benchmark without what the benchmark library adds."""
    return re.sub(r"/(iterations:\d+/)?(real_time|manual_time)(/threads:\d+)?$", "", name)


def groups(program, wanted):
    """The rows that are compared with each other: those of all numbers of threads and domains."""
    listed = subprocess.run([program, "--benchmark_list_tests=true"], check=True, text=True,
                            stdout=subprocess.PIPE, stderr=subprocess.DEVNULL).stdout
    rows = {}
    for line in listed.splitlines():
        row = plain(line).rsplit("/", 1)[0]
        if "_time" not in line or not re.search(wanted, line):
            continue
        key = re.sub(r"(?<=sizes)/.*|/\d threads|(?<=domains)/\d+|(?<=evicts)/\d+", "", row)
        if row not in rows.setdefault(key, []):
            rows[key].append(row)
    return list(rows.values())


def run(program, wanted, options):
    """The times of the wanted benchmarks; each group of rows runs by itself."""
    times = {}
    context = {}
    for rows in groups(program, wanted):
        context, more = run_group(program, rows, options)
        times |= more
    return context, times


def run_group(program, rows, options):
    if any(option.startswith("--benchmark_repetitions") for option in options):
        options = ["--benchmark_enable_random_interleaving=true", *options]
    output = subprocess.run(
        [program, "--benchmark_format=json",
         f"--benchmark_filter=^({'|'.join(rows)})/[^/]*/(iterations|real_time|manual_time)",
         *options], check=True, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL).stdout
    data = json.loads(output)
    times = {}
    for entry in data["benchmarks"]:
        if entry["run_type"] != "iteration":
            continue
        name = plain(entry["name"])
        # What a thread was kept from its core by others is not its work; of two threads, and where
        # the program measures by itself, only the clock tells.
        alone = entry["threads"] == 1 and "manual_time" not in entry["name"]
        times.setdefault(name, []).append(entry["cpu_time" if alone else "real_time"])
    return data["context"], {name: statistics.median(all) for name, all in times.items()}


def verdict(ours, theirs, ratios, limit):
    median = statistics.median(ratios)
    if limit is None:
        if max(ours) < min(theirs):
            return "reached"
        return "about" if median < 1 else "not reached"
    if limit == 0:
        return ""
    if max(ratios) <= limit:
        return "reached"
    return "about" if median <= limit else "not reached"


def table(runs):
    rows = []
    for row, ours_name, peer, limit in goals():
        ours_key = f"{row}/{ours_name}"
        peer_key = peer if peer.endswith("/tolvane") else f"{row}/{peer}"
        if ours_key not in runs[0] or peer_key not in runs[0]:
            continue
        ours = [times[ours_key] for times in runs]
        theirs = [times[peer_key] for times in runs]
        ratios = [a / b for a, b in zip(ours, theirs)]
        reach = "ahead" if limit is None else "" if limit == 0 else f"at most {limit:.2f} x"
        name = row if ours_name == "tolvane" else row + ours_name.removeprefix("tolvane")
        rows.append((name, f"{statistics.median(ours):.3g}", peer_key.removeprefix(row + "/"),
                     f"{statistics.median(theirs):.3g}", f"{statistics.median(ratios):.2f}",
                     f"{min(ratios):.2f} to {max(ratios):.2f}", reach,
                     verdict(ours, theirs, ratios, limit)))
    return rows


def others(runs):
    """What no goal is set for: per row the times of the other contestants, beside ours."""
    named = {(row, peer) for row, _, peer, _ in goals()}
    rows = {}
    for key in runs[0]:
        row, name = key.rsplit("/", 1)
        if (row, name) not in named and not name.startswith("tolvane") and \
                f"{row}/tolvane" in runs[0]:
            rows.setdefault(row, []).append(name)
    for row, names in rows.items():
        ours = [times[f"{row}/tolvane"] for times in runs]
        yield row, f"{statistics.median(ours):.3g}", "; ".join(
            f"{name} {statistics.median(times[f'{row}/{name}'] for times in runs):.3g}"
            for name in names)


def main():
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("program")
    parser.add_argument("--runs", type=int, default=3)
    parser.add_argument("--benchmark_filter", default="", help="only the rows that this matches")
    parser.add_argument("--keep", help="writes the times of all runs to this file as well")
    arguments, options = parser.parse_known_args()
    runs = []
    for number in range(arguments.runs):
        print(f"run {number + 1} of {arguments.runs}", file=sys.stderr)
        context, times = run(arguments.program, arguments.benchmark_filter, options)
        runs.append(times)
    if arguments.keep:
        with open(arguments.keep, "w", encoding="utf-8") as file:
            json.dump({"context": context, "runs": runs}, file, indent=1)

    print(f"{time.strftime('%Y-%m-%d')}, {platform.system()} {platform.machine()}, "
          f"{context['num_cpus']} cores at {context['mhz_per_cpu']} MHz, load "
          f"{context['load_avg'][0]:.1f}, {context['compiler']}; "
          f"medians of {arguments.runs} runs in ns, of the processor for one thread, of the clock for two\n")
    head = ("Work", "Tolvane", "beside", "ns", "ratio", "spread", "to reach", "")
    print("| " + " | ".join(head) + " |")
    print("|---|--:|---|--:|--:|---|---|---|")
    for row in table(runs):
        print("| " + " | ".join(row) + " |")
    print("\n| Work | Tolvane | others, without a goal |\n|---|--:|---|")
    for row in others(runs):
        print("| " + " | ".join(row) + " |")
    print("\n| What takes memory | bytes |\n|---|--:|")
    for what, amount in context.items():
        if what.startswith("bytes per "):
            print(f"| {what.removeprefix('bytes per ')} | {amount} |")


if __name__ == "__main__":
    main()
