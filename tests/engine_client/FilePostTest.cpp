#include "engine_client/FilePost.h"
#include "engine_client/WriteProgress.h"
#include "support/TestHttpServer.h"
#include "support/TestSupport.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>
#include <sys/stat.h>
#include <thread>

Q_DECLARE_METATYPE(TestHttpServer::Response)

namespace {
using Response = TestHttpServer::Response;
using namespace std::chrono_literals;

QByteArray patterned(qsizetype size) {
    QByteArray bytes(size, Qt::Uninitialized);
    for (qsizetype i = 0; i < size; ++i)
        bytes[i] = char((i * 7919) >> 3);
    return bytes;
}

struct Fixture {
    TestHttpServer server;
    QTemporaryDir dir;

    QString writeFile(const QByteArray& bytes) {
        const QString path = dir.filePath(QStringLiteral("song.flac"));
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
            qFatal("cannot write %s", qPrintable(path));
        return path;
    }

    FilePost::Request request(const QString& filePath) const {
        FilePost::Request request;
        request.url = server.baseUrl().resolved(QUrl(QStringLiteral("api/jobs?x=1")));
        request.contentType = "multipart/form-data; boundary=b";
        request.head = "HEAD|";
        request.filePath = filePath;
        request.tail = "|TAIL";
        return request;
    }
};

FilePost::Answer answerOf(const FilePost::Outcome& outcome) {
    if (const auto* failure = std::get_if<FilePost::Failure>(&outcome))
        qFatal("unexpected failure %d: %s", int(failure->code), qPrintable(failure->detail));
    return std::get<FilePost::Answer>(outcome);
}

FilePost::Failure failureOf(const FilePost::Outcome& outcome) {
    if (!std::holds_alternative<FilePost::Failure>(outcome))
        qFatal("unexpected answer %d", std::get<FilePost::Answer>(outcome).status);
    return std::get<FilePost::Failure>(outcome);
}
} // namespace

class FilePostTest : public QObject {
    Q_OBJECT

private slots:
    void bodyAndHeaders_data() {
        QTest::addColumn<qsizetype>("fileSize");
        QTest::addColumn<qint64>("chunkBytes");
        QTest::newRow("empty file") << qsizetype(0) << qint64(4096);
        QTest::newRow("one chunk") << qsizetype(1000) << qint64(4096);
        QTest::newRow("many chunks, last one short") << qsizetype(10001) << qint64(1000);
        QTest::newRow("larger than the socket buffers") << qsizetype(9 << 20) << qint64(4 << 20);
    }

    void bodyAndHeaders() {
        QFETCH(qsizetype, fileSize);
        QFETCH(qint64, chunkBytes);
        Fixture f;
        f.server.route("POST", "/api/jobs", Response::json(201, R"({"job_id":"a"})"));
        const QByteArray content = patterned(fileSize);
        FilePost::Request request = f.request(f.writeFile(content));
        request.chunkBytes = chunkBytes;

        const FilePost::Answer answer = answerOf(FilePost::send(request));
        QCOMPARE(answer.status, 201);
        QCOMPARE(answer.body, QByteArray(R"({"job_id":"a"})"));
        const QList<TestHttpServer::Request> requests = f.server.requests();
        QCOMPARE(requests.size(), 1);
        QCOMPARE(requests[0].method, QByteArray("POST"));
        QCOMPARE(requests[0].path, QByteArray("/api/jobs?x=1"));
        QCOMPARE(requests[0].headers.value("host"),
                 QByteArray("127.0.0.1:") + QByteArray::number(f.server.port()));
        QCOMPARE(requests[0].headers.value("content-type"), QByteArray("multipart/form-data; boundary=b"));
        QCOMPARE(requests[0].headers.value("content-length").toLongLong(), qint64(fileSize) + 10);
        QVERIFY(requests[0].body == "HEAD|" + content + "|TAIL");
    }

    // A host name is looked up; where "localhost" names ::1 first (nothing listens there), the next
    // address is tried.
    void hostName() {
        Fixture f;
        f.server.route("POST", "/api/jobs", Response::json(200, R"({"job_id":"l"})"));
        FilePost::Request request = f.request(f.writeFile("abc"));
        request.url = QUrl(QStringLiteral("http://localhost:%1/api/jobs").arg(f.server.port()));
        QCOMPARE(answerOf(FilePost::send(request)).status, 200);
        QCOMPARE(f.server.requests().value(0).headers.value("host"),
                 QByteArray("localhost:") + QByteArray::number(f.server.port()));
    }

