"""Arrays of stored samples view the cache's memory and keep it alive: whatever the order of
calls, an array reads what it read when it was taken, and never memory that was freed (the
sanitizer build runs this suite too)."""

import gc

import numpy as np
import pytest

import kyn
from conftest import SAMPLES, sample_data, write_every_kind


def expected(s):
    return sample_data(s)["|xf|mesh"]["positions"]


def test_an_array_outlives_its_cache_object(every_kind):
    mesh = kyn.open(every_kind)["|xf|mesh"]
    points = mesh.positions(sample=3)
    counts, _ = mesh.topology()
    del mesh
    gc.collect()
    np.testing.assert_array_equal(points, expected(3))
    assert counts.tolist() == [4]
    assert points.base is not None and not points.flags.owndata


def test_samples_that_arrays_view_survive_eviction(every_kind):
    with kyn.open(every_kind, max_samples=1) as cache:
        mesh = cache["|xf|mesh"]
        arrays = [mesh.positions(sample=s) for s in range(SAMPLES)]
        arrays += [mesh.attribute("heat", sample=s) for s in range(SAMPLES)]
        arrays.append(mesh.positions(time=2.5, order=3))
        for s in range(SAMPLES):
            np.testing.assert_array_equal(arrays[s], expected(s))
            np.testing.assert_array_equal(arrays[SAMPLES + s],
                                          sample_data(s)["|xf|mesh"]["attributes"]["heat"])
        del arrays
        cache.max_samples = 2
        np.testing.assert_array_equal(mesh.positions(sample=4), expected(4))


@pytest.mark.parametrize("max_samples", [1, 2, 3])
def test_evaluation_beside_held_samples_reads_what_an_unbounded_cache_reads(every_kind,
                                                                               max_samples):
    with kyn.open(every_kind) as unbounded, kyn.open(every_kind, max_samples) as bounded:
        held = [bounded["|xf|mesh"].positions(sample=s) for s in (0, 1)]
        for time in (2.25, 3.5, 4.5, 1.75):
            for order in (1, 2, 3):
                for what in ("positions", "normals"):
                    read = getattr(bounded["|xf|mesh"], what)
                    np.testing.assert_array_equal(
                        read(time=time, order=order),
                        getattr(unbounded["|xf|mesh"], what)(time=time, order=order))
        np.testing.assert_array_equal(held[1], expected(1))


def test_close_and_reload_leave_arrays_whole(tmp_path):
    path = write_every_kind(tmp_path / "first.kyn")
    cache = kyn.open(path)
    mesh = cache["|xf|mesh"]
    stored, static = mesh.positions(sample=1), mesh.attribute("uv")
    evaluated = mesh.positions(time=1.5)
    write_every_kind(path, times=[10, 11, 12, 13, 14])  # the same path, another file
    cache.reload()
    assert cache.first_time == 10
    with pytest.raises(ValueError, match="loaded again"):
        mesh.positions()
    np.testing.assert_array_equal(stored, expected(1))
    cache.close()
    with pytest.raises(ValueError, match="closed"):
        cache["|xf|mesh"]
    gc.collect()
    np.testing.assert_array_equal(stored, expected(1))
    assert static.tolist() == [[0, 1], [2, 3], [4, 5], [6, 7]]
    assert evaluated.shape == (4, 3)
    with pytest.raises(ValueError, match="read-only"):
        stored[0, 0] = 1


def test_editing_a_sample_that_arrays_view(every_kind):
    cache = kyn.edit(every_kind)
    mesh = cache["|xf|mesh"]
    before = mesh.positions(sample=0)
    cache.write_sample(1.0, {mesh: {"positions": np.zeros((2, 3), np.float32)}})
    assert mesh.positions(sample=0).tolist() == [[0, 0, 0], [0, 0, 0]]
    np.testing.assert_array_equal(before, expected(0))
    cache.truncate(2.0)
    assert cache.num_samples == 2
    np.testing.assert_array_equal(before, expected(0))
