"""The add-on in a headless Blender: imports a cache written here and compares what Blender
evaluates, frame by frame and between samples, with what the kyn package evaluates.

    blender -b --factory-startup --python-exit-code 1 --python test_import.py -- MODE ADDON_DIR

MODE is LIVE or MESH_CACHE; ADDON_DIR holds io_scene_kyn, which finds the kyn package. Vertices,
transform matrices and NURBS control points are compared bit for bit in float32, except the
Mesh Cache modifier's positions between samples: the modifier blends linearly by itself, within
1e-6 of the package's blend. Then the .blend is saved and opened again and plays the same, and
a frame rendered with the Workbench engine holds the mesh. The import's options are tried
once."""

import math
import os
import shutil
import sys
import tempfile

import bpy
import numpy as np
from mathutils import Vector

MODE, ADDON_DIR = sys.argv[sys.argv.index("--") + 1:]
sys.path.insert(0, ADDON_DIR)
import io_scene_kyn  # noqa: E402

kyn = io_scene_kyn.package.kyn()

# Samples lie at 1, 1.5, 2, 2.5 and 3; before the first, the first one shows.
TIMES = [1.0, 1.25, 1.5, 2.0, 2.75, 3.0, 3.5, 0.75]
SIDE = 4  # the mesh is a grid of SIDE x SIDE vertices


def write_cache(path):
    x, y = np.meshgrid(np.arange(SIDE, dtype=np.float32), np.arange(SIDE, dtype=np.float32))
    grid = np.stack([x.ravel(), y.ravel(), np.zeros(SIDE * SIDE, np.float32)], axis=1)
    counts, indices = [], []
    for j in range(SIDE - 1):
        for i in range(SIDE - 1):
            v = j * SIDE + i
            counts.append(4)
            indices += [v, v + 1, v + SIDE + 1, v + SIDE]
    normals = np.float32([[0.6, 0, 0.8]] * (SIDE * SIDE))
    objects = {
        "|rig": "transform",
        "|rig|mesh": {"kind": "mesh", "counts": counts, "indices": indices, "normals": normals,
                      "attributes": {"uv": grid[:, :2] / (SIDE - 1)}},
        "|rig|loc": "locator",
        # Stored without the leading "|": the tree shows it at "|spin", playback finds "bare|spin".
        "bare|spin": "transform",
        "|curve": {"kind": "nurbscurve", "degree": 3, "form": "kOpen",
                   "knots": np.float64([0, 0, 0, 1, 2, 2, 2])},
        "|surface": {"kind": "nurbssurface", "degree": [2, 2], "form": ["kPeriodic", "kOpen"],
                     "knots_u": np.float64(np.arange(7)), "knots_v": np.float64([0, 0, 1, 2, 2]),
                     "positions": np.float32(np.random.default_rng(1).random((16, 3)))},
        "|odd": {"kind": "nurbscurve", "degree": 2, "form": "kOpen",
                 "knots": np.float64([0, 0, 1, 3, 3]), "positions": np.zeros((4, 3), np.float32)},
    }
    with kyn.Writer(path, objects, samples=5, first_time=1, rate=2) as writer:
        for s in range(5):
            a = 0.4 * s
            m = np.eye(4)
            m[:2, :2] = [[math.cos(a), math.sin(a)], [-math.sin(a), math.cos(a)]]
            m[1, 0] += 0.25  # a shear, which Blender's location, rotation and scale cannot hold
            m[3, :3] = [s, 0.5 * s, 0.1]
            wave = grid + np.float32([0, 0, 0.3]) * np.sin(grid[:, :1] + s, dtype=np.float32)
            curve = np.float32([[i, (i * s) % 3, 0.5 * s] for i in range(5)])
            writer.write_sample({"|rig": {"matrix": m}, "bare|spin": {"matrix": m @ m},
                                 "|rig|mesh": {"positions": wave}, "|curve": {"positions": curve}})


