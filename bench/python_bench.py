#!/usr/bin/env python3
"""The Python package's reads against the same reads from C++, on the workloads of
bench/Workloads.h, run by hand:

    cmake -S . -B build-release -DCMAKE_BUILD_TYPE=Release && cmake --build build-release -j2
    PYTHONPATH=build-release/python /usr/bin/python3 bench/python_bench.py build-release

- W1, every sample's positions of the 1,000,000-vertex mesh, cache bound 2: from C++ a
  MeshKynObj's getPositionData at each sample; from Python mesh.positions(sample=s), which
  views the same memory. Target: Python within 1.15x of C++.
- W2, every one of the 10,000 meshes at sample 12, each found by its path: from C++
  findObjectIndex with the previous index plus one as the hint, a MeshKynObj and
  getPositionData; from Python cache.get(path, exact=True).positions(sample=12). Target: within
  3x of C++.

Each repetition times C++ (python_baseline, in its own process) and Python back to back
on files warm in the page cache, the loads left out; the figures are medians over the
repetitions of each side's time and of their ratio.
"""

import os
import shutil
import statistics
import subprocess
import sys
import time

import kyn

import bench_files

W2_MESHES = 10000
W2_SAMPLE = 12


def cpp(baseline, *args):
    result = subprocess.run([baseline, *args], check=True, capture_output=True, text=True)
    return float(result.stdout)


def python_w1(path):
    with kyn.open(path, max_samples=2) as cache:
        mesh = cache["|mesh"]
        count = cache.num_samples
        start = time.perf_counter()
        for s in range(count):
            points = mesh.positions(sample=s)
        elapsed = time.perf_counter() - start
    assert points.shape == (1000000, 3)
    return elapsed


def python_w2(path, names):
    with kyn.open(path) as cache:
        start = time.perf_counter()
        for name in names:
            points = cache.get(name, exact=True).positions(sample=W2_SAMPLE)
        elapsed = time.perf_counter() - start
    assert points.shape == (100, 3)
    return elapsed


def measure(name, repetitions, run_cpp, run_python, target):
    cpp_times, python_times, ratios = [], [], []
    for _ in range(repetitions):
        c, p = run_cpp(), run_python()
        cpp_times.append(c)
        python_times.append(p)
        ratios.append(p / c)
    ratio = statistics.median(ratios)
    print(f"| {name} | {statistics.median(python_times) * 1e3:.2f} ms | "
          f"{statistics.median(cpp_times) * 1e3:.2f} ms | {ratio:.2f} | <= {target}x | "
          f"{bench_files.verdict(ratio <= target)} |", flush=True)


def main():
    args = bench_files.arguments(__doc__.split("\n\n")[0], "/tmp/kyn-python-bench")
    baseline = os.path.join(args.build, "bin", "python_baseline")
    w1, w2 = bench_files.workloads(args.build, args.dir)
    names = [f"|xf_{k:05d}|mesh" for k in range(W2_MESHES)]
    print(f"load average {os.getloadavg()[0]:.2f}, {os.cpu_count()} cores, Python "
          f"{sys.version.split()[0]}")
    print("| Figure | Python | C++ | Ratio | Target | Met |")
    print("|---|---|---|---|---|---|")
    with kyn.open(w1) as cache:
        samples = cache.num_samples
    measure(f"W1 positions of all {samples} samples, max_samples 2", args.repetitions,
            lambda: cpp(baseline, "w1", w1), lambda: python_w1(w1), 1.15)
    measure(f"W2 every mesh at sample {W2_SAMPLE}, found by path", args.repetitions,
            lambda: cpp(baseline, "w2", w2, str(W2_SAMPLE)), lambda: python_w2(w2, names), 3)
    print(f"load average {os.getloadavg()[0]:.2f}")
    if not args.keep:
        shutil.rmtree(args.dir)


if __name__ == "__main__":
    main()
