#include "support/FFmpegFixture.h"
#include "support/MarluneProcess.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTemporaryDir>
#include <QtTest>

namespace {
struct Run {
    int exitCode = -1;
    QStringList out;
    QStringList err;
};

Run convert(const QStringList& arguments,
            const QProcessEnvironment& environment = QProcessEnvironment::systemEnvironment(),
            const QString& workingDirectory = QString()) {
    const MarluneRun run =
        runMarlune(QStringList{QStringLiteral("convert")} + arguments, environment, 60000, workingDirectory);
    return {run.exitCode, run.outLines(), run.errLines()};
}

QString codecOf(const QString& path) {
    QProcess process;
    process.start(QStringLiteral("/usr/bin/ffprobe"),
                  {QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-show_streams"),
                   QStringLiteral("-of"), QStringLiteral("json"), path});
    process.waitForFinished(30000);
    const QJsonArray streams = QJsonDocument::fromJson(process.readAllStandardOutput())[u"streams"].toArray();
    return streams.isEmpty() ? QString() : streams.first()[u"codec_name"].toString();
}
} // namespace

class ConvertCommandTest : public QObject {
    Q_OBJECT

    QTemporaryDir m_dir;
    QString path(const QString& name) const { return m_dir.filePath(name); }

private Q_SLOTS:
    void initTestCase() {
        QVERIFY2(QFile::exists(qEnvironmentVariable("MARLUNE_BINARY")), "MARLUNE_BINARY not set");
        QVERIFY(TestSupport::makeWithFFmpeg({"-f", "lavfi", "-i", "sine=f=440:d=0.3", path("a.wav")}));
        QVERIFY(TestSupport::makeWithFFmpeg({"-f", "lavfi", "-i", "sine=f=440:d=0.3", path("b.flac")}));
        QVERIFY(TestSupport::makeWithFFmpeg({"-f", "lavfi", "-i", "sine=f=440:d=0.3", path("-dash é.ogg")}));
    }

    void convertsIntoFolderAsMp3() {
        const QString out = path(QStringLiteral("out/nested"));
        const Run run =
            convert({path(QStringLiteral("a.wav")), QStringLiteral("--format"), QStringLiteral("MP3"),
                     QStringLiteral("--out"), out, path(QStringLiteral("b.flac"))});
        QCOMPARE(run.exitCode, 0);
        QCOMPARE(run.out, (QStringList{QStringLiteral("✅ a.wav → ") + out + QStringLiteral("/a.mp3"),
                                       QStringLiteral("✅ b.flac → ") + out + QStringLiteral("/b.mp3")}));
        QCOMPARE(run.err, QStringList{});
        QCOMPARE(codecOf(out + QStringLiteral("/a.mp3")), QStringLiteral("mp3"));
        QCOMPARE(codecOf(out + QStringLiteral("/b.mp3")), QStringLiteral("mp3"));
    }

    void defaultsToWavNextToSource() {
        const Run run = convert({QStringLiteral("--"), QStringLiteral("-dash é.ogg")},
                                QProcessEnvironment::systemEnvironment(), m_dir.path());
        QCOMPARE(run.exitCode, 0);
        QCOMPARE(run.out,
                 QStringList{QStringLiteral("✅ -dash é.ogg → ") + path(QStringLiteral("-dash é.wav"))});
        QCOMPARE(codecOf(path(QStringLiteral("-dash é.wav"))), QStringLiteral("pcm_s16le"));
    }

    void failedFilesAreReportedAndExitOne() {
        const QString out = path(QStringLiteral("partial"));
        const Run run = convert({QStringLiteral("--out=") + out, path(QStringLiteral("missing.wav")),
                                 path(QStringLiteral("a.wav")), path(QStringLiteral("b.flac")),
                                 path(QStringLiteral("a.wav"))});
        QCOMPARE(run.exitCode, 1);
        QCOMPARE(run.out.size(), 2);
        QCOMPARE(run.err, QStringList{QStringLiteral("❌ missing.wav : fichier introuvable")});
        QVERIFY(QFile::exists(out + QStringLiteral("/a.wav")));
    }

