"""Writing: the streaming writer's files, appending to a file in place, writing a file whole
(and dying while at it), a cache built from nothing, and export to another format."""

import resource
import signal
import subprocess
import sys

import numpy as np
import pytest

import kyn


def grid(frame):
    return np.float32([[0, 0, frame], [1, 0, frame], [1, 1, frame], [0, 1, frame]])


QUAD = {"kind": "mesh", "counts": [4], "indices": [0, 1, 2, 3]}


def test_the_writer_checks_what_it_is_given(tmp_path):
    path = str(tmp_path / "w.kyn")
    w = kyn.Writer(path, {"|m": QUAD}, samples=2, first_time=10, rate=2)
    w.write_sample({"|m": {"positions": grid(10)}}, time=10)
    with pytest.raises(ValueError, match="lies at time 10.5"):
        w.write_sample({"|m": {"positions": grid(11)}}, time=11)
    w.write_sample({0: {"positions": grid(10.5)}})
    with pytest.raises(ValueError, match="written already"):
        w.write_sample({})
    w.close()
    with kyn.open(path) as cache:
        assert cache.times.tolist() == [10, 10.5] and cache.rate == 2
    incomplete = str(tmp_path / "short.kyn")
    with pytest.raises(ValueError, match="1 of 3 samples"):
        with kyn.Writer(incomplete, {"|p": "geometry"}, samples=3) as short:
            short.write_sample({"|p": {"positions": grid(1)}})
    with kyn.open(incomplete) as cache:
        assert cache["|p"].positions(sample=0).tolist() == grid(1).tolist()
        with pytest.raises(ValueError, match="no positions at sample 1"):
            cache["|p"].positions(sample=1)


def test_save_appends_in_place(tmp_path):
    path = str(tmp_path / "grow.kyn")
    with kyn.Writer(path, {"|m": QUAD}, samples=3, application="tests",
                    source_file="test_write") as w:
        for frame in (1, 2, 3):
            w.write_sample({"|m": {"positions": grid(frame)}})
    old = open(path, "rb").read()
    cache = kyn.edit(path)
    for frame in (4, 5):
        cache.write_sample(frame, {"|m": {"positions": grid(frame)}})
    assert cache.modified
    cache.save()
    new = open(path, "rb").read()
    # The samples that were there stay where they were: only tables and metadata changed.
    first_sample = old.index(b"SAMP")
    assert len(new) > len(old) and new[first_sample:len(old)] == old[first_sample:]
    with kyn.open(path) as read:
        assert read.num_samples == 5 and read.last_time == 5
        assert read["|m"].positions(sample=4).tolist() == grid(5).tolist()


# Changes a sample in the middle, so that the save writes the whole file, in a process that
# dies (SIGXFSZ) as soon as it writes past `limit` bytes of any file.
SAVE_AND_DIE = """
import resource, signal, sys
import numpy as np
import kyn
signal.signal(signal.SIGXFSZ, signal.SIG_DFL)
limit = int(sys.argv[2])
resource.setrlimit(resource.RLIMIT_FSIZE, (limit, limit))
cache = kyn.edit(sys.argv[1])
cache.write_sample(2, {"|m": {"positions": np.full((4, 3), 20, np.float32)}})
cache.save()
"""


