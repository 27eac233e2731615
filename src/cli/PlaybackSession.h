#pragma once

#include "TerminalKeys.h"

#include <QObject>
#include <QTimer>

class AudioPlayerService;

// Drives a loaded player from the keyboard: space plays or pauses, [ and ] seek 5 s back and forth,
// q quits. Shows the position on standard output (one refreshed line on a terminal, a line per change
// otherwise) and finishes when the user quits, is interrupted, or the song ends.
class PlaybackSession : public QObject {
    Q_OBJECT

public:
    static constexpr double seekStepSeconds = 5.0;

    explicit PlaybackSession(AudioPlayerService& player, QObject* parent = nullptr);
    ~PlaybackSession() override;

    // Starts playback and the key handling; finished() follows later.
    void start();

Q_SIGNALS:
    void finished(int exitCode);

private:
    void handleKey(char key);
    void refresh();
    void finish(int exitCode);
    QString statusText() const;

    AudioPlayerService& m_player;
    TerminalKeys m_keys;
    QTimer m_refresh;
    bool m_pausedByUser = false;
    bool m_finished = false;
    QString m_lastStatus;
};
