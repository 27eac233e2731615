#include "audio/MixExportService.h"
#include "ExportFixtures.h"
#include "audio/ExportError.h"
#include "audio/MixError.h"

#include <QtTest>

using namespace ExportFixtures;

namespace {
// Describes tracks as "kind:flags" items, flags among m (muted), s (solo), n (no file); volume 1.
QList<StemTrackPtr> tracksFrom(const QStringList& descriptions) {
    QList<StemTrackPtr> tracks;
    for (const QString& description : descriptions) {
        const QString kindText = description.section(QLatin1Char(':'), 0, 0);
        const QString flags = description.section(QLatin1Char(':'), 1);
        const StemKind kind = StemKinds::fromRawValue(kindText).value();
        const std::optional<QString> path =
            flags.contains(u'n') ? std::nullopt
                                 : std::optional<QString>(QStringLiteral("/stems/") + kindText + ".wav");
        tracks.append(track(kind, path, 1.0f, flags.contains(u'm'), flags.contains(u's')));
    }
    return tracks;
}

QStringList snapshotFiles(const QList<TrackSnapshot>& snapshots) {
    QStringList files;
    for (const TrackSnapshot& snapshot : snapshots)
        files.append(QFileInfo(snapshot.url.toLocalFile()).completeBaseName());
    return files;
}
} // namespace

class MixExportServiceTest : public QObject {
    Q_OBJECT

    TempInstallRoot m_root;
    Recorder m_recorder;
    ExportService m_exports{serviceConfig(m_root, {systemFFmpeg}, m_recorder)};
    MixExportService m_mixer{m_exports, m_recorder.sink()};

    QString path(const QString& name) const { return m_root.path() + QLatin1Char('/') + name; }

private Q_SLOTS:
    void audibility_data() {
        QTest::addColumn<QStringList>("tracks");
        QTest::addColumn<QStringList>("taken");
        QTest::newRow("all plain") << QStringList{"vocals:", "drums:", "bass:"}
                                   << QStringList{"vocals", "drums", "bass"};
        QTest::newRow("all muted") << QStringList{"vocals:m", "drums:m"} << QStringList{};
        QTest::newRow("no file skipped") << QStringList{"vocals:n", "drums:"} << QStringList{"drums"};
        QTest::newRow("muted skipped")
            << QStringList{"vocals:m", "drums:", "bass:"} << QStringList{"drums", "bass"};
        QTest::newRow("one solo among five")
            << QStringList{"vocals:", "drums:", "bass:s", "guitar:", "piano:"} << QStringList{"bass"};
        QTest::newRow("two solos, one also muted")
            << QStringList{"vocals:s", "drums:sm", "bass:"} << QStringList{"vocals"};
        QTest::newRow("solo without file silences the others")
            << QStringList{"vocals:sn", "drums:"} << QStringList{};
        QTest::newRow("order kept") << QStringList{"other:", "vocals:", "piano:s", "bass:s"}
                                    << QStringList{"piano", "bass"};
        QTest::newRow("empty") << QStringList{} << QStringList{};
    }
    void audibility() {
        QFETCH(QStringList, tracks);
        QFETCH(QStringList, taken);
        QCOMPARE(snapshotFiles(MixExportService::audibleSnapshots(tracksFrom(tracks))), taken);
    }

    void snapshotCarriesVolume() {
        const QList<StemTrackPtr> tracks{track(StemKind::vocals, QStringLiteral("/a.wav"), 0.25f)};
        const QList<TrackSnapshot> snapshots = MixExportService::audibleSnapshots(tracks);
        QCOMPARE(snapshots, (QList<TrackSnapshot>{{QUrl::fromLocalFile(QStringLiteral("/a.wav")), 0.25f}}));
        tracks.first()->setVolume(0.9f);
        QCOMPARE(snapshots.first().volume, 0.25f);
    }

    void argumentListOfTheExample() {
        const QList<TrackSnapshot> snapshots{{QUrl::fromLocalFile(QStringLiteral("/A")), 1.0f},
                                             {QUrl::fromLocalFile(QStringLiteral("/B")), 0.5f}};
        QCOMPARE(
            MixExportService::mixArguments(snapshots, ExportFormat::wav, QStringLiteral("/OUT")),
            (QStringList{"-y", "-i", "/A", "-i", "/B", "-filter_complex",
                         "[0:a]volume=1.000[a0];[1:a]volume=0.500[a1];[a0][a1]amix=inputs=2:duration=longest:"
                         "normalize=0[out]",
                         "-map", "[out]", "-ac", "2", "-acodec", "pcm_s16le", "-ar", "44100", "/OUT"}));
    }

