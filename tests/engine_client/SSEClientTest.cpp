#include "engine_client/SSEClient.h"
#include "support/TestHttpServer.h"
#include "support/TestSupport.h"

#include <QTest>

namespace {
using Response = TestHttpServer::Response;

QByteArray jobEvent(const QByteArray& id, const QByteArray& status, int progress = 0) {
    return "data: {\"job_id\":\"" + id + "\",\"status\":\"" + status +
           "\",\"progress\":" + QByteArray::number(progress) + "}\n\n";
}

// A client on `path` of `server` that writes what it is told into `log`: "event:{status}:{progress}",
// "error:{message}", "complete", and console lines as "console:{line}".
struct Follower {
    QStringList log;
    QPointer<SSEClient> client;

    Follower(const QUrl& url) {
        client = new SSEClient(url);
        client->onEvent = [this](const SSEJobEvent& e) {
            log.append(
                QStringLiteral("event:%1:%2").arg(JobStatuses::rawValue(e.job.status)).arg(e.job.progress));
        };
        client->onError = [this](const TransportError& error) {
            log.append(QStringLiteral("error:") + error.message());
        };
        client->onComplete = [this] { log.append(QStringLiteral("complete")); };
        client->console = [this](const QString& line) { log.append(QStringLiteral("console:") + line); };
    }
    ~Follower() { delete client; }

    bool waitForCompletion(int timeoutMs = 10000) {
        return TestSupport::waitUntil([this] { return log.contains(QStringLiteral("complete")); }, timeoutMs);
    }
    // Lets queued deliveries run for a while.
    static void settle(int ms = 150) { QTest::qWait(ms); }
};

QUrl streamUrl(const TestHttpServer& server) {
    return server.baseUrl().resolved(QUrl(QStringLiteral("api/jobs/j/events")));
}
} // namespace

class SSEClientTest : public QObject {
    Q_OBJECT

private slots:
    void eventsInOrderThenEndOfStream() {
        TestHttpServer server;
        server.route("GET", "/api/jobs/j/events",
                     Response::eventStream({jobEvent("j", "queued") + jobEvent("j", "separating", 40),
                                            ": keep-alive\n\n", jobEvent("j", "processing", 90)},
                                           20));
        Follower follower(streamUrl(server));
        follower.client->start();
        QVERIFY(follower.waitForCompletion());
        Follower::settle();
        QCOMPARE(follower.log,
                 (QStringList{"event:queued:0", "event:separating:40", "event:processing:90", "complete"}));
        QVERIFY(follower.client->isFinished());
        const TestHttpServer::Request request = server.requests().value(0);
        QCOMPARE(request.headers.value("accept"), QByteArray("text/event-stream"));
        QCOMPARE(request.headers.value("cache-control"), QByteArray("no-cache"));
    }

    void eventSplitInsideACharacter() {
        TestHttpServer server;
        const QByteArray whole =
            QStringLiteral("data: {\"job_id\":\"j\",\"status\":\"analyzing\",\"title\":\"Été\"}\n\n")
                .toUtf8();
        const qsizetype cut = whole.indexOf("\xc3") + 1; // between the two bytes of "É"
        server.route("GET", "/api/jobs/j/events",
                     Response::eventStream({whole.left(cut), whole.mid(cut)}, 50));
        Follower follower(streamUrl(server));
        QString title;
        follower.client->onEvent = [&](const SSEJobEvent& e) { title = e.job.title; };
        follower.client->start();
        QVERIFY(follower.waitForCompletion());
        QCOMPARE(title, QStringLiteral("Été"));
    }

    void finalStatusEndsTheStream_data() {
        QTest::addColumn<QByteArray>("status");
        QTest::newRow("done") << QByteArray("done");
        QTest::newRow("error") << QByteArray("error");
        QTest::newRow("failed alias") << QByteArray("failed");
        QTest::newRow("cancelled") << QByteArray("cancelled");
        QTest::newRow("stopped") << QByteArray("stopped");
    }

    void finalStatusEndsTheStream() {
        QFETCH(QByteArray, status);
        TestHttpServer server;
        Response stream = Response::eventStream(
            {jobEvent("j", "separating", 50) + jobEvent("j", status, 100) + jobEvent("j", "queued"),
             jobEvent("j", "queued", 1)},
            300);
        stream.holdOpen = true;
        server.route("GET", "/api/jobs/j/events", stream);
        Follower follower(streamUrl(server));
        follower.client->start();
        QVERIFY(follower.waitForCompletion());
        Follower::settle(500); // past the next chunk and the connection's end
        const QString final =
            QStringLiteral("event:%1:100").arg(status == "failed" ? "error" : QString::fromLatin1(status));
        QCOMPARE(follower.log, (QStringList{"event:separating:50", final, "complete"}));
        QVERIFY(!follower.client->isStreaming());
        server.closeConnections();
    }

    void unreadableEventIsSkipped() {
        TestHttpServer server;
        const QByteArray garbage = "{\"status\":\"done\"," + QByteArray(300, 'x');
        server.route("GET", "/api/jobs/j/events",
                     Response::eventStream({"data: " + garbage + "\n\n", jobEvent("j", "analyzing", 5)}));
        Follower follower(streamUrl(server));
        follower.client->start();
        QVERIFY(follower.waitForCompletion());
        QCOMPARE(follower.log,
                 (QStringList{"console:[SSE] événement illisible: " + QString::fromLatin1(garbage.left(200)),
                              "event:analyzing:5", "complete"}));
    }

