#include "audio/AudioConverter.h"
#include "ExportFixtures.h"
#include "audio/ExportError.h"

#include <QDir>
#include <QSignalSpy>
#include <QtTest>

using namespace ExportFixtures;

class AudioConverterTest : public QObject {
    Q_OBJECT

    TempInstallRoot m_root;
    Recorder m_recorder;
    ExportService m_exports{serviceConfig(m_root, {systemFFmpeg}, m_recorder)};

    QString path(const QString& name) const { return m_root.path() + QLatin1Char('/') + name; }

private Q_SLOTS:
    void initialState() {
        AudioConverter converter(m_exports);
        QVERIFY(converter.inputFiles().isEmpty());
        QCOMPARE(converter.outputFormat(), ExportFormat::wav);
        QVERIFY(converter.outputDir().isEmpty());
        QVERIFY(!converter.isConverting());
        QVERIFY(converter.results().isEmpty());
    }

    void acceptedExtensions_data() {
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("accepted");
        for (const char* extension :
             {"m4a", "mp3", "wav", "flac", "aif", "aiff", "ogg", "opus", "wma", "aac"})
            QTest::newRow(extension) << QStringLiteral("song.") + QLatin1String(extension) << true;
        QTest::newRow("upper case") << "Song.MP3" << true;
        QTest::newRow("mixed case") << "Song.FlAc" << true;
        QTest::newRow("two dots") << "a.b.wav" << true;
        QTest::newRow("txt") << "notes.txt" << false;
        QTest::newRow("no extension") << "wav" << false;
        QTest::newRow("extension inside the name") << "song.wav.txt" << false;
        QTest::newRow("mp4") << "clip.mp4" << false;
        QTest::newRow("trailing dot") << "song.wav." << false;
    }
    void acceptedExtensions() {
        QFETCH(QString, name);
        QFETCH(bool, accepted);
        AudioConverter converter(m_exports);
        QSignalSpy changed(&converter, &AudioConverter::inputFilesChanged);
        QCOMPARE(converter.addFiles({path(name)}), accepted ? 1 : 0);
        QCOMPARE(converter.inputFiles(), accepted ? QStringList{path(name)} : QStringList{});
        QCOMPARE(changed.count(), accepted ? 1 : 0);
    }

    void duplicatesAreAddedOnce() {
        AudioConverter converter(m_exports);
        const QString a = path(QStringLiteral("a.wav"));
        const QString b = path(QStringLiteral("b.mp3"));
        QCOMPARE(converter.addFiles({a, b, a}), 2);
        QCOMPARE(
            converter.addFiles({b, path(QStringLiteral("sub/../a.wav")), path(QStringLiteral("notes.txt"))}),
            0);
        QCOMPARE(converter.inputFiles(), (QStringList{a, b}));
    }

    void sameNameInAnotherFolderIsAnotherFile() {
        AudioConverter converter(m_exports);
        QCOMPARE(converter.addFiles({path(QStringLiteral("a/x.m4a")), path(QStringLiteral("b/x.m4a"))}), 2);
    }

    void foldersAreIgnored() {
        AudioConverter converter(m_exports);
        QDir().mkpath(path(QStringLiteral("album.wav")));
        QDir().mkpath(path(QStringLiteral("plain folder")));
        QCOMPARE(converter.addFiles(
                     {path(QStringLiteral("album.wav")), path(QStringLiteral("plain folder")), QString()}),
                 0);
        QVERIFY(converter.inputFiles().isEmpty());
    }

    void removingAndClearing() {
        AudioConverter converter(m_exports);
        const QString a = path(QStringLiteral("a.wav"));
        const QString b = path(QStringLiteral("b.wav"));
        converter.addFiles({a, b});
        converter.removeFile(a);
        QCOMPARE(converter.inputFiles(), QStringList{b});
        QSignalSpy changed(&converter, &AudioConverter::inputFilesChanged);
        converter.removeFile(a);
        QCOMPARE(changed.count(), 0);
        converter.clearInputs();
        QVERIFY(converter.inputFiles().isEmpty());
        QCOMPARE(changed.count(), 1);
    }

