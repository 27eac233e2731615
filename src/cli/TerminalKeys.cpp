#include "TerminalKeys.h"

#include <QSocketNotifier>
#include <csignal>
#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

namespace {
// Written by the signal handler, read on the main thread: the self-pipe for SIGINT and SIGTERM.
int signalPipe[2] = {-1, -1};

void onSignal(int) {
    const char byte = 1;
    [[maybe_unused]] const ssize_t written = write(signalPipe[1], &byte, 1);
}
} // namespace

struct TerminalKeys::SavedMode {
    termios mode;
    struct sigaction interrupt;
    struct sigaction terminate;
};

TerminalKeys::TerminalKeys(QObject* parent)
    : QObject(parent)
    , m_saved(std::make_unique<SavedMode>()) {
    m_isTerminal = isatty(STDIN_FILENO) && tcgetattr(STDIN_FILENO, &m_saved->mode) == 0;
    if (m_isTerminal) {
        termios keys = m_saved->mode;
        keys.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
        keys.c_cc[VMIN] = 1;
        keys.c_cc[VTIME] = 0;
        tcsetattr(STDIN_FILENO, TCSANOW, &keys);
    }
    if (signalPipe[0] < 0 && pipe2(signalPipe, O_CLOEXEC | O_NONBLOCK) != 0)
        signalPipe[0] = signalPipe[1] = -1;
    if (signalPipe[0] >= 0) {
        struct sigaction action {};
        action.sa_handler = onSignal;
        sigemptyset(&action.sa_mask);
        sigaction(SIGINT, &action, &m_saved->interrupt);
        sigaction(SIGTERM, &action, &m_saved->terminate);
        m_signals = new QSocketNotifier(signalPipe[0], QSocketNotifier::Read, this);
        connect(m_signals, &QSocketNotifier::activated, this, &TerminalKeys::readSignal);
    }
    m_input = new QSocketNotifier(STDIN_FILENO, QSocketNotifier::Read, this);
    connect(m_input, &QSocketNotifier::activated, this, &TerminalKeys::readKeys);
}

TerminalKeys::~TerminalKeys() {
    if (m_isTerminal)
        tcsetattr(STDIN_FILENO, TCSANOW, &m_saved->mode);
    if (m_signals) {
        sigaction(SIGINT, &m_saved->interrupt, nullptr);
        sigaction(SIGTERM, &m_saved->terminate, nullptr);
    }
}

void TerminalKeys::readKeys() {
    char buffer[64];
    const ssize_t count = read(STDIN_FILENO, buffer, sizeof buffer);
    if (count <= 0) {
        // End of input (or an error): nothing more will come, stop watching.
        m_input->setEnabled(false);
        Q_EMIT inputClosed();
        return;
    }
    for (ssize_t i = 0; i < count; ++i)
        Q_EMIT keyPressed(buffer[i]);
}

void TerminalKeys::readSignal() {
    char buffer[16];
    while (read(signalPipe[0], buffer, sizeof buffer) > 0) {
    }
    Q_EMIT interrupted();
}
