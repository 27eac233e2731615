"""Warm-up command, the uvicorn launcher, project metadata, lock file and release archive."""

import gzip
import os
import subprocess
import sys
import tarfile
import tomllib

import pytest

from conftest import ENGINE_DIR, SYSTEM_PYTHON

ARCHIVE_SCRIPT = ENGINE_DIR / "scripts" / "make-release-archive"


def _run(args, **env):
    environment = {key: value for key, value in os.environ.items()
                   if not key.startswith("HALVORN_")}
    environment.update(PYTHONDONTWRITEBYTECODE="1", **env)
    return subprocess.run(args, cwd=ENGINE_DIR, env=environment, capture_output=True, text=True,
                          timeout=120)


# Warm-up


@pytest.mark.parametrize("env,failed", [
    ({}, []),
    ({"HALVORN_FFMPEG": "/nonexistent/ffmpeg"}, ["ffmpeg"]),
])
def test_warmup_reports_each_component(tmp_path, env, failed):
    done = _run([SYSTEM_PYTHON, "-m", "app.pipeline.warmup"], HALVORN_DATA_DIR=str(tmp_path),
                **env)
    assert done.returncode == 0, done.stderr
    lines = done.stdout.splitlines()
    assert [line.split()[1] for line in lines] == ["ffmpeg", "separation", "analysis"]
    for line in lines:
        name = line.split()[1]
        if name in failed:
            assert line.startswith(f"WARMUP_FAILED {name} ") and len(line.split()) > 2
        else:
            assert line == f"WARMUP_OK {name}"


# The launcher accepts the application's command line on any uvicorn


def test_launcher_delegates_to_the_installed_uvicorn():
    sys.path.insert(0, str(ENGINE_DIR))
    try:
        import uvicorn
    finally:
        sys.path.remove(str(ENGINE_DIR))
    assert hasattr(uvicorn, "Config") and hasattr(uvicorn, "Server")
    assert not uvicorn.__file__.startswith(str(ENGINE_DIR))


@pytest.mark.parametrize("args,value,rest", [
    (["app.main:app", "--port", "1", "--timeout-graceful-shutdown", "2"], "2",
     ["app.main:app", "--port", "1"]),
    (["--timeout-graceful-shutdown=5", "app.main:app"], "5", ["app.main:app"]),
    (["app.main:app"], None, ["app.main:app"]),
    (["app.main:app", "--timeout-graceful-shutdown"], None,
     ["app.main:app", "--timeout-graceful-shutdown"]),
])
def test_launcher_option_parsing(args, value, rest):
    launcher = _launcher_module()
    assert launcher.split_option(args) == (value, rest)


def _launcher_module():
    import importlib.util
    spec = importlib.util.spec_from_file_location("launcher_under_test",
                                                  ENGINE_DIR / "uvicorn" / "__init__.py")
    module = importlib.util.module_from_spec(spec)
    saved = sys.modules.get("uvicorn")
    try:
        spec.loader.exec_module(module)
    finally:
        if saved is not None:
            sys.modules["uvicorn"] = saved
    return module


@pytest.mark.parametrize("args,code,text", [
    (["--help"], 0, "--port"),
    (["--timeout-graceful-shutdown", "soon", "app.main:app"], 2, "is not a number"),
    (["--no-such-option", "app.main:app"], 2, "No such option"),
])
def test_launcher_command_line(args, code, text):
    done = _run([SYSTEM_PYTHON, "-m", "uvicorn", *args])
    assert done.returncode == code
    assert text in done.stdout + done.stderr


# Project metadata


def _toml(name):
    with open(ENGINE_DIR / name, "rb") as handle:
        return tomllib.load(handle)


def _names(requirements):
    import re
    return sorted(re.split(r"[<>=!~\[; ]", requirement, 1)[0].lower()
                  for requirement in requirements)


def test_version_is_written_once():
    import app
    assert app.__version__ == _toml("pyproject.toml")["project"]["version"]


def test_lock_file_matches_the_project():
    project = _toml("pyproject.toml")
    lock = _toml("uv.lock")
    packages = {package["name"]: package for package in lock["package"]}
    root = packages[project["project"]["name"]]
    assert root["version"] == project["project"]["version"]
    assert root["source"] == {"virtual": "."}
    assert sorted(d["name"] for d in root["dependencies"]) == _names(
        project["project"]["dependencies"])
    assert sorted(d["name"] for d in root["dev-dependencies"]["dev"]) == _names(
        project["dependency-groups"]["dev"])
    for package in packages.values():
        for dependency in package.get("dependencies", []):
            assert dependency["name"] in packages, (package["name"], dependency["name"])
    assert lock["requires-python"] == project["project"]["requires-python"]


# Release archive


def _build(tmp_path, tag, *extra):
    output = tmp_path / f"{tag}.tar.gz"
    done = subprocess.run([str(ARCHIVE_SCRIPT), tag, str(output), *extra], capture_output=True,
                          text=True, timeout=60)
    assert done.returncode == 0, done.stderr
    return output


def test_release_archive_has_one_top_folder_with_the_engine(tmp_path):
    output = _build(tmp_path, "v2.5.0")
    with tarfile.open(output) as archive:
        names = archive.getnames()
        top = {name.split("/")[0] for name in names}
        assert top == {"halvorn-2.5.0"}
        for required in ("pyproject.toml", "uv.lock", "app/main.py", "app/pipeline/warmup.py",
                         "uvicorn/__init__.py", "README.md", "scripts/make-release-archive"):
            assert f"halvorn-2.5.0/{required}" in names, required
        assert not [name for name in names if "__pycache__" in name or name.endswith(".pyc")]
        project = tomllib.loads(archive.extractfile("halvorn-2.5.0/pyproject.toml").read().decode())
        lock = tomllib.loads(archive.extractfile("halvorn-2.5.0/uv.lock").read().decode())
        script = archive.getmember("halvorn-2.5.0/scripts/make-release-archive")
    assert project["project"]["version"] == "2.5.0"
    assert [p["version"] for p in lock["package"] if p["name"] == project["project"]["name"]] == [
        "2.5.0"]
    assert script.mode & 0o111
    with gzip.open(output) as raw:
        raw.read(1)


def test_release_archive_unpacks_like_the_installer_does(tmp_path):
    output = _build(tmp_path, "v1.0.1", "--name", "engine")
    target = tmp_path / "backends" / "v1.0.1"
    target.mkdir(parents=True)
    subprocess.run(["tar", "xzf", str(output), "-C", str(target), "--strip-components=1"],
                   check=True)
    assert (target / "uv.lock").is_file() and (target / "app" / "main.py").is_file()


def test_release_archive_is_reproducible(tmp_path):
    first = _build(tmp_path / "a", "v3.0.0").read_bytes()
    second = _build(tmp_path / "b", "v3.0.0").read_bytes()
    assert first == second


def test_release_archive_usage():
    done = subprocess.run([str(ARCHIVE_SCRIPT)], capture_output=True, text=True)
    assert done.returncode == 2 and "usage" in done.stderr
