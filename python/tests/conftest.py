"""Shared files for the suite: a cache of every object kind written with kyn.Writer (uniform,
or at times of its own), the arrays it was written from, and the reference reader that says
what the library itself evaluates."""

import os
import subprocess

import numpy as np
import pytest

import kyn

SAMPLES = 5
NONUNIFORM_TIMES = [1.0, 2.0, 4.0, 8.0, 9.0]


def sample_data(s):
    """What every animated object holds at sample s: smooth enough in s that each order of
    evaluation gives another result."""
    t = float(s)
    rng = np.random.default_rng(s)
    points = (rng.random((4, 3)) + t * t * 0.25).astype(np.float32)
    translation = np.eye(4)
    translation[3, :3] = [t, t * t, -t]
    return {
        "|xf": {"matrix": translation},
        "|xf|mesh": {
            "positions": points,
            "normals": points,  # the same data: evaluated alike at any time
            "velocities": points.astype(np.float64) * 2,
            "attributes": {"heat": np.linspace(0, 1, 4) * (1 + t * t),
                           "ids": np.arange(4, dtype=np.int32) + s},
        },
        "|xf|surface": {"positions": (rng.random((4, 3)) + t).astype(np.float32)},
        "|curve": {"positions": (rng.random((3, 3)) - t * t).astype(np.float32)},
        "|points": {"positions": rng.random((2, 4)) + t},  # float64
    }


OBJECTS = {
    "|xf": {"kind": "transform", "inherits_transform": False},
    "|xf|mesh": {"kind": "mesh", "counts": [4], "indices": [0, 1, 3, 2],
                 "attributes": {"uv": np.arange(8, dtype=np.float32).reshape(4, 2)},
                 "animated_attributes": ["heat", "ids"]},
    "|xf|surface": {"kind": "nurbssurface", "degree": [1, 1], "form": ["kOpen", "kPeriodic"],
                    "knots_u": np.float32([0, 1]), "knots_v": np.float32([0, 1, 2])},
    "|curve": {"kind": "nurbscurve", "degree": 1, "form": "kOpen",
               "knots": np.float64([0, 1, 2])},
    "|locator": {"kind": "locator", "bounds": np.float64([[0, 1, 2], [3, 4, 5]])},
    "|system": {"kind": "lxcoordsystem",
                "attributes": {"displayShape": np.int32([3]), "parentRig": "rig"}},
    "|points": "geometry",
}


def write_every_kind(path, times=None):
    timing = {"times": times} if times else {"samples": SAMPLES, "first_time": 1.0}
    with kyn.Writer(path, OBJECTS, application="tests", source_file="conftest", **timing) as w:
        for s in range(SAMPLES):
            w.write_sample(sample_data(s))
    return str(path)


@pytest.fixture
def every_kind(tmp_path):
    return write_every_kind(tmp_path / "every_kind.kyn")


@pytest.fixture
def every_kind_nonuniform(tmp_path):
    return write_every_kind(tmp_path / "every_kind_times.kyn", NONUNIFORM_TIMES)


def reference(path, object_path, what, time, order):
    """What the library evaluates, as float64 values; None when it answers false."""
    result = subprocess.run(
        [os.environ["KYN_REFERENCE"], path, object_path, what, float(time).hex(), str(order)],
        capture_output=True, text=True, check=False)
    if result.returncode not in (0, 1):
        raise RuntimeError(result.stderr)
    if result.returncode == 1:
        return None
    return np.array([float.fromhex(v) for v in result.stdout.split()])
