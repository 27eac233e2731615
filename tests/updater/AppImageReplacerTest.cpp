#include "updater/AppImageReplacer.h"
#include "support/ReadOnlyFolder.h"

#include <QDir>
#include <QTemporaryDir>
#include <QtTest>

namespace {

void writeFile(const QString& path, const QByteArray& contents) {
    QFile file(path);
    QVERIFY2(file.open(QIODevice::WriteOnly), qPrintable(path));
    file.write(contents);
}

QByteArray readFile(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<absent>");
}

} // namespace

class AppImageReplacerTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() {
        m_install.reset(new QTemporaryDir);
        m_downloads.reset(new QTemporaryDir);
        m_current = m_install->filePath("Marlune.AppImage");
        m_new = m_downloads->filePath("Marlune-linux-x86_64.AppImage");
        writeFile(m_current, "old version");
        writeFile(m_new, "new version");
    }

    void backupSitsBesideTheCurrentFile() {
        QCOMPARE(AppImageReplacer::backupPath("/opt/Marlune.AppImage"), QString("/opt/Marlune.AppImage.bak"));
    }

    void replacesAndLeavesNoBackup() {
        QCOMPARE(AppImageReplacer::replace(m_current, m_new), std::nullopt);
        QCOMPARE(readFile(m_current), QByteArray("new version"));
        QVERIFY(!QFile::exists(m_current + ".bak"));
        QCOMPARE(QDir(m_install->path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
                 QStringList{"Marlune.AppImage"});
        QVERIFY(QFileInfo(m_current).isExecutable());
        QCOMPARE(QFile::permissions(m_current) & (QFileDevice::ExeOther | QFileDevice::WriteOther),
                 QFileDevice::ExeOther);
        QCOMPARE(readFile(m_new), QByteArray("new version")); // the source is copied, not taken
    }

    void replacesAnOldBackupFirst() {
        writeFile(m_current + ".bak", "ancient version");
        QCOMPARE(AppImageReplacer::replace(m_current, m_new), std::nullopt);
        QCOMPARE(readFile(m_current), QByteArray("new version"));
        QVERIFY(!QFile::exists(m_current + ".bak"));
    }

    void failedCopyPutsTheOldFileBack() {
        const auto failure = AppImageReplacer::replace(m_current, m_downloads->filePath("vanished.AppImage"));
        QVERIFY(failure);
        QVERIFY2(failure->startsWith("impossible de copier"), qPrintable(*failure));
        QVERIFY2(failure->contains("fichier ou dossier introuvable"), qPrintable(*failure));
        QCOMPARE(readFile(m_current), QByteArray("old version"));
        QVERIFY(!QFile::exists(m_current + ".bak"));
        QCOMPARE(QDir(m_install->path()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
                 QStringList{"Marlune.AppImage"});
    }

    void readOnlyFolderKeepsTheOldFile() {
        ReadOnlyFolder readOnly(m_install->path());
        if (!readOnly.isEffective())
            QSKIP("this machine cannot make a folder read-only");
        const auto failure = AppImageReplacer::replace(m_current, m_new);
        QVERIFY(failure);
        QVERIFY2(
            failure->startsWith(QString("impossible de déplacer « %1 » vers « %1.bak » (").arg(m_current)),
            qPrintable(*failure));
        QVERIFY2(failure->contains("permission refusée") || failure->contains("lecture seule"),
                 qPrintable(*failure));
        QCOMPARE(readFile(m_current), QByteArray("old version"));
        QVERIFY(!QFile::exists(m_current + ".bak"));
    }

    void missingCurrentFileIsReported() {
        QFile::remove(m_current);
        const auto failure = AppImageReplacer::replace(m_current, m_new);
        QVERIFY(failure);
        QVERIFY2(failure->contains("fichier ou dossier introuvable"), qPrintable(*failure));
        QVERIFY(!QFile::exists(m_current));
    }

private:
    std::unique_ptr<QTemporaryDir> m_install;
    std::unique_ptr<QTemporaryDir> m_downloads;
    QString m_current;
    QString m_new;
};

QTEST_GUILESS_MAIN(AppImageReplacerTest)
#include "AppImageReplacerTest.moc"