def evaluated_positions(ob):
    mesh = ob.evaluated_get(bpy.context.evaluated_depsgraph_get()).data
    co = np.empty(3 * len(mesh.vertices), np.float32)
    mesh.vertices.foreach_get("co", co)
    return co.reshape(-1, 3)


def spline_points(ob):
    points = ob.data.splines[0].points
    co = np.empty(4 * len(points), np.float32)
    points.foreach_get("co", co)
    return co.reshape(-1, 4)


def check_playback(cache, objects, times):
    rig, mesh, curve = (cache[p] for p in ("|rig", "|rig|mesh", "|curve"))
    stored = set(cache.times.tolist())
    for frame in times:
        bpy.context.scene.frame_set(int(frame), subframe=frame - int(frame))
        where = f"{MODE} at frame {frame}"
        time = max(frame, cache.first_time)
        expected = mesh.positions(time=time)
        got = evaluated_positions(objects["|rig|mesh"])
        if MODE == "LIVE" or min(time, cache.last_time) in stored:
            assert np.array_equal(got, expected), f"{where}: positions differ"
        else:
            assert np.allclose(got, expected, rtol=0, atol=1e-6), f"{where}: positions differ"
        m = np.float32(rig.matrix(time=time).T)
        assert np.array_equal(np.float32(objects["|rig"].matrix_parent_inverse), m), where
        spin = np.float32(cache["bare|spin"].matrix(time=time).T)
        assert np.array_equal(np.float32(objects["bare|spin"].matrix_parent_inverse), spin), where
        assert np.array_equal(spline_points(objects["|curve"]),
                              np.float32(curve.control_points(time=time))), where
        # The mesh goes with its transform, under the import's root.
        dg = bpy.context.evaluated_depsgraph_get()
        world = np.array(objects["|rig|mesh"].evaluated_get(dg).matrix_world)
        root = np.array(objects["|rig"].parent.matrix_world)
        assert np.allclose(world, root @ m, atol=1e-6), f"{where}: the mesh's world matrix"


def check_import(cache, objects, report):
    mesh_ob = objects["|rig|mesh"]
    assert objects["|rig|loc"].type == 'EMPTY' and objects["|rig|loc"].parent == objects["|rig"]
    assert "|odd" not in objects and "|odd: left out: its knots are not evenly spaced" in report
    scene = bpy.context.scene
    assert (scene.frame_start, scene.frame_end) == (1, 3)

    mesh, source = mesh_ob.data, cache["|rig|mesh"]
    counts, indices = source.topology()
    loops = np.empty(len(mesh.loops), np.int32)
    mesh.loops.foreach_get("vertex_index", loops)
    totals = np.empty(len(mesh.polygons), np.int32)
    mesh.polygons.foreach_get("loop_total", totals)
    assert np.array_equal(loops, indices) and np.array_equal(totals, counts)
    uv = np.empty(2 * len(mesh.loops), np.float32)
    mesh.uv_layers["uv"].data.foreach_get("uv", uv)
    assert np.array_equal(uv.reshape(-1, 2), source.attribute("uv")[indices])
    mesh.calc_normals_split()
    normals = np.empty(3 * len(mesh.loops), np.float32)
    mesh.loops.foreach_get("normal", normals)
    # Blender stores custom normals in a compact form of its own.
    assert np.allclose(normals.reshape(-1, 3), source.normals()[indices], atol=1e-3)

    surface, net = objects["|surface"].data.splines[0], cache["|surface"].control_points()
    assert (surface.point_count_u, surface.point_count_v, surface.order_u, surface.order_v,
            surface.use_cyclic_u, surface.use_endpoint_v) == (4, 4, 3, 3, True, True)
    assert np.array_equal(spline_points(objects["|surface"]),
                          np.float32(net[:4].transpose(1, 0, 2).reshape(-1, 4)))
    curve = objects["|curve"].data.splines[0]
    assert (curve.order_u, curve.use_endpoint_u, len(curve.points)) == (4, True, 5)