    // A file sent while another thread writes it: each part goes once it is written.
    void fileBeingWritten_data() {
        QTest::addColumn<QString>("ending");
        QTest::addColumn<QString>("detail"); // of the failure; empty: the whole body arrives
        QTest::newRow("written to its end") << "complete" << QString();
        QTest::newRow("writing fails") << "failed" << QStringLiteral("son écriture a échoué.");
        QTest::newRow("writing ends short")
            << "short" << QStringLiteral("sa taille a changé pendant l’envoi.");
    }

    void fileBeingWritten() {
        QFETCH(QString, ending);
        QFETCH(QString, detail);
        Fixture f;
        f.server.route("POST", "/api/jobs", Response::json(200, R"({"job_id":"g"})"));
        const QList<QByteArray> parts{patterned(300000), patterned(5), patterned(1 << 20)};
        const QByteArray whole = parts.join();
        const QString path = f.writeFile(QByteArray());
        WriteProgress progress;
        std::thread writer([&] {
            QFile file(path);
            if (!file.open(QIODevice::Append))
                qFatal("cannot append to %s", qPrintable(path));
            qint64 written = 0;
            for (qsizetype i = 0; i < parts.size(); ++i) {
                if (i == 2 && ending != QLatin1String("complete"))
                    break;
                file.write(parts[i]);
                file.flush();
                written += parts[i].size();
                progress.advance(written);
            }
            progress.finish(ending != QLatin1String("failed"));
        });
        FilePost::Request request = f.request(path);
        request.chunkBytes = 65536;
        request.finalFileSize = whole.size();
        request.bytesWritten = [&progress](qint64 offset) { return progress.waitBeyond(offset); };
        const FilePost::Outcome outcome = FilePost::send(request);
        writer.join();
        if (detail.isEmpty()) {
            QCOMPARE(answerOf(outcome).status, 200);
            QVERIFY(f.server.requests().value(0).body == "HEAD|" + whole + "|TAIL");
        } else {
            const FilePost::Failure failure = failureOf(outcome);
            QCOMPARE(failure.kind, FilePost::Failure::Kind::readFile);
            QCOMPARE(failure.detail, detail);
            QCOMPARE(f.server.requests().size(), 0);
        }
    }

    void answerFramings_data() {
        QTest::addColumn<Response>("response");
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body");
        Response lengthFramed = Response::json(422, R"({"detail":"refusé"})");
        lengthFramed.chunks = {R"({"detail":)", R"("refusé"})"};
        lengthFramed.chunkDelayMs = 20;
        QTest::newRow("content length, body in two pieces")
            << lengthFramed << 422 << QByteArray(R"({"detail":"refusé"})");
        Response chunked = Response::json(200, "");
        chunked.framing = Response::Framing::chunked;
        chunked.chunks = {R"({"job_id")", R"(:"c"})"};
        QTest::newRow("chunked") << chunked << 200 << QByteArray(R"({"job_id":"c"})");
        Response untilClose = Response::text(500, "");
        untilClose.framing = Response::Framing::untilClose;
        untilClose.chunks = {"panne ", "interne"};
        QTest::newRow("until the connection closes") << untilClose << 500 << QByteArray("panne interne");
        Response interim;
        interim.status = 100;
        interim.framing = Response::Framing::untilClose;
        interim.chunks = {"HTTP/1.1 201 Created\r\nContent-Length: 2\r\n\r\nok"};
        QTest::newRow("after an interim answer") << interim << 201 << QByteArray("ok");
        Response noContent = Response::text(204, "");
        noContent.framing = Response::Framing::untilClose;
        noContent.holdOpen = true;
        QTest::newRow("204 has no body") << noContent << 204 << QByteArray();
    }

    void answerFramings() {
        QFETCH(Response, response);
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        Fixture f;
        f.server.route("POST", "/api/jobs", response);
        const FilePost::Answer answer = answerOf(FilePost::send(f.request(f.writeFile("abc"))));
        QCOMPARE(answer.status, status);
        QCOMPARE(answer.body, body);
        f.server.closeConnections();
    }

