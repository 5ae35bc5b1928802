"""nerva-fleet over a footage archive as an operator keeps one: camera
folders, the same file names in several cameras, resumes however the path is
typed, cut files, the progress page in a browser, and a cluster started with
the documented commands."""

import os
import shutil
import subprocess
import sys
import tempfile

import pytest

distributed = pytest.importorskip("distributed")

from conftest import free_port, manifest, program_output, walkers, write_video  # noqa: E402
from nerva import fleet  # noqa: E402

OPTIONS = ["--min-pixels", "5"]


@pytest.fixture
def archive(tmp_path):
    """cams/cam1/day.avi, cams/cam2/day.avi, plus a hidden file and a download under way."""
    for k in (1, 2):
        (tmp_path / "cams" / f"cam{k}").mkdir(parents=True)
        write_video(tmp_path / "cams" / f"cam{k}" / "day.avi", walkers(10 + 5 * k, seed=k))
    shutil.copy(tmp_path / "cams/cam1/day.avi", tmp_path / "cams/cam2/.day.avi")
    shutil.copy(tmp_path / "cams/cam1/day.avi", tmp_path / "cams/cam2/night.avi.part")
    return tmp_path


def run(client, *argv):
    return fleet.run_fleet(client, fleet.parse_arguments([*map(str, argv), "-q", *OPTIONS]))


def statuses(out):
    return {name: e["status"] for name, e in manifest(out).items()}


def test_camera_folders_mirror_into_the_output_and_resume_however_typed(client, archive, monkeypatch):
    out = archive / "out"
    assert run(client, archive / "cams", "-o", out) == 0
    assert statuses(out) == {"cam1/day": "done", "cam2/day": "done"}
    monkeypatch.chdir(archive)
    assert run(client, "./cams/", "-o", out) == 0
    assert set(statuses(out).values()) == {"skipped"}
    assert run(client, os.path.abspath("cams"), "-o", "out") == 0
    assert set(statuses(out).values()) == {"skipped"}

    write_video(archive / "cams/cam2/day.avi", walkers(9, seed=5))  # a file replaced by another
    assert run(client, "cams", "-o", out, "--progress") == 0
    assert statuses(out) == {"cam1/day": "skipped", "cam2/day": "done"}
    assert (out / "cam2/day.jsonl").read_text().count("\n") == 9


def test_two_roots_that_collide_are_named_and_empty_folders_refused(archive, capsys):
    (archive / "other/cam1").mkdir(parents=True)
    shutil.copy(archive / "cams/cam1/day.avi", archive / "other/cam1/day.avi")
    with pytest.raises(SystemExit) as exit:
        fleet.parse_arguments([str(archive / "cams"), str(archive / "other"), "-o", str(archive / "out")])
    assert exit.value.code == 2
    assert "other/cam1/day.avi' would both write cam1/day.jsonl" in capsys.readouterr().err
    (archive / "empty/sub").mkdir(parents=True)
    with pytest.raises(SystemExit) as exit:
        fleet.parse_arguments([str(archive / "empty"), "-o", str(archive / "out")])
    assert exit.value.code == 2
    assert "holds no input: looked in it or its sub-folders for videos" in capsys.readouterr().err


