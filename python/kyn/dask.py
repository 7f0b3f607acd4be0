"""kyn.dask: caches on a Dask cluster, read in parallel and written in pieces.

    import kyn.dask
    positions = kyn.dask.from_cache("shot.kyn", "|root|mesh")  # lazy, (samples, n, 3)
    moved = abs(positions - positions[0]).max().compute()

    kyn.dask.write_in_pieces(produce, "shot.kyn", 1, 1000, pieces=20, client=client)

Every task opens the files it reads in its own worker: only the results asked for cross the
network. On a cluster of several machines, every path must name the same file on each of them
(a shared filesystem). Needs Dask (Debian's python3-dask and python3-distributed); the rest of
the package does not.
"""

import collections
import dataclasses
import operator
import os
import pickle
import sys
import threading
import traceback

try:
    import dask
    import dask.array as da
    from dask.base import tokenize
    from dask.blockwise import BlockwiseDepDict, blockwise
    from dask.highlevelgraph import HighLevelGraph
except ImportError as _error:
    raise ImportError("kyn.dask needs Dask: install Debian's python3-dask and "
                      "python3-distributed (scripts/install-deps does)") from _error

import numpy as np

import kyn

__all__ = ["from_cache", "write_in_pieces", "worker_memory_config", "FileChangedError",
           "PiecesError", "PieceFailure", "PiecesWritten"]

VERTEX_FIELDS = ("positions", "normals", "velocities")
FIELDS = VERTEX_FIELDS + ("matrix",)
CHUNK_BYTES = 64 << 20
# Each worker keeps this many caches open, each holding at most this many samples: enough for
# a cubic blend, and few enough that a worker's memory stays near its tasks' own.
CACHES_KEPT = 4
SAMPLES_KEPT = 4


# glibc's settings for worker processes: memory freed by one block is kept for the next, where
# Dask's nanny has glibc give back everything above 64 KiB at once (MALLOC_TRIM_THRESHOLD_), so
# that every block and every buffer of a sample is faulted in again, page by page.
WORKER_MALLOC = {"MALLOC_TRIM_THRESHOLD_": 256 << 20, "MALLOC_MMAP_THRESHOLD_": 256 << 20}


def worker_memory_config():
    """Dask configuration under which worker processes keep the memory of one block for the
    next, instead of giving it back to the system and faulting it in again. Each worker then
    holds on to about as much memory as its largest tasks needed. It takes effect for workers
    started while it is set:

        dask.config.set(kyn.dask.worker_memory_config())
        cluster = LocalCluster(...)

    For `dask worker` on other machines, put the variables of WORKER_MALLOC under
    distributed.nanny.pre-spawn-environ in the workers' Dask configuration."""
    return {f"distributed.nanny.pre-spawn-environ.{name}": value
            for name, value in WORKER_MALLOC.items()}


class FileChangedError(RuntimeError):
    """A file that changed on disk (another size or modification time) after the array that
    reads it was made: the tasks that see the change raise this rather than mix samples
    of the old and the new file."""


# ---------------------------------------------------------------------------------------------
# Reading


def _identity(path):
    """What tells one state of a file from another: its size and modification time. (Not its
    inode: machines that share a filesystem may not agree on it.)"""
    status = os.stat(path)
    return (status.st_size, status.st_mtime_ns)


def _check_unchanged(path, identity):
    try:
        now = _identity(path)
    except FileNotFoundError:
        now = None
    if now != identity:
        state = "is gone" if now is None else f"is now {now[0]} bytes, modified at {now[1]} ns"
        raise FileChangedError(
            f"'{path}' changed on disk while it was being read (it was {identity[0]} bytes, "
            f"modified at {identity[1]} ns, and {state}): make the array again to read the file "
            "as it is now")


class _Open:
    """A cache that a worker keeps open for the tasks that read its file, one at a time."""

    def __init__(self, cache):
        self.cache = cache
        self.lock = threading.Lock()
        self.objects = {}

    def object(self, path):
        found = self.objects.get(path)
        if found is None:
            found = self.objects[path] = self.cache[path]
        return found


_caches = collections.OrderedDict()  # (path, identity) -> _Open, least recently used first
_caches_lock = threading.Lock()


