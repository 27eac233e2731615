#include "support/FFmpegFixture.h"

#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

#include <csignal>

namespace {

// `marlune play …` on the null output, its standard input a pipe for the keys.
struct Play {
    QProcess process;
    explicit Play(const QStringList& files) {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("MARLUNE_AUDIO_OUTPUT"), QStringLiteral("null"));
        process.setProcessEnvironment(environment);
        process.start(qEnvironmentVariable("MARLUNE_BINARY"), QStringList{QStringLiteral("play")} + files);
        process.waitForStarted();
    }
    ~Play() {
        if (process.state() != QProcess::NotRunning) {
            process.kill();
            process.waitForFinished();
        }
    }
    QString out;
    // Waits until standard output holds a line matching `pattern`.
    bool waitForLine(const QString& pattern) {
        const QRegularExpression expression(pattern, QRegularExpression::MultilineOption);
        QDeadlineTimer deadline(20000);
        while (!expression.match(out).hasMatch()) {
            if (deadline.hasExpired() || process.state() == QProcess::NotRunning)
                return false;
            process.waitForReadyRead(100);
            out += QString::fromUtf8(process.readAllStandardOutput());
        }
        return true;
    }
    void press(const char* keys) {
        process.write(keys);
        process.waitForBytesWritten();
    }
    int finish() {
        process.waitForFinished(20000);
        out += QString::fromUtf8(process.readAllStandardOutput());
        return process.state() == QProcess::NotRunning ? process.exitCode() : -1;
    }
    QString err() { return QString::fromUtf8(process.readAllStandardError()); }
};
} // namespace

class PlayCommandTest : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;
    QString path(const QString& name) const { return m_dir.filePath(name); }

private Q_SLOTS:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
        QVERIFY(TestSupport::makeWithFFmpeg(
            {"-f", "lavfi", "-i", "sine=f=300:d=0.4", "-ac", "2", path("short.wav")}));
        QVERIFY(TestSupport::makeWithFFmpeg(
            {"-f", "lavfi", "-i", "sine=f=200:d=60", "-ac", "1", path("long.wav")}));
        QVERIFY(TestSupport::makeWithFFmpeg(
            {"-f", "lavfi", "-i", "sine=f=500:d=60:sample_rate=48000", "-c:a", "flac", path("long48.flac")}));
    }

    void playsToTheEndAndExits() {
        Play play({path("short.wav")});
        QVERIFY(play.waitForLine("^▶ 0:00\\.\\d / 0:00\\.4$"));
        QCOMPARE(play.finish(), 0);
        QVERIFY(play.err().contains("Lecture de 1 fichier(s)"));
    }

    void spacePausesAndResumes() {
        Play play({path("long.wav"), path("long48.flac")});
        QVERIFY(play.waitForLine("^▶ 0:00\\.\\d / 1:00\\.0$"));
        play.press(" ");
        QVERIFY(play.waitForLine("^⏸ \\d:\\d\\d\\.\\d / 1:00\\.0$"));
        play.press(" ");
        QVERIFY(play.waitForLine("⏸.*\\n▶ "));
        play.press("q");
        QCOMPARE(play.finish(), 0);
    }

    void bracketsSeekFiveSecondsEachWay() {
        Play play({path("long.wav")});
        QVERIFY(play.waitForLine("^▶ "));
        play.press("]]");
        play.press(" ");
        QVERIFY(play.waitForLine("^⏸ 0:1\\d\\.\\d / 1:00\\.0$")); // at least 10 s in
        play.press("[[[[[");
        QVERIFY(play.waitForLine("^⏸ 0:00\\.0 / 1:00\\.0$")); // never before the start
        play.press("q");
        QCOMPARE(play.finish(), 0);
    }

    void terminationStopsPlaybackCleanly() {
        Play play({path("long.wav")});
        QVERIFY(play.waitForLine("^▶ "));
        ::kill(static_cast<pid_t>(play.process.processId()), SIGTERM);
        QCOMPARE(play.finish(), 0);
        QCOMPARE(play.process.exitStatus(), QProcess::NormalExit);
    }

    void unreadableFilesAreLeftOutAndTheOthersPlay() {
        QFile bad(path("bad.wav"));
        QVERIFY(bad.open(QIODevice::WriteOnly));
        bad.write("RIFF junk");
        bad.close();
        Play play({path("bad.wav"), path("missing.wav"), path("short.wav")});
        QCOMPARE(play.finish(), 0);
        const QString err = play.err();
        QVERIFY2(err.contains("[AudioPlayer] Failed to load bad.wav: "), qPrintable(err));
        QVERIFY(err.contains(QStringLiteral("❌ %1 : fichier introuvable").arg(path("missing.wav"))));
        QVERIFY(err.contains("Lecture de 1 fichier(s)"));
    }

    void nothingReadableFails() {
        Play play({path("missing.wav")});
        QCOMPARE(play.finish(), 1);
        QVERIFY(play.err().contains("Aucun fichier lisible."));
    }

    void badArgumentsAreUsageErrors_data() {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("message");
        QTest::newRow("no file") << QStringList{} << "Aucun fichier à lire.";
        QTest::newRow("unknown option") << QStringList{"--fast"} << "Option inconnue : --fast";
    }
    void badArgumentsAreUsageErrors() {
        QFETCH(QStringList, arguments);
        QFETCH(QString, message);
        Play play(arguments);
        QCOMPARE(play.finish(), 2);
        const QString err = play.err();
        QVERIFY2(err.startsWith(message), qPrintable(err));
        QVERIFY(err.contains("Utilisation : marlune play FICHIER…"));
    }
};

QTEST_GUILESS_MAIN(PlayCommandTest)
#include "PlayCommandTest.moc"
