#!/usr/bin/env python3
"""kyn.dask on W1 of bench/Workloads.h (one mesh of 1,000,000 vertices, 48 samples of 12 MB),
run by hand:

    cmake -S . -B build-release -DCMAKE_BUILD_TYPE=Release && cmake --build build-release -j2
    PYTHONPATH=build-release/python /usr/bin/python3 bench/dask_bench.py build-release

- The per-vertex displacement of examples/displacement.py (the largest distance of each vertex
  from its first sample, over all samples), computed from kyn.dask.from_cache on a LocalCluster
  of one worker process and of two, one thread each, against the same loop over the samples
  through the package in this process. Targets: two workers at least 1.6x faster than one; one
  worker within 1.3x of the loop. The workers run under kyn.dask.worker_memory_config(), as
  the example's do; the same on workers with Dask's own memory settings is shown beside. The
  results must all be equal.
- W1 written in four pieces by kyn.dask.write_in_pieces on the two workers (each piece copies
  its samples from W1 with kyn.Writer), then the four pieces stitched by kyn.stitch against the
  system's cat of the same files. Target: within 1.2x of cat. Before each timing the output is
  removed and sync runs; the pieces are warm in the page cache.
- Where the cores go: the CPU time of the workers' task threads, of their other threads (the
  event loops) and of this process (the client and the scheduler), per computation of the
  displacement on each cluster, and that sum over the cores: the least time in which the
  computation could run with no core ever idle.

Each figure is the median over the repetitions, each repetition timing every side back to back
on files warm in the page cache, after one round that is not counted (the workers import the
package, the allocator warms up). The clusters are started before any timing; a computation's
time counts from from_cache (which opens the file on the client) to the result in this process.
"""

import os

# One thread of numpy's own per process: the workers' parallelism is theirs alone.
for _name in ("OMP_NUM_THREADS", "OPENBLAS_NUM_THREADS", "MKL_NUM_THREADS"):
    os.environ[_name] = "1"

import shutil  # noqa: E402
import statistics  # noqa: E402
import subprocess  # noqa: E402
import sys  # noqa: E402
import time  # noqa: E402

import numpy as np  # noqa: E402

import kyn  # noqa: E402
import kyn.dask  # noqa: E402

# The example's reduction, here and in the workers, which import it by name.
_examples = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "examples")
sys.path.insert(0, _examples)
os.environ["PYTHONPATH"] = os.pathsep.join(filter(None, [_examples,
                                                         os.environ.get("PYTHONPATH")]))
from displacement import Farthest, displacement  # noqa: E402

import bench_files  # noqa: E402


def loop(path):
    """The displacement in this process: sample after sample through the package, each worked
    as the example's blocks work theirs."""
    with kyn.open(path, max_samples=2) as cache:
        mesh = cache["|mesh"]
        farthest = Farthest(mesh.positions(sample=0))
        for s in range(cache.num_samples):
            farthest.add(mesh.positions(sample=s))
    return farthest.largest


def on_cluster(client, path):
    return client.compute(displacement(path, "|mesh")[1]).result()


class CopyW1:
    """produce for write_in_pieces: samples first..last of W1, copied with kyn.Writer."""

    def __init__(self, w1):
        self.w1 = w1

    def __call__(self, first, last, path):
        with kyn.open(self.w1, max_samples=2) as cache:
            mesh = cache["|mesh"]
            counts, indices = mesh.topology()
            declaration = {"|mesh": {"kind": "mesh", "counts": counts, "indices": indices}}
            with kyn.Writer(path, declaration, samples=last - first + 1, first_time=first, rate=1,
                            application="dask_bench", source_file="w1") as writer:
                for s in range(first, last + 1):
                    writer.write_sample({"|mesh": {"positions": mesh.positions(sample=s)}})


# How many computations the CPU time per computation is averaged over.
CPU_COMPUTATIONS = 20


