"""kyn.dask on a real cluster of two worker processes, started once for the module: arrays read
in the workers equal the package's own reads, a cache written in pieces equals one written in
one go, failed pieces are named and written again alone, and bad requests fail on the client."""

import os
import pathlib
import subprocess
import sys

import dask
import dask.array as da
import numpy as np
import pytest
from conftest import NONUNIFORM_TIMES, OBJECTS, sample_data, write_every_kind
from distributed import Client, LocalCluster

import kyn
import kyn.dask

EXAMPLES = pathlib.Path(__file__).resolve().parents[2] / "examples"


@pytest.fixture(scope="module")
def client(tmp_path_factory):
    with dask.config.set(kyn.dask.worker_memory_config()):
        cluster = LocalCluster(n_workers=2, threads_per_worker=1, processes=True,
                               dashboard_address=":0",
                               local_directory=str(tmp_path_factory.mktemp("workers")))
    with cluster, Client(cluster) as client:
        yield client


def test_workers_get_the_memory_settings(client):
    settings = client.run(lambda: {name: os.environ.get(name) for name in kyn.dask.WORKER_MALLOC})
    assert list(settings.values()) == [{k: str(v) for k, v in kyn.dask.WORKER_MALLOC.items()}] * 2


def test_blocks_are_worked_in_the_tasks_that_read_them(every_kind):
    positions = kyn.dask.from_cache(every_kind, "|xf|mesh", samples_per_chunk=2)
    firsts = kyn.dask.from_cache(every_kind, "|xf|mesh", samples=[0] * 3, samples_per_chunk=1)
    (moved,) = dask.optimize(da.map_blocks(np.subtract, positions, firsts))
    assert len(moved.__dask_graph__()) == positions.numblocks[0] == 3


READS = [("|xf|mesh", "positions"), ("|xf|mesh", "normals"), ("|xf|mesh", "velocities"),
         ("|curve", "positions"), ("|points", "positions"), ("|xf", "matrix")]
TIMES = [1.0, 1.5, 2.0004, 2.25, 3.7, 8.5, 12.0]


def test_arrays_equal_the_package_reads_bit_for_bit(client, tmp_path):
    arrays, expected = [], []
    for path in (write_every_kind(tmp_path / "uniform.kyn"),
                 write_every_kind(tmp_path / "times.kyn", NONUNIFORM_TIMES)):
        with kyn.open(path) as cache:
            for object_path, field in READS:
                read = getattr(cache[object_path], field)
                for samples in (None, [-1, 0, 3]):
                    arrays.append(kyn.dask.from_cache(path, object_path, field, samples,
                                                      samples_per_chunk=2))
                    expected.append([read(sample=s) for s in samples or range(5)])
                for order in (0, 1, 3) if object_path != "|points" else (0,):
                    arrays.append(kyn.dask.from_cache(path, object_path, field, times=TIMES,
                                                      order=order, samples_per_chunk=3))
                    expected.append([read(time=t, order=order) for t in TIMES])
    computed = client.compute(arrays, sync=True)
    for array, got, want in zip(arrays, computed, expected):
        assert got.dtype == want[0].dtype and array.dtype == got.dtype
        want = np.stack(want)  # compared as bytes: some blends are NaN, as in the library
        assert got.shape == array.shape and got.tobytes() == want.tobytes(), array.name


def write_frames(first, last, path):
    """A piece of the cache of every kind: one sample at each frame first..last."""
    with kyn.Writer(path, OBJECTS, samples=last - first + 1, first_time=first,
                    application="tests", source_file="pieces") as writer:
        for frame in range(first, last + 1):
            writer.write_sample(sample_data(frame))


