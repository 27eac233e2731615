#include "AudioPlayerService.h"

#include "AudioEngineError.h"
#include "AudioFileError.h"
#include "SystemAudioOutput.h"

#include <QCoreApplication>
#include <QCoro/QCoroFuture>
#include <QtConcurrent>
#include <algorithm>
#include <cmath>

namespace {

// A stem file opened off the main thread, or why it could not be.
struct OpenedFile {
    std::unique_ptr<AudioFileReader> file;
    QString error;
};
using OpenedFiles = std::shared_ptr<std::vector<OpenedFile>>;

OpenedFiles openAll(const QStringList& paths) {
    auto opened = std::make_shared<std::vector<OpenedFile>>(static_cast<size_t>(paths.size()));
    for (qsizetype i = 0; i < paths.size(); ++i) {
        try {
            (*opened)[static_cast<size_t>(i)].file = std::make_unique<AudioFileReader>(paths[i]);
        } catch (const AudioFileError& error) {
            (*opened)[static_cast<size_t>(i)].error = error.message();
        }
    }
    return opened;
}

constexpr double meterIntervalMs = 1000.0 / AudioPlayerService::meterTicksPerSecond;

} // namespace

AudioPlayerService& AudioPlayerService::shared() {
    static AudioPlayerService* instance = new AudioPlayerService({}, QCoreApplication::instance());
    return *instance;
}

AudioPlayerService::AudioPlayerService(AudioPlayerConfig config, QObject* parent)
    : QObject(parent)
    , m_config(std::move(config))
    , m_engine(m_config.createOutput ? m_config.createOutput() : createSystemAudioOutput(m_config.console))
    , m_random(m_config.randomSeed.value_or(std::random_device{}())) {
    m_meterTimer.setSingleShot(true);
    m_meterTimer.setTimerType(Qt::PreciseTimer);
    connect(&m_meterTimer, &QTimer::timeout, this, [this] {
        ++m_meterTicks;
        meterTick();
        armMeterTimer();
    });
    if (m_config.runMeterTimer) {
        m_meterClock.start();
        armMeterTimer();
    }
}

AudioPlayerService::~AudioPlayerService() {
    m_engine.stop();
}

void AudioPlayerService::armMeterTimer() {
    // Ticks are due at k × 1/24 s from the start, so their rate stays exact; after a stall the count
    // jumps ahead instead of firing a burst.
    const qint64 elapsed = m_meterClock.elapsed();
    if ((m_meterTicks + 1) * meterIntervalMs < static_cast<double>(elapsed) - meterIntervalMs)
        m_meterTicks = static_cast<qint64>(static_cast<double>(elapsed) / meterIntervalMs);
    const auto due = static_cast<qint64>(std::ceil((m_meterTicks + 1) * meterIntervalMs));
    m_meterTimer.start(static_cast<int>(std::max<qint64>(0, due - elapsed)));
}

void AudioPlayerService::setPlaying(bool playing) {
    update(m_isPlaying, playing, &AudioPlayerService::isPlayingChanged);
}
void AudioPlayerService::setCurrentTime(double seconds) {
    update(m_currentTime, seconds, &AudioPlayerService::currentTimeChanged);
}
void AudioPlayerService::setDuration(double seconds) {
    update(m_duration, seconds, &AudioPlayerService::durationChanged);
}
void AudioPlayerService::setLoopEnabled(bool enabled) {
    update(m_loopEnabled, enabled, &AudioPlayerService::loopEnabledChanged);
}
void AudioPlayerService::setLoopStart(double seconds) {
    update(m_loopStart, seconds, &AudioPlayerService::loopStartChanged);
}
void AudioPlayerService::setLoopEnd(double seconds) {
    update(m_loopEnd, seconds, &AudioPlayerService::loopEndChanged);
}

QCoro::Task<> AudioPlayerService::loadTracks(QList<StemTrackPtr> tracks) {
    const quint64 generation = ++m_loadGeneration;
    stop();
    teardownGraph();

    // One stem per id (a later track replaces an earlier one); tracks without a file are skipped.
    QList<StemTrackPtr> wanted;
    QHash<QString, qsizetype> position;
    for (const StemTrackPtr& track : tracks) {
        if (!track || !track->audioURL)
            continue;
        if (position.contains(track->id()))
            wanted[position[track->id()]] = track;
        else {
            position.insert(track->id(), wanted.size());
            wanted.append(track);
        }
    }
    QStringList paths;
    for (const StemTrackPtr& track : wanted)
        paths.append(track->audioURL->toLocalFile());

    QFuture<OpenedFiles> opening = QtConcurrent::run(openAll, paths);
    const OpenedFiles opened = co_await opening;
    if (generation != m_loadGeneration)
        co_return; // a newer load replaced this one

    double longest = 0.0;
    for (qsizetype i = 0; i < wanted.size(); ++i) {
        const StemTrackPtr& track = wanted[i];
        OpenedFile& file = (*opened)[static_cast<size_t>(i)];
        QString error = file.error;
        if (file.file) {
            try {
                const double length = file.file->lengthSeconds();
                StemVoice& voice = m_engine.addVoice(std::move(file.file));
                voice.setGain(track->isMuted() ? 0.0f : track->volume());
                m_indexById.insert(track->id(), m_stems.size());
                m_stems.append(Stem{track, &voice});
                longest = std::max(longest, length);
                continue;
            } catch (const AudioFileError& failure) {
                error = failure.message();
            }
        }
        m_config.console(
            QStringLiteral("[AudioPlayer] Failed to load %1: %2").arg(track->audioURL->fileName(), error));
    }
    setDuration(longest);
    startEngine(true);
}

