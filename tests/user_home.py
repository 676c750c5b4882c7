"""Directories of its own for each test process, so that no program in it reads or changes what belongs to the user."""
import atexit
import os
import shutil
import tempfile

DIRECTORY = tempfile.mkdtemp(prefix="engr-home-")
atexit.register(shutil.rmtree, DIRECTORY, ignore_errors=True)
for kind in ("CONFIG", "STATE", "CACHE"):
    os.environ[f"XDG_{kind}_HOME"] = os.path.join(DIRECTORY, kind.lower())
for variable in ("ENGR_GATEWAY", "ENGR_INTERFACE"):
    os.environ.pop(variable, None)