    // The server answers and closes without reading the body, while the client is still sending it.
    void answerBeforeTheWholeBody() {
        Fixture f;
        f.server.setAnswerBeforeBody(true);
        f.server.route("POST", "/api/jobs", Response::json(413, R"({"detail":"Fichier trop volumineux"})"));
        const QString path = f.dir.filePath(QStringLiteral("big.wav"));
        QFile big(path);
        QVERIFY(big.open(QIODevice::WriteOnly) && big.resize(64 << 20)); // sparse
        big.close();
        const FilePost::Answer answer = answerOf(FilePost::send(f.request(path)));
        QCOMPARE(answer.status, 413);
        QCOMPARE(answer.body, QByteArray(R"({"detail":"Fichier trop volumineux"})"));
    }

    void transportFailures_data() {
        QTest::addColumn<QString>("base");
        QTest::addColumn<Response>("response");
        QTest::addColumn<int>("idleMs");
        QTest::addColumn<int>("totalMs");
        QTest::addColumn<QNetworkReply::NetworkError>("code");
        const Response ok = Response::json(200, "{}");
        QTest::newRow("nothing listening")
            << QStringLiteral("http://127.0.0.1:%1/").arg(TestSupport::freePort()) << ok << 60000 << 60000
            << QNetworkReply::ConnectionRefusedError;
        QTest::newRow("not http") << QStringLiteral("https://127.0.0.1:1/") << ok << 60000 << 60000
                                  << QNetworkReply::ProtocolUnknownError;
        Response dropped = Response::json(200, R"({"job_id")");
        dropped.drop = true;
        QTest::newRow("dropped inside the answer")
            << QString() << dropped << 60000 << 60000 << QNetworkReply::RemoteHostClosedError;
        Response silent;
        silent.hang = true;
        QTest::newRow("no answer: idle time-out")
            << QString() << silent << 200 << 60000 << QNetworkReply::TimeoutError;
        Response trickling = Response::text(200, "");
        trickling.framing = Response::Framing::untilClose;
        trickling.chunks = QList<QByteArray>(100, "x");
        trickling.chunkDelayMs = 50;
        QTest::newRow("answer never ends: total time-out")
            << QString() << trickling << 60000 << 300 << QNetworkReply::TimeoutError;
        Response garbage = Response::text(200, "");
        garbage.status = 100;
        garbage.framing = Response::Framing::untilClose;
        garbage.chunks = {"SMTP ready\r\n\r\n"};
        QTest::newRow("not an HTTP answer")
            << QString() << garbage << 60000 << 60000 << QNetworkReply::ProtocolFailure;
    }

    void transportFailures() {
        QFETCH(QString, base);
        QFETCH(Response, response);
        QFETCH(int, idleMs);
        QFETCH(int, totalMs);
        QFETCH(QNetworkReply::NetworkError, code);
        Fixture f;
        f.server.route("POST", "/api/jobs", response);
        FilePost::Request request = f.request(f.writeFile("abc"));
        if (!base.isEmpty())
            request.url = QUrl(base).resolved(QUrl(QStringLiteral("api/jobs")));
        request.idleTimeout = std::chrono::milliseconds(idleMs);
        request.totalTimeout = std::chrono::milliseconds(totalMs);
        const FilePost::Failure failure = failureOf(FilePost::send(request));
        QCOMPARE(failure.kind, FilePost::Failure::Kind::transport);
        QCOMPARE(failure.code, code);
        f.server.closeConnections();
    }

    void unreadableFiles_data() {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("detail");
        QTest::newRow("missing") << "missing" << QString();
        QTest::newRow("folder") << "folder" << QStringLiteral("c’est un dossier.");
        QTest::newRow("named pipe") << "pipe" << QStringLiteral("ce n’est pas un fichier ordinaire.");
    }

    void unreadableFiles() {
        QFETCH(QString, kind);
        QFETCH(QString, detail);
        Fixture f;
        const QString path = f.dir.filePath(QStringLiteral("entry"));
        if (kind == QLatin1String("folder"))
            QVERIFY(QDir().mkpath(path));
        else if (kind == QLatin1String("pipe"))
            QCOMPARE(::mkfifo(QFile::encodeName(path).constData(), 0600), 0);
        const FilePost::Failure failure = failureOf(FilePost::send(f.request(path)));
        QCOMPARE(failure.kind, FilePost::Failure::Kind::openFile);
        if (!detail.isEmpty())
            QCOMPARE(failure.detail, detail);
        QVERIFY(!failure.detail.isEmpty());
        QCOMPARE(f.server.requests().size(), 0);
    }
};

QTEST_GUILESS_MAIN(FilePostTest)
#include "FilePostTest.moc"