def import_reported(path):
    """Imports through the operator and gives what it reported, which Blender prints."""
    out = os.path.join(os.path.dirname(path), "report.txt")
    saved = os.dup(1)
    with open(out, "w") as capture:
        sys.stdout.flush()
        os.dup2(capture.fileno(), 1)
        try:
            result = bpy.ops.import_scene.kyn(filepath=path, playback=MODE)
        finally:
            sys.stdout.flush()
            os.dup2(saved, 1)
    assert result == {'FINISHED'}, result
    with open(out) as f:
        return f.read()


def objects_by_path():
    return {ob.kyn.path: ob for ob in bpy.data.objects if ob.kyn.path}


def check_render(directory, mesh_ob):
    scene = bpy.context.scene
    camera = bpy.data.objects.new("camera", bpy.data.cameras.new("camera"))
    scene.collection.objects.link(camera)
    scene.camera = camera
    # The camera looks down the mesh's normal at the grid's middle.
    middle = mesh_ob.matrix_world @ Vector(((SIDE - 1) / 2, (SIDE - 1) / 2, 0))
    normal = (mesh_ob.matrix_world.to_3x3() @ Vector((0, 0, 1))).normalized()
    camera.location = middle + 8 * normal
    camera.rotation_euler = (-normal).to_track_quat('-Z', 'Y').to_euler()
    scene.render.engine = 'BLENDER_WORKBENCH'
    scene.render.resolution_x, scene.render.resolution_y = 64, 48
    scene.render.film_transparent = True
    scene.render.filepath = os.path.join(directory, "frame.png")
    bpy.ops.render.render(write_still=True)
    image = bpy.data.images.load(scene.render.filepath)
    alpha = np.array(image.pixels[:]).reshape(-1, 4)[:, 3]
    covered = np.count_nonzero(alpha > 0.5) / len(alpha)
    assert covered > 0.05, f"the rendered frame is empty ({covered:.1%} of it covered)"


def check_options(path):
    """Only the paths asked for, with the objects above them, under a root that scales."""
    for ob in list(bpy.data.objects):
        bpy.data.objects.remove(ob)
    bpy.ops.import_scene.kyn(filepath=path, paths="|rig|loc", scale=2.0, up_axis='Z')
    assert set(objects_by_path()) == {"|rig", "|rig|loc"}, set(objects_by_path())
    root = objects_by_path()["|rig"].parent
    assert tuple(root.scale) == (2, 2, 2) and tuple(root.rotation_euler) == (0, 0, 0)
    try:  # a failure is reported once, in words, and imports nothing
        bpy.ops.import_scene.kyn(filepath=path + ".gone")
        raise AssertionError("a missing file was imported")
    except RuntimeError as error:
        assert str(error).strip() == f"Error: {path}.gone: No such file or directory", error


def main():
    io_scene_kyn.register()
    for ob in list(bpy.data.objects):
        bpy.data.objects.remove(ob)
    directory = tempfile.mkdtemp(prefix="kyn-blender-")
    path = os.path.join(directory, "shot.kyn")
    write_cache(path)
    report = import_reported(path)
    with kyn.open(path) as cache:
        objects = objects_by_path()
        check_import(cache, objects, report)
        check_playback(cache, objects, TIMES)

        saved = os.path.join(directory, "shot.blend")
        bpy.ops.wm.save_as_mainfile(filepath=saved)
        bpy.ops.wm.open_mainfile(filepath=saved)
        check_playback(cache, objects_by_path(), [1.25, 2.5])
    if MODE == "LIVE":
        check_render(directory, objects_by_path()["|rig|mesh"])
        check_options(path)
    shutil.rmtree(directory)  # kept when a check fails, to look into
    print(f"the add-on plays the cache in {MODE} mode as the package evaluates it")


main()
