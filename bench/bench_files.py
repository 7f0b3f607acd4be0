"""What the Python benchmarks share: their command line, the workloads W1 and W2 written once
by the C++ baseline program and read into the page cache before anything is timed, and the
verdict column of their tables."""

import argparse
import os
import subprocess


def arguments(description, default_dir, argv=None):
    parser = argparse.ArgumentParser(description=description)
    parser.add_argument("build", help="the build directory (with bin/python_baseline)")
    parser.add_argument("--dir", default=default_dir, help="where the files go")
    parser.add_argument("--repetitions", type=int, default=5)
    parser.add_argument("--keep", action="store_true", help="keep the files for another run")
    return parser.parse_args(argv)


def workloads(build, directory, names=("w1", "w2")):
    """The paths of the named workloads in `directory`, written there when one is missing (the
    baseline program writes both; one not asked for is removed), each read once so that the
    timings find it in the page cache."""
    paths = [os.path.join(directory, f"{name}.kyn") for name in names]
    if not all(os.path.exists(path) for path in paths):
        os.makedirs(directory, exist_ok=True)
        print(f"writing the workloads to {directory} ...", flush=True)
        subprocess.run([os.path.join(build, "bin", "python_baseline"), "write", directory],
                       check=True)
        for name in {"w1", "w2"} - set(names):
            os.remove(os.path.join(directory, f"{name}.kyn"))
    for path in paths:
        with open(path, "rb") as f:
            while f.read(1 << 24):
                pass
    return paths


def verdict(met):
    """The Met column: "-" for a figure without a target."""
    return "-" if met is None else "yes" if met else "**no**"
