"""Builds the folder the offline release mirror serves: stand-in tools at the paths of Marlune's download
table, their digests as a trusted table in the table's own format, uv releases, PyPI data and the source
archives of the engine's tags."""

import hashlib
import io
import json
import os
import re
import shutil
import stat
import subprocess
import tarfile
import zipfile

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCE_ROOT = os.path.dirname(os.path.dirname(HERE))
TABLE_SOURCE = os.path.join(SOURCE_ROOT, "src", "runtime", "BuiltInToolDownloads.cpp")
ARCHIVE_SCRIPT = os.path.join(SOURCE_ROOT, "reference-engine", "scripts", "make-release-archive")

# Where each host of the table is served, under the mirror's root.
HOST_FOLDERS = {"github": "github", "ffmpegFallback": "ffmpeg-fallback"}
WWW = "www"
DIGESTS_FILE = "tool-digests.json"
UV_CONTROL_FILE = "uv-control.json"
UV_CALLS_LOG = "uv-calls.log"


def read_builtin_table(source=TABLE_SOURCE):
    """The JSON table held in the raw string of BuiltInToolDownloads.cpp."""
    with open(source, encoding="utf-8") as handle:
        text = handle.read()
    match = re.search(r'R"json\((.*?)\)json"', text, re.S)
    if not match:
        raise ValueError("no JSON table in %s" % source)
    return json.loads(match.group(1))


def sha256_of(path):
    digest = hashlib.sha256()
    with open(path, "rb") as handle:
        for block in iter(lambda: handle.read(1 << 20), b""):
            digest.update(block)
    return digest.hexdigest()


def shell_tool(lines):
    return ("#!/bin/sh\n" + "\n".join(lines) + "\n").encode()


def ffmpeg_standin(tool, version, platform):
    # Does the real work with Debian's own program, so that conversions through it succeed.
    return shell_tool([
        "# Marlune mirror stand-in for %s %s (%s)" % (tool, version, platform),
        'exec /usr/bin/%s "$@"' % tool,
    ])


def fpcalc_standin(version, platform):
    return shell_tool([
        "# Marlune mirror stand-in for fpcalc %s (%s)" % (version, platform),
        'if [ "$1" = "-version" ]; then echo "fpcalc version %s"; exit 0; fi' % version,
        'echo "ERROR: this stand-in computes no fingerprint" >&2',
        "exit 2",
    ])


def qjs_standin(version, platform):
    return shell_tool([
        "# Marlune mirror stand-in for QuickJS %s (%s)" % (version, platform),
        'case "$1" in -v|--version) echo "QuickJS-ng version %s"; exit 0;; esac' % version,
        'echo "qjs stand-in: no JavaScript engine here" >&2',
        "exit 1",
    ])


def uv_standin(version, root, yt_dlp_version):
    with open(os.path.join(HERE, "standin_uv.py"), encoding="utf-8") as handle:
        text = handle.read()
    values = {
        "VERSION": version,
        "CONTROL_FILE": os.path.join(root, UV_CONTROL_FILE),
        "CALLS_LOG": os.path.join(root, UV_CALLS_LOG),
        "YT_DLP_VERSION": yt_dlp_version,
    }
    for name, value in values.items():
        text, count = re.subn(r"^%s = .*$" % name, "%s = %r" % (name, value), text, count=1, flags=re.M)
        if count != 1:
            raise ValueError("standin_uv.py has no %s line" % name)
    return text.encode()


def tar_gz(members):
    """A gzip tar archive of (path, bytes, mode) members, as bytes."""
    buffer = io.BytesIO()
    with tarfile.open(fileobj=buffer, mode="w:gz") as archive:
        for path, data, mode in members:
            info = tarfile.TarInfo(path)
            info.size = len(data)
            info.mode = mode
            archive.addfile(info, io.BytesIO(data))
    return buffer.getvalue()


