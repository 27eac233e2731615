"""Stem kinds on the wire, in their display order."""

SEPARABLE_STEMS = ("vocals", "drums", "bass", "guitar", "piano", "other")
ORIGINAL = "original"
DOWNLOADABLE_STEMS = SEPARABLE_STEMS + (ORIGINAL,)
