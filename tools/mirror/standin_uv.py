#!/usr/bin/python3
"""Stand-in for the uv package manager, served by the offline release mirror.

It does for real what Marlune asks of uv, with Debian's own Python:
  uv --version
  uv python install 3.12
  uv sync --frozen --python 3.12 [--no-install-package P]...
  uv pip install --python P --upgrade yt-dlp
Each call is appended as one JSON line to the calls log. The control file (JSON, read at each call)
can make things fail: {"failBuild": ["diffq"], "failPython": true, "failPip": true}.
"""

import json
import os
import subprocess
import sys

# Filled in when the mirror builds its fixtures.
VERSION = "0.0.0"
CONTROL_FILE = ""
CALLS_LOG = ""
YT_DLP_VERSION = "0.0"

SYSTEM_PYTHON = "/usr/bin/python3"
LOGGED_PREFIXES = ("UV_", "SETUPTOOLS_SCM_")


def control():
    try:
        with open(CONTROL_FILE, encoding="utf-8") as handle:
            value = json.load(handle)
        return value if isinstance(value, dict) else {}
    except (OSError, ValueError):
        return {}


def record(argv):
    if not CALLS_LOG:
        return
    entry = {
        "argv": argv,
        "cwd": os.getcwd(),
        "env": {k: v for k, v in sorted(os.environ.items()) if k.startswith(LOGGED_PREFIXES)},
    }
    with open(CALLS_LOG, "a", encoding="utf-8") as handle:
        handle.write(json.dumps(entry) + "\n")


def fail(message, status=1):
    print(message, flush=True)
    return status


def python_install(args):
    if args != ["3.12"]:
        return fail("error: this stand-in only installs Python 3.12", 2)
    if control().get("failPython"):
        return fail("error: Failed to download Python 3.12 (requested by the mirror)")
    root = os.environ.get("UV_PYTHON_INSTALL_DIR")
    if not root:
        return fail("error: UV_PYTHON_INSTALL_DIR is not set", 2)
    install = os.path.join(root, "cpython-3.12-standin-linux-x86_64-gnu")
    python = os.path.join(install, "bin", "python3.12")
    if os.path.exists(python):
        print("Python 3.12 is already installed", flush=True)
        return 0
    os.makedirs(os.path.dirname(python), exist_ok=True)
    os.symlink(SYSTEM_PYTHON, python)
    print("Installed Python 3.12 in 0.01s", flush=True)
    print(" + cpython-3.12-standin-linux-x86_64-gnu", flush=True)
    return 0


def site_packages(python):
    output = subprocess.run(
        [python, "-c", "import sysconfig; print(sysconfig.get_paths()['purelib'])"],
        check=True, capture_output=True, text=True).stdout
    return output.strip()


def sync(args):
    excluded = []
    frozen = False
    index = 0
    while index < len(args):
        arg = args[index]
        if arg == "--frozen":
            frozen = True
        elif arg == "--python" and index + 1 < len(args):
            index += 1
        elif arg == "--no-install-package" and index + 1 < len(args):
            index += 1
            excluded.append(args[index])
        else:
            return fail("error: unexpected argument '%s' found" % arg, 2)
        index += 1
    if not os.path.isfile("pyproject.toml"):
        return fail("error: No `pyproject.toml` found in current directory or any parent directory", 2)
    if frozen and not os.path.isfile("uv.lock"):
        return fail("error: Unable to find lockfile at `uv.lock`. To create a lockfile, run `uv lock` or `uv sync`.", 2)
    print("Using CPython 3.12 (stand-in: %s)" % SYSTEM_PYTHON, flush=True)
    if not os.path.exists(os.path.join(".venv", "bin", "python")):
        print("Creating virtual environment at: .venv", flush=True)
        subprocess.run([SYSTEM_PYTHON, "-m", "venv", "--without-pip", "--system-site-packages", ".venv"],
                       check=True)
    for package in control().get("failBuild", []):
        if package not in excluded:
            print("  × Failed to build `%s`" % package, flush=True)
            return fail("  ╰─▶ The build backend returned an error (requested by the mirror)")
    with open(os.path.join(site_packages(os.path.join(".venv", "bin", "python")), "_project.pth"), "w",
              encoding="utf-8") as handle:
        handle.write(os.getcwd() + "\n")
    print("Resolved the project's packages; skipped: %s" % (", ".join(excluded) or "none"), flush=True)
    print("Installed the project into .venv", flush=True)
    return 0


def pip_install(args):
    python = None
    packages = []
    index = 0
    while index < len(args):
        arg = args[index]
        if arg == "--python" and index + 1 < len(args):
            index += 1
            python = args[index]
        elif arg != "--upgrade":
            packages.append(arg)
        index += 1
    if python is None or packages != ["yt-dlp"]:
        return fail("error: this stand-in only installs yt-dlp into a given interpreter", 2)
    if control().get("failPip"):
        return fail("error: Failed to fetch yt-dlp (requested by the mirror)")
    target = os.path.join(site_packages(python), "yt_dlp")
    os.makedirs(target, exist_ok=True)
    with open(os.path.join(target, "__init__.py"), "w", encoding="utf-8") as handle:
        handle.write('"""Stand-in yt-dlp installed by the mirror\'s uv."""\n')
    with open(os.path.join(target, "version.py"), "w", encoding="utf-8") as handle:
        handle.write("__version__ = %r\n" % YT_DLP_VERSION)
    print("Installed 1 package", flush=True)
    print(" + yt-dlp==%s" % YT_DLP_VERSION, flush=True)
    return 0


def main(argv):
    record(argv)
    if argv in (["--version"], ["-V"], ["version"]):
        print("uv %s (marlune mirror stand-in)" % VERSION, flush=True)
        return 0
    if argv[:2] == ["python", "install"]:
        return python_install(argv[2:])
    if argv[:1] == ["sync"]:
        return sync(argv[1:])
    if argv[:2] == ["pip", "install"]:
        return pip_install(argv[2:])
    return fail("error: unrecognized subcommand '%s'" % " ".join(argv), 2)


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
