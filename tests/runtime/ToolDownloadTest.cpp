#include "runtime/SetupError.h"
#include "runtime/ToolDigest.h"
#include "runtime/ToolDownloader.h"
#include "support/ReleaseMirror.h"
#include "support/TaskError.h"
#include "support/TempInstallRoot.h"
#include "support/TestSupport.h"

#include <QCryptographicHash>
#include <QtTest>
#include <memory>

using TestSupport::errorOf;

namespace {
const QString ffmpegPath = QStringLiteral(
    "/github/shaka-project/static-ffmpeg-binaries/releases/download/n8.1.2-1/ffmpeg-linux-x64");

QByteArray contentsOf(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QStringList entriesOf(const QString& folder) {
    return QDir(folder).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden);
}
} // namespace

class ToolDownloadTest : public QObject {
    Q_OBJECT

    std::unique_ptr<ReleaseMirror> m_mirror;
    std::unique_ptr<TempInstallRoot> m_temp;

    QUrl served(const QString& path) const {
        return QUrl(QStringLiteral("http://127.0.0.1:%1").arg(m_mirror->port()) + path);
    }
    QString folder() const { return m_temp->path(); }

private Q_SLOTS:
    void initTestCase() {
        m_mirror = std::make_unique<ReleaseMirror>();
        QVERIFY(m_mirror->isRunning());
    }
    void init() {
        m_temp = std::make_unique<TempInstallRoot>();
        QDir(m_temp->path()).removeRecursively();
        QVERIFY(QDir().mkpath(m_temp->path()));
        m_mirror->setRules("[]");
        m_mirror->clearRequests();
    }

    void downloadsToUniqueTemporaryNamesWithTheMarluneAgent() {
        const QString first = QCoro::waitFor(ToolDownloader::download(served(ffmpegPath), folder()));
        const QString second = QCoro::waitFor(ToolDownloader::download(served(ffmpegPath), folder()));
        QVERIFY(first != second);
        const QRegularExpression name(
            QStringLiteral("^halvorn-[0-9a-f]{8}-[0-9a-f]{4}-[0-9a-f]{4}-[0-9a-f]{4}-"
                           "[0-9a-f]{12}-ffmpeg-linux-x64$"));
        for (const QString& path : {first, second}) {
            QCOMPARE(QFileInfo(path).absolutePath(), QFileInfo(folder()).absoluteFilePath());
            QVERIFY2(name.match(QFileInfo(path).fileName()).hasMatch(), qPrintable(path));
            QCOMPARE(contentsOf(path), contentsOf(m_mirror->servedFile(ffmpegPath)));
        }
        QCOMPARE(entriesOf(folder()).size(), 2); // no partial file left
        QCOMPARE(m_mirror->requests(),
                 QStringList(2, QStringLiteral("GET ") + ffmpegPath + QStringLiteral(" Marlune")));
    }

    void followsRedirects() {
        const QString latest = QStringLiteral(
            "/github/astral-sh/uv/releases/latest/download/uv-x86_64-unknown-linux-gnu.tar.gz");
        const QString file = QCoro::waitFor(ToolDownloader::download(served(latest), folder()));
        QVERIFY(file.endsWith(QStringLiteral("-uv-x86_64-unknown-linux-gnu.tar.gz")));
        QCOMPARE(contentsOf(file),
                 contentsOf(m_mirror->servedFile(QStringLiteral(
                     "/github/astral-sh/uv/releases/download/0.9.5/uv-x86_64-unknown-linux-gnu.tar.gz"))));
    }

    void httpErrorsNameTheStatusAndTheFile_data() {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QByteArray>("rules");
        QTest::addColumn<QString>("message");
        QTest::newRow("absent") << "/github/o/n/releases/download/v1/nope.bin" << QByteArray("[]")
                                << "HTTP 404 pour nope.bin";
        QTest::newRow("unavailable") << ffmpegPath
                                     << QByteArray(R"([{"prefix": "/github/shaka", "status": 503}])")
                                     << "HTTP 503 pour ffmpeg-linux-x64";
        QTest::newRow("status 400") << ffmpegPath << QByteArray(R"([{"prefix": "/", "status": 400}])")
                                    << "HTTP 400 pour ffmpeg-linux-x64";
    }
    void httpErrorsNameTheStatusAndTheFile() {
        QFETCH(QString, path);
        QFETCH(QByteArray, rules);
        m_mirror->setRules(rules);
        QTEST(errorOf(ToolDownloader::download(served(path), folder())), "message");
        QVERIFY(entriesOf(folder()).isEmpty());
    }

