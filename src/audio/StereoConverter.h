#pragma once

#include <cstdint>
#include <vector>

struct SwrContext;

// Turns interleaved float frames of any channel count and sample rate into stereo at the output rate.
// Mono is copied to both sides at full level; more than two channels are mixed down; a different rate is
// resampled; frame k of the input lands on frame k × out ÷ in (the resampler holds back its look-ahead).
class StereoConverter {
public:
    // Throws AudioFileError when the resampler cannot be set up.
    StereoConverter(int inputChannels, int inputRate, int outputRate);
    ~StereoConverter();

    StereoConverter(const StereoConverter&) = delete;
    StereoConverter& operator=(const StereoConverter&) = delete;

    // Largest output (in frames) that convert() or flush() may produce for `inputFrames` frames.
    int64_t maxOutputFrames(int64_t inputFrames) const;
    // Converts `frames` frames; the stereo result is appended to `out` after clearing it.
    void convert(const float* interleaved, int64_t frames, std::vector<float>& out);
    // Drains what the resampler still holds (end of a segment).
    void flush(std::vector<float>& out);
    // Forgets all history (before converting from a new position).
    void reset();

private:
    void resample(const float* interleaved, int64_t frames, std::vector<float>& out);

    int m_inputChannels;
    int m_inputRate;
    int m_outputRate;
    SwrContext* m_swr = nullptr;
    std::vector<float> m_stereo;
};
