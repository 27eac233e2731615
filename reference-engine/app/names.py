"""File names and titles derived from what the user sent."""

from __future__ import annotations

import os
import re
import urllib.parse
from pathlib import PurePosixPath, PureWindowsPath

from .jobs.model import DEFAULT_TITLE

_EXTENSION = re.compile(r"\.[a-z0-9]{1,8}")


def base_name(name: str) -> str:
    """The last path component, whichever separator the sender used."""
    return PureWindowsPath(PurePosixPath(name or "").name).name


def safe_extension(name: str) -> str:
    """The lower-case extension of `name` when it is a plain one ('.mp3'), else ''."""
    suffix = os.path.splitext(base_name(name))[1].lower()
    return suffix if _EXTENSION.fullmatch(suffix) else ""


def title_from_file_name(name: str) -> str:
    stem = os.path.splitext(base_name(name))[0].strip()
    return stem or DEFAULT_TITLE


def title_from_url(url: str) -> str:
    """The file name of an address without its extension, else its host."""
    parsed = urllib.parse.urlparse(url)
    stem = os.path.splitext(base_name(urllib.parse.unquote(parsed.path)))[0].strip()
    return stem or parsed.hostname or DEFAULT_TITLE
