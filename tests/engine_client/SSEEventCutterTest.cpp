#include "engine_client/SSEEventCutter.h"
#include "engine_client/Utf8Prefix.h"

#include <QTest>

namespace {
struct Capture {
    QStringList lines;
    ConsoleLineSink sink() {
        return [this](const QString& line) { lines.append(line); };
    }
};

// Feeds every chunk and returns all the data texts in order.
QList<QByteArray> cutAll(SSEEventCutter& cutter, const QList<QByteArray>& chunks) {
    QList<QByteArray> events;
    for (const QByteArray& chunk : chunks)
        events += cutter.feed(chunk);
    return events;
}
} // namespace

class SSEEventCutterTest : public QObject {
    Q_OBJECT

private slots:
    void cutting_data() {
        QTest::addColumn<QList<QByteArray>>("chunks");
        QTest::addColumn<QList<QByteArray>>("expected");
        using L = QList<QByteArray>;
        QTest::newRow("one event") << L{"data: {\"a\":1}\n\n"} << L{"{\"a\":1}"};
        QTest::newRow("two events in one chunk") << L{"data: 1\n\ndata: 2\n\n"} << L{"1", "2"};
        QTest::newRow("split across chunks")
            << L{"data: {\"job", "_id\":\"x\"}\n", "\n"} << L{"{\"job_id\":\"x\"}"};
        QTest::newRow("multi-line data joined") << L{"data: {\"a\":\ndata:  1}\n\n"} << L{"{\"a\":\n1}"};
        QTest::newRow("CR LF separators") << L{"data: 1\r\n\r\ndata: 2\r\n\r\n"} << L{"1", "2"};
        QTest::newRow("CR LF split between chunks")
            << L{"data: 1\r", "\n\r", "\ndata: 2\r\n\r\n"} << L{"1", "2"};
        QTest::newRow("keep-alive comment") << L{": ping\n\n", "data: 3\n\n"} << L{"3"};
        QTest::newRow("other fields ignored")
            << L{"event: progress\nid: 7\nretry: 10\ndata: 4\n\n"} << L{"4"};
        QTest::newRow("no data line") << L{"event: x\n\n"} << L{};
        QTest::newRow("empty data kept") << L{"data:\n\n"} << L{""};
        QTest::newRow("unfinished event waits") << L{"data: 5\n"} << L{};
        QTest::newRow("tabs and spaces trimmed") << L{"data:\t 6 \t\n\n"} << L{"6"};
        QTest::newRow("field name is case-sensitive") << L{"Data: 7\n\ndata: 8\n\n"} << L{"8"};
        QTest::newRow("three line feeds") << L{"data: 9\n\n\ndata: 10\n\n"} << L{"9", "10"};
        QTest::newRow("lone CR is not a line end") << L{"data: a\rb\n\n"} << L{"a\rb"};
        QTest::newRow("byte by byte") << [] {
            L chunks;
            for (char c : QByteArray("data: xy\r\n\r\ndata: z\n\n"))
                chunks.append(QByteArray(1, c));
            return chunks;
        }() << L{"xy", "z"};
    }

    void cutting() {
        QFETCH(QList<QByteArray>, chunks);
        QFETCH(QList<QByteArray>, expected);
        SSEEventCutter cutter([](const QString&) {});
        QCOMPARE(cutAll(cutter, chunks), expected);
    }

    void multiByteCharacterSplitAcrossChunks() {
        const QByteArray event = QStringLiteral("data: {\"title\":\"Été 🎵\"}\n\n").toUtf8();
        for (qsizetype cut = 1; cut < event.size(); ++cut) {
            SSEEventCutter cutter([](const QString&) {});
            QList<QByteArray> events = cutter.feed(event.left(cut));
            events += cutter.feed(event.mid(cut));
            QCOMPARE(events, QList<QByteArray>{QStringLiteral("{\"title\":\"Été 🎵\"}").toUtf8()});
        }
    }

    void invalidChunkDropped() {
        SSEEventCutter cutter([](const QString&) {});
        QCOMPARE(cutter.feed("data: 1\n\n"), QList<QByteArray>{"1"});
        QCOMPARE(cutter.feed("data: \xff\xfe bad\n\n"), QList<QByteArray>{});
        QCOMPARE(cutter.feed("data: 2\n\n"), QList<QByteArray>{"2"});
    }

