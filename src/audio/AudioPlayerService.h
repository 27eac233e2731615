#pragma once

#include "AudioEngine.h"
#include "ConsoleLine.h"
#include "StemTrack.h"

#include <QCoro/QCoroTask>
#include <QElapsedTimer>
#include <QHash>
#include <QList>
#include <QObject>
#include <QTimer>
#include <functional>
#include <memory>
#include <optional>
#include <random>

// How an AudioPlayerService is built; the defaults are the application's.
struct AudioPlayerConfig {
    // Made once, at construction; the default is the sound device, or a null output without one.
    std::function<std::unique_ptr<AudioOutput>()> createOutput;
    ConsoleLineSink console = printConsoleLine;
    // Whether meterTick() runs by itself 24 times a second (tests drive it by hand instead).
    bool runMeterTimer = true;
    // Seed of the meters' random draw.
    std::optional<uint32_t> randomSeed;
};

// Plays every stem of the open job together, sample-aligned, with per-track volume, mute, solo and
// monitor, a loop region, seeking, a playback clock and synthesised level meters. One instance for the
// application (shared()); everything here runs on the main thread.
class AudioPlayerService : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool isPlaying READ isPlaying NOTIFY isPlayingChanged)
    Q_PROPERTY(double currentTime READ currentTime WRITE setCurrentTime NOTIFY currentTimeChanged)
    Q_PROPERTY(double duration READ duration NOTIFY durationChanged)
    Q_PROPERTY(bool loopEnabled READ loopEnabled WRITE setLoopEnabled NOTIFY loopEnabledChanged)
    Q_PROPERTY(double loopStart READ loopStart WRITE setLoopStart NOTIFY loopStartChanged)
    Q_PROPERTY(double loopEnd READ loopEnd WRITE setLoopEnd NOTIFY loopEndChanged)

public:
    static constexpr double startDelaySeconds = 0.05;
    static constexpr int meterTicksPerSecond = 24;
    static constexpr float vuDecay = 0.88f;
    static constexpr float peakDecay = 0.96f;

    static AudioPlayerService& shared();
    explicit AudioPlayerService(AudioPlayerConfig config = {}, QObject* parent = nullptr);
    ~AudioPlayerService() override;

    bool isPlaying() const { return m_isPlaying; }
    double currentTime() const { return m_currentTime; }
    double duration() const { return m_duration; }
    bool loopEnabled() const { return m_loopEnabled; }
    double loopStart() const { return m_loopStart; }
    double loopEnd() const { return m_loopEnd; }
    void setCurrentTime(double seconds);
    void setLoopEnabled(bool enabled);
    void setLoopStart(double seconds);
    void setLoopEnd(double seconds);

    // Replaces whatever is loaded by `tracks` (those without a file are skipped) and starts the engine.
    QCoro::Task<> loadTracks(QList<StemTrackPtr> tracks);
    // The loaded tracks, in load order.
    QList<StemTrackPtr> loadedTracks() const;

    void play();
    void pause();
    void stop();
    void seek(double seconds);

    void setVolume(const QString& id, float volume);
    void setMuted(bool muted, const QString& id);
    void setSolo(bool solo, const QString& id);
    void setMonitor(bool on, const QString& id);

    // The position from the frames actually rendered since the start instant; the stored currentTime
    // when not playing or before anything was rendered.
    double playbackPosition() const;
    // The meter step: moves the clock, handles the loop and the end of the song, updates the meters.
    void meterTick();

    // The gain the mix rules give the track's stem (0 when it is not loaded).
    float stemGain(const QString& id) const;
    AudioEngine& engine() { return m_engine; }

Q_SIGNALS:
    void isPlayingChanged(bool playing);
    void currentTimeChanged(double seconds);
    void durationChanged(double seconds);
    void loopEnabledChanged(bool enabled);
    void loopStartChanged(double seconds);
    void loopEndChanged(double seconds);

private:
    struct Stem {
        StemTrackPtr track;
        StemVoice* voice;
    };

    // Assigns and announces only a real change.
    template <typename T> void update(T& field, T value, void (AudioPlayerService::*changed)(T)) {
        if (field == value)
            return;
        field = value;
        Q_EMIT(this->*changed)(value);
    }
    void setPlaying(bool playing);
    void setDuration(double seconds);
    void teardownGraph();
    void scheduleFrom(double seconds);
    void haltPlayers();
    void applyMix();
    void startEngine(bool reportFailure);
    void armMeterTimer();
    StemTrack* trackWithId(const QString& id) const;

    AudioPlayerConfig m_config;
    AudioEngine m_engine;
    QList<Stem> m_stems;
    QHash<QString, qsizetype> m_indexById;
    quint64 m_loadGeneration = 0;

    bool m_isPlaying = false;
    double m_currentTime = 0.0;
    double m_duration = 0.0;
    bool m_loopEnabled = false;
    double m_loopStart = 0.0;
    double m_loopEnd = 0.0;
    double m_seekOffset = 0.0;

    std::mt19937 m_random;
    QTimer m_meterTimer;
    QElapsedTimer m_meterClock;
    qint64 m_meterTicks = 0;
};