def _cache_for(path, identity):
    """The worker's open cache of this state of the file. Raises FileChangedError when the file
    is not in that state any more."""
    _check_unchanged(path, identity)
    key = (path, identity)
    with _caches_lock:
        found = _caches.get(key)
        if found is not None:
            _caches.move_to_end(key)
            return found
    found = _Open(kyn.open(path, max_samples=SAMPLES_KEPT))
    _check_unchanged(path, identity)
    with _caches_lock:
        # Another state of the same file is of no more use. A cache dropped here stays alive
        # for a task that still reads it.
        for stale in [k for k in _caches if k[0] == path]:
            del _caches[stale]
        _caches[key] = found
        while len(_caches) > CACHES_KEPT:
            _caches.popitem(last=False)
    return found


@dataclasses.dataclass(frozen=True)
class _Source:
    """What every task of one array reads: a field of an object of one state of a file."""

    path: str
    identity: tuple
    object_path: str
    field: str
    by_samples: bool
    order: int
    shape: tuple
    dtype: str


def _value(read, at, by_samples, order):
    """One value of a field: `read` (a bound read of an object) at a sample or at a time."""
    return read(sample=int(at)) if by_samples else read(time=float(at), order=order)


def _read_block(source, where):
    """The values at the given samples (or times) of one block, read in this worker."""
    opened = _cache_for(source.path, source.identity)
    block = np.empty((len(where),) + source.shape, source.dtype)
    with opened.lock:
        read = getattr(opened.object(source.object_path), source.field)
        for i, at in enumerate(where):
            value = _value(read, at, source.by_samples, source.order)
            if value.shape != source.shape:
                what = f"sample {int(at)}" if source.by_samples else f"time {float(at)}"
                raise ValueError(f"{source.object_path} has {source.field} of shape "
                                 f"{value.shape} at {what}, not {source.shape} as at the first "
                                 "one read: an array needs the same shape throughout")
            block[i] = value
            del value  # a view pins its sample: let the bound evict it
    _check_unchanged(source.path, source.identity)
    return block


def _sample_indices(samples, count):
    if isinstance(samples, slice):
        return np.arange(count)[samples]
    indices = np.asarray(samples)
    if indices.ndim != 1 or (indices.size and indices.dtype.kind not in "iu"):
        raise TypeError("samples must be a slice or a sequence of sample indices (ints)")
    indices = indices.astype(np.int64)
    out = indices < -count
    out |= indices >= count
    if out.any():
        raise IndexError(f"sample {indices[out][0]} is out of range: the file holds {count} "
                         "samples")
    return np.where(indices < 0, indices + count, indices)


