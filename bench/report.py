#!/usr/bin/env python3
"""Turns the raw results of scripts/bench into the Markdown tables.

report.py RESULTS_DIR SRC_DIR DOWNLOAD_MIB UPLOAD_MIB STRACE_DOWNLOAD_MIB STRACE_UPLOAD_MIB MASSIF_MIB
"""
import glob
import json
import os
import re
import statistics
import sys

TOOLS = ["design", "library", "library-c", "http-util", "curl", "wget", "busybox"]
LABELS = {
    "design": "written-design loop (bench/design_loop.c)",
    "library": "library, minimal C host (bench/http_transfer.c)",
    "library-c": "library, same host with device services in C (bench/c_services.c)",
    "http-util": "library, `http-util` CLI",
    "curl": "curl",
    "wget": "GNU wget",
    "busybox": "BusyBox wget",
}


def time_v(path):
    """User+system seconds and peak RSS (KiB) from a /usr/bin/time -v file."""
    text = open(path).read()
    user = float(re.search(r"User time \(seconds\): ([\d.]+)", text).group(1))
    system = float(re.search(r"System time \(seconds\): ([\d.]+)", text).group(1))
    rss = int(re.search(r"Maximum resident set size \(kbytes\): (\d+)", text).group(1))
    return user + system, rss


def strace_calls(path):
    if not os.path.exists(path):
        return None
    for line in open(path):
        fields = line.split()
        if fields and fields[-1] == "total":
            return int(fields[3])
    return None


def collect(res, direction, mib, strace_mib):
    walls = {t: [] for t in TOOLS}
    for path in sorted(glob.glob(os.path.join(res, f"{direction}-*.json"))):
        for r in json.load(open(path))["results"]:
            walls[r["command"]].extend(r["times"])
    rows = {}
    for t in TOOLS:
        if not walls[t]:
            continue
        cpu, rss = [], []
        for path in glob.glob(os.path.join(res, "time", f"{direction}-{t}-*.txt")):
            c, m = time_v(path)
            cpu.append(c)
            rss.append(m)
        calls = strace_calls(os.path.join(res, "strace", f"{direction}-{t}.txt"))
        median = statistics.median(walls[t])
        rows[t] = {
            "runs": len(walls[t]),
            "median": median,
            "min": min(walls[t]),
            "max": max(walls[t]),
            "mbs": mib * 1048576 / 1e6 / median,
            "cpu_gib": statistics.median(cpu) / (mib / 1024) if cpu else None,
            "rss_kib": max(rss) if rss else None,
            "calls_mib": calls / strace_mib if calls is not None else None,
        }
    return rows


def fmt(v, pattern):
    return "n/a" if v is None else format(v, pattern)


def table(title, rows, mib, strace_mib):
    out = [f"### {title}", ""]
    out.append("| tool | runs | wall median s | min s | max s | MB/s | CPU s per GiB | peak RSS KiB "
               f"| system calls per MiB ({strace_mib} MiB under strace) |")
    out.append("|---|---:|---:|---:|---:|---:|---:|---:|---:|")
    for t in TOOLS:
        if t not in rows:
            continue
        r = rows[t]
        out.append(f"| {LABELS[t]} | {r['runs']} | {r['median']:.3f} | {r['min']:.3f} | "
                   f"{r['max']:.3f} | {r['mbs']:.0f} | {fmt(r['cpu_gib'], '.2f')} | "
                   f"{fmt(r['rss_kib'], 'd')} | {fmt(r['calls_mib'], '.0f')} |")
    out.append("")
    if "library" in rows:
        lib = rows["library"]
        ratios = []
        for t in ["design", "library-c", "http-util", "curl", "wget", "busybox"]:
            if t in rows:
                ratios.append(f"{LABELS[t]} {lib['mbs'] / rows[t]['mbs']:.2f}x")
        out.append("Library (minimal C host) speed relative to: " + "; ".join(ratios) +
                   " (median wall times of this run; above 1 = the library is faster).")
        out.append("")
    return out


def massif_tree(lines, i):
    """One node of a massif heap tree at lines[i]: (bytes, frame, children), next index."""
    m = re.match(r"\s*n(\d+): (\d+) (.*)", lines[i])
    count, size, frame = int(m.group(1)), int(m.group(2)), m.group(3)
    children = []
    i += 1
    for _ in range(count):
        child, i = massif_tree(lines, i)
        children.append(child)
    return (size, frame, children), i


def library_bytes(node, is_library):
    """Bytes of a tree allocated with a library function on the stack."""
    size, frame, children = node
    if is_library(frame):
        return size
    return sum(library_bytes(c, is_library) for c in children)


def massif_peaks(path, sources):
    """Peak of the whole process heap, and peak of the library's share."""
    if not os.path.exists(path):
        return None

    def is_library(frame):
        m = re.search(r"\(([\w.]+\.cpp):\d+\)$", frame)
        return (m is not None and m.group(1) in sources) or "libhttp_util.so" in frame

    lines = open(path).read().splitlines()
    total = own = 0
    i = 0
    while i < len(lines):
        line = lines[i]
        if line.startswith("mem_heap_B="):
            total = max(total, int(line.split("=")[1]))
        if re.match(r"\s*n\d+: ", line):
            tree, i = massif_tree(lines, i)
            own = max(own, library_bytes(tree, is_library))
            continue
        i += 1
    return total, own


def main():
    res, src = sys.argv[1], sys.argv[2]
    get_mib, put_mib, sget_mib, sput_mib, massif_mib = (int(a) for a in sys.argv[3:8])
    sources = {os.path.basename(p) for p in glob.glob(os.path.join(src, "**", "*.cpp"), recursive=True)}
    out = ["## Results", ""]
    out += ["```"] + open(os.path.join(res, "machine.txt")).read().splitlines() + ["```", ""]
    get = collect(res, "get", get_mib, sget_mib)
    put = collect(res, "put", put_mib, sput_mib)
    out += table(f"Download of {get_mib} MiB", get, get_mib, sget_mib)
    out += table(f"Upload of {put_mib} MiB", put, put_mib, sput_mib)
    out += ["### Peak heap (valgrind massif, every snapshot detailed, "
            f"{massif_mib} MiB; the heap does not grow with the size)", "",
            "| transfer | host program | whole process, bytes | allocated under the library's "
            "functions, bytes |", "|---|---|---:|---:|"]
    for d in ("get", "put"):
        for p, name in (("transfer", "http-transfer (host emulation)"),
                        ("transfer_c", "http-transfer-c (services in C)")):
            peaks = massif_peaks(os.path.join(res, f"massif-{d}-{p}.out"), sources)
            if peaks:
                out.append(f"| {'download' if d == 'get' else 'upload'} | {name} | {peaks[0]} | "
                           f"{peaks[1]} |")
    out.append("")
    size = os.path.join(res, "size.txt")
    if os.path.exists(size):
        out += ["### Stripped libhttp_util.so", ""]
        out += ["- " + line for line in open(size).read().splitlines()]
        out.append("")
    micro = os.path.join(res, "micro.json")
    if os.path.exists(micro):
        out += ["### Parser micro-benchmarks (Google Benchmark)", "",
                "| benchmark | ns per call (wall) | ns per call (CPU) |", "|---|---:|---:|"]
        for b in json.load(open(micro))["benchmarks"]:
            out.append(f"| {b['name']} | {b['real_time']:.1f} | {b['cpu_time']:.1f} |")
        out.append("")
    print("\n".join(out))


if __name__ == "__main__":
    main()
