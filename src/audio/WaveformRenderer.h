#pragma once

#include "ConsoleLine.h"

#include <QCoro/QCoroTask>
#include <QList>
#include <QString>

// Turns an audio file into a short envelope: one value in 0…1 per bucket of samples, the loudest bucket
// exactly 1. Two decoders are tried in turn: the streaming decoder (FFmpeg libraries, any container, mixed
// down to mono) and, when that yields nothing, the direct decoder (libsndfile, 65,536-frame chunks).
// An empty envelope means nothing could be decoded. No error leaves the renderer.
class WaveformRenderer {
public:
    static constexpr int studioPoints = 1800;
    static constexpr int64_t directChunkFrames = 65536;

    explicit WaveformRenderer(ConsoleLineSink console = printConsoleLine);

    // Decoding runs on a low-priority worker thread, one per call.
    QCoro::Task<QList<float>> render(QString path, int targetSamples) const;
    QCoro::Task<QList<float>> renderWithAssetReader(QString path, int targetSamples) const;
    QCoro::Task<QList<float>> renderWithAudioFile(QString path, int targetSamples) const;

    // The same work on the calling thread.
    QList<float> renderNow(const QString& path, int targetSamples) const;
    QList<float> decodeWithAssetReader(const QString& path, int targetSamples) const;
    QList<float> decodeWithAudioFile(const QString& path, int targetSamples) const;

private:
    ConsoleLineSink m_console;
};
