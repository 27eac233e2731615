"""Signal processing: short-time Fourier transform and stem separation masks."""
