#include "audio/StemTrack.h"

namespace {
// Assigns and announces only a real change.
template <typename T, typename Signal> void update(StemTrack* track, T& field, T value, Signal signal) {
    if (field == value)
        return;
    field = std::move(value);
    emit(track->*signal)(field);
}
} // namespace

StemTrack::StemTrack(StemFile stemFile, std::optional<QUrl> audioURL)
    : audioURL(std::move(audioURL))
    , m_id(stemFile.id)
    , m_kind(stemFile.kind)
    , m_stemFile(std::move(stemFile)) {}

void StemTrack::setVolume(float volume) {
    update(this, m_volume, volume, &StemTrack::volumeChanged);
}

void StemTrack::setMuted(bool muted) {
    update(this, m_isMuted, muted, &StemTrack::isMutedChanged);
}

void StemTrack::setSolo(bool solo) {
    update(this, m_isSolo, solo, &StemTrack::isSoloChanged);
}

void StemTrack::setMonitor(bool monitor) {
    update(this, m_isMonitor, monitor, &StemTrack::isMonitorChanged);
}

void StemTrack::setVuLevel(float level) {
    update(this, m_vuLevel, level, &StemTrack::vuLevelChanged);
}

void StemTrack::setPeakLevel(float level) {
    update(this, m_peakLevel, level, &StemTrack::peakLevelChanged);
}

void StemTrack::setWaveformSamples(QList<float> samples) {
    m_waveformSamples = std::move(samples);
    emit waveformSamplesChanged();
}

void StemTrack::setLoadingWaveform(bool loading) {
    update(this, m_isLoadingWaveform, loading, &StemTrack::isLoadingWaveformChanged);
}
