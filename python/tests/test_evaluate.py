"""Evaluation at a time: the package gives exactly what the library evaluates, for every kind
that the library evaluates, at every order, in a uniform file and in one with times of its own;
and data the library reads only at samples is evaluated alike."""

import numpy as np
import pytest

import kyn
from conftest import reference

TIMES = [0.5, 1.0, 1.0005, 2.3, 3.5, 4.75, 4.9995, 5.0, 7.0, 8.5, 9.0, 12.0]
READS = [  # (object, what the reference evaluates, the package's read)
    ("|xf|mesh", "positions", lambda o, t, k: o.positions(time=t, order=k)),
    ("|points", "positions64", lambda o, t, k: o.positions(time=t, order=k)),
    ("|xf", "matrix", lambda o, t, k: o.matrix(time=t, order=k)),
    ("|xf|surface", "surface", lambda o, t, k: o.control_points(time=t, order=k)),
    ("|curve", "curve", lambda o, t, k: o.control_points(time=t, order=k)),
    ("|xf|mesh", "attribute:heat", lambda o, t, k: o.attribute("heat", time=t, order=k)),
]


def package_read(read, obj, time, order):
    try:
        return np.asarray(read(obj, time, order), dtype=np.float64).reshape(-1)
    except ValueError:
        return None


@pytest.mark.parametrize("fixture", ["every_kind", "every_kind_nonuniform"])
def test_the_package_evaluates_as_the_library(fixture, request):
    path = request.getfixturevalue(fixture)
    failures = 0
    with kyn.open(path) as cache:
        for object_path, what, read in READS:
            for time in TIMES:
                for order in range(4):
                    expected = reference(path, object_path, what, time, order)
                    got = package_read(read, cache[object_path], time, order)
                    failures += expected is None
                    assert (got is None) == (expected is None), (object_path, what, time, order)
                    if got is not None:
                        # Bit for bit, not-a-number included.
                        assert got.tobytes() == expected.tobytes(), (object_path, time, order)
    assert failures > 0  # double positions between samples and times before the first fail


@pytest.mark.parametrize("max_samples", [0, 1])
def test_normals_evaluate_as_positions(every_kind_nonuniform, max_samples):
    # The mesh holds the same arrays as positions and as normals.
    with kyn.open(every_kind_nonuniform, max_samples=max_samples) as cache:
        mesh = cache["|xf|mesh"]
        for time in [1.0, 2.5, 3.0, 8.25, 9.5]:
            for order in range(4):
                positions = mesh.positions(time=time, order=order)
                np.testing.assert_array_equal(mesh.normals(time=time, order=order), positions)
        # Velocities are stored as float64, and blend in float64.
        v = mesh.velocities(time=1.5, order=1)
        assert v.dtype == np.float64
        np.testing.assert_allclose(v, mesh.positions(time=1.5) * 2, rtol=1e-6)


def test_integers_and_topology_hold_at_a_time(every_kind):
    with kyn.open(every_kind) as cache:
        mesh = cache["|xf|mesh"]
        assert mesh.attribute("ids", time=2.7, order=3).tolist() == [1, 2, 3, 4]
        assert mesh.topology(time=2.7)[1].tolist() == [0, 1, 3, 2]
        np.testing.assert_array_equal(mesh.bounds(time=2.7), mesh.bounds(sample=1))