def cpu_per_computation(client, path, computations=CPU_COMPUTATIONS):
    """Where the cores go: the CPU time of each thread over some computations, per computation,
    as (the workers' task threads, the rest of the workers' threads, this process: the
    client and the scheduler) in seconds, and the median wall time. A worker's task thread is
    the one of its threads that worked the most."""
    import psutil

    workers = [psutil.Process(pid) for pid in client.run(os.getpid).values()]
    processes = [psutil.Process()] + workers

    def times():
        return [{t.id: t.user_time + t.system_time for t in p.threads()} for p in processes]

    def forgotten():
        """Waits for the scheduler to let go of the last result: the same graph computed again
        before would be answered from the workers' memory."""
        while client.run_on_scheduler(lambda dask_scheduler: len(dask_scheduler.tasks)):
            time.sleep(0.01)

    forgotten()
    before, walls = times(), []
    for _ in range(computations):
        wall, _ = timed(lambda: on_cluster(client, path))
        walls.append(wall)
        forgotten()
    after = times()
    used = [sorted((after[i][t] - before[i].get(t, 0)) / computations for t in after[i])
            for i in range(len(processes))]
    tasks = [threads[-1] for threads in used[1:]]
    loops = [sum(threads[:-1]) for threads in used[1:]]
    return tasks, loops, sum(used[0]), statistics.median(walls)


def timed(body):
    start = time.perf_counter()
    result = body()
    return time.perf_counter() - start, result


def cleared(path):
    if os.path.exists(path):
        os.remove(path)
    subprocess.run(["sync"], check=True)


def row(name, seconds, baseline="", ratio=None, target="", met=None):
    """A row of the table; `ratio` is the median of the per-repetition ratios."""
    shown = "" if ratio is None else f"{ratio:.2f}"
    print(f"| {name} | {seconds:.3f} s | {baseline} | {shown} | {target} | "
          f"{bench_files.verdict(met)} |",
          flush=True)


