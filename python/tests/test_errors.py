"""Bad input raises an exception that says what was wrong: wrong dtypes and shapes name the
argument, files that do not load carry the library's reason, bad paths, samples and times get
KeyError, IndexError or ValueError."""

import numpy as np
import pytest

import kyn


@pytest.fixture
def writer(tmp_path):
    w = kyn.Writer(str(tmp_path / "bad.kyn"), {"|m": "mesh", "|xf": "transform"}, samples=1)
    yield w
    w.write_sample()
    w.close()


@pytest.mark.parametrize("channel, value, error, words", [
    ("positions", np.zeros((4, 3), np.int64), TypeError, "float32 or float64, not int64"),
    ("positions", np.zeros((4, 2), np.float32), ValueError, r"shape \(n, 3\) or \(n, 4\)"),
    ("positions", [[0, 0, 0]], TypeError, "not int64"),
    ("counts", np.float32([4]), TypeError, "integers"),
    ("counts", np.int64([2 ** 40]), ValueError, "int32 range"),
    ("matrix", np.eye(3), ValueError, r"shape \(4, 4\)"),
    ("form", 3, TypeError, "str"),
    ("colour", [1], ValueError, "unknown channel 'colour'"),
])
def test_wrong_values_name_the_argument(writer, channel, value, error, words):
    with pytest.raises(error, match=words) as raised:
        writer.write_sample({"|m": {channel: value}})
    assert f"data['|m']['{channel}']" in str(raised.value)


def test_wrong_declarations(tmp_path):
    path = str(tmp_path / "x.kyn")
    with pytest.raises(ValueError, match="unknown kind 'meshh'"):
        kyn.Writer(path, {"|m": "meshh"}, samples=1)
    with pytest.raises(TypeError, match=r"objects\['\|m'\]\['attributes'\]\['a'\].*float16"):
        kyn.Writer(path, {"|m": {"attributes": {"a": np.zeros(2, np.float16)}}}, samples=1)
    with pytest.raises(KeyError, match="no object '|q'"):
        with kyn.Writer(path, ["|m"], samples=1) as w:
            w.write_sample({"|q": {}})
    with pytest.raises(kyn.Error, match="cannot write"):
        kyn.Writer(str(tmp_path / "no" / "such" / "dir.kyn"), ["|m"], samples=1)


def test_files_that_do_not_load(tmp_path, every_kind):
    with pytest.raises(FileNotFoundError):
        kyn.open(tmp_path / "missing.kyn")
    text = tmp_path / "text.kyn"
    text.write_text("not a cache at all")
    with pytest.raises(kyn.Error, match="not a cache file.*Not a Kyn file"):
        kyn.open(text)
    cut = tmp_path / "cut.kyn"
    cut.write_bytes(open(every_kind, "rb").read()[:300])
    with pytest.raises(kyn.Error, match=r"cannot load .*cut.kyn.*(chunk|wrong)") as raised:
        kyn.open(cut)
    assert ".cpp:" not in str(raised.value)  # the library's words, not its source lines
    assert isinstance(raised.value, OSError)


def test_bad_paths_samples_and_times(every_kind):
    with kyn.open(every_kind) as cache:
        mesh = cache["|xf|mesh"]
        with pytest.raises(KeyError):
            cache["|nothing"]
        for sample in (5, -6, 2 ** 40):
            with pytest.raises(IndexError, match="out of range"):
                mesh.positions(sample=sample)
        assert mesh.positions(sample=-1).tolist() == mesh.positions(sample=4).tolist()
        with pytest.raises(TypeError, match="use time="):
            mesh.positions(sample=1.5)
        with pytest.raises(ValueError, match="NaN"):
            mesh.positions(time=float("nan"))
        with pytest.raises(ValueError, match="order"):
            mesh.positions(time=2, order=4)
        with pytest.raises(ValueError, match="not both"):
            mesh.positions(sample=1, time=2)
        with pytest.raises(ValueError, match="before the first sample"):
            mesh.positions(time=0.5)
        with pytest.raises(ValueError, match=r"\|xf\|mesh \(mesh\) has no matrix"):
            mesh.matrix()
        with pytest.raises(ValueError, match="not a NURBS"):
            mesh.control_points()
        with pytest.raises(KeyError, match="no attribute 'nope'"):
            mesh.attribute("nope")
        with pytest.raises(ValueError, match="exactly at time 2.5"):
            cache.sample_index(2.5)
        with pytest.raises(ValueError, match="stored as double"):
            cache["|points"].positions(time=2.5)
        with pytest.raises(ValueError, match="max_samples"):
            cache.max_samples = -1
        # Arguments by position or by name, as in Python.
        assert mesh.positions(4).tolist() == mesh.positions(sample=4).tolist()
        with pytest.raises(TypeError, match="unexpected keyword"):
            mesh.positions(frame=1)
        with pytest.raises(TypeError, match="multiple values for 'sample'"):
            mesh.positions(0, sample=0)
        with pytest.raises(TypeError, match="at most 2 positional"):
            cache.get("|xf", None, True)
