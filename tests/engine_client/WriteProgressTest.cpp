#include "engine_client/WriteProgress.h"

#include <QTest>
#include <thread>

class WriteProgressTest : public QObject {
    Q_OBJECT

private slots:
    void readerWaitsForTheWriter() {
        WriteProgress progress;
        bool kept = true;
        std::thread writer([&] {
            progress.plan(30);
            for (qint64 written = 10; written <= 30; written += 10)
                kept = progress.advance(written) && kept;
            progress.finish(true);
        });
        QCOMPARE(progress.waitForPlan(), std::optional<qint64>(30));
        qint64 read = 0;
        while (read < 30) {
            const std::optional<qint64> written = progress.waitBeyond(read);
            QVERIFY(written && *written > read);
            read = *written;
        }
        writer.join();
        QVERIFY(kept);
        QCOMPARE(progress.waitBeyond(30), std::optional<qint64>(30)); // finished: no more to wait for
    }

    void failedWriterReleasesTheReader() {
        WriteProgress progress;
        std::thread writer([&] { progress.finish(false); });
        QCOMPARE(progress.waitForPlan(), std::nullopt);
        QCOMPARE(progress.waitBeyond(0), std::nullopt);
        writer.join();
    }

    void abandonedFileStopsTheWriter() {
        WriteProgress progress;
        progress.plan(100);
        QVERIFY(progress.advance(10));
        progress.abandon();
        QVERIFY(!progress.advance(20));
    }
};

QTEST_GUILESS_MAIN(WriteProgressTest)
#include "WriteProgressTest.moc"
