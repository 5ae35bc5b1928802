import json
import os
import socket
import subprocess

import cv2
import numpy as np
import pytest


def pytest_configure(config):
    config.addinivalue_line("markers", "timing: races the wall clock; left out of `make test`")


def blobby_mask(rng, height, width, density=0.5, blur=2.0):
    """Random smooth shapes: holes, touching corners and nested regions, far below 2000 blobs."""
    noise = cv2.GaussianBlur(rng.random((height, width)), (0, 0), blur)
    return (noise > np.quantile(noise, 1 - density)).astype(np.uint8) * 255


def write_video(path, frames, fps=25):
    """Motion JPEG in AVI: decodes identically in OpenCV's C++ and Python builds."""
    height, width = frames[0].shape[:2]
    writer = cv2.VideoWriter(str(path), cv2.VideoWriter_fourcc(*"MJPG"), fps, (width, height))
    assert writer.isOpened()
    for f in frames:
        writer.write(f)
    writer.release()


def walkers(count=30, width=160, height=120, seed=0):
    """Frames of a grey street with a few bright boxes walking across it."""
    rng = np.random.default_rng(seed)
    starts = rng.integers(0, [width - 30, height - 30], size=(4, 2))
    frames = []
    for t in range(count):
        f = np.full((height, width, 3), 90, np.uint8)
        f += rng.integers(0, 6, f.shape, dtype=np.uint8)
        for k, (x, y) in enumerate(starts):
            x = (x + 3 * t * (1 if k % 2 else -1)) % (width - 20)
            cv2.rectangle(f, (int(x), int(y)), (int(x) + 12 + k, int(y) + 20), (200, 180 - 30 * k, 60), -1)
        frames.append(f)
    return frames


@pytest.fixture(scope="session")
def video(tmp_path_factory):
    """cam.avi: 30 frames of walkers."""
    path = tmp_path_factory.mktemp("video") / "cam.avi"
    write_video(path, walkers(30))
    return path


@pytest.fixture
def rng():
    return np.random.default_rng(12345)


@pytest.fixture(scope="session")
def nerva_blobs():
    """The built nerva-blobs program (CTest names it), or skip."""
    path = os.environ.get("NERVA_BLOBS")
    if not path or not os.path.exists(path):
        pytest.skip("NERVA_BLOBS does not name the built nerva-blobs program")
    return path


def program_output(program, source, *options):
    """What nerva-blobs writes for `source`, as bytes."""
    return subprocess.run([program, str(source), "-q", *options], check=True, capture_output=True).stdout


def program_lines(program, source, *options):
    """nerva-blobs' JSON lines restricted to the frame and its blobs (other fields may come and go)."""
    lines = program_output(program, source, *options).splitlines()
    return [{"frame": d["frame"], "blobs": d["blobs"]} for d in map(json.loads, lines)]


def free_port():
    """A loopback TCP port nothing listens on now."""
    with socket.socket() as s:
        s.bind(("127.0.0.1", 0))
        return s.getsockname()[1]


def manifest(out):
    """nerva-fleet's manifest entries by output name without '.jsonl' (the file keys them by resolved path)."""
    entries = json.loads((out / "manifest.json").read_text())["inputs"]
    return {e["output"][:-len(".jsonl")]: e for e in entries.values()}


@pytest.fixture(scope="module")
def cluster():
    """A local Dask cluster of two single-threaded worker processes."""
    pytest.importorskip("distributed")
    from nerva import fleet
    with fleet.local_cluster(2) as c:
        yield c


@pytest.fixture(scope="module")
def client(cluster):
    distributed = pytest.importorskip("distributed")
    with distributed.Client(cluster) as c:
        yield c