    void failingAnswerCompletesWithoutError() {
        TestHttpServer server; // nothing routed: 404 with a JSON body
        Follower follower(streamUrl(server));
        follower.client->start();
        QVERIFY(follower.waitForCompletion());
        Follower::settle();
        QCOMPARE(follower.log, QStringList{"complete"});
    }

    void refusedConnection() {
        Follower follower(
            QUrl(QStringLiteral("http://127.0.0.1:%1/api/jobs/j/events").arg(TestSupport::freePort())));
        follower.client->start();
        QVERIFY(follower.waitForCompletion());
        Follower::settle();
        QCOMPARE(follower.log, (QStringList{"error:Impossible de se connecter au serveur.", "complete"}));
    }

    void droppedMidStream() {
        TestHttpServer server;
        Response stream = Response::eventStream({jobEvent("j", "separating", 10), "data: {\"job_id\":"}, 30);
        stream.framing = Response::Framing::chunked;
        stream.drop = true;
        server.route("GET", "/api/jobs/j/events", stream);
        Follower follower(streamUrl(server));
        follower.client->start();
        QVERIFY(follower.waitForCompletion());
        Follower::settle();
        QCOMPARE(follower.log.size(), 3);
        QCOMPARE(follower.log[0], QStringLiteral("event:separating:10"));
        QVERIFY2(follower.log[1].startsWith(QStringLiteral("error:")), qPrintable(follower.log[1]));
        QCOMPARE(follower.log[2], QStringLiteral("complete"));
    }

    void stopWhileStreaming() {
        TestHttpServer server;
        Response stream = Response::eventStream(
            {jobEvent("j", "queued"), jobEvent("j", "separating", 20), jobEvent("j", "done", 100)}, 400);
        stream.holdOpen = true;
        server.route("GET", "/api/jobs/j/events", stream);
        Follower follower(streamUrl(server));
        follower.client->onEvent = [&](const SSEJobEvent& e) {
            follower.log.append(QStringLiteral("event:") + JobStatuses::rawValue(e.job.status));
            follower.client->stop();
        };
        follower.client->start();
        QVERIFY(TestSupport::waitUntil([&] { return !follower.log.isEmpty(); }));
        Follower::settle(1200);
        QCOMPARE(follower.log, QStringList{"event:queued"});
        QVERIFY(!follower.client->isStreaming());
        QVERIFY(!follower.client->isFinished());
        server.closeConnections();
    }

    void stoppedAfterEventsAreQueued() {
        TestHttpServer server;
        server.route("GET", "/api/jobs/j/events",
                     Response::eventStream(
                         {jobEvent("j", "queued") + jobEvent("j", "analyzing") + jobEvent("j", "done")}));
        Follower follower(streamUrl(server));
        follower.client->onEvent = [&](const SSEJobEvent& e) {
            follower.log.append(QStringLiteral("event:") + JobStatuses::rawValue(e.job.status));
            follower.client->stop(); // the other decoded events are already queued: none may arrive
        };
        follower.client->start();
        QVERIFY(TestSupport::waitUntil([&] { return !follower.log.isEmpty(); }));
        Follower::settle(300);
        QCOMPARE(follower.log, QStringList{"event:queued"});
    }

    void destroyedWhileStreaming() {
        TestHttpServer server;
        Response stream = Response::eventStream({jobEvent("j", "queued"), jobEvent("j", "analyzing")}, 300);
        stream.holdOpen = true;
        server.route("GET", "/api/jobs/j/events", stream);
        auto follower = std::make_unique<Follower>(streamUrl(server));
        QStringList* log = &follower->log;
        follower->client->start();
        QVERIFY(TestSupport::waitUntil([&] { return !log->isEmpty(); }));
        delete follower->client;
        QVERIFY(follower->client.isNull());
        Follower::settle(600);
        QCOMPARE(*log, QStringList{"event:queued:0"});
        server.closeConnections();
    }

    void ownerDeletesClientOnCompletion() {
        TestHttpServer server;
        server.route("GET", "/api/jobs/j/events",
                     Response::eventStream({jobEvent("j", "done", 100) + jobEvent("j", "done", 100)}));
        Follower follower(streamUrl(server));
        follower.client->onComplete = [&] {
            follower.log.append(QStringLiteral("complete"));
            delete follower.client;
        };
        follower.client->start();
        QVERIFY(follower.waitForCompletion());
        Follower::settle(300);
        QCOMPARE(follower.log, (QStringList{"event:done:100", "complete"}));
        QVERIFY(follower.client.isNull());
    }

    void startTwiceMakesOneRequest() {
        TestHttpServer server;
        // Held open: the client alone ends the connection, so no transport retry can blur the count.
        Response stream = Response::eventStream({jobEvent("j", "done", 100)});
        stream.holdOpen = true;
        server.route("GET", "/api/jobs/j/events", stream);
        Follower follower(streamUrl(server));
        follower.client->start();
        follower.client->start();
        QVERIFY(follower.waitForCompletion());
        follower.client->start(); // used: no second stream
        Follower::settle();
        QCOMPARE(server.requestCount("/api/jobs/j/events"), 1);
        QCOMPARE(follower.log.count(QStringLiteral("complete")), 1);
    }
};

QTEST_GUILESS_MAIN(SSEClientTest)
#include "SSEClientTest.moc"
