#!/usr/bin/env python3
"""kyndemo.py [FILE] [OUT]: the Python side of the demo.

Reads the cache that ./build/bin/kyndemo writes (demo.kyn: a mesh "|root|mesh" under a
transform "|root", frames 1 to 30), then writes a small cache of its own (OUT, ripple.kyn by
default) sample by sample, and reads it back.

    ./build/bin/kyndemo demo.kyn
    PYTHONPATH=build/python /usr/bin/python3 examples/kyndemo.py demo.kyn
"""

import sys

import numpy as np

import kyn


def read(path):
    with kyn.open(path, max_samples=4) as cache:  # at most 4 samples in memory
        print(f"{cache.path}: {cache.num_samples} samples, frames {cache.first_time:g} to "
              f"{cache.last_time:g}, written by {cache.application}")
        for node in cache.tree.walk():
            if node.object is not None:
                print(f"  {node.path}: {node.object.kind}")
        mesh = cache["|root|mesh"]
        stored = mesh.positions(sample=cache.sample_index(12.0))  # views the cache's memory
        print("frame 12, stored: vertex 1 at", stored[1])
        print("frame 12.5, linear:", mesh.positions(time=12.5)[1])
        print("frame 12.5, cubic:", mesh.positions(time=12.5, order=3)[1])
        counts, indices = mesh.topology()
        print(f"{len(counts)} faces, {len(indices)} face vertices")
        matrix = cache["|root"].matrix(time=12.5)  # (4, 4), row vectors
        print("frame 12.5, transform translation:", matrix[3, :3])
        print("frame 12.5, vertex 1 in the world:", np.append(stored[1], 1.0) @ matrix)


def write(path):
    side = 8
    x, y = np.meshgrid(np.arange(side, dtype=np.float32), np.arange(side, dtype=np.float32))
    corners = (np.arange(side - 1)[None, :] + side * np.arange(side - 1)[:, None]).ravel()
    quads = np.stack([corners, corners + 1, corners + side + 1, corners + side], axis=1)
    objects = {"|ripple": {"kind": "mesh", "counts": np.full(len(quads), 4),
                           "indices": quads.ravel()}}
    with kyn.Writer(path, objects, samples=24, first_time=1.0, rate=1.0) as writer:
        for frame in range(1, 25):
            z = np.sin(0.5 * x + 0.25 * frame) * np.cos(0.5 * y)
            positions = np.stack([x, y, z], axis=-1).reshape(-1, 3)
            writer.write_sample({"|ripple": {"positions": positions}})
    with kyn.open(path) as cache:
        ripple = cache["|ripple"]
        print(f"wrote {path}: {cache.num_samples} samples of {len(ripple.positions())} vertices;"
              f" bounds at frame 6.5: {ripple.bounds(time=6.5).tolist()}")


if __name__ == "__main__":
    read(sys.argv[1] if len(sys.argv) > 1 else "demo.kyn")
    write(sys.argv[2] if len(sys.argv) > 2 else "ripple.kyn")
