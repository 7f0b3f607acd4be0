"""Playback of W1 (bench/Workloads.h: one mesh of 1,000,000 vertices, 48 samples) in a headless
Blender, the add-on's live mode against its Mesh Cache modifier mode. With the build made as the
README says (the benchmarks and the Python package are on by default), from the source tree:

    blender -b --factory-startup --python-exit-code 1 --python bench/blender_bench.py -- build

build is the build directory: build/bin/python_baseline writes W1 into --dir (0.6 GB, and the
modifier's PC2 file as much again; removed at the end unless --keep), and build/share/kyn/blender
holds the add-on, which finds the package. The cache is imported into two scenes, once in each
mode; each repetition then times scene.frame_set over every frame, whole frames (at the samples)
and half frames (between them), in one scene and then the other. frame_set returns once the
scene is evaluated: the handler's reads and writes in live mode, the modifier's reads of the PC2
file in the other, and Blender's evaluation of the mesh in both. The live handler is also timed
alone. The figures are medians over the repetitions; both scenes must end showing what the
package evaluates. Target: live within 1.5x of the modifier."""

import os
import shutil
import statistics
import sys
import time
import types

import bpy
import numpy as np

# Blender does not put a script's folder on the path.
sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import bench_files  # noqa: E402


def import_into(build, scene, path, playback):
    """Imports into `scene`, which need not be the window's."""
    context = types.SimpleNamespace(scene=scene, collection=scene.collection,
                                    view_layer=scene.view_layers[0])
    scene.view_layers[0].depsgraph  # made, so that frame_set evaluates the scene
    start = time.perf_counter()
    build.import_cache(context, path, build.Options(playback=playback))
    return time.perf_counter() - start


def per_frame(scene, frames):
    start = time.perf_counter()
    for frame in frames:
        scene.frame_set(int(frame), subframe=frame - int(frame))
    return (time.perf_counter() - start) / len(frames)


def handler_alone(playback, scene, frames):
    """The add-on's own share of a live frame: its handler, without Blender's evaluation."""
    elapsed = 0.0
    for frame in frames:
        scene.frame_current, scene.frame_subframe = int(frame), frame - int(frame)
        start = time.perf_counter()
        playback.update(scene)
        elapsed += time.perf_counter() - start
    return elapsed / len(frames)


def evaluated_positions(scene):
    ob = next(ob for ob in scene.objects if ob.type == 'MESH')
    mesh = ob.evaluated_get(scene.view_layers[0].depsgraph).data
    co = np.empty(3 * len(mesh.vertices), np.float32)
    mesh.vertices.foreach_get("co", co)
    return co.reshape(-1, 3)


def main():
    args = bench_files.arguments(__doc__.split("\n\n")[0], "/tmp/kyn-blender-bench",
                                 sys.argv[sys.argv.index("--") + 1:])
    sys.path.insert(0, os.path.join(args.build, "share", "kyn", "blender"))
    import io_scene_kyn
    from io_scene_kyn import build, playback

    io_scene_kyn.register()
    (w1,) = bench_files.workloads(args.build, args.dir, ("w1",))
    scenes = {mode: bpy.data.scenes.new(mode) for mode in ("LIVE", "MESH_CACHE")}
    for mode, scene in scenes.items():
        print(f"import, {mode}: {import_into(build, scene, w1, mode):.2f} s", flush=True)

    whole = [float(f) for f in range(48)]
    half = [f + 0.5 for f in range(47)]
    times = {(mode, which): [] for mode in scenes for which in ("whole", "half")}
    for mode, scene in scenes.items():  # a first pass, not timed, warms the files
        per_frame(scene, whole)
    print(f"load average {os.getloadavg()[0]:.2f}, Blender {bpy.app.version_string}", flush=True)
    handler = {"whole": [], "half": []}
    for _ in range(args.repetitions):
        for mode, scene in scenes.items():
            times[mode, "whole"].append(per_frame(scene, whole))
            times[mode, "half"].append(per_frame(scene, half))
        handler["whole"].append(handler_alone(playback, scenes["LIVE"], whole))
        handler["half"].append(handler_alone(playback, scenes["LIVE"], half))
    print(f"load average {os.getloadavg()[0]:.2f}")

    with io_scene_kyn.package.kyn().open(w1) as cache:  # both end where the cache says
        expected = cache["|mesh"].positions(time=46.5)
    for scene in scenes.values():
        assert np.allclose(evaluated_positions(scene), expected, atol=1e-5)

    print("| Frames | Live | of which the handler | Mesh Cache modifier | Ratio | Target | Met |")
    print("|---|---|---|---|---|---|---|")
    for which, label in (("whole", "whole frames, at the samples"),
                         ("half", "half frames, between samples")):
        live = statistics.median(times["LIVE", which])
        modifier = statistics.median(times["MESH_CACHE", which])
        ratio = live / modifier
        print(f"| {label} | {live * 1e3:.1f} ms | {statistics.median(handler[which]) * 1e3:.1f} "
              f"ms | {modifier * 1e3:.1f} ms | {ratio:.2f} | <= 1.5x | "
              f"{bench_files.verdict(ratio <= 1.5)} |")
    if not args.keep:
        shutil.rmtree(args.dir)


main()
