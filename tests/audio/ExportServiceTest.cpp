#include "audio/ExportService.h"
#include "ExportFixtures.h"
#include "audio/ExportError.h"
#include "audio/ExportFormat.h"
#include "audio/ProcessLaunchError.h"

#include <QDir>
#include <QTimer>
#include <QtTest>

using namespace ExportFixtures;

namespace {
// A stand-in that writes each argument, NUL-terminated, to `record`, then creates its last argument.
QByteArray recordingScript(const QString& record) {
    return QStringLiteral("for a in \"$@\"; do printf '%s\\0' \"$a\"; done > '%1'\n"
                          "for last in \"$@\"; do :; done\n: > \"$last\"")
        .arg(record)
        .toUtf8();
}

QStringList recordedArguments(const QString& record) {
    QFile file(record);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QStringList arguments = QString::fromUtf8(file.readAll()).split(QChar(u'\0'));
    arguments.removeLast();
    return arguments;
}
} // namespace

class ExportServiceTest : public QObject {
    Q_OBJECT

    TempInstallRoot m_root;
    Recorder m_recorder;
    ExportService m_service{serviceConfig(m_root, {systemFFmpeg}, m_recorder)};

    QString path(const QString& name) const { return m_root.path() + QLatin1Char('/') + name; }

private Q_SLOTS:
    void init() {
        m_recorder.takeLines();
        QMutexLocker lock(&m_recorder.mutex);
        m_recorder.revealed.clear();
    }

    void formats() {
        QCOMPARE(ExportFormats::all(), (QList<ExportFormat>{ExportFormat::wav, ExportFormat::mp3}));
        QCOMPARE(ExportFormats::label(ExportFormat::wav), QStringLiteral("WAV"));
        QCOMPARE(ExportFormats::label(ExportFormat::mp3), QStringLiteral("MP3"));
        QCOMPARE(ExportFormats::extension(ExportFormat::wav), QStringLiteral("wav"));
        QCOMPARE(ExportFormats::extension(ExportFormat::mp3), QStringLiteral("mp3"));
        QCOMPARE(ExportFormats::fromName(QStringLiteral("mp3")), ExportFormat::mp3);
        QCOMPARE(ExportFormats::fromName(QStringLiteral("Wav")), ExportFormat::wav);
        QCOMPARE(ExportFormats::fromName(QStringLiteral("flac")), std::nullopt);
        QCOMPARE(ExportFormats::fromName(QString()), std::nullopt);
    }

    void conversionArgumentList_data() {
        QTest::addColumn<ExportFormat>("format");
        QTest::addColumn<QStringList>("codec");
        QTest::newRow("wav") << ExportFormat::wav
                             << QStringList{"-vn", "-acodec", "pcm_s16le", "-ar", "44100"};
        QTest::newRow("mp3") << ExportFormat::mp3 << QStringList{"-vn", "-codec:a", "libmp3lame", "-qscale:a",
                                                                 "2",   "-ar",      "44100"};
    }
    void conversionArgumentList() {
        QFETCH(ExportFormat, format);
        QFETCH(QStringList, codec);
        const QStringList expected =
            QStringList{"-y", "-i", "/a/in put.m4a"} + codec + QStringList{"/b/out.x"};
        QCOMPARE(ExportService::conversionArguments(QStringLiteral("/a/in put.m4a"), format,
                                                    QStringLiteral("/b/out.x")),
                 expected);
    }

    void relativePathsBecomeAbsolute() {
        const QStringList arguments = ExportService::conversionArguments(
            QStringLiteral("-in.wav"), ExportFormat::wav, QStringLiteral("-out.wav"));
        QCOMPARE(arguments.at(2), QDir::current().absoluteFilePath(QStringLiteral("-in.wav")));
        QCOMPARE(arguments.last(), QDir::current().absoluteFilePath(QStringLiteral("-out.wav")));
    }

    void errorMessages() {
        QCOMPARE(ExportError::ffmpegNotFound().message(),
                 QStringLiteral("ffmpeg introuvable. Installez-le via votre gestionnaire de paquets :\n"
                                "sudo apt install ffmpeg"));
        QCOMPARE(ExportError::ffmpegFailed(QStringLiteral("boom")).message(),
                 QStringLiteral("ffmpeg a échoué :\nboom"));
        QCOMPARE(ExportError::folderNotCreated(QStringLiteral("Permission denied")).message(),
                 QStringLiteral("Impossible de créer le dossier : Permission denied"));
        QCOMPARE(ExportError::ffmpegFailed(QStringLiteral("x")).kind(), ExportError::Kind::ffmpegFailed);
    }

