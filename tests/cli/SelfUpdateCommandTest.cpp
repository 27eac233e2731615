#include "support/MarluneProcess.h"
#include "support/ReleaseServer.h"
#include "updater/GitHubRelease.h"

#include <BuildInfo.h>
#include <QCryptographicHash>
#include <QJsonDocument>
#include <QTemporaryDir>
#include <QtTest>

namespace {

const QByteArray kLatestPath = "/repos/owner/app/releases/latest";
const QByteArray kAssetPath = "/download/Marlune-linux-x86_64.AppImage";
const QByteArray kNewAppImage = "#!/bin/sh\necho nouvelle version\n";

QByteArray readFile(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<absent>");
}

} // namespace

class SelfUpdateCommandTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() {
        m_server = std::make_unique<ReleaseServer>();
        m_home = std::make_unique<QTemporaryDir>();
        QDir(m_home->path()).mkpath("tmp");
        m_appImage = m_home->filePath("Marlune.AppImage");
        QFile file(m_appImage);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("ancienne version");
        file.close();
        ReleaseServer::Response download;
        download.contentType = "application/octet-stream";
        download.body = kNewAppImage;
        m_server->route(kAssetPath, download);
    }
    void cleanup() {
        m_server.reset();
        m_home.reset();
    }

    void check_data() {
        QTest::addColumn<QString>("tag");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("out");
        QTest::addColumn<QString>("err");
        QTest::newRow("newer release") << "v99.0.0" << 0 << "Version 99.0.0 disponible\nNotes de v99.0.0\n"
                                       << QString();
        QTest::newRow("same version")
            << QString(MARLUNE_VERSION) << 0
            << QString("Marlune est à jour\nVous utilisez la version %1, la plus récente.\n")
                   .arg(MARLUNE_VERSION)
            << QString();
        QTest::newRow("repository without releases")
            << QString() << 1 << QString()
            << "Erreur : Réponse de GitHub illisible : clé « tag_name » absente (GitHub : Not Found)\n";
    }
    void check() {
        QFETCH(QString, tag);
        QFETCH(int, exitCode);
        QFETCH(QString, out);
        QFETCH(QString, err);
        if (!tag.isEmpty())
            offer(tag, std::nullopt);
        const MarluneRun run = runMarlune({"self-update", "--check"}, environment(true));
        QCOMPARE(run.exitCode, exitCode);
        QVERIFY2(run.out.contains(out), qPrintable(run.out));
        QVERIFY2(run.err.endsWith(err), qPrintable(run.err));
        QCOMPARE(readFile(m_appImage), QByteArray("ancienne version")); // --check never installs
        QCOMPARE(m_server->requestCount(kAssetPath), 0);
    }

    void withoutRepositoryNothingIsChecked_data() {
        QTest::addColumn<QString>("repo");
        QTest::newRow("empty") << "";
        QTest::newRow("engine repository") << "HalvornApp/Halvorn";
    }
    void withoutRepositoryNothingIsChecked() {
        QFETCH(QString, repo);
        QProcessEnvironment env = environment(true);
        env.insert("MARLUNE_UPDATE_REPO", repo);
        const MarluneRun run = runMarlune({"self-update", "--check"}, env);
        QCOMPARE(run.exitCode, 1);
        QVERIFY2(run.err.startsWith("Mise à jour automatique non configurée"), qPrintable(run.err));
        QCOMPARE(m_server->requests().size(), 0);
    }

    void unknownOptionIsAUsageError() {
        const MarluneRun run = runMarlune({"self-update", "--now"}, environment(true));
        QCOMPARE(run.exitCode, 2);
        QCOMPARE(run.err, QString("Option inconnue : --now\nUtilisation : marlune self-update [--check]\n"));
        QCOMPARE(m_server->requests().size(), 0);
    }

    void installsOnlyWhenRunningAsAnAppImage() {
        offer("v99.0.0", std::nullopt);
        const MarluneRun run = runMarlune({"self-update"}, environment(false));
        QCOMPARE(run.exitCode, 1);
        QVERIFY2(run.out.contains("Version 99.0.0 disponible"), qPrintable(run.out));
        QVERIFY2(
            run.err.endsWith("Erreur : Mise à jour automatique disponible uniquement pour l'AppImage.\n"),
            qPrintable(run.err));
        QCOMPARE(m_server->requestCount(kAssetPath), 0);
    }

    void installsTheNewAppImage() {
        offer("v99.0.0", digestOf(kNewAppImage));
        const MarluneRun run = runMarlune({"self-update"}, environment(true));
        QCOMPARE(run.exitCode, 0);
        QVERIFY2(run.out.endsWith(
                     "Mise à jour installée !\nRedémarrez Marlune pour utiliser la nouvelle version.\n"),
                 qPrintable(run.out));
        QVERIFY2(run.err.contains("Téléchargement… 100%\n") && run.err.contains("Installation en cours…"),
                 qPrintable(run.err));
        QCOMPARE(readFile(m_appImage), kNewAppImage);
        QVERIFY(QFileInfo(m_appImage).isExecutable());
        QVERIFY(!QFile::exists(m_appImage + ".bak"));
        QCOMPARE(QDir(m_home->filePath("tmp")).entryList(QDir::AllEntries | QDir::NoDotAndDotDot),
                 QStringList());
    }

    void mismatchingDigestInstallsNothing() {
        offer("v99.0.0", digestOf("autre chose"));
        const MarluneRun run = runMarlune({"self-update"}, environment(true));
        QCOMPARE(run.exitCode, 1);
        QVERIFY2(run.err.endsWith("Erreur : Somme de contrôle invalide pour Marlune-linux-x86_64.AppImage\n"),
                 qPrintable(run.err));
        QCOMPARE(readFile(m_appImage), QByteArray("ancienne version"));
    }

private:
    QProcessEnvironment environment(bool asAppImage) const {
        QProcessEnvironment env = marluneEnvironment(m_home->path(), 1);
        env.insert("MARLUNE_UPDATE_REPO", "owner/app");
        env.insert("MARLUNE_GITHUB_API_URL", m_server->baseUrl() + "/");
        env.insert("TMPDIR", m_home->filePath("tmp"));
        if (asAppImage)
            env.insert("APPIMAGE", m_appImage);
        else
            env.remove("APPIMAGE");
        return env;
    }

    void offer(const QString& tag, std::optional<QString> digest) {
        GitHubAsset asset{"Marlune-linux-x86_64.AppImage",
                          m_server->baseUrl() + QString::fromLatin1(kAssetPath), kNewAppImage.size(),
                          std::move(digest)};
        GitHubRelease release{tag,   "Marlune " + tag,       "Notes de " + tag,
                              false, "2024-05-01T10:00:00Z", {asset}};
        ReleaseServer::Response response;
        response.body = QJsonDocument(release.toJson()).toJson();
        m_server->route(kLatestPath, response);
    }

    static QString digestOf(const QByteArray& data) {
        return "sha256:" +
               QString::fromLatin1(QCryptographicHash::hash(data, QCryptographicHash::Sha256).toHex());
    }

    std::unique_ptr<ReleaseServer> m_server;
    std::unique_ptr<QTemporaryDir> m_home;
    QString m_appImage;
};

QTEST_GUILESS_MAIN(SelfUpdateCommandTest)
#include "SelfUpdateCommandTest.moc"
