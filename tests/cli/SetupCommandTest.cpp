#include "support/FFmpegFixture.h"
#include "support/MarluneProcess.h"
#include "support/ReleaseMirror.h"
#include "support/TestSupport.h"

#include <QTemporaryDir>
#include <QtTest>

namespace {
const QStringList titles{
    "FFmpeg",         "Outils audio", "Moteur JavaScript", "uv",       "Python", "Outils de compilation",
    "Moteur Halvorn", "yt-dlp",       "Modèles IA",        "Démarrage"};
const QString done = QStringLiteral("Configuration terminée ✓");

// The "[title] detail" lines of one step in the command's output.
QStringList reportLines(const QString& out, const QString& title) {
    QStringList lines;
    for (const QString& line : out.split(QLatin1Char('\n')))
        if (line.startsWith(QStringLiteral("[%1] ").arg(title)))
            lines.append(line);
    return lines;
}
} // namespace

// A new user's path against the offline release mirror: `marlune setup` on a clean install root, again,
// the components list, an update of everything, then a separation with the installed engine.
class SetupCommandTest : public QObject {
    Q_OBJECT

    QTemporaryDir m_home;
    std::unique_ptr<ReleaseMirror> m_mirror;
    QProcessEnvironment m_environment;
    quint16 m_port = 0;

    MarluneRun marlune(const QStringList& arguments) const { return runMarlune(arguments, m_environment); }

private Q_SLOTS:
    void initTestCase() {
        m_mirror = std::make_unique<ReleaseMirror>(
            QStringList{QStringLiteral("--engine-tag"), QStringLiteral("v1.0.0")});
        QVERIFY(m_mirror->isRunning());
        m_port = TestSupport::freePort();
        m_environment = marluneEnvironment(m_home.path(), m_port);
        m_environment.insert(m_mirror->environment());
    }

    void usageErrors_data() {
        QTest::addColumn<QStringList>("arguments");
        QTest::newRow("setup with an argument") << QStringList{"setup", "now"};
        QTest::newRow("components with an unknown option") << QStringList{"components", "--all"};
        QTest::newRow("update with an argument") << QStringList{"update", "ffmpeg"};
    }
    void usageErrors() {
        QFETCH(QStringList, arguments);
        const MarluneRun run = marlune(arguments);
        QCOMPARE(run.exitCode, 2);
        QVERIFY2(run.err.contains(QStringLiteral("Utilisation : marlune ")), qPrintable(run.err));
    }

    void setupInstallsEverythingThenSkipsIt() {
        const MarluneRun first = marlune({QStringLiteral("setup")});
        QVERIFY2(first.exitCode == 0, qPrintable(first.err + first.out));
        for (const QString& title : titles)
            QVERIFY2(first.out.contains(QStringLiteral("\n[%1] ").arg(title)), qPrintable(title));
        QVERIFY(first.out.contains(QStringLiteral("\n[Moteur Halvorn] Téléchargement de Halvorn v1.0.0…\n")));
        QVERIFY(first.out.contains(QStringLiteral("\n[Modèles IA] WARMUP_OK separation\n")));
        QVERIFY2(first.out.trimmed().endsWith(QStringLiteral("[Démarrage] ") + done),
                 qPrintable(first.out.right(300)));
        QVERIFY(first.err.contains(QStringLiteral("] 100 % ") + done));
        QVERIFY(first.err.trimmed().endsWith(done));

        const MarluneRun second = marlune({QStringLiteral("setup")});
        QVERIFY2(second.exitCode == 0, qPrintable(second.err + second.out));
        QCOMPARE(reportLines(second.out, QStringLiteral("FFmpeg")),
                 (QStringList{QStringLiteral("[FFmpeg] Vérification…"), QStringLiteral("[FFmpeg] ✓ Prêt")}));
        QVERIFY(!second.out.contains(QStringLiteral("Téléchargement FFmpeg")));
        QVERIFY(second.out.contains(QStringLiteral("\n[Moteur Halvorn] v1.0.0 déjà installé\n")));
        QVERIFY(second.out.trimmed().endsWith(QStringLiteral("[Démarrage] ") + done));
    }

    void componentsListsTheNineRows() {
        const MarluneRun run = marlune({QStringLiteral("components"), QStringLiteral("--offline")});
        QCOMPARE(run.exitCode, 0);
        QStringList rows;
        for (const QString& line : run.out.split(QLatin1Char('\n'), Qt::SkipEmptyParts))
            if (!line.startsWith(QLatin1Char('[')))
                rows.append(line);
        QCOMPARE(rows.size(), 9);
        QVERIFY(rows[0].startsWith(QStringLiteral("FFmpeg + ffprobe ")));
        QVERIFY(rows[0].contains(QStringLiteral(" 8.1.2 ")));
        QVERIFY(rows[1].contains(QStringLiteral(" optionnel ")));
        QVERIFY(!rows[3].contains(QStringLiteral("optionnel")));
        QVERIFY(rows[6].startsWith(QStringLiteral("Moteur Halvorn ")));
        QVERIFY(rows[6].contains(QStringLiteral(" v1.0.0 ")));
        QVERIFY(rows[6].endsWith(QStringLiteral(" OK")));
        QVERIFY(rows[8].contains(QStringLiteral("préchargés")));
    }

    void updateFindsEverythingCurrent() {
        const MarluneRun run = marlune({QStringLiteral("update")});
        QVERIFY2(run.exitCode == 0, qPrintable(run.err + run.out));
        QVERIFY(run.out.contains(QStringLiteral("\n🔄 Moteur Halvorn v1.0.0\n")));
        QVERIFY(run.out.contains(QStringLiteral("\nv1.0.0 déjà installé\n")));
        QVERIFY(run.out.trimmed().endsWith(QStringLiteral("✅ Mises à jour terminées")));
    }

    void theInstalledEngineSeparates() {
        const QString song = m_home.filePath(QStringLiteral("song.wav"));
        QVERIFY(
            TestSupport::makeWithFFmpeg({QStringLiteral("-f"), QStringLiteral("lavfi"), QStringLiteral("-i"),
                                         QStringLiteral("sine=frequency=330:duration=2"),
                                         QStringLiteral("-ac"), QStringLiteral("2"), song}));
        const QString out = m_home.filePath(QStringLiteral("stems"));
        const MarluneRun run = marlune({QStringLiteral("separate"), song, QStringLiteral("--stems"),
                                        QStringLiteral("vocals"), QStringLiteral("--out"), out});
        QVERIFY2(run.exitCode == 0, qPrintable(run.err));
        QVERIFY(QFile::exists(out + QStringLiteral("/song/Voix.wav")));
        QVERIFY(TestSupport::waitUntil([this] { return !TestSupport::isListening(m_port); }, 10000));
    }
};

QTEST_GUILESS_MAIN(SetupCommandTest)
#include "SetupCommandTest.moc"