def reads(cache):
    """Every value of every object at every sample, and what the cache says of itself."""
    values = [cache.num_samples, cache.first_time, cache.last_time, cache.rate, cache.space,
              cache.times.tolist()]
    for obj in cache.objects:
        values.append((obj.path, obj.kind, obj.attributes))
        for s in range(cache.num_samples):
            for read in ("positions", "normals", "velocities", "matrix", "bounds",
                         "topology", "control_points"):
                try:
                    values.append(np.asarray(getattr(obj, read)(sample=s)).tolist())
                except ValueError:
                    values.append(None)
            values += [np.asarray(obj.attribute(a, sample=s)).tolist() for a in obj.attributes]
    return values


def test_a_cache_written_in_pieces_equals_one_written_in_one_go(client, tmp_path):
    whole, joined = str(tmp_path / "whole.kyn"), str(tmp_path / "joined.kyn")
    write_frames(3, 12, whole)
    written = kyn.dask.write_in_pieces(write_frames, joined, 3, 12, 4, client=client)
    assert written.ranges == [(3, 5), (6, 8), (9, 10), (11, 12)] == written.produced
    assert written.samples == 10 and not os.path.exists(joined + ".pieces")
    with kyn.open(whole) as a, kyn.open(joined) as b:
        assert reads(a) == reads(b)
    # On dask's default scheduler, with the pieces kept where they were asked to go.
    kept = tmp_path / "kept"
    kyn.dask.write_in_pieces(write_frames, joined, 3, 12, 2, workdir=kept, keep_pieces=True)
    assert sorted(os.listdir(kept)) == ["joined.3-7.kyn", "joined.8-12.kyn"]
    with kyn.open(whole) as a, kyn.open(joined) as b:
        assert reads(a) == reads(b)


class CountedProduce:
    """write_frames that leaves a file for each call, since it runs in other processes, and
    fails on the ranges told: by raising, or by writing the wrong frames."""

    def __init__(self, calls, raise_on=(), shift_on=()):
        self.calls, self.raise_on, self.shift_on = calls, raise_on, shift_on

    def __call__(self, first, last, path):
        count = len(list(self.calls.glob(f"{first}-{last}.*")))
        (self.calls / f"{first}-{last}.{count}").touch()
        if first in self.raise_on:
            raise RuntimeError(f"the simulation blew up at frame {first}")
        write_frames(first + (first in self.shift_on), last, path)

    def counts(self):
        names = [p.name.rsplit(".", 1)[0] for p in self.calls.iterdir()]
        return {name: names.count(name) for name in set(names)}


def test_failed_pieces_are_named_kept_and_written_again_alone(client, tmp_path):
    out, calls = str(tmp_path / "farm.kyn"), tmp_path / "calls"
    calls.mkdir()
    workdir = pathlib.Path(out + ".pieces")
    with pytest.raises(kyn.dask.PiecesError) as raised:
        kyn.dask.write_in_pieces(CountedProduce(calls, raise_on=[4], shift_on=[7]), out, 1, 12,
                                 4, client=client)
    message = str(raised.value)
    assert "2 of 4 pieces failed" in message and str(workdir) in message
    assert "frames 4 to 6: RuntimeError: the simulation blew up at frame 4" in message
    assert "frames 7 to 9: ValueError: the piece written is not right" in message
    assert "not one at each frame 7 to 9" in message
    assert [(f.first, f.last) for f in raised.value.failures] == [(4, 6), (7, 9)]
    assert not os.path.exists(out)
    assert {"farm.1-3.kyn", "farm.10-12.kyn"} <= set(os.listdir(workdir))
    # A piece cut short since (a worker killed while it wrote, say) is written again too.
    cut = workdir / "farm.10-12.kyn"
    cut.write_bytes(cut.read_bytes()[:-100])

    written = kyn.dask.write_in_pieces(CountedProduce(calls), out, 1, 12, 4, client=client)
    assert written.produced == [(4, 6), (7, 9), (10, 12)]
    assert CountedProduce(calls).counts() == {"1-3": 1, "4-6": 2, "7-9": 2, "10-12": 2}
    whole = str(tmp_path / "whole.kyn")
    write_frames(1, 12, whole)
    with kyn.open(whole) as a, kyn.open(out) as b:
        assert reads(a) == reads(b)
    assert not workdir.exists()