    void destinations_data() {
        QTest::addColumn<QString>("source");
        QTest::addColumn<QString>("outputDir");
        QTest::addColumn<ExportFormat>("format");
        QTest::addColumn<QString>("expected");
        QTest::newRow("next to source") << "/music/song.m4a"
                                        << "" << ExportFormat::wav << "/music/song.wav";
        QTest::newRow("into folder") << "/music/song.m4a"
                                     << "/out" << ExportFormat::mp3 << "/out/song.mp3";
        QTest::newRow("only the last extension goes") << "/m/a.b.flac"
                                                      << "" << ExportFormat::mp3 << "/m/a.b.mp3";
        QTest::newRow("same as source") << "/m/song.wav"
                                        << "" << ExportFormat::wav << "/m/song.wav";
        QTest::newRow("upper-case extension") << "/m/Song.MP3"
                                              << "" << ExportFormat::wav << "/m/Song.wav";
    }
    void destinations() {
        QFETCH(QString, source);
        QFETCH(QString, outputDir);
        QFETCH(ExportFormat, format);
        QFETCH(QString, expected);
        QCOMPARE(AudioConverter::destinationFor(source, outputDir, format), expected);
    }

    void emptyListDoesNothing() {
        AudioConverter converter(m_exports);
        QSignalSpy converting(&converter, &AudioConverter::isConvertingChanged);
        QCoro::waitFor(converter.startConversion());
        QCOMPARE(converting.count(), 0);
        QVERIFY(converter.results().isEmpty());
    }

    void successfulBatchEmptiesTheList() {
        const QString folder = path(QStringLiteral("ok"));
        QDir().mkpath(folder);
        const QString a = writeTone(folder + QStringLiteral("/a.wav"), 440, 0.5f, 0.2);
        const QString b = writeTone(folder + QStringLiteral("/b.flac"), 880, 0.5f, 0.2);
        AudioConverter converter(m_exports);
        converter.setOutputFormat(ExportFormat::mp3);
        converter.addFiles({a, b});
        QList<bool> convertingStates;
        connect(&converter, &AudioConverter::isConvertingChanged,
                [&] { convertingStates.append(converter.isConverting()); });
        QList<qsizetype> resultCounts;
        connect(&converter, &AudioConverter::resultsChanged,
                [&] { resultCounts.append(converter.results().size()); });
        QCoro::waitFor(converter.startConversion());

        QCOMPARE(convertingStates, (QList<bool>{true, false}));
        QCOMPARE(resultCounts, (QList<qsizetype>{0, 1, 2}));
        QVERIFY(converter.inputFiles().isEmpty());
        QCOMPARE(converter.results().size(), 2);
        const ConvertResult first = converter.results().at(0);
        QCOMPARE(first.fileName, QStringLiteral("a.wav"));
        QVERIFY(first.success);
        QCOMPARE(first.destURL, folder + QStringLiteral("/a.mp3"));
        QCOMPARE(first.error, std::nullopt);
        QCOMPARE(converter.results().at(1).destURL, folder + QStringLiteral("/b.mp3"));
        QVERIFY(first.id != converter.results().at(1).id);
        QCOMPARE(probe(folder + QStringLiteral("/b.mp3"))[u"codec_name"].toString(), QStringLiteral("mp3"));
    }

    void failureKeepsEveryInputAndGoesOn() {
        const QString folder = path(QStringLiteral("mixed"));
        QDir().mkpath(folder);
        const QString good1 = writeTone(folder + QStringLiteral("/one.wav"), 440, 0.5f, 0.2);
        const QString bad = folder + QStringLiteral("/missing.ogg");
        const QString good2 = writeTone(folder + QStringLiteral("/two.wav"), 440, 0.5f, 0.2);
        const QString out = path(QStringLiteral("mixed-out"));
        QDir().mkpath(out);
        AudioConverter converter(m_exports);
        converter.setOutputDir(out);
        converter.addFiles({good1, bad, good2});
        QCoro::waitFor(converter.startConversion());

        QCOMPARE(converter.inputFiles(), (QStringList{good1, bad, good2}));
        QCOMPARE(converter.results().size(), 3);
        QVERIFY(converter.results().at(0).success);
        const ConvertResult failed = converter.results().at(1);
        QCOMPARE(failed.fileName, QStringLiteral("missing.ogg"));
        QVERIFY(!failed.success);
        QCOMPARE(failed.destURL, std::nullopt);
        QVERIFY2(failed.error.value_or(QString()).startsWith(QStringLiteral("ffmpeg a échoué :\n")),
                 qPrintable(failed.error.value_or(QString())));
        QVERIFY(converter.results().at(2).success);
        QVERIFY(QFile::exists(out + QStringLiteral("/one.wav")));
        QVERIFY(QFile::exists(out + QStringLiteral("/two.wav")));
        QVERIFY(!converter.isConverting());

        // A second run starts from empty results.
        QCoro::waitFor(converter.startConversion());
        QCOMPARE(converter.results().size(), 3);
    }

