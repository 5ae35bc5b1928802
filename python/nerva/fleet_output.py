"""nerva-fleet's output folder: one run at a time (a lock), the manifest,
and the run's own folder of temporaries.

Everything a run writes before it is complete lives under
OUTPUT/.nerva-fleet/<run>/, never beside the outputs: no output of any input
(every one ends in .jsonl, hidden inputs such as '.x.avi' included) can be
taken for a temporary, and only the run that made a temporary removes it.
"""

import fcntl
import json
import os
import shutil
import socket
import uuid
from typing import Dict

from .fleet_task import write_atomically

MANIFEST = "manifest.json"
PRIVATE = ".nerva-fleet"


class OutputError(RuntimeError):
    """An output folder a run cannot use: not a folder, not writable, busy, or an unreadable manifest."""


class OutputFolder:
    """Holds OUTPUT's lock from construction to close(); `entries` is the manifest it found."""

    def __init__(self, path: str):
        # Absolute: workers may run in another folder.
        self.path = os.path.abspath(path)
        private = os.path.join(self.path, PRIVATE)
        try:
            os.makedirs(private, exist_ok=True)
            self._lock = open(os.path.join(private, "lock"), "a+")
        except OSError as e:
            raise OutputError(f"cannot use '{path}' as the output folder: {e.strerror}") from None
        try:
            # POSIX record locks, unlike flock(), also hold between machines on NFS.
            fcntl.lockf(self._lock, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except OSError:
            self._lock.seek(0)
            holder = self._lock.read().strip() or "another process"
            self._lock.close()
            raise OutputError(f"'{path}' is in use by another nerva-fleet run ({holder}); "
                              "wait for it to end, or give another --output") from None
        try:
            self._lock.truncate(0)
            self._lock.write(f"pid {os.getpid()} on {socket.gethostname()}\n")
            self._lock.flush()
        except OSError:
            pass  # only the message to a second run loses its detail
        # No other run holds the lock, so no other run is writing: what other
        # runs left is theirs, dead with them.
        for entry in os.scandir(private):
            if entry.is_dir(follow_symlinks=False):
                shutil.rmtree(entry.path, ignore_errors=True)
        self.temporaries = os.path.join(private, uuid.uuid4().hex[:12])
        try:
            os.mkdir(self.temporaries)
        except OSError as e:
            self.close()
            raise OutputError(f"cannot use '{path}' as the output folder: {e.strerror}") from None
        self.manifest_path = os.path.join(self.path, MANIFEST)
        try:
            self.entries = self._load_manifest()
        except OutputError:
            self.close()
            raise

    def _load_manifest(self) -> Dict[str, dict]:
        """Entries by the input's resolved path."""
        try:
            with open(self.manifest_path) as f:
                data = json.load(f)
        except FileNotFoundError:
            return {}
        except (OSError, ValueError) as e:
            raise OutputError(f"cannot read the manifest '{self.manifest_path}': {e}") from None
        entries = data.get("inputs") if isinstance(data, dict) else None
        if not isinstance(entries, dict) or not all(isinstance(e, dict) for e in entries.values()):
            raise OutputError(f"'{self.manifest_path}' is not a nerva-fleet manifest "
                              "(an object whose \"inputs\" maps paths to objects); move it away to start afresh")
        return entries

    def save_manifest(self, entries: Dict[str, dict]) -> None:
        self.write(self.manifest_path, lambda f: json.dump({"inputs": entries}, f, indent=1, sort_keys=True))

    def write(self, path: str, write) -> None:
        write_atomically(path, write, self.temporaries)

    def close(self) -> None:
        shutil.rmtree(self.temporaries, ignore_errors=True)
        self._lock.close()  # releases the lock