    void argumentListOfThreeMp3() {
        const QList<TrackSnapshot> snapshots{{QUrl::fromLocalFile(QStringLiteral("/x y/1.wav")), 0.3333f},
                                             {QUrl::fromLocalFile(QStringLiteral("/2.wav")), 1.0f},
                                             {QUrl::fromLocalFile(QStringLiteral("/3.wav")), 0.0f}};
        QCOMPARE(
            MixExportService::mixArguments(snapshots, ExportFormat::mp3, QStringLiteral("/o.mp3")),
            (QStringList{"-y", "-i", "/x y/1.wav", "-i", "/2.wav", "-i", "/3.wav", "-filter_complex",
                         "[0:a]volume=0.333[a0];[1:a]volume=1.000[a1];[2:a]volume=0.000[a2];[a0][a1][a2]amix="
                         "inputs=3:duration=longest:normalize=0[out]",
                         "-map", "[out]", "-ac", "2", "-codec:a", "libmp3lame", "-qscale:a", "2", "/o.mp3"}));
    }

    void volumesWithThreeDecimals_data() {
        QTest::addColumn<float>("volume");
        QTest::addColumn<QString>("text");
        QTest::newRow("0.3333") << 0.3333f << "0.333";
        QTest::newRow("1") << 1.0f << "1.000";
        QTest::newRow("0") << 0.0f << "0.000";
        QTest::newRow("0.6667 rounds up") << 0.6667f << "0.667";
        QTest::newRow("0.0004 rounds down") << 0.0004f << "0.000";
    }
    void volumesWithThreeDecimals() {
        QFETCH(float, volume);
        QFETCH(QString, text);
        const QList<TrackSnapshot> snapshots{{QUrl::fromLocalFile(QStringLiteral("/A")), volume},
                                             {QUrl::fromLocalFile(QStringLiteral("/B")), 1.0f}};
        const QString graph = MixExportService::mixArguments(snapshots, ExportFormat::wav, "/o").at(6);
        QVERIFY2(graph.startsWith(QStringLiteral("[0:a]volume=") + text + QStringLiteral("[a0];")),
                 qPrintable(graph));
    }

    void defaultFileName_data() {
        QTest::addColumn<QString>("title");
        QTest::addColumn<QStringList>("tracks");
        QTest::addColumn<ExportFormat>("format");
        QTest::addColumn<QString>("expected");
        QTest::newRow("mix") << "My Song" << QStringList{"vocals:", "drums:"} << ExportFormat::wav
                             << "My Song (mix).wav";
        QTest::newRow("mp3") << "My Song" << QStringList{"vocals:"} << ExportFormat::mp3
                             << "My Song (mix).mp3";
        QTest::newRow("one solo") << "T" << QStringList{"vocals:", "drums:", "bass:s", "guitar:", "piano:"}
                                  << ExportFormat::wav << "T (Basse).wav";
        QTest::newRow("solos joined by +") << "T" << QStringList{"vocals:s", "drums:", "other:s"}
                                           << ExportFormat::wav << "T (Voix+Autres (sax, cordes…)).wav";
        QTest::newRow("solo wins over mute")
            << "T" << QStringList{"vocals:m", "drums:s"} << ExportFormat::wav << "T (Batterie).wav";
        QTest::newRow("muted joined by comma") << "T" << QStringList{"vocals:m", "drums:", "bass:m"}
                                               << ExportFormat::wav << "T (sans Voix, Basse).wav";
        QTest::newRow("punctuation-only title")
            << "?!…" << QStringList{"vocals:"} << ExportFormat::wav << " (mix).wav";
        QTest::newRow("title cleaned")
            << "  AC/DC: Live!  " << QStringList{"vocals:"} << ExportFormat::mp3 << "ACDC Live (mix).mp3";
        QTest::newRow("no tracks") << "T" << QStringList{} << ExportFormat::wav << "T (mix).wav";
    }
    void defaultFileName() {
        QFETCH(QString, title);
        QFETCH(QStringList, tracks);
        QFETCH(ExportFormat, format);
        QFETCH(QString, expected);
        QCOMPARE(MixExportService::defaultFileName(title, tracksFrom(tracks), format), expected);
    }