def test_a_cut_file_is_partial_with_both_counts_and_its_metadata(nerva_blobs, client, tmp_path):
    write_video(tmp_path / "whole.avi", walkers(40))
    data = (tmp_path / "whole.avi").read_bytes()
    (tmp_path / "cut.avi").write_bytes(data[:len(data) // 3])
    out = tmp_path / "out"
    assert run(client, tmp_path / "cut.avi", tmp_path / "whole.avi", "-o", out) == 1
    cut = manifest(out)["cut"]
    whole = manifest(out)["whole"]
    assert cut["status"] == "partial"
    assert cut["announced_frames"] == 40
    assert cut["frames"] > 0
    assert cut["frames"] < 40
    expected = subprocess.run([nerva_blobs, str(tmp_path / "cut.avi"), "-q", *OPTIONS], capture_output=True).stdout
    assert (out / "cut.jsonl").read_bytes() == expected
    assert run(client, tmp_path / "cut.avi", "-o", out, "--allow-partial") == 0

    assert whole["status"] == "done"
    assert whole["width"] == 160
    assert whole["codec"] == "mjpeg"
    assert whole["duration"] == 1.6
    assert whole["start_time_from"] == "file modification time"  # an AVI carries no creation time


def _chromium():
    webdriver = pytest.importorskip("selenium.webdriver")
    options = webdriver.ChromeOptions()
    for flag in ("--headless", "--no-sandbox", "--disable-gpu", "--disable-background-networking",
                 "--disable-component-update", "--disable-sync", "--no-first-run"):
        options.add_argument(flag)
    profile = tempfile.mkdtemp(prefix="nerva-chromium-")
    options.add_argument(f"--user-data-dir={profile}")
    try:
        return webdriver.Chrome(options=options), profile
    except Exception as e:  # no browser on this machine
        shutil.rmtree(profile)
        pytest.skip(f"headless chromium unavailable: {e}")


def test_the_page_shows_each_input_and_each_camera_in_a_browser(client, archive):
    (archive / "cams/cam2/broken.avi").write_bytes(b"\x00garbage" * 100)
    out = archive / "out"
    assert run(client, archive / "cams", "-o", out) == 1
    browser, profile = _chromium()
    try:
        browser.get((out / "index.html").as_uri())
        state = browser.find_element("id", "run-state").text
        rows = {r.find_elements("tag name", "td")[0].text: r.find_elements("tag name", "td")
                for r in browser.find_elements("css selector", "#inputs tr")[1:]}
        plots = browser.find_elements("css selector", "svg.plot")
        assert state == "finished"
        assert rows["cam1/day"][1].text == "done"
        assert rows["cam2/day"][2].text == "20"
        assert rows["cam2/broken"][1].text == "failed"
        assert "cannot decode" in rows["cam2/broken"][4].text
        assert len(plots) == 2
        assert "cam2" in plots[0].text
    finally:
        browser.quit()
        shutil.rmtree(profile, ignore_errors=True)


def test_a_scheduler_and_two_workers_started_as_documented_complete_a_run(nerva_blobs, archive):
    port = free_port()
    address = f"tcp://127.0.0.1:{port}"
    command = [sys.executable, "-m", "nerva.fleet"]  # what the nerva-fleet script runs
    env = dict(os.environ, PYTHONPATH=os.path.abspath(os.environ.get("PYTHONPATH", ".")))
    quiet = dict(stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, cwd=archive, env=env)
    started = [subprocess.Popen([*command, "scheduler", "--host", "127.0.0.1", "--port", str(port)], **quiet)]
    try:
        started += [subprocess.Popen([*command, "worker", address], **quiet) for _ in range(2)]
        with distributed.Client(address, timeout=120) as c:
            c.wait_for_workers(2)
            profiling = c.run(lambda: __import__("dask").config.get("distributed.worker.profile.enabled"))
        assert set(profiling.values()) == {False}, "Dask's profiler samples the workers' tasks"
        result = subprocess.run([*command, "cams", "--output", "out", "--scheduler", address, *OPTIONS],
                                capture_output=True, text=True, cwd=archive, env=env, timeout=300)
        assert result.returncode == 0, result.stderr
        for cam in ("cam1", "cam2"):
            expected = program_output(nerva_blobs, archive / "cams" / cam / "day.avi", *OPTIONS)
            assert (archive / "out" / cam / "day.jsonl").read_bytes() == expected
    finally:
        for process in started:
            process.terminate()
        for process in started:
            process.wait(timeout=60)


def test_a_containers_creation_time_is_the_start_time(client, tmp_path):
    write_video(tmp_path / "plain.avi", walkers(10))
    subprocess.run(["ffmpeg", "-v", "error", "-i", str(tmp_path / "plain.avi"), "-c", "copy", "-metadata",
                    "creation_time=2024-05-01T10:00:00Z", str(tmp_path / "stamped.mov")], check=True)
    out = tmp_path / "out"
    assert run(client, tmp_path / "stamped.mov", "-o", out) == 0
    stamped = manifest(out)["stamped"]
    assert stamped["start_time"] == "2024-05-01T10:00:00.000000Z"
    assert stamped["start_time_from"] == "container"
    assert stamped["codec"] == "mjpeg"
