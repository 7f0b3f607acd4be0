#!/usr/bin/env python3
"""displacement.py CACHE [OBJECT] [--save FILE.npy] [--scheduler ADDRESS]: how far each vertex
of a mesh gets from where it is at the first sample, over all samples, computed on a Dask
cluster.

The positions come from kyn.dask.from_cache, a lazy array of (samples, vertices, 3) in blocks
of about 64 MB. Each block's task reads its samples and the first sample from the file in its
worker and works them there: only rows of one float per vertex move between the workers, and
only the result comes back. OBJECT defaults to the first mesh of the cache.

Runs on a LocalCluster of --workers processes (2 by default), or on the scheduler at
ADDRESS, whose workers must see CACHE at the same path:

    PYTHONPATH=build/python /usr/bin/python3 examples/displacement.py ripples.kyn
"""

import argparse
import contextlib
import time

import dask
import dask.array as da
import numpy as np

import kyn
import kyn.dask


class Farthest:
    """Per vertex, the largest distance from `first` over the points given to `add`. Each
    sample is worked in two buffers made once, so that a sample costs no allocation: on a
    worker, whose allocator gives memory back to the system at once, fresh temporaries of a
    million vertices would cost more than the arithmetic."""

    def __init__(self, first):
        self.first = first
        self.largest = np.zeros(len(first), first.dtype)
        self.moved = np.empty_like(first)
        self.distance = np.empty_like(self.largest)

    def add(self, points):
        np.subtract(points, self.first, out=self.moved)
        np.multiply(self.moved, self.moved, out=self.moved)
        self.moved.sum(axis=-1, out=self.distance)
        np.sqrt(self.distance, out=self.distance)
        np.maximum(self.largest, self.distance, out=self.largest)


def largest_in_block(block, first):
    """Per vertex, the largest distance from the first sample (`first`, a block that holds
    it) over the samples of one block, as a block of shape (1, vertices, 1). It keeps the
    axes of the positions, so that Dask fuses it with the reads before it and the first step
    of the reduction after it into one task."""
    farthest = Farthest(first[0])
    for points in block:
        farthest.add(points)
    return farthest.largest[np.newaxis, :, np.newaxis]


def first_per_block(path, object_path, positions):
    """The first sample once for each block of `positions`, as an array with a block of its
    own for each: every block's task then reads it from the file itself, where one shared
    block would be sent from worker to worker."""
    return kyn.dask.from_cache(path, object_path, samples=[0] * positions.numblocks[0],
                               samples_per_chunk=1)


def largest_displacement(positions, firsts):
    """Per vertex, the largest distance from its first sample over all samples: a dask array
    of (vertices,), from one of (samples, vertices, 3) and its first_per_block. Each block
    gives its own largest, and the blocks' rows are reduced to one."""
    blocks, vertices = positions.numblocks[0], positions.shape[1]
    rows = da.map_blocks(largest_in_block, positions, firsts,
                         chunks=((1,) * blocks, (vertices,), (1,)),
                         meta=np.empty((0, 0, 0), positions.dtype))
    return rows.max(axis=(0, 2))


def displacement(path, object_path):
    """The object's positions as a lazy array, and the largest displacement of each of its
    vertices from the first sample, computed from them as a lazy array of (vertices,)."""
    positions = kyn.dask.from_cache(path, object_path)
    return positions, largest_displacement(positions,
                                           first_per_block(path, object_path, positions))


def first_mesh(path):
    with kyn.open(path) as cache:
        for obj in cache.objects:
            if obj.kind == "mesh":
                return obj.path
    raise SystemExit(f"{path} holds no mesh: give the object's path")


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("cache", help="the cache file")
    parser.add_argument("object", nargs="?", help="the object's path (the first mesh)")
    parser.add_argument("--save", metavar="FILE", help="save the displacements as a .npy file")
    parser.add_argument("--scheduler", metavar="ADDRESS", help="a running scheduler to use")
    parser.add_argument("--workers", type=int, default=2, help="LocalCluster workers (2)")
    args = parser.parse_args()
    path = args.object or first_mesh(args.cache)

    from distributed import Client, LocalCluster

    # Workers that keep the memory of one block for the next (see docs/scale.md).
    dask.config.set(kyn.dask.worker_memory_config())
    cluster = (LocalCluster(n_workers=args.workers, threads_per_worker=1)
               if args.scheduler is None else contextlib.nullcontext(args.scheduler))
    with cluster as target, Client(target) as client:
        positions, largest = displacement(args.cache, path)
        start = time.perf_counter()
        moved = client.compute(largest).result()
        seconds = time.perf_counter() - start
    far = int(np.argmax(moved))
    print(f"{path}: {positions.shape[1]} vertices over {positions.shape[0]} samples "
          f"({positions.nbytes / 1e6:.1f} MB) in {seconds:.2f} s; the farthest, vertex {far}, "
          f"moves {moved[far]:.4g}; on average {moved.mean():.4g}")
    if args.save:
        np.save(args.save, moved)


if __name__ == "__main__":
    main()
