"""nerva-fleet under an operator's mistakes: one line and a status, never a
traceback, and nothing another input or another run wrote is lost."""

import resource
import subprocess
import sys

import pytest

distributed = pytest.importorskip("distributed")

from conftest import free_port, manifest, walkers, write_video  # noqa: E402
from nerva import fleet as nerva_fleet  # noqa: E402
from nerva.fleet_output import OutputFolder  # noqa: E402


def fleet(*argv, **kwargs):
    """A run in a process of its own, for what must not touch the tests' own process."""
    return subprocess.run([sys.executable, "-m", "nerva.fleet", *map(str, argv)], capture_output=True, text=True,
                          timeout=300, **kwargs)


@pytest.fixture
def main(capsys):
    """A run in this process: an exception escaping it fails the test as a traceback would."""
    def run(*argv):
        status = nerva_fleet.main([*map(str, argv), "-q"])
        return subprocess.CompletedProcess(argv, status, stderr=capsys.readouterr().err)
    return run


def assert_one_line(result, status, words):
    assert result.returncode == status, result.stderr
    assert "Traceback" not in result.stderr
    assert words in result.stderr


@pytest.fixture(scope="module")
def scheduler(cluster):
    return cluster.scheduler_address


@pytest.mark.parametrize("content", ["[]", '{"inputs": {"a": 5}}'])
def test_a_foreign_manifest_is_refused_in_one_line(main, video, tmp_path, content):
    (tmp_path / "manifest.json").write_text(content)
    assert_one_line(main(video, "-o", tmp_path), 2, "manifest")


def test_an_output_folder_that_cannot_be_used_is_refused_in_one_line(main, video, tmp_path):
    (tmp_path / "file").write_text("x")
    assert_one_line(main(video, "-o", tmp_path / "file"), 2, "cannot use")


def test_a_second_run_on_a_busy_output_folder_is_refused(video, tmp_path):
    holder = OutputFolder(str(tmp_path))
    try:  # POSIX locks are per process: the second run needs one of its own
        assert_one_line(fleet(video, "-o", tmp_path), 2, "in use by another nerva-fleet run")
    finally:
        holder.close()
    assert not (tmp_path / "manifest.json").exists()


def test_a_bad_scheduler_address_is_refused_in_one_line(main, video, tmp_path):
    assert_one_line(main(video, "-o", tmp_path, "--scheduler", "bogus://x"), 2, "cannot reach the scheduler")


def test_a_refused_scheduler_port_is_reported_at_once(main, video, tmp_path):
    result = main(video, "-o", tmp_path, "--scheduler", f"tcp://127.0.0.1:{free_port()}")
    assert_one_line(result, 2, "refused")  # Dask's own retries end in a timeout, not a refusal


def test_a_manifest_that_cannot_be_written_fails_the_run_in_one_line(video, tmp_path, scheduler):
    def small_files():  # a disk that takes no more than 64 bytes a file, for this process only
        resource.setrlimit(resource.RLIMIT_FSIZE, (64, 64))
    result = fleet(video, "-o", tmp_path, "--scheduler", scheduler, "-q", preexec_fn=small_files)
    assert_one_line(result, 1, "cannot write the manifest")
    assert (tmp_path / "cam.jsonl").exists()  # written by the worker, which has room


def test_names_keep_what_is_not_an_image_pattern(tmp_path):
    from nerva.fleet_inputs import expand_inputs
    for name in ("cam%1.avi", "cam%2.avi"):
        (tmp_path / name).write_bytes(b"")
    names = [i.name for i in expand_inputs([str(tmp_path / "cam%1.avi"), str(tmp_path / "cam%2.avi")])]
    assert names == ["cam%1", "cam%2"]


def test_a_hidden_input_keeps_its_output_across_runs(main, tmp_path, scheduler):
    # '.x.jsonl' is the output of '.x.avi', not a temporary of 'x'.
    for name in ("x.avi", ".x.avi"):
        write_video(tmp_path / name, walkers(8, seed=len(name)))
    out = tmp_path / "out"
    for _ in range(2):
        result = main(tmp_path / "x.avi", tmp_path / ".x.avi", "-o", out, "--scheduler", scheduler)
        assert result.returncode == 0, result.stderr
        assert (out / ".x.jsonl").exists()
    assert manifest(out)["x"]["status"] == "skipped"
    assert manifest(out)[".x"]["status"] == "skipped"
