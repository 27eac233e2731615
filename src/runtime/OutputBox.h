#pragma once

#include <QByteArray>
#include <QMutex>
#include <QString>
#include <QStringDecoder>
#include <functional>

// Collects a child process's output and hands out complete lines, whatever the chunking
// (a line or a multi-byte character may be split across chunks).
class OutputBox {
public:
    void append(const QByteArray& chunk, const std::function<void(const QString&)>& onLine);
    QString text() const; // everything received, as UTF-8 text

private:
    mutable QMutex m_lock;
    QByteArray m_data;
    QString m_pending;
    QStringDecoder m_decoder{QStringDecoder::Utf8};
};
