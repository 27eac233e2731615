#pragma once

#include <QString>
#include <cstdint>

typedef struct sf_private_tag SNDFILE;

// An audio file opened for reading float frames (WAV, AIFF, FLAC, Ogg, MP3… whatever libsndfile reads).
class AudioFileReader {
public:
    // Throws AudioFileError when the file cannot be opened or holds no audio.
    explicit AudioFileReader(const QString& path);
    ~AudioFileReader();

    AudioFileReader(const AudioFileReader&) = delete;
    AudioFileReader& operator=(const AudioFileReader&) = delete;

    const QString& path() const { return m_path; }
    int64_t frames() const { return m_frames; }
    int sampleRate() const { return m_sampleRate; }
    int channels() const { return m_channels; }
    double lengthSeconds() const { return static_cast<double>(m_frames) / m_sampleRate; }

    // Moves to `frame` (clamped to the file); false when the file cannot seek there.
    bool seek(int64_t frame);
    // Reads up to `frames` interleaved frames; returns how many were read (0 at the end or on error).
    int64_t read(float* interleaved, int64_t frames);

private:
    QString m_path;
    SNDFILE* m_file = nullptr;
    int64_t m_frames = 0;
    int m_sampleRate = 0;
    int m_channels = 0;
};