    void findsOwnCopyBeforeSystem() {
        TempInstallRoot root;
        Recorder recorder;
        const QString own = writeStandIn(root, QStringLiteral("Halvorn/data/ffmpeg/ffmpeg"), "exit 0");
        ExportService service(serviceConfig(root, {systemFFmpeg}, recorder));
        QCOMPARE(service.findFFmpeg(), own);
        QCOMPARE(recorder.takeLines(), QStringList{QStringLiteral("[ExportService] ✅ ffmpeg: ") + own});
    }

    void skipsCandidatesThatAreNotExecutable() {
        TempInstallRoot root;
        Recorder recorder;
        const QString plain = root.writeFile(QStringLiteral("bin/ffmpeg"), "#!/bin/sh\n", false);
        ExportService service(serviceConfig(root, {plain, systemFFmpeg}, recorder));
        QCOMPARE(service.findFFmpeg(), systemFFmpeg);
    }

    void notFound() {
        TempInstallRoot root;
        Recorder recorder;
        ExportService service(serviceConfig(root, {path(QStringLiteral("missing/ffmpeg"))}, recorder));
        QCOMPARE(service.findFFmpeg(), std::nullopt);
        QCOMPARE(recorder.takeLines(),
                 QStringList{QStringLiteral(
                     "[ExportService] ❌ ffmpeg introuvable — installer via: sudo apt install ffmpeg")});
        const QString source = writeTone(path(QStringLiteral("nf.wav")), 440, 0.5f, 0.1);
        QCOMPARE(failureOf(service.convert(source, ExportFormat::wav, path(QStringLiteral("nf-out.wav")))),
                 ExportError::ffmpegNotFound().message());
        QVERIFY(!QFile::exists(path(QStringLiteral("nf-out.wav"))));
    }

    void wavIsSixteenBit44100() {
        const QString source = writeTone(path(QStringLiteral("tone48.wav")), 1000, 0.5f, 0.5);
        // A 48 kHz stereo source must come out resampled.
        const QString source48 = path(QStringLiteral("tone48k.flac"));
        QProcess make;
        make.start(systemFFmpeg, {"-v", "error", "-y", "-f", "lavfi", "-i", "sine=f=500:d=0.4:r=48000", "-ac",
                                  "2", source48});
        QVERIFY(make.waitForFinished(30000) && make.exitCode() == 0);
        for (const QString& input : {source, source48}) {
            const QString dest = path(QFileInfo(input).completeBaseName() + QStringLiteral("-out.wav"));
            QCOMPARE(failureOf(m_service.convert(input, ExportFormat::wav, dest)), QString());
            const QJsonObject stream = probe(dest);
            QCOMPARE(stream[u"codec_name"].toString(), QStringLiteral("pcm_s16le"));
            QCOMPARE(stream[u"sample_rate"].toString(), QStringLiteral("44100"));
            QCOMPARE(stream[u"bits_per_sample"].toInt(), 16);
        }
        const QStringList lines = m_recorder.takeLines();
        QCOMPARE(lines.size(), 4);
        QCOMPARE(lines.at(0), QStringLiteral("[ExportService] ✅ ffmpeg: ") + systemFFmpeg);
        QCOMPARE(lines.at(1), QStringLiteral("[ExportService] ✅ Converted tone48.wav → tone48-out.wav"));
        QCOMPARE(lines.at(3), QStringLiteral("[ExportService] ✅ Converted tone48k.flac → tone48k-out.wav"));
    }

    void mp3Decodes() {
        const QString source = writeTone(path(QStringLiteral("for-mp3.wav")), 1000, 0.5f, 1.0);
        const QString dest = path(QStringLiteral("for-mp3.mp3"));
        QCOMPARE(failureOf(m_service.convert(source, ExportFormat::mp3, dest)), QString());
        const QJsonObject stream = probe(dest);
        QCOMPARE(stream[u"codec_name"].toString(), QStringLiteral("mp3"));
        QCOMPARE(stream[u"sample_rate"].toString(), QStringLiteral("44100"));
        const std::vector<float> samples = decodeFirstChannel(dest);
        QVERIFY(samples.size() > rate / 2);
        QVERIFY(qAbs(toneAmplitude(samples, 1000, 4410, 22050) - 0.5) < 0.05);
    }