def zip_of(members):
    buffer = io.BytesIO()
    with zipfile.ZipFile(buffer, "w", zipfile.ZIP_DEFLATED) as archive:
        for path, data, mode in members:
            info = zipfile.ZipInfo(path)
            info.external_attr = (stat.S_IFREG | mode) << 16
            archive.writestr(info, data)
    return buffer.getvalue()


def write(path, data):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as handle:
        handle.write(data)


def served_path(root, row, path=None):
    return os.path.join(root, WWW, HOST_FOLDERS[row["host"]], (path or row["path"]).lstrip("/"))


def fixed_tool_bytes(row, platform):
    """The stand-in file for one fixed-version row, in the row's form."""
    tool, version = row["tool"], row["version"]
    if tool in ("ffmpeg", "ffprobe"):
        return ffmpeg_standin(tool, version, platform)
    if tool in ("ffmpegFallback", "ffprobeFallback"):
        name = tool[: -len("Fallback")]
        return zip_of([(name, ffmpeg_standin(name, version, platform), 0o755)])
    if tool == "fpcalc":
        folder = os.path.basename(row["path"])[: -len(".tar.gz")]
        return tar_gz([(folder + "/fpcalc", fpcalc_standin(version, platform), 0o755),
                       (folder + "/LICENSE.md", b"Stand-in licence\n", 0o644)])
    if tool == "qjs":
        return qjs_standin(version, platform)
    raise ValueError("no stand-in for %s" % tool)


def build_fixed_tools(root, table):
    """Writes every fixed-version row's stand-in and returns the trusted table of their digests."""
    trusted = {}
    for platform, rows in table.items():
        for row in rows:
            if not row.get("version"):
                continue
            target = served_path(root, row)
            write(target, fixed_tool_bytes(row, platform))
            trusted.setdefault(platform, []).append(dict(row, sha256=sha256_of(target)))
    return trusted


def build_uv_releases(root, table, versions, yt_dlp_version):
    for platform, rows in table.items():
        for row in rows:
            if row["tool"] != "uv" or not row.get("versionedPath"):
                continue
            asset = os.path.basename(row["versionedPath"])
            folder = asset[: -len(".tar.gz")]
            for version in versions:
                data = tar_gz([(folder + "/uv", uv_standin(version, root, yt_dlp_version), 0o755)])
                write(served_path(root, row, row["versionedPath"].replace("{version}", version)), data)


def build_pypi(root, package, version):
    document = {"info": {"name": package, "version": version}, "releases": {version: []}}
    write(os.path.join(root, WWW, "pypi", "pypi", package, "json"), json.dumps(document).encode())


def build_engine_archives(root, repo, tags, prebuilt):
    """Source archives of the engine's tags: built by the engine's own script, or given as files."""
    folder = os.path.join(root, WWW, "github", repo, "archive", "refs", "tags")
    os.makedirs(folder, exist_ok=True)
    for tag, path in prebuilt.items():
        shutil.copyfile(path, os.path.join(folder, tag + ".tar.gz"))
    for tag in tags:
        if not os.access(ARCHIVE_SCRIPT, os.X_OK):
            raise FileNotFoundError("no release archive script at %s" % ARCHIVE_SCRIPT)
        subprocess.run([ARCHIVE_SCRIPT, tag, os.path.join(folder, tag + ".tar.gz")], check=True,
                       stdout=subprocess.DEVNULL)


def build(root, uv_versions, yt_dlp_version, engine_repo, engine_tags, engine_archives):
    """Lays out the whole fixture folder under `root` and returns the trusted table's path."""
    table = read_builtin_table()
    trusted = build_fixed_tools(root, table)
    build_uv_releases(root, table, uv_versions, yt_dlp_version)
    build_pypi(root, "yt-dlp", yt_dlp_version)
    if engine_tags or engine_archives:
        build_engine_archives(root, engine_repo, engine_tags, engine_archives)
    digests = os.path.join(root, DIGESTS_FILE)
    write(digests, json.dumps(trusted, indent=2).encode())
    return digests
