#include "runtime/ExecutableInstaller.h"
#include "runtime/ArchiveExtractor.h"
#include "support/TaskError.h"
#include "support/TempInstallRoot.h"

#include <QCryptographicHash>
#include <QtTest>
#include <sys/stat.h>

using TestSupport::errorOf;

namespace {
const QByteArray newTool = "#!/bin/sh\necho \"tool version 2\"\n";
const QByteArray oldTool = "#!/bin/sh\necho \"tool version 1\"\n";

QString sha256(const QByteArray& data) {
    return QString::fromLatin1(QCryptographicHash::hash(data, QCryptographicHash::Sha256).toHex());
}

QByteArray contentsOf(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

QStringList entriesOf(const QString& folder) {
    return QDir(folder).entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden);
}

void run(const QString& program, const QStringList& arguments, const QString& directory) {
    QProcess process;
    process.setWorkingDirectory(directory);
    process.start(program, arguments);
    QVERIFY(process.waitForFinished(30000));
    QCOMPARE(process.exitCode(), 0);
}
} // namespace

class ExecutableInstallerTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void installsOverTheOldFileWithItsDigestAndProbe() {
        TempInstallRoot temp;
        const QString source = temp.writeFile(QStringLiteral("download"), newTool);
        const QString destination = temp.writeFile(QStringLiteral("root/data/ffmpeg/ffmpeg"), oldTool, true);
        temp.writeFile(QStringLiteral("root/data/ffmpeg/ffmpeg.partial"), "stale partial file");
        QCOMPARE(errorOf(ExecutableInstaller::installExecutable(source, sha256(newTool), destination,
                                                                QStringLiteral("-version"))),
                 QString());
        QCOMPARE(contentsOf(destination), newTool);
        struct stat status {};
        QCOMPARE(::stat(QFile::encodeName(destination).constData(), &status), 0);
        QCOMPARE(status.st_mode & 07777, mode_t(0755));
        QCOMPARE(entriesOf(QFileInfo(destination).absolutePath()), QStringList{QStringLiteral("ffmpeg")});
        QCOMPARE(contentsOf(source), newTool); // the download itself is left to its owner
    }

    void createsTheFolderAndNeedsNeitherDigestNorProbe() {
        TempInstallRoot temp;
        const QString source = temp.writeFile(QStringLiteral("download"), "not even a program");
        const QString destination = temp.root() + QStringLiteral("/data/jsruntime/qjs");
        QCOMPARE(
            errorOf(ExecutableInstaller::installExecutable(source, std::nullopt, destination, std::nullopt)),
            QString());
        QCOMPARE(contentsOf(destination), QByteArray("not even a program"));
        QVERIFY(QFileInfo(destination).isExecutable());
    }

    void aWrongDigestReplacesNothing() {
        TempInstallRoot temp;
        QByteArray changed = newTool;
        changed[12] = 'X';
        const QString source = temp.writeFile(QStringLiteral("download"), changed);
        const QString destination = temp.writeFile(QStringLiteral("root/ffmpeg"), oldTool, true);
        QCOMPARE(errorOf(ExecutableInstaller::installExecutable(source, sha256(newTool), destination,
                                                                QStringLiteral("-version"))),
                 QStringLiteral("Somme de contrôle invalide pour ffmpeg"));
        QCOMPARE(contentsOf(destination), oldTool);
        QCOMPARE(entriesOf(temp.path() + QStringLiteral("/root")), QStringList{QStringLiteral("ffmpeg")});
    }

    void anExecutableThatDoesNotRunLeavesTheOldOne_data() {
        QTest::addColumn<QByteArray>("contents");
        QTest::newRow("exits with an error") << QByteArray("#!/bin/sh\necho 'Bad CPU type'\nexit 1\n");
        QTest::newRow("another machine's binary") << QByteArray("\x7f"
                                                                "ELF\x02\x01\x01\x00garbage-for-arm64",
                                                                24);
        QTest::newRow("empty file") << QByteArray();
        QTest::newRow("missing interpreter") << QByteArray("#!/nonexistent/interpreter\n");
    }
    void anExecutableThatDoesNotRunLeavesTheOldOne() {
        QFETCH(QByteArray, contents);
        TempInstallRoot temp;
        const QString source = temp.writeFile(QStringLiteral("download"), contents);
        const QString destination = temp.writeFile(QStringLiteral("root/ffprobe"), oldTool, true);
        QCOMPARE(errorOf(ExecutableInstaller::installExecutable(source, sha256(contents), destination,
                                                                QStringLiteral("-version"))),
                 QStringLiteral("ffprobe ne s'exécute pas sur cette machine"));
        QCOMPARE(contentsOf(destination), oldTool);
        QCOMPARE(entriesOf(temp.path() + QStringLiteral("/root")), QStringList{QStringLiteral("ffprobe")});
    }

    void anExecutableThatDoesNotRunLeavesNothingWhenNewlyInstalled() {
        TempInstallRoot temp;
        const QString source = temp.writeFile(QStringLiteral("download"), "#!/bin/sh\nexit 3\n");
        const QString destination = temp.root() + QStringLiteral("/uv/uv");
        QCOMPARE(errorOf(ExecutableInstaller::installExecutable(source, std::nullopt, destination,
                                                                QStringLiteral("--version"))),
                 QStringLiteral("uv ne s'exécute pas sur cette machine"));
        QVERIFY(entriesOf(temp.root() + QStringLiteral("/uv")).isEmpty());
    }

    void aMissingSourceIsACopyFailure() {
        TempInstallRoot temp;
        const QString destination = temp.writeFile(QStringLiteral("root/fpcalc"), oldTool, true);
        const QString message = errorOf(ExecutableInstaller::installExecutable(
            temp.path() + QStringLiteral("/absent"), std::nullopt, destination, std::nullopt));
        QVERIFY2(message.startsWith(QStringLiteral("Copie de fpcalc impossible : ")), qPrintable(message));
        QCOMPARE(contentsOf(destination), oldTool);
    }

    void extractsArchivesAndFindsTheShallowestFile_data() {
        QTest::addColumn<int>("kind");
        QTest::newRow("tar.gz") << int(ArchiveKind::tarGz);
        QTest::newRow("zip") << int(ArchiveKind::zip);
    }
    void extractsArchivesAndFindsTheShallowestFile() {
        QFETCH(int, kind);
        TempInstallRoot temp;
        temp.writeFile(QStringLiteral("tree/pkg-1.0/fpcalc"), newTool, true);
        temp.writeFile(QStringLiteral("tree/pkg-1.0/deeper/fpcalc"), "deeper");
        temp.writeFile(QStringLiteral("tree/pkg-1.0/fpcalc.txt"), "not it");
        const QString archive = temp.path() + (kind == int(ArchiveKind::zip) ? "/a.zip" : "/a.tar.gz");
        if (kind == int(ArchiveKind::zip))
            run(QStringLiteral("/usr/bin/python3"),
                {QStringLiteral("-m"), QStringLiteral("zipfile"), QStringLiteral("-c"), archive,
                 QStringLiteral("pkg-1.0")},
                temp.path() + QStringLiteral("/tree"));
        else
            run(QStringLiteral("/usr/bin/tar"), {QStringLiteral("czf"), archive, QStringLiteral("pkg-1.0")},
                temp.path() + QStringLiteral("/tree"));
        const QString parent = temp.path() + QStringLiteral("/extract");
        QDir().mkpath(parent);
        const QString folder =
            QCoro::waitFor(ArchiveExtractor::extractArchive(archive, ArchiveKind(kind), parent));
        QCOMPARE(QFileInfo(folder).absolutePath(), parent);
        QVERIFY(QFileInfo(folder).fileName().startsWith(QStringLiteral("halvorn-")));
        const QString found = ArchiveExtractor::findFile(QStringLiteral("fpcalc"), folder);
        QCOMPARE(found, folder + QStringLiteral("/pkg-1.0/fpcalc"));
        QCOMPARE(contentsOf(found), newTool);
    }

    void anUnreadableArchiveLeavesNoFolder_data() {
        QTest::addColumn<int>("kind");
        QTest::addColumn<QString>("tool");
        QTest::newRow("tar.gz") << int(ArchiveKind::tarGz) << "tar (code 2)";
        QTest::newRow("zip") << int(ArchiveKind::zip) << "unzip (code 9)";
    }
    void anUnreadableArchiveLeavesNoFolder() {
        QFETCH(int, kind);
        QFETCH(QString, tool);
        TempInstallRoot temp;
        const QString archive = temp.writeFile(QStringLiteral("broken.bin"), "this is no archive at all");
        const QString parent = temp.path() + QStringLiteral("/extract");
        QDir().mkpath(parent);
        const QString message = errorOf(ArchiveExtractor::extractArchive(archive, ArchiveKind(kind), parent));
        QVERIFY2(message.startsWith(QStringLiteral("Archive broken.bin illisible : ") + tool),
                 qPrintable(message));
        QVERIFY(entriesOf(parent).isEmpty());
    }

    void findFileTakesOnlyRegularFiles() {
        TempInstallRoot temp;
        const QString folder = temp.path() + QStringLiteral("/x");
        temp.writeFile(QStringLiteral("x/ffmpeg/readme"), "a folder named like the tool");
        const QString target = temp.writeFile(QStringLiteral("outside/ffmpeg"), newTool, true);
        QVERIFY(QDir().mkpath(folder + QStringLiteral("/bin")));
        QVERIFY(QFile::link(target, folder + QStringLiteral("/bin/ffmpeg")));
        try {
            ArchiveExtractor::findFile(QStringLiteral("ffmpeg"), folder);
            QFAIL("a folder or a link was taken for the tool");
        } catch (const UserError& error) {
            QCOMPARE(error.message(), QStringLiteral("ffmpeg absent de l'archive"));
        }
        temp.writeFile(QStringLiteral("x/bin/sub/.hidden/ffmpeg"), newTool);
        QCOMPARE(ArchiveExtractor::findFile(QStringLiteral("ffmpeg"), folder),
                 folder + QStringLiteral("/bin/sub/.hidden/ffmpeg"));
    }
};

QTEST_GUILESS_MAIN(ExecutableInstallerTest)
#include "ExecutableInstallerTest.moc"
