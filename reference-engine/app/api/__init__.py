"""HTTP routes."""
