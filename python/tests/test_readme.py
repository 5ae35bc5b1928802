"""Every command of the README runs as written: its ```sh blocks line by
line (blocks marked `sh not-run: reason` need a camera, a cluster or an
install), and its ```python blocks as one script, in a folder holding the
files they name."""

import os
import pathlib
import re
import shutil
import subprocess
import sys

import cv2
import numpy as np
import pytest

from conftest import walkers, write_video

README = pathlib.Path(__file__).resolve().parents[2] / "README.md"
VTEST = "/usr/share/doc/opencv-doc/examples/data/vtest.avi"


def blocks(language):
    return re.findall(rf"^```{language}\n(.*?)^```", README.read_text(), re.S | re.M)


@pytest.fixture(scope="module")
def folder(tmp_path_factory, nerva_blobs):
    if not os.path.exists(VTEST) or shutil.which("jq") is None or shutil.which("ffmpeg") is None:
        pytest.skip("vtest.avi (opencv-doc), jq or ffmpeg is missing: scripts/setup.sh installs them")
    here = tmp_path_factory.mktemp("readme")
    # Its first 200 frames, copied as they are: the commands run as on the whole video, in a quarter of the time.
    subprocess.run(["ffmpeg", "-nostdin", "-loglevel", "error", "-i", VTEST, "-frames:v", "200", "-c", "copy",
                    str(here / "vtest.avi")], check=True)
    (here / "masks").mkdir()
    (here / "videos").mkdir()
    for k in range(3):
        mask = np.zeros((48, 64), np.uint8)
        mask[5 + k:20 + k, 10:30] = 255
        cv2.imwrite(str(here / "masks" / f"m_{k:03d}.png"), mask)
    for k in range(2):
        write_video(here / "videos" / f"cam{k}.avi", walkers(20, seed=k))
    bin_dir = here / "bin"
    bin_dir.mkdir()
    os.symlink(os.path.abspath(nerva_blobs), bin_dir / "nerva-blobs")
    fleet = bin_dir / "nerva-fleet"
    fleet.write_text(f'#!/bin/sh\nexec {sys.executable} -m nerva.fleet "$@"\n')
    fleet.chmod(0o755)
    return here


def environment(folder):
    return dict(os.environ, PATH=f"{folder / 'bin'}:{os.environ['PATH']}")


@pytest.mark.parametrize("command", [line for block in blocks("sh") for line in block.splitlines()
                                     if line.strip() and not line.startswith("#")])
def test_shell_command(folder, command):
    result = subprocess.run(["bash", "-o", "pipefail", "-c", command], cwd=folder, env=environment(folder),
                            capture_output=True, text=True, timeout=600)
    # A pipe into head closes early; the command before it may then fail to write.
    if "| head" not in command:
        assert result.returncode == 0, result.stderr
    assert result.stdout or "-o" in command or "--output" in command or ">" in command, result.stderr


def test_python_blocks(folder):
    script = "\n".join(blocks("python"))
    result = subprocess.run([sys.executable, "-c", script], cwd=folder, env=environment(folder),
                            capture_output=True, text=True, timeout=600)
    assert result.returncode == 0, result.stderr