def from_cache(path, object_path, field="positions", samples=None, times=None, order=1,
               samples_per_chunk=None):
    """A lazy dask array of one field of one object: "positions", "normals" or "velocities"
    (shape (samples, n, k), the stored dtype) or "matrix" (shape (samples, 4, 4), float64).

    With neither `samples` nor `times`, every sample; `samples` takes indices (negative ones
    count from the end) or a slice; `times` takes frames, evaluated with `order` (0 hold, 1
    linear, 2 quadratic, 3 cubic) exactly as Object.positions(time=..., order=...) and the other
    reads do. Blocks hold `samples_per_chunk` samples (or times), by default as many as make
    about 64 MB.

    The file is opened here to check the request: FileNotFoundError or kyn.Error (with the
    library's reason) for a file that does not load, KeyError for a path that no object has,
    ValueError for a field that the object does not carry. This process then keeps it open, as
    each worker does, for the next array on the file as it is. The tasks open it in their
    workers; one that finds the file changed since raises FileChangedError.

    Each block is read by one task, which Dask fuses with the tasks that work that block alone
    (map_blocks, blockwise arithmetic, the first step of a reduction): the block is worked in
    the worker that reads it."""
    path = os.path.abspath(os.fspath(path))
    if field not in FIELDS:
        raise ValueError(f"field must be one of {', '.join(FIELDS)}, not {field!r}")
    if samples is not None and times is not None:
        raise ValueError("give samples= or times=, not both")
    order = operator.index(order)
    if not 0 <= order <= 3:
        raise ValueError(f"order must be 0 (hold) to 3 (cubic), not {order}")
    identity = _identity(path)
    opened = _cache_for(path, identity)  # kept open, as in a worker, for the next array
    with opened.lock:
        cache, obj = opened.cache, opened.object(object_path)
        if times is None:
            where = (np.arange(cache.num_samples) if samples is None
                     else _sample_indices(samples, cache.num_samples))
        else:
            where = np.asarray(times, dtype=np.float64)
            if where.ndim != 1:
                raise ValueError("times must be a sequence of frames")
            if np.isnan(where).any():
                raise ValueError("times must not be NaN")
        if len(where) == 0:
            raise ValueError(f"nothing to read from '{path}': no samples or times")
        # The first value, read as a task reads it, says the shape and the dtype, and whether
        # the object carries the field.
        first = _value(getattr(obj, field), where[0], times is None, order)
        shape, dtype = first.shape, first.dtype
        del first
    _check_unchanged(path, identity)

    if samples_per_chunk is None:
        samples_per_chunk = max(1, CHUNK_BYTES // max(1, int(np.prod(shape)) * dtype.itemsize))
    samples_per_chunk = operator.index(samples_per_chunk)
    if samples_per_chunk < 1:
        raise ValueError("samples_per_chunk must be 1 or more")
    source = _Source(path, identity, object_path, field, times is None, order, shape, dtype.str)
    name = f"kyn-{field}-" + tokenize(source, where, samples_per_chunk)
    starts = range(0, len(where), samples_per_chunk)
    tail = (0,) * len(shape)
    # A blockwise layer, each task given its own samples: Dask fuses the reads into the tasks
    # that work the blocks, so that a block is worked where it is read and never sent.
    blocks = BlockwiseDepDict({(i,) + tail: where[start:start + samples_per_chunk]
                               for i, start in enumerate(starts)},
                              numblocks=(len(starts),) + (1,) * len(shape))
    indices = tuple(range(1 + len(shape)))
    layer = blockwise(_read_block, name, indices, source, None, blocks, indices, numblocks={})
    chunks = ((tuple(min(samples_per_chunk, len(where) - s) for s in starts),)
              + tuple((n,) for n in shape))
    graph = HighLevelGraph.from_collections(name, layer, dependencies=())
    return da.Array(graph, name, chunks, dtype=dtype)


# ---------------------------------------------------------------------------------------------
# Writing in pieces


@dataclasses.dataclass(frozen=True)
class PieceFailure:
    """A piece that failed: its frames, its file, the exception and its traceback as text."""

    first: int
    last: int
    path: str
    error: BaseException
    traceback: str

    def __str__(self):
        return f"frames {self.first} to {self.last}: {type(self.error).__name__}: {self.error}"


class PiecesError(RuntimeError):
    """One or more pieces of write_in_pieces failed; `failures` lists them (PieceFailure), in
    frame order. The pieces that were written stay in `workdir`."""

    def __init__(self, failures, count, workdir):
        self.failures = failures
        self.workdir = workdir
        lines = "\n".join(f"  {failure}" for failure in failures)
        super().__init__(f"{len(failures)} of {count} pieces failed:\n{lines}\nThe pieces "
                         f"written stay in {workdir}; call again to write the failed ones")


@dataclasses.dataclass(frozen=True)
class PiecesWritten:
    """What write_in_pieces did: the file, its sample count, every piece's frame range, and the
    ranges whose `produce` ran in this call (the others were there and whole)."""

    path: str
    samples: int
    ranges: list
    produced: list


def _ranges(first, last, pieces):
    """`pieces` ranges of near-equal length, in order, the longer ones first."""
    base, extra = divmod(last - first + 1, pieces)
    ranges, start = [], first
    for p in range(pieces):
        end = start + base + (p < extra) - 1
        ranges.append((start, end))
        start = end + 1
    return ranges


def _piece_path(workdir, out, first, last):
    """Where the piece of frames first..last of `out` is written."""
    stem, extension = os.path.splitext(os.path.basename(out))
    return os.path.join(workdir, f"{stem}.{first}-{last}{extension or '.kyn'}")


def _piece_problem(path, first, last):
    """Why the piece at `path` will not do for frames first..last, or None."""
    report = kyn.check(path)
    if not report.whole:
        return f"'{path}' is damaged: " + "; ".join(str(d) for d in report.damage)
    with kyn.open(path) as cache:
        times = cache.times
    wanted = np.arange(first, last + 1, dtype=np.float32)
    if times.shape != wanted.shape or (times != wanted).any():
        held = (f"frames {times[0]:g} to {times[-1]:g}" if len(times) else "no sample")
        return (f"'{path}' holds {len(times)} samples ({held}), not one at each frame "
                f"{first} to {last}")
    return None


def _portable(error):
    """The error, or a RuntimeError that says the same when it does not pickle (it has to go
    back to the client)."""
    try:
        pickle.dumps(error)
        return error
    except Exception:
        return RuntimeError(f"{type(error).__name__}: {error}")


def _run_piece(produce, first, last, path):
    """Writes one piece unless a whole one is there, and checks it. Returns whether `produce`
    ran, or a PieceFailure with what went wrong: never the samples."""
    try:
        if os.path.exists(path):
            try:
                whole = _piece_problem(path, first, last) is None
            except (OSError, ValueError):
                whole = False
            if whole:
                return False
            os.remove(path)
        produce(first, last, path)
        if not os.path.exists(path):
            raise FileNotFoundError(f"produce({first}, {last}, path) wrote no file at '{path}'")
        problem = _piece_problem(path, first, last)
        if problem is not None:
            raise ValueError(f"the piece written is not right: {problem}")
        return True
    except Exception as error:
        return PieceFailure(first, last, path, _portable(error), traceback.format_exc())


def _run_on_client(client, calls):
    """Runs the pieces on a distributed client, reporting progress on a terminal. A piece whose
    task itself failed (a worker lost) comes back as a failure."""
    import distributed

    futures = [client.submit(_run_piece, *call, pure=False) for call in calls]
    show = sys.stderr.isatty()
    for done, _ in enumerate(distributed.as_completed(futures), 1):
        if show:
            print(f"\rpieces: {done} of {len(futures)} done", end="", file=sys.stderr,
                  flush=True)
    if show:
        print(file=sys.stderr)
    results = []
    for future, (_, first, last, path) in zip(futures, calls):
        try:
            results.append(future.result())
        except Exception as error:
            results.append(PieceFailure(first, last, path, error, traceback.format_exc()))
    return results


def write_in_pieces(produce, out, first, last, pieces, client=None, workdir=None, *,
                    keep_pieces=False):
    """Writes the frames first..last (integers, both included) into the cache `out`, in
    `pieces` ranges of near-equal length, each written by a task that calls
    `produce(first, last, path)`: a function that writes a cache of one sample at each of those
    frames to `path` (with kyn.Writer, the library or any program).

    The tasks run on `client` (a distributed Client), or on dask's default scheduler. Each
    piece is checked (kyn.check) and must hold exactly its frames; the pieces are then joined
    in order with kyn.stitch, which writes a new file and renames it over `out` only once it is
    complete. A failed piece does not stop the others: once all have run, PiecesError names
    each failed one with the exception its `produce` raised, and the pieces written stay in
    `workdir`. Called again with the same arguments, only the pieces that are missing or do not
    pass the check are written again. `workdir` defaults to OUT.pieces beside `out`; it must be
    a directory that every worker sees. The pieces are removed once `out` is written, unless
    `keep_pieces`. Returns a PiecesWritten; kyn.StitchError when the pieces do not join."""
    out = os.path.abspath(os.fspath(out))
    first, last, pieces = operator.index(first), operator.index(last), operator.index(pieces)
    if last < first:
        raise ValueError(f"last ({last}) must not be before first ({first})")
    if not 1 <= pieces <= last - first + 1:
        raise ValueError(f"pieces must be 1 to {last - first + 1} (one frame each), not {pieces}")
    default_workdir = workdir is None
    workdir = os.path.abspath(out + ".pieces" if default_workdir else os.fspath(workdir))
    os.makedirs(workdir, exist_ok=True)
    ranges = _ranges(first, last, pieces)
    calls = [(produce, a, b, _piece_path(workdir, out, a, b)) for a, b in ranges]

    if client is None:
        results = dask.compute(*[dask.delayed(_run_piece, pure=False)(*call) for call in calls])
    else:
        results = _run_on_client(client, calls)
    failures = [r for r in results if isinstance(r, PieceFailure)]
    if failures:
        raise PiecesError(failures, pieces, workdir) from failures[0].error

    paths = [call[3] for call in calls]
    stitched = kyn.stitch(out, paths)
    if not keep_pieces:
        for path in paths:
            os.remove(path)
        if default_workdir:
            try:
                os.rmdir(workdir)
            except OSError:
                pass  # something else of the user's is in there
    return PiecesWritten(out, stitched.samples, ranges,
                         [span for span, ran in zip(ranges, results) if ran])