    void aDownloadCutInTheMiddleLeavesNothing_data() {
        QTest::addColumn<QString>("path");
        QTest::newRow("direct") << ffmpegPath;
        QTest::newRow("after a redirect") << QStringLiteral(
            "/github/astral-sh/uv/releases/latest/download/uv-x86_64-unknown-linux-gnu.tar.gz");
    }
    void aDownloadCutInTheMiddleLeavesNothing() {
        QFETCH(QString, path);
        m_mirror->setRules(R"([{"prefix": "/github/shaka-project/", "cutAfter": 40},
                               {"prefix": "/github/astral-sh/uv/releases/download/", "cutAfter": 40}])");
        const QString message = errorOf(ToolDownloader::download(served(path), folder()));
        QVERIFY2(!message.isEmpty(), "a cut download was taken as whole");
        QVERIFY(entriesOf(folder()).isEmpty());
    }

    void anUnreachableHostFailsWithItsDescription() {
        const QUrl nowhere(QStringLiteral("http://127.0.0.1:%1/file.bin").arg(TestSupport::freePort()));
        const QString message = errorOf(ToolDownloader::download(nowhere, folder()));
        QVERIFY2(message.contains(QStringLiteral("refused"), Qt::CaseInsensitive), qPrintable(message));
        QVERIFY(entriesOf(folder()).isEmpty());
    }

    void anUnwritableFolderIsSaid() {
        const QString missing = folder() + QStringLiteral("/missing");
        QVERIFY(errorOf(ToolDownloader::download(served(ffmpegPath), missing))
                    .startsWith(QStringLiteral("Impossible d'écrire dans ") + missing));
        QVERIFY(m_mirror->requests().isEmpty());
    }

    void sha256OfWholeFiles_data() {
        QTest::addColumn<QByteArray>("contents");
        QTest::addColumn<QString>("expected");
        QTest::newRow("empty") << QByteArray()
                               << "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855";
        QTest::newRow("abc") << QByteArray("abc")
                             << "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
        QByteArray large(3 * 1024 * 1024 + 7, Qt::Uninitialized);
        for (qsizetype i = 0; i < large.size(); ++i)
            large[i] = char((i * 7919) >> 3);
        QTest::newRow("3 MiB") << large
                               << QString::fromLatin1(
                                      QCryptographicHash::hash(large, QCryptographicHash::Sha256).toHex());
    }
    void sha256OfWholeFiles() {
        QFETCH(QByteArray, contents);
        const QString path = m_temp->writeFile(QStringLiteral("f.bin"), contents);
        QTEST(QCoro::waitFor(ToolDigest::sha256Hex(path)), "expected");
    }

    void unreadableFilesHaveNoDigest() {
        const QString missing = folder() + QStringLiteral("/absent");
        QCOMPARE(errorOf(ToolDigest::sha256Hex(missing)), QStringLiteral("Lecture impossible : ") + missing);
        QCOMPARE(errorOf(ToolDigest::sha256Hex(folder())),
                 QStringLiteral("Lecture impossible : ") + folder());
    }

    void verifyComparesInEitherCase() {
        const QString path = m_temp->writeFile(QStringLiteral("f.bin"), "abc");
        const QString digest =
            QStringLiteral("ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
        QCOMPARE(errorOf(ToolDigest::verify(path, digest.toUpper(), QStringLiteral("f"))), QString());
        QString other = digest;
        other[63] = QLatin1Char('c');
        QCOMPARE(errorOf(ToolDigest::verify(path, other, QStringLiteral("ffmpeg"))),
                 QStringLiteral("Somme de contrôle invalide pour ffmpeg"));
    }
};

QTEST_GUILESS_MAIN(ToolDownloadTest)
#include "ToolDownloadTest.moc"
