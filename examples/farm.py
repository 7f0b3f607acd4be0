#!/usr/bin/env python3
"""farm.py [OUT] [--frames N] [--pieces P] [--side S] [--scheduler ADDRESS]: a simulation
written in pieces on a Dask cluster, then joined into one cache.

Raindrops fall on a pond, a grid of S x S vertices ("|pond|water", under a transform
"|pond"), and their rings spread and fade. Each frame is computed from the drops alone, so
any range of frames can be computed on its own: each piece of the frame range is written by
its own task, as a render farm splits a shot, and kyn.dask.write_in_pieces checks the pieces
and joins them into OUT (ripples.kyn by default). A piece that fails leaves the others in
OUT.pieces, and running again writes only what is missing.

Runs on a LocalCluster of --workers processes (2 by default), or on the scheduler at
ADDRESS, whose workers must see OUT's directory at the same path:

    PYTHONPATH=build/python /usr/bin/python3 examples/farm.py ripples.kyn --frames 240
"""

import argparse
import contextlib
import time

import numpy as np

import kyn
import kyn.dask

DROPS = 12  # raindrops over the whole shot: (frame, x, y, strength), the same for every piece
SPEED = 0.6  # how far a ring runs in a frame, in vertex spacings


def drops(frames, side):
    rng = np.random.default_rng(7)
    return np.column_stack([rng.uniform(1, frames, DROPS), rng.uniform(0, side - 1, (DROPS, 2)),
                            rng.uniform(0.5, 1.5, DROPS)])


def surface(frame, side, rain):
    """The water's height at every vertex at `frame`: a damped ring for each drop that fell."""
    x, y = np.meshgrid(np.arange(side, dtype=np.float32), np.arange(side, dtype=np.float32))
    z = np.zeros_like(x)
    for when, dx, dy, strength in rain:
        age = frame - when
        if age < 0:
            continue
        radius = np.hypot(x - dx, y - dy)
        front = radius - SPEED * age
        ring = np.cos(front) * np.exp(-0.5 * front * front / 4) * np.float32(strength)
        z += (ring * np.exp(-age / 40) / (1 + 0.1 * radius)).astype(np.float32)
    return np.stack([x, y, z], axis=-1).reshape(-1, 3)


def scene(side):
    corners = (np.arange(side - 1)[None, :] + side * np.arange(side - 1)[:, None]).ravel()
    quads = np.stack([corners, corners + 1, corners + side + 1, corners + side], axis=1)
    return {"|pond": {"kind": "transform", "matrix": np.eye(4)},
            "|pond|water": {"kind": "mesh", "counts": np.full(len(quads), 4),
                            "indices": quads.ravel()}}


class Simulation:
    """What each piece's task calls: writes frames first..last of the pond to `path`. An object
    rather than a closure, so that what goes to the workers is small and plain."""

    def __init__(self, frames, side):
        self.frames, self.side = frames, side

    def __call__(self, first, last, path):
        rain = drops(self.frames, self.side)
        with kyn.Writer(path, scene(self.side), samples=last - first + 1, first_time=first,
                        rate=1, application="farm.py", source_file="pond") as writer:
            for frame in range(first, last + 1):
                writer.write_sample({"|pond|water": {"positions": surface(frame, self.side,
                                                                          rain)}})


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n\n")[0])
    parser.add_argument("out", nargs="?", default="ripples.kyn", help="the cache to write")
    parser.add_argument("--frames", type=int, default=240, help="frames 1 to N (240)")
    parser.add_argument("--pieces", type=int, default=8, help="pieces to split them in (8)")
    parser.add_argument("--side", type=int, default=200, help="vertices along a side (200)")
    parser.add_argument("--scheduler", metavar="ADDRESS", help="a running scheduler to use")
    parser.add_argument("--workers", type=int, default=2, help="LocalCluster workers (2)")
    args = parser.parse_args()

    from distributed import Client, LocalCluster

    cluster = (LocalCluster(n_workers=args.workers, threads_per_worker=1)
               if args.scheduler is None else contextlib.nullcontext(args.scheduler))
    with cluster as target, Client(target) as client:
        start = time.perf_counter()
        written = kyn.dask.write_in_pieces(Simulation(args.frames, args.side), args.out, 1,
                                           args.frames, args.pieces, client=client)
        seconds = time.perf_counter() - start
    print(f"wrote {written.path}: {written.samples} frames of {args.side * args.side} vertices "
          f"in {len(written.ranges)} pieces ({len(written.produced)} written now) in "
          f"{seconds:.1f} s")


if __name__ == "__main__":
    main()
