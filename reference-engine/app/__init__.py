"""Reference stem-separation engine: a FastAPI service driven by the Marlune desktop app."""

import tomllib
from pathlib import Path


def _project_version() -> str:
    """The version in the engine folder's pyproject.toml, the one place it is written."""
    try:
        with open(Path(__file__).resolve().parent.parent / "pyproject.toml", "rb") as project:
            return str(tomllib.load(project)["project"]["version"])
    except (OSError, KeyError, ValueError):
        return "0.0.0"


__version__ = _project_version()