    void allMutedHasNoActiveTracks() {
        const QString message = failureOf(m_mixer.exportMix(
            tracksFrom({"vocals:m", "drums:m"}), ExportFormat::wav, path(QStringLiteral("none.wav"))));
        QCOMPARE(message,
                 QStringLiteral("Aucune piste active. Activez au moins une piste avant d'exporter."));
        QVERIFY(!QFile::exists(path(QStringLiteral("none.wav"))));
        QCOMPARE(MixError::noActiveTracks().kind(), MixError::Kind::noActiveTracks);
    }

    void twoTonesAtTheirVolumes() {
        // Stereo stems, as the engine writes them: "-ac 2" keeps their levels.
        const QString low = writeTone(path(QStringLiteral("1k.wav")), 1000, 0.4f, 1.0, 2);
        const QString high = writeTone(path(QStringLiteral("2k.wav")), 2000, 0.4f, 1.0, 2);
        const QString dest = path(QStringLiteral("mix.wav"));
        m_recorder.takeLines();
        QCOMPARE(failureOf(m_mixer.exportMix(
                     {track(StemKind::vocals, low, 1.0f), track(StemKind::drums, high, 0.5f)},
                     ExportFormat::wav, dest)),
                 QString());
        const QJsonObject stream = probe(dest);
        QCOMPARE(stream[u"codec_name"].toString(), QStringLiteral("pcm_s16le"));
        QCOMPARE(stream[u"sample_rate"].toString(), QStringLiteral("44100"));
        QCOMPARE(stream[u"channels"].toInt(), 2);
        const std::vector<float> samples = decodeFirstChannel(dest);
        QVERIFY(samples.size() >= static_cast<size_t>(rate));
        const double at1k = toneAmplitude(samples, 1000, 0, rate);
        const double at2k = toneAmplitude(samples, 2000, 0, rate);
        QVERIFY2(qAbs(at1k - 0.4) < 0.01, qPrintable(QString::number(at1k)));
        QVERIFY2(qAbs(at2k - 0.2) < 0.01, qPrintable(QString::number(at2k)));
        QVERIFY(toneAmplitude(samples, 1500, 0, rate) < 0.005);

        const QStringList lines = m_recorder.takeLines();
        QCOMPARE(lines.size(), 2);
        QCOMPARE(lines.at(0), QStringLiteral("[ExportService] ✅ ffmpeg: ") + systemFFmpeg);
        const QList<TrackSnapshot> snapshots{{QUrl::fromLocalFile(low), 1.0f},
                                             {QUrl::fromLocalFile(high), 0.5f}};
        QCOMPARE(lines.at(1),
                 QStringLiteral("[MixExport] ") +
                     MixExportService::mixArguments(snapshots, ExportFormat::wav, dest).join(' '));
    }

    void mixLastsAsLongAsTheLongestTrack() {
        const QString shortTone = writeTone(path(QStringLiteral("short.wav")), 1000, 0.3f, 0.25, 2);
        const QString longTone = writeTone(path(QStringLiteral("long.wav")), 2000, 0.3f, 1.0, 2);
        const QString dest = path(QStringLiteral("longest.mp3"));
        QCOMPARE(
            failureOf(m_mixer.exportMix({track(StemKind::vocals, shortTone), track(StemKind::bass, longTone)},
                                        ExportFormat::mp3, dest)),
            QString());
        QCOMPARE(probe(dest)[u"codec_name"].toString(), QStringLiteral("mp3"));
        const std::vector<float> samples = decodeFirstChannel(dest);
        QVERIFY2(samples.size() >= static_cast<size_t>(rate * 0.95),
                 qPrintable(QString::number(samples.size())));
        const size_t tailStart = static_cast<size_t>(rate * 0.5);
        QVERIFY(toneAmplitude(samples, 2000, tailStart, 8820) > 0.25);
        QVERIFY(toneAmplitude(samples, 1000, tailStart, 8820) < 0.02);
    }

