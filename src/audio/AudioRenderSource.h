#pragma once

#include <cstddef>

// What an output pulls its frames from. render() runs on the output's real-time thread: it must not
// lock, allocate or touch files.
class AudioRenderSource {
public:
    virtual ~AudioRenderSource() = default;
    // Fills `frames` stereo interleaved frames (2 × frames floats) of `out`.
    virtual void render(float* out, size_t frames) noexcept = 0;
    // Outputs that are not real-time call this before render(): it returns once the next `frames` frames
    // can be rendered without a gap (or after a bounded wait).
    virtual void prepare(size_t frames) { (void)frames; }
};
