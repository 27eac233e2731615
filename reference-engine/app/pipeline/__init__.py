"""A job's stages: fetching, decoding and analysis, separation, writing the stems."""
