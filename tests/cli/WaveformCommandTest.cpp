#include "support/FFmpegFixture.h"
#include "support/MarluneProcess.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <QTemporaryDir>
#include <QtTest>

namespace {
MarluneRun waveform(const QStringList& arguments) {
    return runMarlune(QStringList{QStringLiteral("waveform")} + arguments);
}
} // namespace

class WaveformCommandTest : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;
    QString path(const QString& name) const { return m_dir.filePath(name); }

private Q_SLOTS:
    void initTestCase() {
        QVERIFY(m_dir.isValid());
        QVERIFY(TestSupport::makeWithFFmpeg(
            {"-f", "lavfi", "-i", "sine=f=300:d=2:sample_rate=44100", "-ac", "2", path("tone.wav")}));
        // 3601 samples: one more than two per point.
        QVERIFY(TestSupport::makeWithFFmpeg(
            {"-f", "lavfi", "-i", "sine=f=300:sample_rate=8000", "-t", "0.450125", path("short.wav")}));
        QFile bad(path("bad.mp3"));
        QVERIFY(bad.open(QIODevice::WriteOnly));
        bad.write(QByteArray(3000, 'x'));
    }

    void printsTheEnvelopeAsOneJsonArray_data() {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<int>("points");
        QTest::newRow("default 1800") << "tone.wav" << QStringList{} << 1800;
        QTest::newRow("--points N") << "tone.wav" << QStringList{"--points", "10"} << 10;
        QTest::newRow("--points=N") << "tone.wav" << QStringList{"--points=245"} << 245;
        QTest::newRow("a short last bucket") << "tone.wav" << QStringList{"--points", "250"} << 251;
        QTest::newRow("3601 samples") << "short.wav" << QStringList{} << 1801;
        QTest::newRow("more points than samples") << "short.wav" << QStringList{"--points", "5000"} << 3601;
    }
    void printsTheEnvelopeAsOneJsonArray() {
        QFETCH(QString, file);
        QFETCH(QStringList, options);
        QFETCH(int, points);
        const MarluneRun run = waveform(QStringList{path(file)} + options);
        QCOMPARE(run.exitCode, 0);
        QCOMPARE(run.out.count(QLatin1Char('\n')), 1); // nothing but the array on standard output
        QJsonParseError error;
        const QJsonDocument document = QJsonDocument::fromJson(run.out.toUtf8(), &error);
        QCOMPARE(error.error, QJsonParseError::NoError);
        const QJsonArray values = document.array();
        QCOMPARE(values.size(), points);
        double greatest = 0.0;
        for (const QJsonValue& value : values) {
            QVERIFY(value.isDouble());
            QVERIFY(value.toDouble() >= 0.0 && value.toDouble() <= 1.0);
            greatest = std::max(greatest, value.toDouble());
        }
        QCOMPARE(greatest, 1.0);
        QVERIFY(
            run.err.contains(QStringLiteral("[Waveform] AVAssetReader ✅ %1: %2 pts").arg(file).arg(points)));
    }

    void badArgumentsAreUsageErrors_data() {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("message");
        QTest::newRow("no file") << QStringList{} << "Aucun fichier indiqué.";
        QTest::newRow("zero points") << QStringList{"tone.wav", "--points", "0"}
                                     << "Nombre de points invalide : 0";
        QTest::newRow("negative points")
            << QStringList{"tone.wav", "--points=-3"} << "Nombre de points invalide : -3";
        QTest::newRow("not a number")
            << QStringList{"tone.wav", "--points", "many"} << "Nombre de points invalide : many";
        QTest::newRow("missing value")
            << QStringList{"tone.wav", "--points"} << "Valeur manquante après --points";
        QTest::newRow("two files") << QStringList{"tone.wav", "short.wav"} << "Un seul fichier à la fois.";
        QTest::newRow("unknown option") << QStringList{"tone.wav", "--loud"} << "Option inconnue : --loud";
    }
    void badArgumentsAreUsageErrors() {
        QFETCH(QStringList, arguments);
        QFETCH(QString, message);
        for (QString& argument : arguments)
            if (argument.endsWith(QLatin1String(".wav")))
                argument = path(argument);
        const MarluneRun run = waveform(arguments);
        QCOMPARE(run.exitCode, 2);
        QVERIFY2(run.err.startsWith(message), qPrintable(run.err));
        QVERIFY(run.err.contains("Utilisation : marlune waveform FICHIER [--points N]"));
        QVERIFY(run.out.isEmpty());
    }

    void aMissingFileFails() {
        const MarluneRun run = waveform({path("nowhere.wav")});
        QCOMPARE(run.exitCode, 1);
        QCOMPARE(run.err.trimmed(), QStringLiteral("❌ %1 : fichier introuvable").arg(path("nowhere.wav")));
        QVERIFY(run.out.isEmpty());
    }

    void anUnreadableFileFailsWithTheDecodersLine() {
        const MarluneRun run = waveform({path("bad.mp3")});
        QCOMPARE(run.exitCode, 1);
        QVERIFY(run.err.contains("[Waveform] AVAudioFile ❌ cannot open bad.mp3"));
        QVERIFY(run.err.contains("❌ bad.mp3 : aucun son lisible dans ce fichier"));
        QVERIFY(run.out.isEmpty());
    }
};

QTEST_GUILESS_MAIN(WaveformCommandTest)
#include "WaveformCommandTest.moc"
