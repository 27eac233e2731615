#include "runtime/LegacyMigration.h"
#include "support/TempInstallRoot.h"

#include <QtTest>

namespace {
struct Migration {
    TempInstallRoot temp;
    InstallLayout layout{{temp.root(), temp.documents(), temp.home(), {}, {}}};
    QStringList lines;

    void run() {
        migrateLegacyInstall(layout, [this](const QString& line) { lines.append(line); });
    }
    QString jobs() const { return temp.documents() + QStringLiteral("/Halvorn/jobs"); }
};
} // namespace

class LegacyMigrationTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void nothingToMigrateSaysNothing() {
        Migration migration;
        migration.run();
        QVERIFY(migration.lines.isEmpty());
        QVERIFY(!QFileInfo::exists(migration.jobs()));
    }

    void jobsMoveWithoutOverwritingAndTheCloneGoes() {
        Migration migration;
        migration.temp.writeFile(QStringLiteral("Halvorn/halvorn/jobs/a/meta.json"), "a");
        migration.temp.writeFile(QStringLiteral("Halvorn/halvorn/jobs/b.wav"), "b");
        migration.temp.writeFile(QStringLiteral("Halvorn/halvorn/settings.json"), "{\"x\":1}");
        migration.temp.writeFile(QStringLiteral("Halvorn/halvorn/app/main.py"), "");
        migration.temp.writeFile(QStringLiteral("Halvorn/.setup_complete"), "");
        migration.run();
        QCOMPARE(
            migration.lines,
            (QStringList{QStringLiteral("📦 Bibliothèque migrée : 2 élément(s) → %1").arg(migration.jobs()),
                         QStringLiteral("🧹 Ancien clone git supprimé")}));
        QVERIFY(QFileInfo::exists(migration.jobs() + QStringLiteral("/a/meta.json")));
        QVERIFY(QFileInfo::exists(migration.jobs() + QStringLiteral("/b.wav")));
        QFile settings(migration.temp.root() + QStringLiteral("/data/settings.json"));
        QVERIFY(settings.open(QIODevice::ReadOnly));
        QCOMPARE(settings.readAll(), QByteArray("{\"x\":1}"));
        QVERIFY(!QFileInfo::exists(migration.temp.root() + QStringLiteral("/halvorn")));
        QVERIFY(!QFileInfo::exists(migration.temp.root() + QStringLiteral("/.setup_complete")));
    }

    void aJobThatCannotMoveKeepsTheClone() {
        Migration migration;
        migration.temp.writeFile(QStringLiteral("Halvorn/halvorn/jobs/same/new.json"), "new");
        migration.temp.writeFile(QStringLiteral("Halvorn/halvorn/jobs/other.json"), "o");
        migration.temp.writeFile(QStringLiteral("Documents/Halvorn/jobs/same/old.json"), "old");
        migration.temp.writeFile(QStringLiteral("Halvorn/data/settings.json"), "current");
        migration.temp.writeFile(QStringLiteral("Halvorn/halvorn/settings.json"), "legacy");
        migration.run();
        QCOMPARE(
            migration.lines,
            QStringList{QStringLiteral("📦 Bibliothèque migrée : 1 élément(s) → %1").arg(migration.jobs())});
        QVERIFY(QFileInfo::exists(migration.temp.root() + QStringLiteral("/halvorn/jobs/same/new.json")));
        QVERIFY(!QFileInfo::exists(migration.jobs() + QStringLiteral("/same/new.json")));
        QFile settings(migration.temp.root() + QStringLiteral("/data/settings.json"));
        QVERIFY(settings.open(QIODevice::ReadOnly));
        QCOMPARE(settings.readAll(), QByteArray("current"));
    }

    void cloneWithoutJobsIsRemoved() {
        Migration migration;
        migration.temp.writeFile(QStringLiteral("Halvorn/halvorn/README.md"), "");
        migration.run();
        QCOMPARE(migration.lines, QStringList{QStringLiteral("🧹 Ancien clone git supprimé")});
    }

    void oldToolFolderAndOurYtDlpConfigGo() {
        Migration migration;
        migration.temp.writeFile(QStringLiteral("home/.halvorn/node/bin/node"), "");
        migration.temp.writeFile(QStringLiteral("home/.config/yt-dlp/config"),
                                 "# written by Halvorn\n--no-mtime\n");
        migration.run();
        QCOMPARE(
            migration.lines,
            (QStringList{
                QStringLiteral("🧹 ~/.halvorn supprimé (Node.js et ancien ffmpeg)"),
                QStringLiteral("🧹 ~/.config/yt-dlp/config (écrit par une ancienne version) supprimé")}));
        QVERIFY(!QFileInfo::exists(migration.temp.home() + QStringLiteral("/.halvorn")));
        QVERIFY(!QFileInfo::exists(migration.temp.home() + QStringLiteral("/.config/yt-dlp/config")));
    }

    void theUsersOwnYtDlpConfigStays() {
        Migration migration;
        migration.temp.writeFile(QStringLiteral("home/.config/yt-dlp/config"), "--format best\n");
        migration.run();
        QVERIFY(migration.lines.isEmpty());
        QVERIFY(QFileInfo::exists(migration.temp.home() + QStringLiteral("/.config/yt-dlp/config")));
    }
};

QTEST_GUILESS_MAIN(LegacyMigrationTest)
#include "LegacyMigrationTest.moc"
