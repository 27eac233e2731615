#include "log/AppLogger.h"

#include <QtConcurrent>
#include <QtTest>

class AppLoggerTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void the501stEntryDropsExactlyTheFirst() {
        AppLogger logger;
        for (int i = 1; i <= 501; ++i)
            logger.log(QString::number(i));
        QCoreApplication::processEvents();
        QCOMPARE(logger.entries().size(), 500);
        QCOMPARE(logger.entries().first().message, QStringLiteral("2"));
        QCOMPARE(logger.entries().last().message, QStringLiteral("501"));
    }

    void thousandLogsFromSeveralThreadsKeepTheNewest500InOrder() {
        AppLogger logger;
        // Four threads, each logging 250 messages tagged with its number and a running index.
        QList<QFuture<void>> workers;
        for (int t = 0; t < 4; ++t)
            workers.append(QtConcurrent::run([&logger, t] {
                for (int i = 0; i < 250; ++i)
                    logger.log(QStringLiteral("%1:%2").arg(t).arg(i));
            }));
        for (auto& worker : workers)
            worker.waitForFinished();
        QCoreApplication::processEvents();
        QCOMPARE(logger.entries().size(), 500);
        // What survives of each thread is a contiguous run ending with its last message.
        QHash<int, int> lastIndex;
        for (const LogEntry& entry : logger.entries()) {
            const QStringList parts = entry.message.split(QLatin1Char(':'));
            const int thread = parts[0].toInt(), index = parts[1].toInt();
            if (lastIndex.contains(thread))
                QCOMPARE(index, lastIndex[thread] + 1);
            lastIndex[thread] = index;
        }
        for (auto it = lastIndex.cbegin(); it != lastIndex.cend(); ++it)
            QCOMPARE(it.value(), 249);
    }

    void clearThenLogLeavesOnlyTheNewEntry() {
        AppLogger logger;
        logger.log(QStringLiteral("old"));
        QCoreApplication::processEvents();
        logger.clear();
        logger.log(QStringLiteral("new"));
        QCOMPARE(logger.entries().size(), 1); // nothing applied yet: mutations are asynchronous
        QCoreApplication::processEvents();
        QCOMPARE(logger.entries().size(), 1);
        QCOMPARE(logger.entries().first().message, QStringLiteral("new"));
    }

    void multiLineMessagesStayOneEntry() {
        AppLogger logger;
        logger.log(QStringLiteral("a\nb"), LogLevel::error);
        logger.log(QStringLiteral("c"), LogLevel::ok);
        QCoreApplication::processEvents();
        const QStringList lines = logger.allText().split(QLatin1Char('\n'));
        QCOMPARE(lines.size(), 3);
        QVERIFY(lines[0].endsWith(QStringLiteral("] ❌ a")));
        QCOMPARE(lines[1], QStringLiteral("b"));
        QVERIFY(lines[2].endsWith(QStringLiteral("] ✅ c")));
        AppLogger empty;
        QCOMPARE(empty.allText(), QString());
    }

    void formattedLine() {
        const QDateTime date(QDate(2026, 1, 2), QTime(9, 5, 3, 7));
        const LogEntry entry{QUuid::createUuid(), date, LogLevel::warn, QStringLiteral("x")};
        QCOMPARE(entry.formattedLine(), QStringLiteral("[09:05:03.007] ⚠️ x"));
    }

    void levelsFromIcons_data() {
        QTest::addColumn<QString>("icon");
        QTest::addColumn<int>("level");
        QTest::newRow("info") << QStringLiteral("ℹ️") << int(LogLevel::info);
        QTest::newRow("ok") << QStringLiteral("✅") << int(LogLevel::ok);
        QTest::newRow("warn") << QStringLiteral("⚠️") << int(LogLevel::warn);
        QTest::newRow("error") << QStringLiteral("❌") << int(LogLevel::error);
        QTest::newRow("debug") << QStringLiteral("🔍") << int(LogLevel::debug);
        QTest::newRow("warn without variation selector") << QStringLiteral("⚠") << -1;
        QTest::newRow("empty") << QString() << -1;
    }
    void levelsFromIcons() {
        QFETCH(QString, icon);
        QFETCH(int, level);
        const auto parsed = logLevelFromIcon(icon);
        QCOMPARE(parsed ? int(*parsed) : -1, level);
    }
};

QTEST_GUILESS_MAIN(AppLoggerTest)
#include "AppLoggerTest.moc"