    void failureCarriesLastThreeHundredCharacters() {
        QString output;
        for (int i = 0; i < 1000; ++i)
            output.append(QChar(u'a' + (i * 7) % 26));
        const QString outputFile = m_root.writeFile(QStringLiteral("stderr.txt"), output.toUtf8());
        const QString standIn = writeStandIn(m_root, QStringLiteral("fail/ffmpeg"),
                                             QStringLiteral("cat '%1' >&2\nexit 1").arg(outputFile).toUtf8());
        Recorder recorder;
        ExportService service(serviceConfig(m_root, {standIn}, recorder));
        const QString message = failureOf(service.convert(path(QStringLiteral("in.wav")), ExportFormat::wav,
                                                          path(QStringLiteral("out.wav"))));
        QCOMPARE(message, QStringLiteral("ffmpeg a échoué :\n") + output.right(300));
        const QStringList lines = recorder.takeLines();
        QCOMPARE(lines.size(), 2);
        QCOMPARE(lines.at(1), QStringLiteral("[ExportService] ❌ ffmpeg error:\n") + output.right(400));
    }

    void failureKindAndShortOutput() {
        const QString standIn = writeStandIn(m_root, QStringLiteral("fail2/ffmpeg"),
                                             "echo 'out only' ; printf 'é err' >&2; exit 3");
        Recorder recorder;
        ExportService service(serviceConfig(m_root, {standIn}, recorder));
        try {
            service.runFFmpeg(standIn, path(QStringLiteral("a.wav")), ExportFormat::mp3,
                              path(QStringLiteral("b.mp3")));
            QFAIL("no error");
        } catch (const ExportError& error) {
            QCOMPARE(error.kind(), ExportError::Kind::ffmpegFailed);
            QCOMPARE(error.output(), QStringLiteral("é err"));
        }
    }

    void invalidUtf8ErrorOutputIsEmpty() {
        const QString standIn =
            writeStandIn(m_root, QStringLiteral("fail3/ffmpeg"), "printf 'bad \\377\\376 bytes' >&2; exit 1");
        Recorder recorder;
        ExportService service(serviceConfig(m_root, {standIn}, recorder));
        QCOMPARE(failureOf(service.convert(path(QStringLiteral("a.wav")), ExportFormat::wav,
                                           path(QStringLiteral("b.wav")))),
                 QStringLiteral("ffmpeg a échoué :\n"));
    }

    void killedBySignalIsAFailure() {
        const QString standIn =
            writeStandIn(m_root, QStringLiteral("fail4/ffmpeg"), "echo dying >&2; kill -9 $$");
        Recorder recorder;
        ExportService service(serviceConfig(m_root, {standIn}, recorder));
        QCOMPARE(failureOf(service.convert(path(QStringLiteral("a.wav")), ExportFormat::wav,
                                           path(QStringLiteral("b.wav")))),
                 QStringLiteral("ffmpeg a échoué :\ndying\n"));
    }

    void launchFailurePassesThrough() {
        // Executable bit set, but no interpreter: the process cannot start.
        const QString broken =
            m_root.writeFile(QStringLiteral("broken/ffmpeg"), "#!/nonexistent/interpreter\n", true);
        Recorder recorder;
        ExportService service(serviceConfig(m_root, {broken}, recorder));
        const std::optional<ProcessLaunchError> error = caught<ProcessLaunchError>(
            service.convert(path(QStringLiteral("a.wav")), ExportFormat::wav, path(QStringLiteral("b.wav"))));
        QVERIFY(error);
        QVERIFY2(error->message().startsWith(QStringLiteral("Impossible de lancer ffmpeg : ")),
                 qPrintable(error->message()));
    }

