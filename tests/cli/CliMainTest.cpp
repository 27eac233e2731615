#include "support/MarluneProcess.h"

#include <QtTest>

class CliMainTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() {
        QVERIFY2(QFile::exists(qEnvironmentVariable("MARLUNE_BINARY")), "MARLUNE_BINARY not set");
    }

    void versionAndHelp_data() {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("outStart");
        QTest::addColumn<QString>("errStart");
        QTest::newRow("--version") << QStringList{"--version"} << 0 << "marlune " << QString();
        QTest::newRow("--help") << QStringList{"--help"} << 0 << "Marlune " << QString();
        QTest::newRow("unknown command")
            << QStringList{"frobnicate"} << 2 << QString() << "Commande inconnue : frobnicate";
    }
    void versionAndHelp() {
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);
        QFETCH(QString, outStart);
        QFETCH(QString, errStart);
        const MarluneRun run = runMarlune(arguments);
        QCOMPARE(run.exitCode, exitCode);
        QVERIFY2(run.out.startsWith(outStart), qPrintable(run.out));
        QVERIFY2(run.err.startsWith(errStart), qPrintable(run.err));
    }
};

QTEST_GUILESS_MAIN(CliMainTest)
#include "CliMainTest.moc"