QList<StemTrackPtr> AudioPlayerService::loadedTracks() const {
    QList<StemTrackPtr> tracks;
    for (const Stem& stem : m_stems)
        tracks.append(stem.track);
    return tracks;
}

void AudioPlayerService::teardownGraph() {
    m_engine.removeAllVoices();
    m_stems.clear();
    m_indexById.clear();
    setDuration(0.0);
    setCurrentTime(0.0);
    m_seekOffset = 0.0;
}

void AudioPlayerService::startEngine(bool reportFailure) {
    try {
        m_engine.start();
    } catch (const AudioEngineError& error) {
        if (reportFailure)
            m_config.console(QStringLiteral("[AudioPlayer] Engine start failed: %1").arg(error.message()));
    }
}

void AudioPlayerService::scheduleFrom(double seconds) {
    for (const Stem& stem : m_stems) {
        const AudioFileReader& file = stem.voice->file();
        if (file.frames() <= 0)
            continue;
        const auto start =
            std::clamp<int64_t>(static_cast<int64_t>(seconds * file.sampleRate()), 0, file.frames() - 1);
        m_engine.schedule(*stem.voice, start, file.frames() - start);
    }
}

void AudioPlayerService::haltPlayers() {
    m_engine.halt();
    for (const Stem& stem : m_stems)
        m_engine.schedule(*stem.voice, 0, 0);
}

void AudioPlayerService::play() {
    if (m_stems.isEmpty() || m_isPlaying)
        return;
    scheduleFrom(m_currentTime);
    if (!m_engine.isRunning())
        startEngine(false);
    m_engine.startAfter(startDelaySeconds);
    m_seekOffset = m_currentTime;
    setPlaying(true);
}

void AudioPlayerService::pause() {
    if (!m_isPlaying)
        return;
    setCurrentTime(playbackPosition());
    haltPlayers();
    setPlaying(false);
}

void AudioPlayerService::stop() {
    haltPlayers();
    setPlaying(false);
    setCurrentTime(0.0);
    m_seekOffset = 0.0;
}

void AudioPlayerService::seek(double seconds) {
    const bool wasPlaying = m_isPlaying;
    haltPlayers();
    setPlaying(false);
    setCurrentTime(std::max(0.0, std::min(seconds, m_duration)));
    m_seekOffset = m_currentTime;
    if (wasPlaying)
        play();
}

double AudioPlayerService::playbackPosition() const {
    if (!m_isPlaying || m_stems.isEmpty() || !m_engine.isRunning())
        return m_currentTime;
    const double played = static_cast<double>(m_engine.framesPlayed()) / m_engine.sampleRate();
    return std::min(m_duration, m_seekOffset + played);
}

StemTrack* AudioPlayerService::trackWithId(const QString& id) const {
    const auto found = m_indexById.constFind(id);
    return found == m_indexById.cend() ? nullptr : m_stems[*found].track.get();
}

void AudioPlayerService::setVolume(const QString& id, float volume) {
    if (StemTrack* track = trackWithId(id))
        track->setVolume(std::clamp(volume, 0.0f, 1.0f));
    applyMix();
}

void AudioPlayerService::setMuted(bool muted, const QString& id) {
    if (StemTrack* track = trackWithId(id))
        track->setMuted(muted);
    applyMix();
}

void AudioPlayerService::setSolo(bool solo, const QString& id) {
    if (StemTrack* track = trackWithId(id))
        track->setSolo(solo);
    applyMix();
}

void AudioPlayerService::setMonitor(bool on, const QString& id) {
    if (on) {
        for (const Stem& stem : m_stems) {
            const bool monitored = stem.track->id() == id;
            stem.track->setSolo(monitored);
            stem.track->setMonitor(monitored);
        }
    } else if (StemTrack* track = trackWithId(id)) {
        track->setMonitor(false);
        track->setSolo(false);
    }
    applyMix();
}

void AudioPlayerService::applyMix() {
    const bool anySolo =
        std::any_of(m_stems.cbegin(), m_stems.cend(), [](const Stem& stem) { return stem.track->isSolo(); });
    for (const Stem& stem : m_stems) {
        const StemTrack& track = *stem.track;
        const bool audible = !track.isMuted() && (!anySolo || track.isSolo());
        stem.voice->setGain(audible ? track.volume() : 0.0f);
    }
}

float AudioPlayerService::stemGain(const QString& id) const {
    const auto found = m_indexById.constFind(id);
    return found == m_indexById.cend() ? 0.0f : m_stems[*found].voice->gain();
}

void AudioPlayerService::meterTick() {
    if (m_isPlaying) {
        const double position = playbackPosition();
        setCurrentTime(position);
        if (m_loopEnabled && m_loopStart < m_loopEnd && position >= m_loopEnd) {
            seek(m_loopStart);
            return;
        }
        if (position >= m_duration) {
            stop();
            return;
        }
    }
    for (const Stem& stem : m_stems) {
        StemTrack& track = *stem.track;
        const float gain = stem.voice->gain();
        float level;
        if (m_isPlaying && gain > 0.0f) {
            // u uniform in the closed interval [0, 1].
            const auto u =
                static_cast<float>(static_cast<double>(m_random()) / static_cast<double>(m_random.max()));
            level = gain * (0.2f + u * 0.65f);
        } else {
            level = track.vuLevel() * vuDecay;
            if (!(level > 0.0f))
                level = 0.0f;
        }
        track.setVuLevel(level);
        track.setPeakLevel(std::max(track.peakLevel() * peakDecay, level));
    }
}
