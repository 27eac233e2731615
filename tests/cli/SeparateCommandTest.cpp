#include "support/MarluneProcess.h"
#include "support/TestSupport.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

namespace {
double durationOf(const QString& file) {
    QProcess probe;
    probe.start(QStringLiteral("ffprobe"),
                {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-show_entries"),
                 QStringLiteral("format=duration"), QStringLiteral("-of"),
                 QStringLiteral("default=nw=1:nk=1"), file});
    probe.waitForFinished(20000);
    return probe.readAllStandardOutput().trimmed().toDouble();
}
} // namespace

// A new user's path, end to end: a clean install root, the bundled engine installed, then a separation.
class SeparateCommandTest : public QObject {
    Q_OBJECT

    QTemporaryDir home;
    quint16 port = 0;

    MarluneRun marlune(const QStringList& arguments) {
        return runMarlune(arguments, marluneEnvironment(home.path(), port));
    }

    QString song(const QString& name, double seconds) {
        const QString path = home.filePath(name);
        QProcess ffmpeg;
        ffmpeg.start(QStringLiteral("ffmpeg"),
                     {QStringLiteral("-y"), QStringLiteral("-loglevel"), QStringLiteral("error"),
                      QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                      QStringLiteral("sine=frequency=220:duration=%1").arg(seconds), QStringLiteral("-f"),
                      QStringLiteral("lavfi"), QStringLiteral("-i"),
                      QStringLiteral("sine=frequency=3000:duration=%1").arg(seconds),
                      QStringLiteral("-filter_complex"), QStringLiteral("amerge"), QStringLiteral("-ac"),
                      QStringLiteral("2"), path});
        ffmpeg.waitForFinished(30000);
        return path;
    }

private Q_SLOTS:
    void initTestCase() { port = TestSupport::freePort(); }

    void withoutAnEngineSeparateSaysWhatToDo() {
        const MarluneRun run = marlune({QStringLiteral("separate"), song(QStringLiteral("first.wav"), 1)});
        QCOMPARE(run.exitCode, 1);
        QVERIFY2(run.err.contains(QStringLiteral("marlune engine install-reference")), qPrintable(run.err));
    }

    void usageErrors_data() {
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("no input") << QStringList{"separate"};
        QTest::newRow("unknown stem") << QStringList{"separate", "x.wav", "--stems", "vocals,kazoo"};
        QTest::newRow("original is not separable") << QStringList{"separate", "x.wav", "--stems", "original"};
        QTest::newRow("unknown format") << QStringList{"separate", "x.wav", "--format", "ogg"};
        QTest::newRow("two inputs") << QStringList{"separate", "x.wav", "y.wav"};
    }
    void usageErrors() {
        QFETCH(QStringList, arguments);
        QCOMPARE(marlune(arguments).exitCode, 2);
    }

    void installThenSeparateIntoMp3StemsAndMix() {
        const MarluneRun install = marlune({QStringLiteral("engine"), QStringLiteral("install-reference")});
        QVERIFY2(install.exitCode == 0, qPrintable(install.err + install.out));
        QVERIFY(install.out.trimmed().split(QLatin1Char('\n')).last().startsWith(QLatin1Char('v')));

        const QString input = song(QStringLiteral("song.mp3"), 4);
        const QString out = home.filePath(QStringLiteral("exports"));
        const MarluneRun run =
            marlune({QStringLiteral("separate"), input, QStringLiteral("--stems"),
                     QStringLiteral("vocals,drums"), QStringLiteral("--format"), QStringLiteral("mp3"),
                     QStringLiteral("--mix"), QStringLiteral("--out"), out});
        QVERIFY2(run.exitCode == 0, qPrintable(run.err));
        QVERIFY(run.err.contains(QStringLiteral("100 % Terminé")));
        const QStringList files{out + QStringLiteral("/song/Voix.mp3"),
                                out + QStringLiteral("/song/Batterie.mp3"),
                                out + QStringLiteral("/song (mix).mp3")};
        for (const QString& file : files) {
            QVERIFY2(QFile::exists(file), qPrintable(file));
            QVERIFY2(qAbs(durationOf(file) - 4.0) < 0.15,
                     qPrintable(QStringLiteral("%1: %2 s").arg(file).arg(durationOf(file))));
        }
        QVERIFY(!QFile::exists(out + QStringLiteral("/song/Basse.mp3")));
        // The engine it started is stopped again.
        QVERIFY(TestSupport::waitUntil([this] { return !TestSupport::isListening(port); }, 10000));
    }
};

QTEST_GUILESS_MAIN(SeparateCommandTest)
#include "SeparateCommandTest.moc"
