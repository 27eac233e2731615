"""Audio input and output: decoding through ffmpeg, 16-bit WAV writing."""
