"""Playback of imported caches. At every frame change (before the scene is evaluated, so that
one evaluation shows the new values) each object that the import marked reads its values at the
scene's time, the frame and its subframe, through the kyn package: a transform its matrix, a
deforming mesh of live mode its positions, a NURBS curve or surface its control points. What the
package evaluates is what Blender shows, between samples too, to the last bit of float32.

The marks live on the objects (Object.kyn, saved with the .blend), and the handlers are
persistent, so a saved file plays again when it is opened with the add-on enabled."""

import os

import bpy
import numpy as np
from bpy.app.handlers import persistent
from mathutils import Matrix

from . import package

# Samples each open cache keeps in memory: enough for a cubic blend and the next frame's.
MAX_SAMPLES = 8

_caches = {}  # absolute path of a cache file: (kyn.Cache, {object path: kyn.Object})
_said = set()  # (file, path) whose failure was already printed


def source(file, path):
    """The kyn.Object at exactly `path` in the cache `file` (a Blender path, which may be
    relative to the .blend), or None. Each file is opened once and stays open."""
    file = os.path.normpath(bpy.path.abspath(file))
    entry = _caches.get(file)
    if entry is None:
        cache = package.kyn().open(file, max_samples=MAX_SAMPLES)
        entry = _caches[file] = (cache, {obj.path: obj for obj in cache.objects})
    return entry[1].get(path)


def forget():
    """Closes every cache, so that the next frame opens the files as they are now."""
    for cache, _ in _caches.values():
        cache.close()
    _caches.clear()
    _said.clear()


def blender_matrix(m):
    """A cache's matrix (row vectors: p' = p @ m) as Blender's (column vectors)."""
    return Matrix(m.T.tolist())


def float3(points):
    """x, y, z of each point as contiguous float32, without a copy when stored so."""
    if points.ndim == 2 and points.shape[1] != 3:
        points = points[:, :3]
    return np.ascontiguousarray(points, dtype=np.float32)


def positions_at(obj, time, order):
    try:
        return obj.positions(time=time, order=order)
    except ValueError:
        if order == 0:
            raise
        return obj.positions(time=time, order=0)  # float64 positions are held, not blended


def write_positions(mesh, points):
    """Writes the vertex positions of `mesh`; False when the vertex count differs."""
    points = float3(points)
    if len(points) != len(mesh.vertices):
        return False
    mesh.vertices.foreach_set("co", points.ravel())
    mesh.update()
    return True


def spline_points(spline, net):
    """The control points that a Blender spline holds, from the cache's full net: the periodic
    repeats left out (Blender closes a cyclic spline itself), and a surface's rows of U."""
    if net.ndim == 3:  # a surface, (numU, numV, 4) with V fastest
        net = net[:spline.point_count_u, :spline.point_count_v].transpose(1, 0, 2)
    else:
        net = net[:spline.point_count_u]
    return np.ascontiguousarray(net, dtype=np.float32).reshape(-1)


def write_control_points(curve, net):
    spline = curve.splines[0]
    points = spline_points(spline, net)
    if len(points) != 4 * len(spline.points):
        return False
    spline.points.foreach_set("co", points)
    curve.update_tag()
    return True


def apply(ob, obj, time, order, play):
    # Before its first sample a cache holds no animated values: it shows the first sample.
    time = max(time, obj.cache.first_time)
    if play == 'TRANSFORM':
        ob.matrix_parent_inverse = blender_matrix(obj.matrix(time=time, order=order))
    elif play == 'POSITIONS':
        write_positions(ob.data, positions_at(obj, time, order))
    elif play == 'CONTROL_POINTS':
        write_control_points(ob.data, obj.control_points(time=time, order=order))


def update(scene):
    """Brings every marked object of `scene` to the scene's time. A scene into which nothing
    that plays was imported costs one test."""
    if not scene.kyn_plays:
        return
    time = scene.frame_current_final
    for ob in scene.objects:
        settings = ob.kyn
        if settings.play == 'NONE':
            continue
        try:
            obj = source(settings.file, settings.path)
            if obj is None:
                _say_once(ob, "the file holds no object at this path: import the cache again")
            else:
                apply(ob, obj, time, settings.order, settings.play)
        except (OSError, ValueError, ImportError) as error:
            _say_once(ob, error)


def _say_once(ob, reason):
    """Prints why `ob` does not play, once, not at every frame."""
    settings = ob.kyn
    key = (settings.file, settings.path)
    if key not in _said:
        _said.add(key)
        print(f"kyn: {ob.name} ({settings.path} in {settings.file}) does not play: {reason}")


@persistent
def _on_frame_change(scene, *_):
    update(scene)


@persistent
def _on_load(*_):
    forget()
    for scene in bpy.data.scenes:
        update(scene)


def register():
    if _on_frame_change not in bpy.app.handlers.frame_change_pre:
        bpy.app.handlers.frame_change_pre.append(_on_frame_change)
    if _on_load not in bpy.app.handlers.load_post:
        bpy.app.handlers.load_post.append(_on_load)


def unregister():
    for handlers, handler in ((bpy.app.handlers.frame_change_pre, _on_frame_change),
                              (bpy.app.handlers.load_post, _on_load)):
        if handler in handlers:
            handlers.remove(handler)
    forget()
