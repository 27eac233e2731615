#!/usr/bin/python3
"""Times the separation of a generated 3-minute stereo 44.1 kHz song into six stems.

Prints the time of each step and the ratio of the separation time to the song's duration
(the engine aims at less than 0.5 on a 2-core machine).

usage: bench_separation.py [--seconds N] [--with-analysis] [--write]
"""

import argparse
import sys
import tempfile
import time
from pathlib import Path

ENGINE_DIR = Path(__file__).resolve().parent.parent
sys.path[:0] = [str(ENGINE_DIR), str(ENGINE_DIR / "tests")]

from app.analysis import analyze  # noqa: E402
from app.dsp.separation import Separator  # noqa: E402
from app.pipeline.stems import write_stems  # noqa: E402
from signals import RATE, song  # noqa: E402


def main(argv) -> int:
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--seconds", type=float, default=180.0, help="song duration (180)")
    parser.add_argument("--with-analysis", action="store_true", help="also time the analysis")
    parser.add_argument("--write", action="store_true", help="also time writing the WAV stems")
    args = parser.parse_args(argv)

    started = time.perf_counter()
    samples = song(args.seconds)
    print(f"song: {args.seconds:.0f} s stereo at {RATE} Hz, generated in "
          f"{time.perf_counter() - started:.1f} s")

    separator = Separator()
    started = time.perf_counter()
    stems = separator.separate(samples, RATE)
    separation = time.perf_counter() - started
    print(f"separation into {len(stems)} stems ({', '.join(stems)}): {separation:.2f} s")

    total = separation
    if args.with_analysis:
        started = time.perf_counter()
        result = analyze(samples, RATE)
        elapsed = time.perf_counter() - started
        total += elapsed
        print(f"analysis: {elapsed:.2f} s  {result}")
    if args.write:
        with tempfile.TemporaryDirectory(prefix="bench-") as folder:
            started = time.perf_counter()
            write_stems(Path(folder), samples, stems, list(stems), RATE)
            elapsed = time.perf_counter() - started
        total += elapsed
        print(f"writing 16-bit WAV stems and original: {elapsed:.2f} s")

    print(f"separation / song duration: {separation / args.seconds:.3f}")
    if total != separation:
        print(f"all timed steps / song duration: {total / args.seconds:.3f}")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
