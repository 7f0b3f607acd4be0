"""Reading every object kind at its stored samples, the file-wide values, lookups and the tree."""

import datetime

import numpy as np

import kyn
from conftest import OBJECTS, SAMPLES, sample_data


def test_file_wide_values_and_objects(every_kind):
    with kyn.open(every_kind) as cache:
        assert (cache.application, cache.source_file) == ("tests", "conftest")
        assert isinstance(cache.date, datetime.datetime)
        assert abs(cache.date - datetime.datetime.now(datetime.timezone.utc)).total_seconds() < 600
        assert (cache.first_time, cache.last_time, cache.rate) == (1.0, 5.0, 1.0)
        assert cache.num_samples == SAMPLES and cache.space == 1
        assert cache.times.dtype == np.float32 and cache.times.tolist() == [1, 2, 3, 4, 5]
        assert [o.path for o in cache.objects] == list(OBJECTS)
        assert [o.kind for o in cache.objects] == [
            "transform", "mesh", "nurbssurface", "nurbscurve", "locator", "lxcoordsystem",
            "geometry"]
        assert cache.objects[1].name == "mesh" and cache.objects[1].index == 1
        assert cache.sample_index(3.0) == 2
        assert len(cache) == 7


def test_every_kind_reads_back_as_written(every_kind):
    with kyn.open(every_kind) as cache:
        mesh, surface, curve = cache["|xf|mesh"], cache["|xf|surface"], cache["|curve"]
        for s in range(SAMPLES):
            data = sample_data(s)
            for path in ("|xf|mesh", "|points"):
                np.testing.assert_array_equal(cache[path].positions(sample=s),
                                              data[path]["positions"])
            assert cache["|points"].positions(sample=s).dtype == np.float64
            np.testing.assert_array_equal(cache["|xf"].matrix(sample=s), data["|xf"]["matrix"])
            m = data["|xf|mesh"]
            np.testing.assert_array_equal(mesh.normals(sample=s), m["normals"])
            v = mesh.velocities(sample=s)
            assert v.dtype == np.float64
            np.testing.assert_array_equal(v, m["velocities"])
            np.testing.assert_array_equal(mesh.attribute("heat", sample=s),
                                          m["attributes"]["heat"])
            ids = mesh.attribute("ids", sample=s)
            assert ids.dtype == np.int32 and ids.tolist() == [s, s + 1, s + 2, s + 3]
            # The surface's net repeats its periodic direction: V column 2 is column 0.
            net = surface.control_points(sample=s)
            assert net.shape == (2, 3, 4)
            stored = data["|xf|surface"]["positions"].reshape(2, 2, 3)
            np.testing.assert_array_equal(net[:, :2, :3], stored)
            np.testing.assert_array_equal(net[:, 2], net[:, 0])
            assert (net[..., 3] == 1).all()
            np.testing.assert_array_equal(curve.control_points(sample=s)[:, :3],
                                          data["|curve"]["positions"])

        counts, indices = mesh.topology()
        assert counts.tolist() == [4] and indices.tolist() == [0, 1, 3, 2]
        assert not mesh.is_animated("counts") and mesh.is_animated("positions")
        np.testing.assert_array_equal(mesh.attribute("uv"), OBJECTS["|xf|mesh"]["attributes"]["uv"])
        assert mesh.attributes == ["heat", "ids", "uv"]
        assert mesh.is_subd
        points = sample_data(2)["|xf|mesh"]["positions"]
        np.testing.assert_array_equal(mesh.bounds(sample=2), [points.min(0), points.max(0)])

        assert cache["|xf"].inherits_transform is False
        assert surface.degree() == (1, 1) and surface.form() == ("kOpen", "kPeriodic")
        ku, kv = surface.knots()
        assert ku.tolist() == [0, 0, 1, 1] and kv.tolist() == [0, 0, 1, 2, 2]
        assert surface.knots(end_knots=False)[0].tolist() == [0, 1]
        assert curve.degree() == 1 and curve.form() == "kOpen"
        assert curve.knots().dtype == np.float64 and curve.knots().tolist() == [0, 0, 1, 2, 2]

        assert cache["|locator"].bounds().tolist() == [[0, 1, 2], [3, 4, 5]]
        system = cache["|system"]
        assert (system.display_shape, system.parent_rig) == (3, "rig")
        assert system.scoped and system.use_as_clipping_plane
        assert system.attribute("parentRig") == ["rig"]


def test_lookup_follows_the_library_and_offers_exact_paths(tmp_path):
    path = str(tmp_path / "names.kyn")
    with kyn.Writer(path, ["|a|x", "|b|x", "|b|y"], samples=0):
        pass
    with kyn.open(path) as cache:
        # The library matches names by their last component, the first object winning.
        assert cache["|b|x"].index == 0
        assert cache["|b|y"].index == 2
        assert cache["|b|x"].index == 0  # the same answer after a lookup further on
        assert cache["|ns:b|ns:y"].index == 2
        assert cache.get("|b|x", exact=True).index == 1
        assert cache.get("|c|z") is None and "|c|z" not in cache and "|q|y" in cache
        tree = cache.tree
        assert [n.path for n in tree.walk()] == ["", "|a", "|a|x", "|b", "|b|x", "|b|y"]
        assert tree.children[1].object is None
        assert tree.children[1].children[0].object.index == 1


def test_a_static_file_reads_its_static_data(tmp_path):
    path = str(tmp_path / "static.kyn")
    points = np.float32([[0, 0, 0], [1, 2, 3]])
    with kyn.Writer(path, {"|p": {"kind": "geometry", "positions": points}}, samples=0):
        pass
    with kyn.open(path) as cache:
        assert cache.num_samples == 0 and cache.times.size == 0
        np.testing.assert_array_equal(cache["|p"].positions(), points)
        np.testing.assert_array_equal(cache["|p"].positions(time=7), points)
