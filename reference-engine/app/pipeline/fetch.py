"""Getting a job's audio from an address: audio files directly, other pages through yt-dlp."""

from __future__ import annotations

import email.message
import importlib.util
import os
import re
import shutil
import subprocess
import sys
import urllib.error
import urllib.parse
import urllib.request
from pathlib import Path
from typing import Callable, List, Optional, Tuple

from .. import __version__
from ..errors import PipelineError
from ..names import base_name, safe_extension, title_from_file_name, title_from_url

AUDIO_EXTENSIONS = frozenset({
    ".wav", ".wave", ".mp3", ".flac", ".ogg", ".oga", ".opus", ".m4a", ".m4b", ".aac",
    ".aif", ".aiff", ".aifc", ".wma", ".mka", ".alac", ".caf", ".wv", ".ape"})
_GENERIC_TYPES = frozenset({"application/octet-stream", "binary/octet-stream"})
_CHUNK = 1 << 20
_TIMEOUT = 30
_PERCENT = re.compile(r"\[download\]\s+([\d.]+)%")

Progress = Callable[[float], None]


def _served_name(response, url: str) -> str:
    disposition = response.headers.get("Content-Disposition")
    if disposition:
        message = email.message.Message()
        message["Content-Disposition"] = disposition
        name = message.get_filename()
        if name:
            return base_name(name)
    return base_name(urllib.parse.unquote(urllib.parse.urlparse(url).path))


def is_audio_answer(content_type: str, name: str) -> bool:
    if content_type.startswith(("audio/", "video/")):
        return True
    return content_type in _GENERIC_TYPES and safe_extension(name) in AUDIO_EXTENSIONS


def fetch(url: str, folder: Path, progress: Progress,
          ytdlp: Optional[str] = None) -> Tuple[Path, str]:
    """Downloads the audio behind `url` into `folder`; returns the file and a title."""
    request = urllib.request.Request(url, headers={"User-Agent": f"reference-engine/{__version__}"})
    try:
        response = urllib.request.urlopen(request, timeout=_TIMEOUT)
    except urllib.error.HTTPError as error:
        raise PipelineError(f"Téléchargement impossible : le serveur a répondu {error.code}.",
                            f"GET {url} → HTTP {error.code} {error.reason}") from error
    except (urllib.error.URLError, OSError, ValueError) as error:
        reason = getattr(error, "reason", error)
        raise PipelineError("Téléchargement impossible : adresse injoignable.",
                            f"GET {url} → {reason}") from error
    with response:
        name = _served_name(response, url)
        if is_audio_answer(response.headers.get_content_type(), name):
            path = folder / ("input" + (safe_extension(name) or ".audio"))
            _save(response, path, progress)
            return path, title_from_file_name(name) if name.strip() else title_from_url(url)
    return download_with_ytdlp(url, folder, progress, ytdlp)


def _save(response, path: Path, progress: Progress) -> None:
    total = int(response.headers.get("Content-Length") or 0)
    received = 0
    try:
        with open(path, "wb") as out:
            while True:
                chunk = response.read(_CHUNK)
                if not chunk:
                    break
                out.write(chunk)
                received += len(chunk)
                if total:
                    progress(min(1.0, received / total))
    except OSError as error:
        raise PipelineError("Téléchargement interrompu.", str(error)) from error
    if total and received < total:
        raise PipelineError("Téléchargement interrompu.", f"{received} octets reçus sur {total}")
    if received == 0:
        raise PipelineError("Le fichier téléchargé est vide.", f"0 octet reçu de {response.url}")


def _executable(path: str) -> bool:
    return os.path.isfile(path) and os.access(path, os.X_OK)


def find_ytdlp(explicit: Optional[str] = None) -> Optional[List[str]]:
    """The command that runs yt-dlp: the explicit executable when one is configured; otherwise
    its executable on PATH or beside this interpreter, else its module in this environment."""
    if explicit:
        return [explicit] if _executable(explicit) else None
    found = shutil.which("yt-dlp")
    if found:
        return [found]
    beside = Path(sys.executable).parent / "yt-dlp"
    if _executable(str(beside)):
        return [str(beside)]
    if importlib.util.find_spec("yt_dlp") is not None:
        return [sys.executable, "-m", "yt_dlp"]
    return None


def download_with_ytdlp(url: str, folder: Path, progress: Progress,
                        ytdlp: Optional[str] = None) -> Tuple[Path, str]:
    tool = find_ytdlp(ytdlp)
    if tool is None:
        raise PipelineError(
            "Cette adresse n'est pas un fichier audio : yt-dlp est nécessaire pour en extraire le "
            "son, et il n'est pas installé.",
            f"yt-dlp introuvable ({ytdlp or 'PATH'}) pour {url}")
    command = tool + ["--no-playlist", "--newline", "--progress", "--no-simulate",
                      "-f", "bestaudio/best", "-o", str(folder / "input.%(ext)s"),
                      "--print", "after_move:title", "--print", "after_move:filepath", url]
    try:
        process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                                   stdin=subprocess.DEVNULL, text=True, errors="replace")
    except OSError as error:
        raise PipelineError("Impossible de lancer yt-dlp.", str(error)) from error
    lines = []
    try:
        for line in process.stdout:
            line = line.rstrip("\n")
            match = _PERCENT.search(line)
            if match:
                progress(min(1.0, float(match.group(1)) / 100.0))
            elif line.strip():
                lines.append(line)
        process.wait()
    finally:
        if process.poll() is None:
            process.kill()
            process.wait()
    if process.returncode != 0:
        raise PipelineError("yt-dlp n'a pas pu récupérer l'audio de cette adresse.",
                            "\n".join(lines[-8:]) or f"yt-dlp (code {process.returncode})")
    printed = [line for line in lines if not line.startswith("[")]
    paths = [index for index, line in enumerate(printed) if Path(line).is_file()]
    if not paths:
        found = sorted(folder.glob("input.*"))
        if not found:
            raise PipelineError("yt-dlp n'a produit aucun fichier audio.", "\n".join(lines[-8:]))
        return found[0], title_from_url(url)
    path = Path(printed[paths[-1]])
    title = printed[paths[-1] - 1] if paths[-1] > 0 else title_from_url(url)
    return path, title