    void singleAudibleTrackIsTranscodedAtItsOwnLevel() {
        const QString soloed = writeTone(path(QStringLiteral("solo.wav")), 1000, 0.5f, 0.5);
        const QString other = writeTone(path(QStringLiteral("other.wav")), 2000, 0.5f, 0.5);
        QList<StemTrackPtr> tracks{track(StemKind::vocals, other), track(StemKind::drums, other),
                                   track(StemKind::bass, soloed, 0.2f, false, true),
                                   track(StemKind::guitar, other), track(StemKind::piano, other)};
        const QString dest =
            path(MixExportService::defaultFileName(QStringLiteral("Song"), tracks, ExportFormat::wav));
        QCOMPARE(QFileInfo(dest).fileName(), QStringLiteral("Song (Basse).wav"));
        m_recorder.takeLines();
        QCOMPARE(failureOf(m_mixer.exportMix(tracks, ExportFormat::wav, dest)), QString());
        int channels = 0;
        const std::vector<float> samples = decodeFirstChannel(dest, &channels);
        QCOMPARE(channels, 1);
        QVERIFY(qAbs(toneAmplitude(samples, 1000, 0, rate / 2) - 0.5) < 0.01);
        QVERIFY(toneAmplitude(samples, 2000, 0, rate / 2) < 0.005);
        QVERIFY(m_recorder.takeLines().filter(QStringLiteral("[MixExport]")).isEmpty());
    }

    void noFFmpeg_data() {
        QTest::addColumn<int>("audible");
        QTest::newRow("one track") << 1;
        QTest::newRow("two tracks") << 2;
    }
    void noFFmpeg() {
        QFETCH(int, audible);
        TempInstallRoot root;
        Recorder recorder;
        ExportService exports(serviceConfig(root, {}, recorder));
        MixExportService mixer(exports, recorder.sink());
        const QList<StemTrackPtr> tracks = tracksFrom(QStringList{"vocals:", "drums:"}.mid(0, audible));
        QCOMPARE(failureOf(mixer.exportMix(tracks, ExportFormat::wav, path(QStringLiteral("nf.wav")))),
                 ExportError::ffmpegNotFound().message());
        QVERIFY(recorder.takeLines().filter(QStringLiteral("[MixExport]")).isEmpty());
    }

    void failureCarriesLastThreeHundredCharacters() {
        QString output;
        for (int i = 0; i < 1000; ++i)
            output.append(QChar(u'A' + (i * 11) % 26));
        const QString outputFile = m_root.writeFile(QStringLiteral("mix-stderr.txt"), output.toUtf8());
        const QString standIn = writeStandIn(m_root, QStringLiteral("mixfail/ffmpeg"),
                                             QStringLiteral("cat '%1' >&2\nexit 1").arg(outputFile).toUtf8());
        Recorder recorder;
        ExportService exports(serviceConfig(m_root, {standIn}, recorder));
        MixExportService mixer(exports, recorder.sink());
        const std::optional<ExportError> error = caught<ExportError>(mixer.exportMix(
            tracksFrom({"vocals:", "bass:"}), ExportFormat::mp3, path(QStringLiteral("f.mp3"))));
        QVERIFY(error);
        QCOMPARE(error->kind(), ExportError::Kind::ffmpegFailed);
        QCOMPARE(error->output(), output.right(300));
        QCOMPARE(error->message(), QStringLiteral("ffmpeg a échoué :\n") + output.right(300));
    }

    void missingInputFailsWithFFmpegMessage() {
        const QString tone = writeTone(path(QStringLiteral("present.wav")), 1000, 0.3f, 0.2);
        const QString message = failureOf(m_mixer.exportMix(
            {track(StemKind::vocals, tone), track(StemKind::drums, path(QStringLiteral("absent.wav")))},
            ExportFormat::wav, path(QStringLiteral("broken-mix.wav"))));
        QVERIFY2(message.startsWith(QStringLiteral("ffmpeg a échoué :\n")), qPrintable(message));
        QVERIFY2(message.size() <= QStringLiteral("ffmpeg a échoué :\n").size() + 300, qPrintable(message));
        QVERIFY(!QFile::exists(path(QStringLiteral("broken-mix.wav"))));
    }
};

QTEST_GUILESS_MAIN(MixExportServiceTest)
#include "MixExportServiceTest.moc"