    void unsupportedFileIsAFailure() {
        QFile notes(path(QStringLiteral("notes.txt")));
        QVERIFY(notes.open(QIODevice::WriteOnly));
        notes.close();
        const Run run = convert({path(QStringLiteral("notes.txt"))});
        QCOMPARE(run.exitCode, 1);
        QVERIFY(run.out.isEmpty());
        QCOMPARE(run.err.size(), 1);
        QVERIFY2(run.err.first().startsWith(QStringLiteral("❌ notes.txt : format non pris en charge")),
                 qPrintable(run.err.first()));
    }

    void ffmpegFailureMessageOnOneLine() {
        QTemporaryDir data;
        const QString standIn = data.filePath(QStringLiteral("Halvorn/data/ffmpeg/ffmpeg"));
        QDir().mkpath(QFileInfo(standIn).absolutePath());
        QFile script(standIn);
        QVERIFY(script.open(QIODevice::WriteOnly));
        script.write("#!/bin/sh\nprintf 'first line\\nlast line\\n' >&2\nexit 2\n");
        script.close();
        script.setPermissions(script.permissions() | QFileDevice::ExeOwner);
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("XDG_DATA_HOME"), data.path());

        const Run run =
            convert({path(QStringLiteral("a.wav")), QStringLiteral("--out"), path(QStringLiteral("never"))},
                    environment);
        QCOMPARE(run.exitCode, 1);
        QVERIFY(run.out.isEmpty());
        QCOMPARE(run.err, QStringList{QStringLiteral("❌ a.wav : ffmpeg a échoué : first line last line")});
    }

    void verboseShowsServiceLinesOnStandardError() {
        const Run run = convert({QStringLiteral("--verbose"), path(QStringLiteral("a.wav")),
                                 QStringLiteral("--out"), path(QStringLiteral("verbose"))});
        QCOMPARE(run.exitCode, 0);
        QCOMPARE(run.out.size(), 1);
        QVERIFY2(run.err.contains(QStringLiteral("[ExportService] ✅ Converted a.wav → a.wav")),
                 qPrintable(run.err.join('\n')));
    }

    void usageErrors_data() {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("firstLine");
        QTest::newRow("no file") << QStringList{} << "Aucun fichier à convertir.";
        QTest::newRow("only options") << QStringList{"--format", "wav"} << "Aucun fichier à convertir.";
        QTest::newRow("unknown format")
            << QStringList{"x.wav", "--format", "flac"} << "Format inconnu : flac (wav ou mp3)";
        QTest::newRow("format without value")
            << QStringList{"x.wav", "--format"} << "Valeur manquante après --format";
        QTest::newRow("out without value") << QStringList{"x.wav", "--out"} << "Valeur manquante après --out";
        QTest::newRow("empty out") << QStringList{"x.wav", "--out="} << "Dossier de sortie vide";
        QTest::newRow("unknown option") << QStringList{"-x", "x.wav"} << "Option inconnue : -x";
    }
    void usageErrors() {
        QFETCH(QStringList, arguments);
        QFETCH(QString, firstLine);
        const Run run = convert(arguments);
        QCOMPARE(run.exitCode, 2);
        QVERIFY(run.out.isEmpty());
        QCOMPARE(run.err.value(0), firstLine);
        QVERIFY(run.err.value(1).startsWith(QStringLiteral("Utilisation : marlune convert ")));
    }

    void outputFolderThatCannotBeCreated() {
        QFile blocker(path(QStringLiteral("blocker")));
        QVERIFY(blocker.open(QIODevice::WriteOnly));
        blocker.close();
        const Run run = convert(
            {path(QStringLiteral("a.wav")), QStringLiteral("--out"), path(QStringLiteral("blocker/sub"))});
        QCOMPARE(run.exitCode, 1);
        QCOMPARE(run.err, QStringList{QStringLiteral("Impossible de créer le dossier : ") +
                                      path(QStringLiteral("blocker/sub"))});
    }
};

QTEST_GUILESS_MAIN(ConvertCommandTest)
#include "ConvertCommandTest.moc"