def test_bad_requests_fail_on_the_client(client, tmp_path, every_kind):
    cut = tmp_path / "cut.kyn"
    cut.write_bytes(open(every_kind, "rb").read()[:300])
    with pytest.raises(kyn.Error) as loader:
        kyn.open(cut)
    with pytest.raises(kyn.Error) as raised:
        kyn.dask.from_cache(cut, "|xf|mesh")
    assert str(raised.value) == str(loader.value)
    with pytest.raises(FileNotFoundError):
        kyn.dask.from_cache(tmp_path / "missing.kyn", "|xf|mesh")
    with pytest.raises(KeyError):
        kyn.dask.from_cache(every_kind, "|nothing")
    with pytest.raises(ValueError, match=r"\|xf \(transform\) has no positions"):
        kyn.dask.from_cache(every_kind, "|xf")
    with pytest.raises(ValueError, match=r"\|xf\|mesh \(mesh\) has no matrix"):
        kyn.dask.from_cache(every_kind, "|xf|mesh", "matrix", times=[2.5])
    with pytest.raises(ValueError, match="field must be one of"):
        kyn.dask.from_cache(every_kind, "|xf|mesh", "colours")
    with pytest.raises(IndexError, match="sample 5 is out of range"):
        kyn.dask.from_cache(every_kind, "|xf|mesh", samples=[0, 5])
    with pytest.raises(ValueError, match="not both"):
        kyn.dask.from_cache(every_kind, "|xf|mesh", samples=[0], times=[1.0])
    with pytest.raises(ValueError, match="pieces must be 1 to 3"):
        kyn.dask.write_in_pieces(write_frames, tmp_path / "x.kyn", 1, 3, 4, client=client)


def test_a_file_that_changes_on_disk_fails_the_tasks_that_see_it(client, tmp_path):
    path = write_every_kind(tmp_path / "changing.kyn")
    positions = kyn.dask.from_cache(path, "|xf|mesh", samples_per_chunk=1)
    client.compute(positions[:2], sync=True)  # the workers now hold the file open
    write_frames(1, 5, path)  # the same objects and shapes, other values
    with pytest.raises(kyn.dask.FileChangedError, match="changed on disk"):
        client.compute(positions, sync=True)
    with kyn.open(path) as cache:
        again = kyn.dask.from_cache(path, "|xf|mesh")
        assert np.array_equal(client.compute(again, sync=True),
                              [cache["|xf|mesh"].positions(sample=s) for s in range(5)])


def test_the_examples_on_a_running_scheduler(client, tmp_path):
    out, saved = str(tmp_path / "ripples.kyn"), str(tmp_path / "moved.npy")
    run = [sys.executable]
    address = ["--scheduler", client.scheduler.address]
    subprocess.run(run + [str(EXAMPLES / "farm.py"), out, "--frames", "12", "--pieces", "3",
                          "--side", "16"] + address, check=True, capture_output=True)
    printed = subprocess.run(run + [str(EXAMPLES / "displacement.py"), out, "--save", saved]
                             + address, check=True, capture_output=True, text=True).stdout
    assert "|pond|water: 256 vertices over 12 samples" in printed
    with kyn.open(out) as cache:
        whole = np.stack([cache["|pond|water"].positions(sample=s) for s in range(12)])
    assert np.array_equal(np.load(saved),
                          np.sqrt(((whole - whole[0]) ** 2).sum(axis=-1)).max(axis=0))


def test_the_package_does_not_need_dask():
    script = ("import sys, kyn; assert not [m for m in sys.modules if m.startswith('dask')]\n"
              "sys.modules['dask'] = None\n"
              "try:\n    import kyn.dask\nexcept ImportError as e:\n    print(e)\n")
    printed = subprocess.run([sys.executable, "-c", script], check=True, capture_output=True,
                             text=True).stdout
    assert "python3-dask" in printed and "python3-distributed" in printed