def test_a_save_that_dies_leaves_the_old_file_or_the_new(tmp_path):
    path = str(tmp_path / "safe.kyn")
    with kyn.Writer(path, {"|m": QUAD}, samples=3) as w:
        for frame in (1, 2, 3):
            w.write_sample({"|m": {"positions": grid(frame)}})
    old = open(path, "rb").read()
    for limit in (1, len(old) // 2, len(old) - 1):
        died = subprocess.run([sys.executable, "-c", SAVE_AND_DIE, path, str(limit)], check=False)
        assert died.returncode == -signal.SIGXFSZ
        assert open(path, "rb").read() == old, f"cut at {limit} bytes"
    subprocess.run([sys.executable, "-c", SAVE_AND_DIE, path, str(resource.RLIM_INFINITY)],
                   check=True)
    with kyn.open(path) as read:
        assert read["|m"].positions(sample=1).tolist() == np.full((4, 3), 20).tolist()


WRITE_AND_DIE = """
import os, sys
import numpy as np
import kyn
w = kyn.Writer(sys.argv[1], {"|p": "geometry"}, samples=5, commit=sys.argv[2])
for frame in (1, 2, 3):
    w.write_sample({"|p": {"positions": np.full((2, 3), frame, np.float32)}})
os._exit(1)
"""


@pytest.mark.parametrize("commit", ["each_sample", "each_sample_to_disk"])
def test_a_writer_that_commits_each_sample_leaves_the_samples_written(tmp_path, commit):
    path = str(tmp_path / "died.kyn")
    died = subprocess.run([sys.executable, "-c", WRITE_AND_DIE, path, commit], check=False)
    assert died.returncode == 1
    with kyn.open(path) as cache:
        assert cache.num_samples == 3 and cache.times.tolist() == [1, 2, 3]
        assert cache["|p"].positions(sample=2).tolist() == np.full((2, 3), 3).tolist()
    with pytest.raises(ValueError, match="commit must be one of"):
        kyn.Writer(path, {"|p": "geometry"}, samples=1, commit="never")


def test_a_cache_built_in_memory(tmp_path):
    cache = kyn.edit()
    with pytest.raises(ValueError, match="without objects"):
        cache.save_as(str(tmp_path / "nothing.kyn"))
    mesh = cache.add_object("|root|mesh", dict(QUAD, animated_attributes=["heat"],
                                                attributes={"tag": "quad"}))
    xf = cache.add_object("|root", "transform")
    assert mesh.cache is cache
    for frame in (1, 2, 4):  # the step changes: the cache keeps every sample's time
        cache.write_sample(frame, {
            mesh: {"positions": grid(frame),
                   "attributes": {"heat": np.full(4, frame, np.float64)}},
            "|root": {"matrix": np.eye(4) * frame}})
    with pytest.raises(ValueError, match="no file yet"):
        cache.save()
    cache.rename(xf, "|top")
    path = str(tmp_path / "built.kyn")
    cache.save_as(path)
    assert not cache.modified and cache.path == path
    with kyn.open(path) as read:
        assert read.times.tolist() == [1, 2, 4] and read.rate == 0
        assert [o.path for o in read.objects] == ["|root|mesh", "|top"]
        assert read["|root|mesh"].attribute("heat", sample=2).tolist() == [4] * 4
        assert read["|root|mesh"].attribute("tag") == ["quad"]
        assert read["|top"].matrix(sample=1)[0, 0] == 2
        assert read["|root|mesh"].positions(time=3, order=0).tolist() == grid(4).tolist()


@pytest.mark.skipif(not hasattr(kyn._kyn, "_export"), reason="built without the converters")
def test_export_through_the_converters(every_kind, tmp_path):
    out = tmp_path / "mesh.pc2"
    result = kyn.export(every_kind, out, path="|xf|mesh", samples=(1, 3))
    assert result == kyn.ExportResult([str(out)], ["|xf|mesh"], [], [], 3)
    header = np.fromfile(out, np.float32, count=8)
    assert header[5:7].tolist() == [2.0, 1.0]  # the first frame written, frames per sample
    written = np.fromfile(out, np.float32, offset=32).reshape(3, 4, 3)
    with kyn.open(every_kind) as cache:
        for s in range(3):
            assert np.array_equal(written[s], cache["|xf|mesh"].positions(sample=s + 1))
    with pytest.raises(kyn.Error, match=r"2 objects .* have animated positions"):
        kyn.export(every_kind, tmp_path / "which.pc2")
    with pytest.raises(FileNotFoundError):
        kyn.export(tmp_path / "missing.kyn", out)
