"""Engine settings, read once from the environment."""

from __future__ import annotations

import os
import shutil
from dataclasses import dataclass
from pathlib import Path
from typing import Mapping, Optional

from . import __version__


def _default_data_dir(env: Mapping[str, str]) -> Path:
    base = env.get("XDG_DATA_HOME") or os.path.join(os.path.expanduser("~"), ".local", "share")
    return Path(base) / "halvorn-engine"


def _positive_float(text: Optional[str], default: Optional[float]) -> Optional[float]:
    try:
        value = float(text) if text is not None else None
    except ValueError:
        return default
    return value if value is not None and value > 0 else default


def _tool(env: Mapping[str, str], variable: str, name: str) -> Optional[str]:
    explicit = env.get(variable)
    if explicit:
        return explicit
    return shutil.which(name, path=env.get("PATH", os.defpath))


@dataclass(frozen=True)
class Settings:
    data_dir: Path
    jobs_dir: Path
    persist_library: bool
    parent_pid: Optional[int]
    max_duration_sec: Optional[float]
    device: str
    ffmpeg: Optional[str]
    ffprobe: Optional[str]
    ytdlp: Optional[str] = None  # explicit yt-dlp executable; looked up per job when absent
    version: str = __version__
    keepalive_sec: float = 15.0
    parent_poll_sec: float = 1.0

    @classmethod
    def from_env(cls, env: Optional[Mapping[str, str]] = None) -> "Settings":
        env = os.environ if env is None else env
        data_dir = Path(env.get("HALVORN_DATA_DIR") or _default_data_dir(env)).expanduser()
        persist = env.get("HALVORN_PERSIST_LIBRARY", "") == "1"
        if persist:
            jobs_dir = Path(env.get("HALVORN_DEFAULT_JOBS_DIR") or data_dir / "jobs").expanduser()
        else:
            # Without a library, jobs live in a scratch folder that each start empties.
            jobs_dir = data_dir / "session-jobs"
        try:
            parent_pid = int(env.get("HALVORN_PARENT_PID", "")) or None
        except ValueError:
            parent_pid = None
        return cls(
            data_dir=data_dir,
            jobs_dir=jobs_dir,
            persist_library=persist,
            parent_pid=parent_pid,
            max_duration_sec=_positive_float(env.get("HALVORN_MAX_DURATION_SEC"), None),
            device=env.get("HALVORN_DEMUCS_DEVICE") or "cpu",
            ffmpeg=_tool(env, "HALVORN_FFMPEG", "ffmpeg"),
            ffprobe=_tool(env, "HALVORN_FFPROBE", "ffprobe"),
            ytdlp=env.get("HALVORN_YTDLP") or None,
            version=env.get("HALVORN_ENGINE_VERSION") or __version__,
            keepalive_sec=_positive_float(env.get("HALVORN_SSE_KEEPALIVE_SEC"), 15.0),
            parent_poll_sec=_positive_float(env.get("HALVORN_PARENT_POLL_SEC"), 1.0),
        )

    def ffmpeg_configured(self) -> bool:
        return _is_executable(self.ffmpeg)


def _is_executable(path: Optional[str]) -> bool:
    return bool(path) and os.path.isfile(path) and os.access(path, os.X_OK)
