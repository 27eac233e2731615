#pragma once

// Short synthesised audio files for the audio tests.

#include <QFile>
#include <QString>
#include <cmath>
#include <sndfile.h>
#include <stdexcept>
#include <vector>

namespace TestSignals {

// Writes interleaved frames as a 32-bit float WAV (or another libsndfile format).
inline void writeWav(const QString& path, int channels, int rate, const std::vector<float>& interleaved,
                     int format = SF_FORMAT_WAV | SF_FORMAT_FLOAT) {
    SF_INFO info{};
    info.channels = channels;
    info.samplerate = rate;
    info.format = format;
    SNDFILE* file = sf_open(QFile::encodeName(path).constData(), SFM_WRITE, &info);
    if (!file)
        throw std::runtime_error(sf_strerror(nullptr));
    sf_writef_float(file, interleaved.data(), static_cast<sf_count_t>(interleaved.size() / channels));
    sf_close(file);
}

// `frames` frames of silence with value `amplitude` at each of `positions`, on every channel.
inline std::vector<float> impulses(int64_t frames, int channels, const std::vector<int64_t>& positions,
                                   float amplitude = 1.0f) {
    std::vector<float> samples(static_cast<size_t>(frames * channels), 0.0f);
    for (int64_t position : positions)
        for (int c = 0; c < channels; ++c)
            samples[static_cast<size_t>(position * channels + c)] = amplitude;
    return samples;
}

inline std::vector<float> sine(int64_t frames, int channels, int rate, double frequency, float amplitude) {
    std::vector<float> samples(static_cast<size_t>(frames * channels));
    for (int64_t i = 0; i < frames; ++i) {
        const auto value = static_cast<float>(amplitude * std::sin(2.0 * M_PI * frequency * i / rate));
        for (int c = 0; c < channels; ++c)
            samples[static_cast<size_t>(i * channels + c)] = value;
    }
    return samples;
}

// Frames (in the stereo interleaved `out`) whose left sample's magnitude exceeds `threshold`.
inline std::vector<int64_t> framesAbove(const std::vector<float>& stereo, float threshold) {
    std::vector<int64_t> frames;
    for (size_t i = 0; i < stereo.size() / 2; ++i)
        if (std::fabs(stereo[2 * i]) > threshold)
            frames.push_back(static_cast<int64_t>(i));
    return frames;
}

} // namespace TestSignals