    void invalidChunkAfterCutCharacter() {
        SSEEventCutter cutter([](const QString&) {});
        QCOMPARE(cutter.feed("data: \xc3"), QList<QByteArray>{});
        QCOMPARE(cutter.feed("(\n\n"), QList<QByteArray>{}); // the cut character cannot end this way
        // The valid text before the cut character stays in the buffer.
        QCOMPARE(cutter.feed("data: ok\n\n"), QList<QByteArray>{"data: ok"});
    }

    void oversizedEventDiscarded() {
        Capture console;
        SSEEventCutter cutter(console.sink());
        const QByteArray piece(1024 * 1024, 'x');
        QCOMPARE(cutter.feed("data: 1\n\ndata: "), QList<QByteArray>{"1"});
        for (int i = 0; i < 15; ++i)
            QVERIFY(cutter.feed(piece).isEmpty());
        QVERIFY(cutter.feed(piece.left(piece.size() - 6)).isEmpty());
        QCOMPARE(cutter.bufferedBytes(), SSEEventCutter::maxBufferBytes); // not past it yet
        QCOMPARE(console.lines.size(), 0);
        QVERIFY(cutter.feed("more").isEmpty()); // past 16 MiB now
        QCOMPARE(console.lines.size(), 1);
        QVERIFY(console.lines.first().startsWith(QStringLiteral("[SSE] ")));
        QCOMPARE(cutter.bufferedBytes(), 0);
        QVERIFY(cutter.feed(piece).isEmpty()); // the rest of the oversized event is dropped
        QCOMPARE(cutter.bufferedBytes(), 0);
        QCOMPARE(cutter.feed("tail\n"), QList<QByteArray>{});
        QCOMPARE(cutter.feed("\ndata: 2\n\n"), QList<QByteArray>{"2"});
        QCOMPARE(console.lines.size(), 1);
    }

    void largeEventInManySmallChunks() {
        SSEEventCutter cutter([](const QString&) {});
        const QByteArray data(4 * 1024 * 1024, 'y');
        const QByteArray stream = "data: " + data + "\n\n";
        QList<QByteArray> events;
        for (qsizetype at = 0; at < stream.size(); at += 1000)
            events += cutter.feed(stream.mid(at, 1000));
        QCOMPARE(events.size(), 1);
        QCOMPARE(events.first(), data);
    }

    void dataOfBlock() {
        QCOMPARE(SSEEventCutter::dataOf(": comment"), std::nullopt);
        QCOMPARE(SSEEventCutter::dataOf("data:a\ndata:b"), std::optional<QByteArray>("a\nb"));
        QCOMPARE(SSEEventCutter::dataOf(""), std::nullopt);
    }

    void utf8Prefix_data() {
        QTest::addColumn<QByteArray>("bytes");
        QTest::addColumn<int>("expected"); // -1: invalid
        QTest::newRow("ascii") << QByteArray("abc") << 3;
        QTest::newRow("empty") << QByteArray() << 0;
        QTest::newRow("e acute") << QByteArray("\xc3\xa9") << 2;
        QTest::newRow("cut two-byte") << QByteArray("a\xc3") << 1;
        QTest::newRow("cut four-byte") << QByteArray("a\xf0\x9f\x8e") << 1;
        QTest::newRow("whole four-byte") << QByteArray("\xf0\x9f\x8e\xb5") << 4;
        QTest::newRow("lone continuation") << QByteArray("\x80") << -1;
        QTest::newRow("overlong") << QByteArray("\xc0\xaf") << -1;
        QTest::newRow("overlong three-byte") << QByteArray("\xe0\x80\xaf") << -1;
        QTest::newRow("surrogate") << QByteArray("\xed\xa0\x80") << -1;
        QTest::newRow("past U+10FFFF") << QByteArray("\xf4\x90\x80\x80") << -1;
        QTest::newRow("bad second byte") << QByteArray("\xc3(") << -1;
        QTest::newRow("bad third byte") << QByteArray("\xe2\x82(") << -1;
        QTest::newRow("ff") << QByteArray("\xff") << -1;
    }

    void utf8Prefix() {
        QFETCH(QByteArray, bytes);
        QFETCH(int, expected);
        const std::optional<qsizetype> prefix = completeUtf8Prefix(bytes);
        QCOMPARE(prefix ? int(*prefix) : -1, expected);
    }
};

QTEST_GUILESS_MAIN(SSEEventCutterTest)
#include "SSEEventCutterTest.moc"
