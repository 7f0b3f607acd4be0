"""kyn.check and kyn.stitch: the library's findings and refusals, in its own words."""

import shutil

import pytest
from conftest import NONUNIFORM_TIMES, write_every_kind

import kyn


def test_check_says_what_is_damaged(tmp_path, every_kind):
    report = kyn.check(every_kind)
    assert report and report.readable_samples == 5 and report.objects == 7
    assert str(report).endswith("whole, 5 samples of 7 objects read")
    cut = tmp_path / "cut.kyn"
    cut.write_bytes(open(every_kind, "rb").read()[:-200])
    report = kyn.check(cut)
    assert not report and report.loaded and report.readable_samples == 4
    assert any(d.kind == "cut" and d.sample == 4 and d.text.startswith("sample 4")
               for d in report.damage), str(report)
    with pytest.raises(FileNotFoundError):
        kyn.check(tmp_path / "missing.kyn")
    (tmp_path / "text.kyn").write_text("not a cache")
    with pytest.raises(kyn.Error, match="cannot check .*text.kyn"):
        kyn.check(tmp_path / "text.kyn")


def test_stitch_joins_in_time_order_and_names_what_it_refuses(tmp_path, every_kind):
    later = str(tmp_path / "later.kyn")
    shutil.copy(every_kind, later)
    with pytest.raises(kyn.StitchError) as raised:
        kyn.stitch(tmp_path / "out.kyn", [every_kind, later])
    assert raised.value.refusal == "overlap" and raised.value.file == later
    assert later in str(raised.value) and raised.value.reason in str(raised.value)
    assert not (tmp_path / "out.kyn").exists()

    second = write_every_kind(tmp_path / "second.kyn", [10.0, 11.0, 12.5, 13.0, 20.0])
    first = write_every_kind(tmp_path / "first.kyn", NONUNIFORM_TIMES)
    joined = kyn.stitch(tmp_path / "joined.kyn", [second, first])
    assert joined.order == [first, second] and joined.samples == 10 and not joined.uniform
    with kyn.open(joined.path) as cache:
        assert cache.times.tolist() == NONUNIFORM_TIMES + [10, 11, 12.5, 13, 20]