    void awkwardNamesReachFFmpegIntact_data() {
        QTest::addColumn<QString>("name");
        QTest::newRow("quotes") << "it's \"quoted\".wav";
        QTest::newRow("spaces") << "  two  spaces .wav";
        QTest::newRow("accents") << "Écoute à l'été.wav";
        QTest::newRow("command substitution") << "$(touch pwned) `touch pwned`.wav";
        QTest::newRow("leading dash") << "-y -i.wav";
        QTest::newRow("semicolon and pipe") << "a; rm -rf x | b & c.wav";
        QTest::newRow("glob") << "*?[a].wav";
    }
    void awkwardNamesReachFFmpegIntact() {
        QFETCH(QString, name);
        const QString record = path(QStringLiteral("args.bin"));
        const QString standIn = writeStandIn(m_root, QStringLiteral("rec/ffmpeg"), recordingScript(record));
        Recorder recorder;
        ExportService service(serviceConfig(m_root, {standIn}, recorder));
        const QString folder = path(QStringLiteral("awkward"));
        QDir().mkpath(folder);
        const QString source = folder + QLatin1Char('/') + name;
        const QString dest = folder + QStringLiteral("/out ") + name;
        QCOMPARE(failureOf(service.convert(source, ExportFormat::wav, dest)), QString());
        QCOMPARE(recordedArguments(record),
                 ExportService::conversionArguments(source, ExportFormat::wav, dest));
        QCOMPARE(recordedArguments(record).at(2), source);
        QCOMPARE(recordedArguments(record).last(), dest);
        QVERIFY(QFile::exists(dest));
        QVERIFY(!QFile::exists(folder + QStringLiteral("/pwned")));
        QVERIFY(!QFile::exists(QDir::current().filePath(QStringLiteral("pwned"))));
    }

    void realFFmpegReadsAndWritesAwkwardNames() {
        const QString folder = path(QStringLiteral("real awkward"));
        QDir().mkpath(folder);
        const QString source = writeTone(folder + QStringLiteral("/-i \"$(x)\" é'.wav"), 440, 0.5f, 0.2);
        const QString dest = folder + QStringLiteral("/-y ; `x` à.mp3");
        QCOMPARE(failureOf(m_service.convert(source, ExportFormat::mp3, dest)), QString());
        QCOMPARE(probe(dest)[u"codec_name"].toString(), QStringLiteral("mp3"));
    }

    void mainThreadKeepsRunningDuringConversion() {
        const QString standIn = writeStandIn(m_root, QStringLiteral("slow/ffmpeg"), "sleep 0.4");
        Recorder recorder;
        ExportService service(serviceConfig(m_root, {standIn}, recorder));
        int ticks = 0;
        QTimer timer;
        connect(&timer, &QTimer::timeout, [&] { ++ticks; });
        timer.start(20);
        QCOMPARE(failureOf(service.convert(path(QStringLiteral("a.wav")), ExportFormat::wav,
                                           path(QStringLiteral("b.wav")))),
                 QString());
        QVERIFY2(ticks >= 5, qPrintable(QString::number(ticks)));
    }

    void exportStemsWritesDisplayNamesIntoTitleFolder() {
        const QString vocals = writeTone(path(QStringLiteral("vocals.wav")), 440, 0.5f, 0.2);
        const QString other = writeTone(path(QStringLiteral("other.wav")), 660, 0.5f, 0.2);
        const QString drums = writeTone(path(QStringLiteral("drums.wav")), 880, 0.5f, 0.2);
        const QString parent = path(QStringLiteral("exports"));
        const QList<StemTrackPtr> tracks{track(StemKind::vocals, vocals), track(StemKind::bass, std::nullopt),
                                         track(StemKind::other, other, 0.0f, true),
                                         track(StemKind::drums, drums, 0.2f, false, true)};
        const QString folder = QCoro::waitFor(
            m_service.exportStems(tracks, QStringLiteral("My: Song?"), ExportFormat::wav, parent));
        QCOMPARE(folder, parent + QStringLiteral("/My Song"));
        QCOMPARE(QDir(folder).entryList(QDir::Files, QDir::Name),
                 (QStringList{QStringLiteral("Autres (sax, cordes…).wav"), QStringLiteral("Batterie.wav"),
                              QStringLiteral("Voix.wav")}));
        QCOMPARE(probe(folder + QStringLiteral("/Voix.wav"))[u"codec_name"].toString(),
                 QStringLiteral("pcm_s16le"));
        QCOMPARE(m_recorder.revealed, QStringList{folder});
        const QStringList lines = m_recorder.takeLines();
        QCOMPARE(
            lines.filter(QStringLiteral("Converted")),
            (QStringList{QStringLiteral("[ExportService] ✅ Converted vocals.wav → Voix.wav"),
                         QStringLiteral("[ExportService] ✅ Converted other.wav → Autres (sax, cordes…).wav"),
                         QStringLiteral("[ExportService] ✅ Converted drums.wav → Batterie.wav")}));
    }

    void exportStemsAsMp3() {
        const QString piano = writeTone(path(QStringLiteral("piano.wav")), 440, 0.5f, 0.3);
        const QString folder =
            QCoro::waitFor(m_service.exportStems({track(StemKind::piano, piano)}, QStringLiteral("Mp3 job"),
                                                 ExportFormat::mp3, path(QStringLiteral("mp3exports"))));
        QCOMPARE(probe(folder + QStringLiteral("/Piano.mp3"))[u"codec_name"].toString(),
                 QStringLiteral("mp3"));
    }

