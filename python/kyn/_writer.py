"""The streaming writer: the objects first, then one sample at a time, straight to the file."""

import math
import os
import sys

import numpy as np

from . import _channels
from ._kyn import _StreamWriter


# When the samples reach the file, in the library's order.
COMMITS = ("at_end", "each_sample", "each_sample_to_disk")


def _declarations(objects):
    """(path, declaration) pairs from a dict {path: declaration} or a sequence of paths or
    pairs."""
    if isinstance(objects, dict):
        return list(objects.items())
    pairs = []
    for item in objects:
        pairs.append((item, None) if isinstance(item, str) else tuple(item))
    return pairs


def default_source_file():
    """The script that runs, as the cache's source file: a file whose application and source
    file are both set can later be appended to in place."""
    return os.path.basename(sys.argv[0]) if sys.argv and sys.argv[0] else "python"


class Writer:
    """Writes a cache sample by sample.

    `objects` declares every object before the first sample: a dict {path: declaration} (or a
    list of paths), a declaration being a kind name ("mesh", "transform", "nurbssurface",
    "nurbscurve", "locator", "lxcoordsystem", "geometry") or a dict of the kind, static channels
    (for example "counts" and "indices" of a mesh), "attributes" {name: value} and
    "animated_attributes" [names]. Give `samples` and the uniform timing `first_time`, `rate`
    (samples per frame), or the time of every sample in `times`. `reserve` spare samples let
    later saves append in place. `commit` says when samples reach the file: "at_end" (at
    close), "each_sample" (each as it is written, so that a file whose writer dies loads with
    the samples written) or "each_sample_to_disk" (on the disk too, for a power cut).
    """

    def __init__(self, path, objects, *, samples=None, first_time=1.0, rate=1.0, times=None,
                 application="kyn", source_file=None, reserve=None, space=1,
                 commit="at_end"):
        path = os.fspath(path)
        if commit not in COMMITS:
            raise ValueError(f"commit must be one of {', '.join(COMMITS)}, not {commit!r}")
        declared = [_channels.describe(p, declaration, f"objects[{p!r}]")
                    for p, declaration in _declarations(objects)]
        self._index = {}
        for index, (object_path, _, _, _) in enumerate(declared):
            self._index.setdefault(object_path, index)
        self._animated = [[name for name, _, _ in d[3]] for d in declared]
        if times is not None:
            if samples is not None and samples != len(times):
                raise ValueError(f"samples is {samples} but times holds {len(times)}")
            times = np.asarray(times, dtype=np.float64)
            if times.ndim != 1 or not np.all(np.isfinite(times)):
                raise ValueError("times must be a sequence of finite numbers")
            if np.any(np.float32(times) != times):
                raise ValueError("times must be exact in single precision (float32)")
            if np.any(np.diff(times) <= 0):
                raise ValueError("times must be ascending")
            samples = len(times)
            times = times.tolist()
        if samples is None:
            raise TypeError("give samples= (with first_time= and rate=) or times=")
        if not isinstance(samples, int) or samples < 0:
            raise ValueError(f"samples must be an integer of 0 or more, not {samples!r}")
        if times is None and not (math.isfinite(rate) and rate > 0):
            raise ValueError(f"rate must be a positive number of samples per frame, not {rate}")
        if reserve is None:
            reserve = max(100, 2 * samples)
        if source_file is None:
            source_file = default_source_file()
        self._writer = _StreamWriter(path, declared, samples, float(first_time), float(rate),
                                     times, int(reserve), application, source_file, int(space),
                                     COMMITS.index(commit))

    @property
    def path(self):
        return self._writer.path

    @property
    def num_samples(self):
        return self._writer.count

    @property
    def samples_written(self):
        return self._writer.written

    @property
    def closed(self):
        return self._writer.closed

    def write_sample(self, data=None, *, time=None):
        """Writes the next sample: `data` maps an object's path (or index) to its channels at
        this sample, with "attributes" {name: value} for its animated attributes. Objects left
        out have nothing in this sample. `time`, when given, must be the sample's time."""
        given = []
        for key, channels in (data or {}).items():
            index = self._object_index(key)
            where = f"data[{key!r}]"
            chunks, values = _channels.sample_chunks(channels, where)
            declared = self._animated[index]
            unknown = set(values) - set(declared)
            if unknown:
                raise KeyError(f"{where}: {', '.join(sorted(unknown))} not declared in "
                               "animated_attributes")
            missing = [name for name in declared if name not in values]
            if missing and values:
                raise ValueError(f"{where}: every animated attribute needs a value; missing "
                                 f"{', '.join(missing)}")
            given.append((index, chunks, [values[n] for n in declared] if values else None))
        self._writer.write_sample(time, given)

    def _object_index(self, key):
        if isinstance(key, str):
            if key not in self._index:
                raise KeyError(f"no object {key!r} was declared")
            return self._index[key]
        if isinstance(key, (int, np.integer)) and 0 <= key < len(self._animated):
            return int(key)
        raise KeyError(f"no object {key!r} was declared")

    def close(self):
        """Finishes the file. Raises ValueError if fewer samples than announced were
        written: those read back, and reading a later one raises."""
        self._writer.close()

    def __enter__(self):
        return self

    def __exit__(self, kind, value, traceback):
        if kind is None:
            self.close()
        else:
            try:
                self.close()
            except ValueError:
                pass  # the error on its way out says more

    def __repr__(self):
        return (f"<kyn.Writer '{self.path}' {self.samples_written} of {self.num_samples} "
                f"samples{' (closed)' if self.closed else ''}>")
