#pragma once

#include "audio/StemFile.h"

#include <QList>
#include <QObject>
#include <QUrl>
#include <memory>
#include <optional>

// A stem loaded into the studio: shared by the studio's list and the player, which both hold it through a
// StemTrackPtr. Its observable fields change on the main thread only and announce every change.
class StemTrack : public QObject {
    Q_OBJECT
    Q_PROPERTY(QString id READ id CONSTANT)
    Q_PROPERTY(float volume READ volume WRITE setVolume NOTIFY volumeChanged)
    Q_PROPERTY(bool isMuted READ isMuted WRITE setMuted NOTIFY isMutedChanged)
    Q_PROPERTY(bool isSolo READ isSolo WRITE setSolo NOTIFY isSoloChanged)
    Q_PROPERTY(bool isMonitor READ isMonitor WRITE setMonitor NOTIFY isMonitorChanged)
    Q_PROPERTY(float vuLevel READ vuLevel WRITE setVuLevel NOTIFY vuLevelChanged)
    Q_PROPERTY(float peakLevel READ peakLevel WRITE setPeakLevel NOTIFY peakLevelChanged)
    Q_PROPERTY(QList<float> waveformSamples READ waveformSamples WRITE setWaveformSamples NOTIFY
                   waveformSamplesChanged)
    Q_PROPERTY(bool isLoadingWaveform READ isLoadingWaveform WRITE setLoadingWaveform NOTIFY
                   isLoadingWaveformChanged)

public:
    explicit StemTrack(StemFile stemFile, std::optional<QUrl> audioURL = std::nullopt);

    const QString& id() const { return m_id; }
    StemKind kind() const { return m_kind; }
    const StemFile& stemFile() const { return m_stemFile; }

    // The file to play, render and export; a track without one is skipped by the player.
    std::optional<QUrl> audioURL;

    float volume() const { return m_volume; }
    bool isMuted() const { return m_isMuted; }
    bool isSolo() const { return m_isSolo; }
    bool isMonitor() const { return m_isMonitor; }
    float vuLevel() const { return m_vuLevel; }
    float peakLevel() const { return m_peakLevel; }
    const QList<float>& waveformSamples() const { return m_waveformSamples; }
    bool isLoadingWaveform() const { return m_isLoadingWaveform; }

    void setVolume(float volume);
    void setMuted(bool muted);
    void setSolo(bool solo);
    void setMonitor(bool monitor);
    void setVuLevel(float level);
    void setPeakLevel(float level);
    void setWaveformSamples(QList<float> samples);
    void setLoadingWaveform(bool loading);

signals:
    void volumeChanged(float volume);
    void isMutedChanged(bool muted);
    void isSoloChanged(bool solo);
    void isMonitorChanged(bool monitor);
    void vuLevelChanged(float level);
    void peakLevelChanged(float level);
    void waveformSamplesChanged();
    void isLoadingWaveformChanged(bool loading);

private:
    const QString m_id;
    const StemKind m_kind;
    const StemFile m_stemFile;
    float m_volume = 1.0f;
    bool m_isMuted = false;
    bool m_isSolo = false;
    bool m_isMonitor = false;
    float m_vuLevel = 0.0f;
    float m_peakLevel = 0.0f;
    QList<float> m_waveformSamples;
    bool m_isLoadingWaveform = false;
};

using StemTrackPtr = std::shared_ptr<StemTrack>;
