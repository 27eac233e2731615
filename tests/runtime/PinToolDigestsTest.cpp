#include "runtime/FixedDownloads.h"
#include "support/ReleaseMirror.h"
#include "support/TempInstallRoot.h"

#include <QtTest>
#include <memory>

// scripts/pin-tool-digests run against the release mirror on a copy of the built-in table.
class PinToolDigestsTest : public QObject {
    Q_OBJECT

    std::unique_ptr<ReleaseMirror> m_mirror;
    std::unique_ptr<TempInstallRoot> m_temp;
    QString m_table;
    QByteArray m_original;

    static QString sourceDir() {
        return QFileInfo(ReleaseMirror::script()).absolutePath() + QStringLiteral("/../..");
    }

    int pin(const QStringList& arguments, QByteArray* output = nullptr) {
        QProcess process;
        process.setProgram(QStringLiteral("/usr/bin/python3"));
        process.setArguments(QStringList{sourceDir() + QStringLiteral("/scripts/pin-tool-digests"), "--table",
                                         m_table, "--github-url", m_mirror->addresses().githubWeb,
                                         "--fallback-url", m_mirror->addresses().ffmpegFallback} +
                             arguments);
        process.setProcessChannelMode(QProcess::MergedChannels);
        process.start();
        if (!process.waitForFinished(60000))
            return -1;
        if (output)
            *output = process.readAll();
        return process.exitCode();
    }

    QByteArray tableText() const {
        QFile file(m_table);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    // The JSON held by the C++ file, read the way the application reads it.
    std::optional<FixedDownloads> table() const {
        const QByteArray text = tableText();
        const qsizetype start = text.indexOf("R\"json(");
        const qsizetype end = text.indexOf(")json\"");
        if (start < 0 || end < start)
            return std::nullopt;
        return FixedDownloads::fromJson(text.mid(start + 7, end - start - 7));
    }

    static QByteArray outsideTheTable(const QByteArray& text) {
        return text.left(text.indexOf("R\"json(")) + text.mid(text.indexOf(")json\""));
    }

private Q_SLOTS:
    void initTestCase() {
        m_mirror = std::make_unique<ReleaseMirror>();
        QVERIFY(m_mirror->isRunning());
        QFile source(sourceDir() + QStringLiteral("/src/runtime/BuiltInToolDownloads.cpp"));
        QVERIFY(source.open(QIODevice::ReadOnly));
        m_original = source.readAll();
    }

    void init() {
        m_temp = std::make_unique<TempInstallRoot>();
        m_table = m_temp->writeFile(QStringLiteral("BuiltInToolDownloads.cpp"), m_original);
        m_mirror->setRules("[]");
    }

    void pinsTheUnpinnedRowsWithTheServedFiles() {
        QByteArray output;
        QCOMPARE(pin({}, &output), 0);
        const std::optional<FixedDownloads> pinned = table();
        QVERIFY(pinned);
        QFile trustedFile(m_mirror->environment().value(QStringLiteral("MARLUNE_TOOL_DIGESTS")));
        QVERIFY(trustedFile.open(QIODevice::ReadOnly));
        const std::optional<FixedDownloads> trusted = FixedDownloads::fromJson(trustedFile.readAll());
        QVERIFY(trusted);
        const QString linux = QStringLiteral("linux-x86_64");
        for (const FixedDownload& row : pinned->rows(linux))
            if (row.isFixedVersion())
                QCOMPARE(row.sha256, trusted->row(linux, row.tool)->sha256);
        QCOMPARE(pinned->row(linux, QStringLiteral("uv")),
                 FixedDownloads::builtIn().row(linux, QStringLiteral("uv")));
        // Pinned rows stay as they were unless asked.
        QCOMPARE(pinned->rows(QStringLiteral("macos-arm64")),
                 FixedDownloads::builtIn().rows(QStringLiteral("macos-arm64")));
        QCOMPARE(outsideTheTable(tableText()), outsideTheTable(m_original));
        QVERIFY(output.contains("4 digest(s) written"));

        QCOMPARE(pin({"--check", "--platform", "linux-x86_64"}, &output), 0);
        QCOMPARE(output.count(": ok"), 4);
    }

    void checkFindsDigestsThatDoNotMatch() {
        QByteArray output;
        QCOMPARE(pin({"--check", "--platform", "macos-arm64"}, &output), 1);
        QVERIFY(output.contains("ffmpeg (macos-arm64): MISMATCH"));
        QCOMPARE(tableText(), m_original);
    }

    void aFailedDownloadPinsNothingForItsRow() {
        m_mirror->setRules(R"([{"prefix": "/github/quickjs-ng/", "status": 404}])");
        QByteArray output;
        QCOMPARE(pin({"--platform", "linux-x86_64"}, &output), 1);
        const std::optional<FixedDownloads> pinned = table();
        QVERIFY(pinned);
        QVERIFY(!pinned->row(QStringLiteral("linux-x86_64"), QStringLiteral("qjs"))->isPinned());
        QVERIFY(pinned->row(QStringLiteral("linux-x86_64"), QStringLiteral("ffmpeg"))->isPinned());
    }

    void unknownPlatformsAreRefused() {
        QByteArray output;
        QCOMPARE(pin({"--platform", "plan9-mips"}, &output), 1);
        QVERIFY(output.contains("unknown platform: plan9-mips"));
        QCOMPARE(tableText(), m_original);
    }
};

QTEST_GUILESS_MAIN(PinToolDigestsTest)
#include "PinToolDigestsTest.moc"
