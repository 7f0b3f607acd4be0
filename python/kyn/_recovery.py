"""kyn.check and kyn.stitch: the library's check of a whole file and its join of caches written
in pieces (what `kyn check` and `kyn stitch` run), with their findings as Python objects."""

import dataclasses
import errno
import os

from . import _kyn


@dataclasses.dataclass(frozen=True)
class Damage:
    """One finding of kyn.check: its kind ("cut", "unfinished", "length", ...), the line that
    says it (`text`), and where: the chunk's tag, its offset in the file, the sample and the
    object (index and path) concerned, each None when it does not apply."""

    kind: str
    text: str
    chunk: object = None
    offset: object = None
    sample: object = None
    object: object = None
    path: object = None
    detail: str = ""

    def __str__(self):
        return self.text


class CheckReport:
    """What kyn.check found: whether the file is whole, and if not, what is damaged and how many
    samples can be read (and recovered)."""

    __slots__ = ("path", "whole", "loaded", "objects", "declared_samples", "found_samples",
                 "readable_samples", "recoverable_samples", "damage")

    def __init__(self, path, found):
        self.path = path
        for name in self.__slots__[1:-1]:
            setattr(self, name, found[name])
        self.damage = [Damage(**d) for d in found["damage"]]

    def __bool__(self):
        return self.whole

    def __str__(self):
        if self.whole:
            return (f"{self.path}: whole, {self.readable_samples} samples of {self.objects} "
                    "objects read")
        lines = [f"{self.path}: damaged"] + [f"  {d}" for d in self.damage]
        samples = max(self.declared_samples, self.found_samples)
        lines.append(f"{self.readable_samples} of {samples} samples can be read"
                     + ("" if self.loaded else " once recovered")
                     + f"; recovery would keep {self.recoverable_samples}")
        return "\n".join(lines)

    def __repr__(self):
        state = "whole" if self.whole else f"damaged, {len(self.damage)} findings"
        return f"<kyn.CheckReport '{self.path}' {state}>"


class StitchError(_kyn.Error):
    """kyn.stitch refused its inputs or could not write: `refusal` ("overlap", "gap",
    "objects", ...), `file` (the input concerned, or None) and `reason`, the library's words."""

    def __init__(self, message, refusal, file, reason):
        super().__init__(message)
        self.refusal = refusal
        self.file = file
        self.reason = reason


@dataclasses.dataclass(frozen=True)
class Stitched:
    """What kyn.stitch wrote: the inputs in the order they were joined, the sample count, and
    whether the output is uniformly sampled."""

    path: str
    order: list
    samples: int
    uniform: bool


_REMEDIES = {
    "unreadable": "check it with kyn.check and write that piece again",
    "damaged": "check it with kyn.check and write that piece again",
    "objects": "only pieces of one scene, written the same way, can be joined",
    "static-data": "only pieces of one scene, written the same way, can be joined",
    "space": "only pieces of one scene, written the same way, can be joined",
    "sampling": "write every piece with the same sampling",
    "overlap": "give pieces whose frame ranges do not overlap",
    "gap": "write the missing frames as a piece of their own and give it too",
    "write": "check that the output's directory is writable and has room",
}


def _missing(path):
    return FileNotFoundError(errno.ENOENT, os.strerror(errno.ENOENT), path)


def check(path):
    """Reads every object of every sample of the cache at `path` through the library, and scans
    the lengths and tables of its sample stream (as `kyn check` does). Returns a CheckReport,
    true when the file is whole. Raises FileNotFoundError, or kyn.Error when the file cannot be
    checked at all (not a cache file)."""
    path = os.fspath(path)
    if not os.path.exists(path):
        raise _missing(path)
    found = _kyn._check(path)
    if not found["opened"]:
        raise _kyn.Error(f"cannot check '{path}': {found['failure']} (a cache file starts "
                         "with DKYN)")
    return CheckReport(path, found)


def stitch(out, inputs):
    """Joins caches of the same objects whose time ranges follow one another into `out`, in
    time order, as `kyn stitch` does: a frame range written in pieces comes back together.
    `out` is replaced only once it is complete, and may be one of the inputs. Returns a
    Stitched; raises FileNotFoundError for a missing input and kyn.StitchError, naming the
    input and the reason, when the library refuses (nothing is written then)."""
    out = os.fspath(out)
    inputs = [os.fspath(p) for p in inputs]
    if not inputs:
        raise ValueError("kyn.stitch needs at least one input")
    for path in inputs:
        if not os.path.exists(path):
            raise _missing(path)
    report = _kyn._stitch(out, inputs)
    if not report["written"]:
        file = report["file"] or None
        remedy = _REMEDIES.get(report["refusal"])
        raise StitchError(f"cannot stitch {file or out}: {report['message']}; nothing was "
                          f"written" + (f" ({remedy})" if remedy else ""),
                          report["refusal"], file, report["message"])
    return Stitched(out, report["order"], report["samples"], report["uniform"])
