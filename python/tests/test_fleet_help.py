"""The examples nerva-fleet --help gives run as shown, on inputs named as
they are there, against the tests' local cluster (the example that names a
remote scheduler aside)."""

import os
import shlex
import subprocess
import sys

import cv2

import nerva
from conftest import walkers, write_video


def help_examples():
    text = subprocess.run([sys.executable, "-m", "nerva.fleet", "--help"], check=True, capture_output=True,
                          text=True).stdout
    lines = [line.strip() for line in text.splitlines() if line.startswith("  nerva-fleet ")]
    return [shlex.split(line)[1:] for line in lines if "://" not in line]


def test_the_examples_of_the_help_run(tmp_path, cluster):
    (tmp_path / "videos").mkdir()
    (tmp_path / "masks").mkdir()
    for name in ("videos/a.avi", "videos/b.avi", "cam1.avi", "cam2.avi"):
        write_video(tmp_path / name, walkers(12))
    write_video(tmp_path / "long.mp4", walkers(30))
    for k, frame in enumerate(walkers(3)):
        cv2.imwrite(str(tmp_path / "masks" / f"mask_{k:04d}.png"), (frame[:, :, 0] > 150).astype("uint8") * 255)
    examples = help_examples()
    assert len(examples) == 4
    # The examples run from the inputs' folder: the package must not depend on it.
    env = dict(os.environ, PYTHONPATH=os.pathsep.join([os.path.dirname(os.path.dirname(nerva.__file__)),
                                                       os.environ.get("PYTHONPATH", "")]))
    for argv in examples:
        result = subprocess.run([sys.executable, "-m", "nerva.fleet", *argv, "-q", "--scheduler",
                                 cluster.scheduler_address], cwd=tmp_path, env=env, capture_output=True, text=True,
                                timeout=300)
        assert result.returncode == 0, (argv, result.stderr)
