"""The import of a cache: its object tree as Blender objects under one empty that carries the
import's scale and up axis, meshes with the faces, normals and texture coordinates of the first
sample, and the marks and modifiers that play the rest back (see playback.py)."""

import dataclasses
import math
import os
import re

import bpy
import numpy as np

from . import nurbs, package, playback

# How each kind of object comes in when it is not geometry: an empty of this display type.
EMPTY_DISPLAY = {"transform": 'PLAIN_AXES', "locator": 'PLAIN_AXES', "lxcoordsystem": 'ARROWS'}


@dataclasses.dataclass
class Options:
    scale: float = 1.0
    up_axis: str = 'Y'  # 'Y': the cache's Y becomes Blender's Z; 'Z': axes as they are
    paths: tuple = ()  # only these paths, with what is under and above them; () for all
    playback: str = 'LIVE'  # or 'MESH_CACHE'
    order: int = 1  # of the evaluation between samples


@dataclasses.dataclass
class Result:
    root: object  # the empty that holds the import
    objects: dict = dataclasses.field(default_factory=dict)  # cache path: Blender object
    notes: list = dataclasses.field(default_factory=list)  # left out or changed, for the report


def import_cache(context, filepath, options):
    """Imports the cache at `filepath` into the scene of `context`. Returns a Result."""
    filepath = os.path.abspath(filepath)
    kyn = package.kyn()
    playback.forget()  # a file imported again may have changed
    with kyn.open(filepath) as cache:
        result = _Importer(context, filepath, cache, options).run()
    playback.update(context.scene)
    return result


def _sidecar_name(filepath, path):
    stem = os.path.splitext(filepath)[0]
    return f"{stem}.{re.sub(r'[^A-Za-z0-9_.-]+', '_', path.strip('|').replace('|', '.'))}.pc2"


def _pc2_timing(pc2):
    """First frame and frames from one sample to the next, from a PC2 file's header."""
    header = np.fromfile(pc2, dtype=np.uint8, count=32)
    start, sampling = header[20:28].view(np.float32)
    return float(start), float(sampling)


