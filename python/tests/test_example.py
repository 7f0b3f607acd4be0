"""The Python example reads the file that the C++ demo writes, and writes one of its own."""

import os
import pathlib
import subprocess
import sys

import kyn

EXAMPLE = pathlib.Path(__file__).resolve().parents[2] / "examples" / "kyndemo.py"


def test_the_example_reads_the_demo_and_writes_a_cache(tmp_path):
    demo, ripple = str(tmp_path / "demo.kyn"), str(tmp_path / "ripple.kyn")
    subprocess.run([os.environ["KYN_DEMO"], demo], check=True, capture_output=True)
    out = subprocess.run([sys.executable, str(EXAMPLE), demo, ripple], check=True,
                         capture_output=True, text=True).stdout
    assert "|root|mesh: mesh" in out and "frame 12.5, transform translation: [12.5" in out
    with kyn.open(ripple) as cache:
        assert cache.num_samples == 24 and cache["|ripple"].positions().shape == (64, 3)