    void convertingIntoItselfFailsAndLeavesTheSource() {
        const QString folder = path(QStringLiteral("self"));
        QDir().mkpath(folder);
        const QString song = writeTone(folder + QStringLiteral("/song.wav"), 440, 0.5f, 0.2);
        QFile original(song);
        QVERIFY(original.open(QIODevice::ReadOnly));
        const QByteArray before = original.readAll();
        original.close();
        AudioConverter converter(m_exports);
        converter.addFiles({song});
        QCoro::waitFor(converter.startConversion());
        QCOMPARE(converter.results().size(), 1);
        QVERIFY(!converter.results().first().success);
        QVERIFY(original.open(QIODevice::ReadOnly));
        QCOMPARE(original.readAll(), before);
        QCOMPARE(converter.inputFiles(), QStringList{song});
    }

    void sameDestinationSecondOverwritesFirst() {
        QDir().mkpath(path(QStringLiteral("sa")));
        QDir().mkpath(path(QStringLiteral("sb")));
        QDir().mkpath(path(QStringLiteral("same-out")));
        const QString a = writeTone(path(QStringLiteral("sa/x.wav")), 1000, 0.5f, 0.3);
        const QString b = writeTone(path(QStringLiteral("sb/x.flac")), 2000, 0.5f, 0.3);
        AudioConverter converter(m_exports);
        converter.setOutputDir(path(QStringLiteral("same-out")));
        converter.addFiles({a, b});
        QCoro::waitFor(converter.startConversion());
        QCOMPARE(converter.results().size(), 2);
        QCOMPARE(converter.results().at(0).destURL, converter.results().at(1).destURL);
        QCOMPARE(QDir(path(QStringLiteral("same-out"))).entryList(QDir::Files),
                 QStringList{QStringLiteral("x.wav")});
        const std::vector<float> samples = decodeFirstChannel(path(QStringLiteral("same-out/x.wav")));
        QVERIFY(toneAmplitude(samples, 2000, 0, 8820) > 0.45);
        QVERIFY(toneAmplitude(samples, 1000, 0, 8820) < 0.01);
    }

    void withoutFFmpegEveryFileFails() {
        TempInstallRoot root;
        Recorder recorder;
        ExportService exports(serviceConfig(root, {}, recorder));
        AudioConverter converter(exports);
        converter.addFiles({path(QStringLiteral("n1.wav")), path(QStringLiteral("n2.mp3"))});
        QCoro::waitFor(converter.startConversion());
        QCOMPARE(converter.results().size(), 2);
        for (const ConvertResult& result : converter.results())
            QCOMPARE(result.error, ExportError::ffmpegNotFound().message());
        QCOMPARE(converter.inputFiles().size(), 2);
    }

    void batchIsTheListWhenStarted() {
        const QString standIn = writeStandIn(m_root, QStringLiteral("slowok/ffmpeg"), "sleep 0.2");
        Recorder recorder;
        ExportService exports(serviceConfig(m_root, {standIn}, recorder));
        AudioConverter converter(exports);
        converter.addFiles({path(QStringLiteral("first.wav"))});
        QCoro::Task<> running = converter.startConversion();
        QVERIFY(converter.isConverting());
        // Added while running: not converted now, and kept afterwards.
        converter.addFiles({path(QStringLiteral("late.wav"))});
        converter.setOutputFormat(ExportFormat::mp3);
        // A second start while running does nothing.
        QCoro::waitFor(converter.startConversion());
        QCoro::waitFor(std::move(running));
        QCOMPARE(converter.results().size(), 1);
        QCOMPARE(converter.results().first().destURL, path(QStringLiteral("first.wav")));
        QCOMPARE(converter.inputFiles(), QStringList{path(QStringLiteral("late.wav"))});
    }

    void outputDirAndResultsClearing() {
        AudioConverter converter(m_exports);
        QSignalSpy dirChanged(&converter, &AudioConverter::outputDirChanged);
        converter.setOutputDir(path(QStringLiteral("x/../y")));
        QCOMPARE(converter.outputDir(), path(QStringLiteral("y")));
        converter.setOutputDir(path(QStringLiteral("y")));
        QCOMPARE(dirChanged.count(), 1);
        converter.setOutputDir(QString());
        QVERIFY(converter.outputDir().isEmpty());
        converter.addFiles({path(QStringLiteral("r.wav"))});
        QCoro::waitFor(converter.startConversion());
        QCOMPARE(converter.results().size(), 1);
        converter.clearResults();
        QVERIFY(converter.results().isEmpty());
    }
};

QTEST_GUILESS_MAIN(AudioConverterTest)
#include "AudioConverterTest.moc"
