#include "PlaybackSession.h"

#include "Command.h"
#include "audio/AudioPlayerService.h"

#include <cmath>
#include <cstdio>

namespace {
QString clock(double seconds) {
    const auto tenths = static_cast<qint64>(std::floor(std::max(0.0, seconds) * 10.0));
    return QStringLiteral("%1:%2.%3")
        .arg(tenths / 600)
        .arg((tenths / 10) % 60, 2, 10, QLatin1Char('0'))
        .arg(tenths % 10);
}

void writeOut(const QString& text) {
    const QByteArray bytes = text.toUtf8();
    std::fwrite(bytes.constData(), 1, static_cast<size_t>(bytes.size()), stdout);
    std::fflush(stdout);
}
} // namespace

PlaybackSession::PlaybackSession(AudioPlayerService& player, QObject* parent)
    : QObject(parent)
    , m_player(player) {
    connect(&m_keys, &TerminalKeys::keyPressed, this, &PlaybackSession::handleKey);
    connect(&m_keys, &TerminalKeys::interrupted, this, [this] { finish(ExitCode::success); });
    connect(&m_refresh, &QTimer::timeout, this, &PlaybackSession::refresh);
}

PlaybackSession::~PlaybackSession() {
    m_player.stop();
    if (m_keys.isTerminal() && !m_lastStatus.isEmpty())
        writeOut(QStringLiteral("\n"));
}

void PlaybackSession::start() {
    m_player.play();
    m_refresh.start(m_keys.isTerminal() ? 100 : 250);
    refresh();
}

QString PlaybackSession::statusText() const {
    return QStringLiteral("%1 %2 / %3")
        .arg(m_player.isPlaying() ? QStringLiteral("▶") : QStringLiteral("⏸"),
             clock(m_player.currentTime()), clock(m_player.duration()));
}

void PlaybackSession::refresh() {
    if (m_finished)
        return;
    if (!m_player.isPlaying() && !m_pausedByUser) {
        finish(ExitCode::success); // the song ended
        return;
    }
    const QString status = statusText();
    if (m_keys.isTerminal())
        writeOut(QStringLiteral("\r\x1b[K") + status);
    else if (m_player.isPlaying() != m_lastStatus.startsWith(QStringLiteral("▶")) || m_lastStatus.isEmpty())
        writeOut(status + QLatin1Char('\n'));
    m_lastStatus = status;
}

void PlaybackSession::handleKey(char key) {
    if (m_finished)
        return;
    switch (key) {
    case ' ':
        if (m_player.isPlaying()) {
            m_pausedByUser = true;
            m_player.pause();
        } else {
            m_pausedByUser = false;
            m_player.play();
        }
        break;
    case '[':
        m_player.seek(m_player.playbackPosition() - seekStepSeconds);
        break;
    case ']':
        m_player.seek(m_player.playbackPosition() + seekStepSeconds);
        break;
    case 'q':
    case 'Q':
        finish(ExitCode::success);
        return;
    default:
        return;
    }
    m_lastStatus.clear(); // a change: show it at once
    refresh();
}

void PlaybackSession::finish(int exitCode) {
    if (m_finished)
        return;
    m_finished = true;
    m_refresh.stop();
    m_player.stop();
    // Queued: whoever awaits the signal may delete this session, which must not happen mid-emission.
    QMetaObject::invokeMethod(
        this, [this, exitCode] { Q_EMIT finished(exitCode); }, Qt::QueuedConnection);
}
