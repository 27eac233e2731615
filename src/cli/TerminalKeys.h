#pragma once

#include <QObject>
#include <memory>

class QSocketNotifier;

// Single key presses from standard input for interactive subcommands. On a terminal, line editing and
// echo are turned off while the object lives and restored when it goes, also after Ctrl+C or SIGTERM,
// which arrive as interrupted() instead of killing the process. From a pipe, bytes arrive as keys too.
class TerminalKeys : public QObject {
    Q_OBJECT

public:
    explicit TerminalKeys(QObject* parent = nullptr);
    ~TerminalKeys() override;

    // Whether standard input is a terminal (and was switched to key-by-key input).
    bool isTerminal() const { return m_isTerminal; }

Q_SIGNALS:
    void keyPressed(char key);
    void interrupted();
    void inputClosed();

private:
    void readKeys();
    void readSignal();

    bool m_isTerminal = false;
    struct SavedMode;
    std::unique_ptr<SavedMode> m_saved;
    QSocketNotifier* m_input = nullptr;
    QSocketNotifier* m_signals = nullptr;
};
