"""Directories of its own for each test process, so that no program in it reads or changes what belongs to the user.

Unless a test says otherwise, engr_app waits long in it: a gateway that stands still for seconds fails no test.
"""
import atexit
import os
import shutil
import tempfile

DIRECTORY = tempfile.mkdtemp(prefix="engr-home-")
# Gateways announce themselves every 5 s; two of three announcements may come late.
PATIENT = "timeout = 20\nlisten = 15\n"
atexit.register(shutil.rmtree, DIRECTORY, ignore_errors=True)
for kind in ("CONFIG", "STATE", "CACHE"):
    os.environ[f"XDG_{kind}_HOME"] = os.path.join(DIRECTORY, kind.lower())
for variable in ("ENGR_GATEWAY", "ENGR_INTERFACE"):
    os.environ.pop(variable, None)


def write_config(text="", config_home=os.path.join(DIRECTORY, "config")):
    """Writes the configuration of engr_app: that it is patient, and more."""
    directory = os.path.join(config_home, "engr_app")
    os.makedirs(directory, exist_ok=True)
    with open(os.path.join(directory, "config"), "w", encoding="utf-8") as file:
        file.write(PATIENT + text)


write_config()
