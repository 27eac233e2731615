#include "support/MarluneProcess.h"
#include "support/TestSupport.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

// Installing, starting, querying and stopping the bundled engine from the command line.
class EngineCommandTest : public QObject {
    Q_OBJECT

    QTemporaryDir home;
    quint16 port = 0;
    QProcessEnvironment environment;

private Q_SLOTS:
    void initTestCase() {
        port = TestSupport::freePort();
        environment = marluneEnvironment(home.path(), port);
    }

    void statusOfNothingIsUnreachable() {
        const MarluneRun run = runMarlune({"engine", "status"}, environment);
        QCOMPARE(run.exitCode, 1);
        QCOMPARE(run.out.trimmed(), QStringLiteral("❌ http://127.0.0.1:%1/ → NON ACCESSIBLE").arg(port));
    }

    void startWithoutAnEngineFails() {
        const MarluneRun run = runMarlune({"engine", "start"}, environment);
        QCOMPARE(run.exitCode, 1);
        QVERIFY(run.err.contains(QStringLiteral("engine install-reference")));
    }

    void usageErrors_data() {
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("no action") << QStringList{"engine"};
        QTest::newRow("unknown action") << QStringList{"engine", "reboot"};
        QTest::newRow("extra argument") << QStringList{"engine", "status", "now"};
        QTest::newRow("address missing") << QStringList{"engine", "status", "--engine-url"};
        QTest::newRow("unknown install option") << QStringList{"engine", "install-reference", "--force"};
    }
    void usageErrors() {
        QFETCH(QStringList, arguments);
        QCOMPARE(runMarlune(arguments, environment).exitCode, 2);
    }

    void installOnceThenStartStatusStop() {
        const MarluneRun first = runMarlune({"engine", "install-reference", "--if-missing"}, environment);
        QVERIFY2(first.exitCode == 0, qPrintable(first.err));
        const QString tag = first.out.trimmed().split(QLatin1Char('\n')).last();
        QVERIFY(tag.startsWith(QLatin1Char('v')));
        const MarluneRun again = runMarlune({"engine", "install-reference", "--if-missing"}, environment);
        QCOMPARE(again.out.trimmed(), tag); // nothing reinstalled
        QVERIFY(!again.out.contains(QStringLiteral("Installation du moteur")));

        QProcess engine;
        engine.setProcessEnvironment(environment);
        engine.start(qEnvironmentVariable("MARLUNE_BINARY"), {"engine", "start"});
        QVERIFY(TestSupport::waitUntil([&] { return engine.readAllStandardOutput().contains("Moteur prêt"); },
                                       60000));
        const MarluneRun status = runMarlune({"engine", "status"}, environment);
        QCOMPARE(status.exitCode, 0);
        QVERIFY(status.out.startsWith(QStringLiteral("✅ http://127.0.0.1:%1/ → moteur Halvorn ").arg(port)));

        const MarluneRun stop = runMarlune({"engine", "stop"}, environment);
        QCOMPARE(stop.out.trimmed(), QStringLiteral("Moteur arrêté (port %1).").arg(port));
        QVERIFY(engine.waitForFinished(15000)); // the supervising command ends with its engine
        QCOMPARE(runMarlune({"engine", "status"}, environment).exitCode, 1);
    }
};

QTEST_GUILESS_MAIN(EngineCommandTest)
#include "EngineCommandTest.moc"