class _Importer:
    def __init__(self, context, filepath, cache, options):
        self.context, self.filepath, self.cache, self.options = context, filepath, cache, options
        self.collection = context.collection or context.scene.collection
        name = os.path.splitext(os.path.basename(filepath))[0]
        self.result = Result(self._new_object(name, None))
        self.result.root.kyn.file = filepath

    def note(self, path, text):
        self.result.notes.append(f"{path}: {text}" if path else text)

    def run(self):
        root = self.result.root
        root.empty_display_type = 'ARROWS'
        root.scale = (self.options.scale,) * 3
        if self.options.up_axis == 'Y':
            root.rotation_euler = (math.pi / 2, 0, 0)
        tree = self.cache.tree
        wanted = self._wanted(tree)
        for node in tree.children:
            self._add(node, root, wanted)
        self._frame_range()
        if any(ob.kyn.play != 'NONE' for ob in self.result.objects.values()):
            self.context.scene.kyn_plays = True
        return self.result

    def _wanted(self, tree):
        """The nodes to make: those at and under the chosen paths, and the nodes above them."""
        nodes = {}
        for node in tree.walk():
            nodes[node.path] = node
        chosen = self.options.paths or ("",)
        wanted = set()
        for path in chosen:
            path = path.rstrip("|")
            if path and path not in nodes:
                self.note(path, "no object has this path")
                continue
            node = nodes[path] if path else tree
            wanted.update(n.path for n in node.walk())
            while node is not None:
                wanted.add(node.path)
                node = node.parent
        return wanted

    def _add(self, node, parent, wanted):
        if node.path not in wanted:
            return
        obj = node.object
        if obj is not None and (self.cache.space == 0 or obj.kind == "transform" and
                                not obj.inherits_transform):
            parent = self.result.root  # its values are not relative to the objects above it
        ob = self._make(node, parent)
        for child in node.children:
            self._add(child, ob or parent, wanted)

    def _make(self, node, parent):
        obj = node.object
        kind = obj.kind if obj is not None else None
        if kind in ("mesh", "geometry"):
            ob = self._new_object(node.name, self._mesh(node.path, obj))
            self._play_positions(ob, node.path, obj)
        elif kind in ("nurbscurve", "nurbssurface"):
            ob = self._nurbs(node, obj)
            if ob is None:
                return None
        else:
            ob = self._new_object(node.name, None)
            ob.empty_display_type = EMPTY_DISPLAY.get(kind, 'PLAIN_AXES')
            if kind == "transform":
                self._transform(ob, node.path, obj)
        ob.parent = parent
        ob.kyn.file = self.filepath
        # Playback finds the object by its stored path, which the tree's may not spell alike
        # (a stored path without the leading "|").
        ob.kyn.path = obj.path if obj is not None else node.path
        ob.kyn.order = self.options.order
        self.result.objects[node.path] = ob
        return ob

    def _new_object(self, name, data):
        ob = bpy.data.objects.new(name, data)
        self.collection.objects.link(ob)
        return ob

    def _transform(self, ob, path, obj):
        """A transform's matrix goes to the parent inverse matrix, which Blender keeps as a
        whole 4 x 4 (shear included) and puts between the parent and the object's own
        location, rotation and scale; those stay free for the user."""
        try:
            ob.matrix_parent_inverse = playback.blender_matrix(obj.matrix())
        except ValueError:
            self.note(path, "its transform has no matrix; it stays in place")
            return
        # Channels (translateX ...) are attributes; a transform that has any plays too.
        if obj.is_animated("matrix") or obj.attributes:
            ob.kyn.play = 'TRANSFORM'

    def _mesh(self, path, obj):
        points = playback.float3(obj.positions())
        mesh = bpy.data.meshes.new(obj.name)
        mesh.vertices.add(len(points))
        mesh.vertices.foreach_set("co", points.ravel())
        if obj.kind == "mesh":
            loop_vertices = self._faces(mesh, path, obj, len(points))
            if loop_vertices is not None:
                self._normals(mesh, path, obj, len(points))
                self._uvs(mesh, path, obj, len(points), loop_vertices)
        mesh.update()
        return mesh

    def _faces(self, mesh, path, obj, count):
        """The faces of the first sample; the vertex of each face corner, or None."""
        topology = _read(obj.topology)
        if topology is None:
            return None
        counts, indices = topology
        if obj.is_animated("counts") or obj.is_animated("indices"):
            self.note(path, "its faces change over time; it keeps those of the first sample")
        if len(indices) != counts.sum() or (len(indices) and (indices.min() < 0 or
                                                              indices.max() >= count)):
            self.note(path, "its faces do not fit its vertices; only the vertices come in")
            return None
        if np.any(counts < 3):
            keep = np.repeat(counts >= 3, counts)
            counts, indices = counts[counts >= 3], indices[keep]
            self.note(path, "faces of fewer than 3 vertices are left out")
        starts = np.zeros(len(counts), dtype=np.int32)
        np.cumsum(counts[:-1], out=starts[1:])
        mesh.loops.add(len(indices))
        mesh.loops.foreach_set("vertex_index", indices)
        mesh.polygons.add(len(counts))
        mesh.polygons.foreach_set("loop_start", starts)
        mesh.polygons.foreach_set("loop_total", counts)
        mesh.update(calc_edges=True)
        if mesh.validate():  # it took out faces that Blender cannot hold
            self.note(path, "some of its faces repeat a vertex or another face; left out")
            indices = np.empty(len(mesh.loops), dtype=np.int32)
            mesh.loops.foreach_get("vertex_index", indices)
        return indices

    def _normals(self, mesh, path, obj, count):
        """Vertex normals as Blender's custom normals, so that shading follows them."""
        normals = _read(obj.normals)
        if normals is None or len(normals) != count:
            if normals is not None or _read(obj.face_normals) is not None:
                self.note(path, "only normals of one per vertex come in; Blender's are used")
            return
        if hasattr(mesh, "use_auto_smooth"):  # Blender before 4.1 keeps custom normals only so
            mesh.use_auto_smooth = True
            mesh.auto_smooth_angle = math.pi
        mesh.polygons.foreach_set("use_smooth", np.ones(len(mesh.polygons), dtype=bool))
        mesh.normals_split_custom_set_from_vertices(playback.float3(normals))

    def _uvs(self, mesh, path, obj, count, loop_vertices):
        """The float attribute "uv", one (u, v) pair per vertex, as a UV map "uv"."""
        if "uv" not in obj.attributes:
            return
        uv = obj.attribute("uv")
        if not isinstance(uv, np.ndarray) or uv.shape != (count, 2) or uv.dtype.kind != 'f':
            self.note(path, "its attribute \"uv\" is not one float pair per vertex; left out")
            return
        layer = mesh.uv_layers.new(name="uv")
        layer.data.foreach_set("uv", np.ascontiguousarray(uv[loop_vertices], np.float32).ravel())

    def _play_positions(self, ob, path, obj):
        if not obj.is_animated("positions"):
            return
        if self.options.playback == 'MESH_CACHE' and self._mesh_cache(ob, path):
            return
        ob.kyn.play = 'POSITIONS'

    def _mesh_cache(self, ob, path):
        """A Mesh Cache modifier on a PC2 file of the object's positions written beside the
        cache. The modifier reads sample Frame Scale x frame - Frame Start, whatever the file
        records, so both come from the file's first frame and spacing. False, with a note, on
        failure."""
        pc2 = _sidecar_name(self.filepath, path)
        try:
            package.kyn().export(self.filepath, pc2, path=path)
        except (OSError, NotImplementedError) as error:
            self.note(path, f"no PC2 file for a Mesh Cache modifier ({error}); it plays live")
            return False
        start, sampling = _pc2_timing(pc2)
        modifier = ob.modifiers.new("kyn cache", 'MESH_CACHE')
        modifier.cache_format = 'PC2'
        modifier.filepath = pc2
        modifier.frame_scale = 1.0 / sampling
        modifier.frame_start = start / sampling
        modifier.interpolation = 'NONE' if self.options.order == 0 else 'LINEAR'
        if self.options.order > 1:
            self.note(path, "the Mesh Cache modifier blends linearly; its positions are "
                      "linear between samples")
        return True

    def _nurbs(self, node, obj):
        surface = obj.kind == "nurbssurface"
        try:
            data, detail = (nurbs.surface_data if surface else nurbs.curve_data)(node.name, obj)
        except ValueError as error:
            data, detail = None, f"it cannot be read ({error})"
        if data is None:
            self.note(node.path, f"left out: {detail}")
            return None
        ob = self._new_object(node.name, data)
        if surface:
            nurbs.add_rows(self.context, ob, detail)
        playback.write_control_points(data, obj.control_points())
        if obj.is_animated("positions"):
            ob.kyn.play = 'CONTROL_POINTS'
        return ob

    def _frame_range(self):
        if self.cache.num_samples == 0:
            return
        scene = self.context.scene
        first, last = self.cache.first_time, self.cache.last_time
        if first < 0:
            self.note("", f"the cache starts at frame {first:g}; the scene starts at 0")
        scene.frame_start = max(0, math.floor(first))
        scene.frame_end = max(scene.frame_start, math.ceil(last))


def _read(read):
    """What a read gives at the first sample, or None when the object does not hold it."""
    try:
        return read()
    except ValueError:
        return None

