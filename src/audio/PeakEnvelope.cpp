#include "PeakEnvelope.h"

#include <algorithm>
#include <cmath>

int64_t PeakEnvelope::bucketSize(int64_t sampleCount, int targetPoints) {
    return std::max<int64_t>(1, sampleCount / std::max(1, targetPoints));
}

QList<float> PeakEnvelope::ofSignal(const float* samples, int64_t count, int targetPoints) {
    const int64_t bucket = bucketSize(count, targetPoints);
    PeakEnvelope envelope(bucket, static_cast<qsizetype>((count + bucket - 1) / bucket));
    envelope.add(samples, count);
    QList<float> values = envelope.finish(true);
    normalise(values);
    return values;
}

void PeakEnvelope::normalise(QList<float>& values) {
    const float greatest = values.isEmpty() ? 0.0f : *std::max_element(values.cbegin(), values.cend());
    if (greatest > 0.0f)
        for (float& value : values)
            value /= greatest;
}

PeakEnvelope::PeakEnvelope(int64_t bucketSize, qsizetype expectedPoints)
    : m_bucketSize(std::max<int64_t>(1, bucketSize)) {
    m_values.reserve(expectedPoints);
}

void PeakEnvelope::add(const float* samples, int64_t count) {
    m_seen += count;
    for (int64_t i = 0; i < count;) {
        // Walk what is left of the current bucket in one tight loop.
        const int64_t take = std::min(count - i, m_bucketSize - m_inBucket);
        float peak = m_peak;
        for (const float *p = samples + i, *end = p + take; p != end; ++p)
            peak = std::max(peak, std::fabs(*p));
        m_peak = peak;
        m_inBucket += take;
        i += take;
        if (m_inBucket == m_bucketSize) {
            m_values.append(m_peak);
            m_peak = 0.0f;
            m_inBucket = 0;
        }
    }
}

QList<float> PeakEnvelope::finish(bool keepSilentTail) {
    if (m_inBucket > 0 && (keepSilentTail || m_peak > 0.0f))
        m_values.append(m_peak);
    m_peak = 0.0f;
    m_inBucket = 0;
    return std::move(m_values);
}
