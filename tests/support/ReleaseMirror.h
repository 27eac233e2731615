#pragma once

#include "platform/BaseAddresses.h"

#include <QByteArray>
#include <QProcess>
#include <QProcessEnvironment>
#include <QStringList>
#include <QTemporaryDir>

// The offline release mirror (tools/mirror) running on a free 127.0.0.1 port for one test, serving the
// stand-in tools it built into a fresh folder. Stopped when destroyed.
class ReleaseMirror {
public:
    // `arguments` are passed on to the mirror (--uv-versions, --engine-archive TAG=FILE, …).
    explicit ReleaseMirror(const QStringList& arguments = {});
    ~ReleaseMirror();
    ReleaseMirror(const ReleaseMirror&) = delete;
    ReleaseMirror& operator=(const ReleaseMirror&) = delete;

    bool isRunning() const { return m_port != 0; }
    quint16 port() const { return m_port; }
    QString root() const { return m_dir.path(); }
    // The environment the mirror printed: its base addresses and MARLUNE_TOOL_DIGESTS.
    const QProcessEnvironment& environment() const { return m_environment; }
    BaseAddresses addresses() const { return BaseAddresses::fromEnvironment(m_environment); }

    // The served file behind a URL path ("/github/owner/name/…").
    QString servedFile(const QString& urlPath) const;
    void replaceServed(const QString& urlPath, const QByteArray& contents) const;
    // Control rules, a JSON array ("[{"prefix": "/api/", "status": 403}]"); "[]" clears them.
    void setRules(const QByteArray& rulesJson) const;
    // The requests served so far, "METHOD PATH USER-AGENT" each.
    QStringList requests() const;
    void clearRequests() const;
    // The stand-in uv's control file (JSON object) and its calls so far (one JSON object each).
    void setUvControl(const QByteArray& json) const;
    QList<QByteArray> uvCalls() const;

    static QString script(); // tools/mirror/marlune-mirror of the source tree

private:
    QTemporaryDir m_dir;
    QProcess m_process;
    quint16 m_port = 0;
    QProcessEnvironment m_environment;
};
