"""Reference stem-separation engine: a FastAPI service driven by the Marlune desktop app."""

__version__ = "1.0.0"
