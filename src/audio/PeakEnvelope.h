#pragma once

#include <QList>
#include <cstdint>

// The envelope of a signal: the peak absolute value of each bucket of consecutive samples, filled as
// samples arrive (a bucket may span several calls to add()).
class PeakEnvelope {
public:
    // max(1, sampleCount ÷ targetPoints), integer division; targetPoints > 0.
    static int64_t bucketSize(int64_t sampleCount, int targetPoints);
    // The envelope of a whole signal of `count` samples at `targetPoints` points, normalised: every bucket
    // (the last one too, however short) gives a value.
    static QList<float> ofSignal(const float* samples, int64_t count, int targetPoints);
    // Divides every value by the greatest one when that is above 0.
    static void normalise(QList<float>& values);

    explicit PeakEnvelope(int64_t bucketSize, qsizetype expectedPoints = 0);

    void add(const float* samples, int64_t count);
    int64_t samplesSeen() const { return m_seen; }
    // The finished buckets, then the unfinished one: always when `keepSilentTail`, else only when its peak
    // is above 0. Not normalised.
    QList<float> finish(bool keepSilentTail);

private:
    int64_t m_bucketSize;
    QList<float> m_values;
    float m_peak = 0.0f;
    int64_t m_inBucket = 0;
    int64_t m_seen = 0;
};
