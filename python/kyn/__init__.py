"""kyn: animated 3D scene caches in numpy.

Open a cache with kyn.open(path), find objects by path (cache["|root|mesh"]) or in file order
(cache.objects), and read them at a stored sample or at any time between samples:

    with kyn.open("demo.kyn") as cache:
        mesh = cache["|root|mesh"]
        points = mesh.positions(sample=0)          # (n, 3), views the cache's memory
        later = mesh.positions(time=12.5, order=3)  # evaluated, a new array
        m = cache["|root"].matrix(time=12.5)        # (4, 4) float64

Write one sample at a time with kyn.Writer, or edit a cache in memory with kyn.edit and save
it (in place, behind the samples that are there, when it can). Every array handed out is
read-only; arrays of stored samples keep their memory alive whatever happens to the cache.

kyn.check(path) says whether a file is whole, kyn.stitch(out, inputs) joins caches written in
pieces; kyn.dask (with Dask installed) reads caches and writes them in pieces on a cluster.
"""

import collections as _collections
import os as _os

from . import _channels
from . import _kyn
from ._kyn import Cache, EditableCache, Error, Object
from ._recovery import CheckReport, Damage, StitchError, Stitched, check, stitch, _missing
from ._writer import Writer, default_source_file as _default_source_file

__all__ = ["open", "edit", "export", "ExportResult", "check", "stitch", "Cache", "EditableCache",
           "Object", "Node", "Writer", "Error", "StitchError", "CheckReport", "Damage", "Stitched"]


def open(path, max_samples=0, *, keep_open=True):
    """Opens a cache file for reading.

    max_samples bounds how many samples stay in memory (least recently used out first; 0, the
    default, keeps all that were read); a sample that an array still views counts but stays.
    keep_open=False closes the file between reads. Raises FileNotFoundError, or kyn.Error with
    the library's reason when the file does not load."""
    return Cache._open(_os.fspath(path), int(max_samples), bool(keep_open))


def edit(path=None, *, keep_open=True):
    """A cache to edit in memory: the file at `path`, or a new, empty cache. Add objects with
    add_object, samples with write_sample, and write with save or save_as."""
    cache = EditableCache(None if path is None else _os.fspath(path), bool(keep_open))
    if path is None:
        cache.application = "kyn"
        cache.source_file = _default_source_file()
    return cache


ExportResult = _collections.namedtuple("ExportResult",
                                       "files objects left_out dropped samples")
ExportResult.__doc__ = """What kyn.export wrote: the files in order, the objects by path, the
objects left out and what of a written object did not fit, each a list of (path, why), and the
number of samples."""


def export(cache, out, *, path=None, samples=None, fps=24.0):
    """Writes the cache file `cache`, or the objects at and under `path`, to `out` in the format
    that its extension names: .glb, .pc2, .obj or .ply (see the kyn export command). `samples`
    is a pair of sample indices (first, last), both written; None for all. `fps` gives glTF
    its animation times in seconds. Returns an ExportResult; raises FileNotFoundError, or
    kyn.Error with the reason when nothing could be written. Only in a build with the
    converters."""
    cache, out = _os.fspath(cache), _os.fspath(out)
    if not hasattr(_kyn, "_export"):
        raise NotImplementedError("this build of kyn has no converters (libtinygltf-dev and "
                                  "libtinyobjloader-dev were missing when it was configured)")
    if not _os.path.isfile(cache):
        raise _missing(cache)
    first, last = (0, -1) if samples is None else (int(samples[0]), int(samples[1]))
    return ExportResult(*_kyn._export(cache, out, path or "", first, last, float(fps)))


class Node:
    """A node of a cache's tree of paths: a path component, the object at that path if there
    is one, and the nodes below it."""

    __slots__ = ("name", "object", "children", "parent")

    def __init__(self, name, object, parent):
        self.name = name
        self.object = object
        self.children = []
        self.parent = parent

    @property
    def path(self):
        names = []
        node = self
        while node.parent is not None:
            names.append(node.name)
            node = node.parent
        return "|" + "|".join(reversed(names)) if names else ""

    def walk(self):
        """This node and every node below it, depth first."""
        yield self
        for child in self.children:
            yield from child.walk()

    def __iter__(self):
        return iter(self.children)

    def __repr__(self):
        return f"<kyn.Node {self.path or '(root)'} {len(self.children)} children>"


def _tree(cache):
    """The tree of the cache's paths, one node per path component; the root is unnamed."""
    objects = cache.objects

    def build(entry, parent):
        name, index, children = entry
        node = Node(name, objects[index] if index >= 0 else None, parent)
        node.children = [build(child, node) for child in children]
        return node

    return build(cache._tree(), None)


def _is_animated(self, channel):
    """Whether the channel ("positions", "matrix", ... or a tag) changes over time: it is in
    the object's first sample and not in its static data."""
    return self._is_animated(_channels.tag_value(_channels.channel_tag(channel)))


def _add_object(self, path, declaration=None):
    """Adds an object, declared as for kyn.Writer, and returns it."""
    index = self._add_object(*_channels.describe(path, declaration, f"add_object({path!r})"))
    return self.objects[index]


def _write_sample(self, time, data):
    """Sets the channels of objects at `time` (a new sample, or one there already): `data`
    maps an object (its path, index or the Object) to its channels, with "attributes" for
    values of declared animated attributes."""
    given = []
    for key, channels in data.items():
        obj = key if isinstance(key, Object) else (self.objects[key] if isinstance(key, int)
                                                     else self[key])
        chunks, values = _channels.sample_chunks(channels, f"data[{key!r}]")
        given.append((obj.index, chunks, list(values.items()) if values else None))
    self._write_sample(float(time), given)


def _rename(self, obj, path):
    """Gives an object (an Object, index or path) a new path."""
    obj = obj if isinstance(obj, Object) else (self.objects[obj] if isinstance(obj, int)
                                               else self[obj])
    self._rename(obj.index, path)


Cache.tree = property(_tree, doc=_tree.__doc__)
Object.is_animated = _is_animated
EditableCache.add_object = _add_object
EditableCache.write_sample = _write_sample
EditableCache.rename = _rename