def main():
    args = bench_files.arguments(__doc__.split("\n\n")[0], "/tmp/kyn-dask-bench")
    (w1,) = bench_files.workloads(args.build, args.dir, ("w1",))

    import dask
    from distributed import Client, LocalCluster

    def cluster(workers):
        return LocalCluster(n_workers=workers, threads_per_worker=1, dashboard_address=":0",
                            local_directory=args.dir)

    def displacements(c1, c2):
        """The loop's, one worker's and two workers' times of each counted repetition."""
        times = {"loop": [], "one": [], "two": []}
        for repetition in range(args.repetitions + 1):
            t_loop, expected = timed(lambda: loop(w1))
            t_one, got_one = timed(lambda: on_cluster(c1, w1))
            t_two, got_two = timed(lambda: on_cluster(c2, w1))
            assert got_one.tobytes() == expected.tobytes() == got_two.tobytes()
            if repetition:
                for name, seconds in (("loop", t_loop), ("one", t_one), ("two", t_two)):
                    times[name].append(seconds)
        return times

    def figures(times):
        """Medians of the times, and of the ratios one/loop and one/two."""
        loop_s, one_s, two_s = (statistics.median(times[k]) for k in ("loop", "one", "two"))
        slower = statistics.median(o / p for o, p in zip(times["one"], times["loop"]))
        speedup = statistics.median(o / t for o, t in zip(times["one"], times["two"]))
        return loop_s, one_s, two_s, slower, speedup

    print(f"load average {os.getloadavg()[0]:.2f}, {os.cpu_count()} cores, Python "
          f"{sys.version.split()[0]}, numpy {np.__version__}", flush=True)
    # Dask's settings first: a nanny leaves the variables it gives its worker in this process's
    # environment, where every later worker would inherit them.
    with cluster(1) as one, cluster(2) as two, Client(one) as c1, Client(two) as c2:
        dask_defaults = figures(displacements(c1, c2))
    dask.config.set(kyn.dask.worker_memory_config())
    with cluster(1) as one, cluster(2) as two, Client(one) as c1, Client(two) as c2:
        loop_s, one_s, two_s, slower, speedup = figures(displacements(c1, c2))
        cores = [(workers, cpu_per_computation(c, w1)) for workers, c in ((1, c1), (2, c2))]

        # What one process pays to write a piece and to check it, per sample.
        single = os.path.join(args.dir, "w1-copy.kyn")
        cleared(single)
        t_write, _ = timed(lambda: CopyW1(w1)(0, 47, single))
        t_check, report = timed(lambda: kyn.check(single))
        assert report.whole
        os.remove(single)

        pieces_dir = os.path.join(args.dir, "pieces")
        out = os.path.join(args.dir, "w1-stitched.kyn")
        # Pieces kept by an earlier run (--keep) would be found whole and not written again.
        shutil.rmtree(pieces_dir, ignore_errors=True)
        t_pieces, written = timed(lambda: kyn.dask.write_in_pieces(
            CopyW1(w1), out, 0, 47, 4, client=c2, workdir=pieces_dir, keep_pieces=True))
        paths = [kyn.dask._piece_path(pieces_dir, out, a, b) for a, b in written.ranges]
        catted = os.path.join(args.dir, "w1-cat.kyn")
        stitch_times, cat_times = [], []
        for repetition in range(args.repetitions + 1):
            cleared(out)
            t_stitch, _ = timed(lambda: kyn.stitch(out, paths))
            cleared(catted)
            with open(catted, "wb") as target:
                # The stitch flushes its file to disk before it renames it into place: so
                # does the baseline.
                t_cat, _ = timed(lambda: (subprocess.run(["cat", *paths], stdout=target,
                                                         check=True),
                                          os.fsync(target.fileno())))
            if repetition:
                stitch_times.append(t_stitch)
                cat_times.append(t_cat)
        piece_bytes = sum(os.path.getsize(p) for p in paths)
        with kyn.open(out) as joined, kyn.open(w1) as whole:
            assert joined.num_samples == whole.num_samples
            assert all(np.array_equal(joined["|mesh"].positions(sample=s),
                                      whole["|mesh"].positions(sample=s))
                       for s in range(whole.num_samples))
    stitch_s, cat_s = statistics.median(stitch_times), statistics.median(cat_times)
    stitch_ratio = statistics.median(s / c for s, c in zip(stitch_times, cat_times))

    print("| Figure | kyn | Baseline | Ratio | Target | Met |")
    print("|---|---|---|---|---|---|")
    row("Displacement, the loop over the samples in one process", loop_s)
    row("Displacement on one worker", one_s, f"{loop_s:.3f} s the loop", slower,
        "<= 1.3x the loop's time", slower <= 1.3)
    row("Displacement on two workers", two_s, f"{one_s:.3f} s one worker", speedup,
        ">= 1.6x faster than one", speedup >= 1.6)
    d_loop, d_one, d_two, d_slower, d_speedup = dask_defaults
    row("The same with Dask's memory settings: the loop", d_loop)
    row("... on one worker", d_one, f"{d_loop:.3f} s the loop", d_slower)
    row("... on two workers", d_two, f"{d_one:.3f} s one worker", d_speedup)
    row("W1 copied with kyn.Writer in one process (48 samples)", t_write)
    row("kyn.check of that copy", t_check)
    row("W1 in 4 pieces on two workers (copy, check each), then stitched", t_pieces)
    row(f"Stitch of the 4 pieces ({piece_bytes / 1e6:.0f} MB)", stitch_s,
        f"{cat_s:.3f} s cat and fsync", stitch_ratio, "<= 1.2x cat's time", stitch_ratio <= 1.2)
    print(f"\nCPU time per computation of the displacement, over {CPU_COMPUTATIONS} (ms):\n")
    print("| Workers | Task threads | Workers' other threads | Client and scheduler | "
          "All / cores | Wall (median) |")
    print("|---|---|---|---|---|---|")
    for workers, (tasks, loops, client_s, wall) in cores:
        every = sum(tasks) + sum(loops) + client_s
        print(f"| {workers} | {' + '.join(f'{1000 * t:.0f}' for t in tasks)} | "
              f"{' + '.join(f'{1000 * t:.0f}' for t in loops)} | {1000 * client_s:.0f} | "
              f"{1000 * every / os.cpu_count():.0f} | {1000 * wall:.0f} |")
    print(f"load average {os.getloadavg()[0]:.2f}")
    if not args.keep:
        shutil.rmtree(args.dir)


if __name__ == "__main__":
    main()