    void twoExportsIntoSameParentOverwrite() {
        const QString parent = path(QStringLiteral("twice"));
        const QString quiet = writeTone(path(QStringLiteral("quiet.wav")), 440, 0.1f, 0.3);
        const QString loud = writeTone(path(QStringLiteral("loud.wav")), 440, 0.8f, 0.6);
        const QString first = QCoro::waitFor(m_service.exportStems(
            {track(StemKind::vocals, quiet)}, QStringLiteral("Same"), ExportFormat::wav, parent));
        const QString second = QCoro::waitFor(m_service.exportStems(
            {track(StemKind::vocals, loud)}, QStringLiteral("Same"), ExportFormat::wav, parent));
        QCOMPARE(second, first);
        QCOMPARE(QDir(parent).entryList(QDir::Dirs | QDir::NoDotAndDotDot),
                 QStringList{QStringLiteral("Same")});
        QCOMPARE(QDir(first).entryList(QDir::Files), QStringList{QStringLiteral("Voix.wav")});
        const std::vector<float> samples = decodeFirstChannel(first + QStringLiteral("/Voix.wav"));
        QVERIFY(samples.size() > static_cast<size_t>(rate / 2));
        QVERIFY(qAbs(toneAmplitude(samples, 440, 0, rate / 2) - 0.8) < 0.02);
    }

    void longTitleGivesSixtyCharacterFolder() {
        const QString title(61, u'T');
        const QString source = writeTone(path(QStringLiteral("bass.wav")), 110, 0.5f, 0.1);
        const QString folder = QCoro::waitFor(m_service.exportStems(
            {track(StemKind::bass, source)}, title, ExportFormat::wav, path(QStringLiteral("long"))));
        QCOMPARE(QFileInfo(folder).fileName(), QString(60, u'T'));
        QVERIFY(QFile::exists(folder + QStringLiteral("/Basse.wav")));
    }

    void firstFailureEndsTheExport() {
        const QString good = writeTone(path(QStringLiteral("good.wav")), 440, 0.5f, 0.1);
        const QString parent = path(QStringLiteral("partial"));
        const QList<StemTrackPtr> tracks{track(StemKind::vocals, good),
                                         track(StemKind::drums, path(QStringLiteral("missing.wav"))),
                                         track(StemKind::bass, good)};
        const QString message =
            failureOf(m_service.exportStems(tracks, QStringLiteral("Partial"), ExportFormat::wav, parent));
        QVERIFY2(message.startsWith(QStringLiteral("ffmpeg a échoué :\n")), qPrintable(message));
        QVERIFY2(message.contains(QStringLiteral("missing.wav")), qPrintable(message));
        QCOMPARE(QDir(parent + QStringLiteral("/Partial")).entryList(QDir::Files),
                 QStringList{QStringLiteral("Voix.wav")});
        QVERIFY(m_recorder.revealed.isEmpty());
    }

    void folderThatCannotBeCreated() {
        const QString blocker = m_root.writeFile(QStringLiteral("blocker"), "a file, not a folder");
        const QString source = writeTone(path(QStringLiteral("x.wav")), 440, 0.5f, 0.1);
        const QString message = failureOf(m_service.exportStems(
            {track(StemKind::vocals, source)}, QStringLiteral("Title"), ExportFormat::wav, blocker));
        QVERIFY2(message.startsWith(QStringLiteral("Impossible de créer le dossier : ")),
                 qPrintable(message));
        QVERIFY(message.size() > QStringLiteral("Impossible de créer le dossier : ").size());
        QVERIFY(m_recorder.revealed.isEmpty());
    }

    void noTrackWithAFileStillCreatesAndRevealsTheFolder() {
        const QString folder = QCoro::waitFor(
            m_service.exportStems({track(StemKind::guitar, std::nullopt)}, QStringLiteral("Empty"),
                                  ExportFormat::wav, path(QStringLiteral("empty"))));
        QVERIFY(QFileInfo(folder).isDir());
        QVERIFY(QDir(folder).isEmpty());
        QCOMPARE(m_recorder.revealed, QStringList{folder});
    }
};

QTEST_GUILESS_MAIN(ExportServiceTest)
#include "ExportServiceTest.moc"
