#include "updater/UpdaterService.h"
#include "support/ReadOnlyFolder.h"
#include "support/ReleaseServer.h"
#include "support/TestSupport.h"

#include <QCryptographicHash>
#include <QDir>
#include <QJsonDocument>
#include <QRandomGenerator>
#include <QTemporaryDir>
#include <QtTest>

using namespace std::chrono_literals;
using Kind = UpdaterState::Kind;

Q_DECLARE_METATYPE(ReleaseServer::Response)
Q_DECLARE_METATYPE(UpdaterState::Kind)

char* toString(const UpdaterState& state) {
    return QTest::toString(state.description());
}

namespace {

const QByteArray kLatestPath = "/repos/owner/app/releases/latest";
const QByteArray kAssetPath = "/download/v2.0.0/Marlune-linux-x86_64.AppImage";
const QString kAssetName = "Marlune-linux-x86_64.AppImage";

GitHubAsset asset(const QString& name, const QString& url = "https://example.org/x", qint64 size = 1) {
    return GitHubAsset{name, url, size, std::nullopt};
}

GitHubRelease release(const QString& tag, QList<GitHubAsset> assets = {}) {
    return GitHubRelease{tag, "Marlune " + tag, "Notes de " + tag, false, "2024-05-01T10:00:00Z", assets};
}

ReleaseServer::Response json(const GitHubRelease& value) {
    ReleaseServer::Response response;
    response.body = QJsonDocument(value.toJson()).toJson();
    return response;
}

ReleaseServer::Response hanging() {
    ReleaseServer::Response response;
    response.hang = true;
    return response;
}

QByteArray randomBytes(qsizetype size) {
    QByteArray data(size, Qt::Uninitialized);
    QRandomGenerator generator(42);
    generator.fillRange(reinterpret_cast<quint32*>(data.data()), size / 4);
    return data;
}

QByteArray readFile(const QString& path) {
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray("<absent>");
}

void writeFile(const QString& path, const QByteArray& contents) {
    QFile file(path);
    QVERIFY2(file.open(QIODevice::WriteOnly), qPrintable(path));
    file.write(contents);
}

} // namespace

class UpdaterServiceTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() {
        m_server = std::make_unique<ReleaseServer>();
        m_install = std::make_unique<QTemporaryDir>();
        m_temp = std::make_unique<QTemporaryDir>();
        m_appImage = m_install->filePath("Marlune.AppImage");
        writeFile(m_appImage, "old version");
        m_quits = 0;
        m_payload = randomBytes(4 << 20);
        ReleaseServer::Response download;
        download.contentType = "application/octet-stream";
        download.body = m_payload;
        m_server->route(kAssetPath, download);
    }
    void cleanup() {
        m_server.reset();
        m_install.reset();
        m_temp.reset();
    }

    // --- check ---

    void checkSendsTheReleaseRequest() {
        UpdaterService updater(config());
        m_server->route(kLatestPath, json(release("v2.0.0")));
        QCoro::waitFor(updater.performCheck());
        const QList<ReleaseServer::Request> requests = m_server->requests();
        QCOMPARE(requests.size(), 1);
        QCOMPARE(requests[0].method, QByteArray("GET"));
        QCOMPARE(requests[0].path, kLatestPath);
        QCOMPARE(requests[0].headers.value("accept"), QByteArray("application/vnd.github+json"));
        QCOMPARE(requests[0].headers.value("x-github-api-version"), QByteArray("2022-11-28"));
        QCOMPARE(requests[0].headers.value("user-agent"), QByteArray("Marlune/1.9.12"));
    }

    void newerReleaseIsOffered() {
        UpdaterService updater(config());
        const GitHubRelease offered = release("v2.0.0", {asset(kAssetName)});
        m_server->route(kLatestPath, json(offered));
        QList<UpdaterState>& states = record(updater);
        QCoro::waitFor(updater.performCheck());
        QCOMPARE(states,
                 (QList<UpdaterState>{UpdaterState::checking(), UpdaterState::updateAvailable(offered)}));
        QCOMPARE(updater.latestVersion(), QString("2.0.0"));
        QCOMPARE(updater.releaseNotes(), QString("Notes de v2.0.0"));
    }

    void checkOutcome_data() {
        QTest::addColumn<QString>("tag");
        QTest::addColumn<QString>("current");
        QTest::addColumn<Kind>("outcome");
        QTest::newRow("v2.0.0 against 1.9.12") << "v2.0.0"
                                               << "1.9.12" << Kind::updateAvailable;
        QTest::newRow("1.2 against 1.2.0") << "1.2"
                                           << "1.2.0" << Kind::upToDate;
        QTest::newRow("older release") << "v1.9.0"
                                       << "1.9.12" << Kind::upToDate;
        QTest::newRow("beta of the same version") << "2.0.0-beta"
                                                  << "2.0.0" << Kind::upToDate;
        QTest::newRow("no numeric piece") << "nightly"
                                          << "0.0.0" << Kind::upToDate;
        QTest::newRow("against the missing-version 0.0.0") << "v0.0.1"
                                                           << "0.0.0" << Kind::updateAvailable;
    }
    void checkOutcome() {
        QFETCH(QString, tag);
        QFETCH(QString, current);
        QFETCH(Kind, outcome);
        UpdaterConfig settings = config();
        settings.currentVersion = current;
        UpdaterService updater(settings);
        m_server->route(kLatestPath, json(release(tag)));
        QCoro::waitFor(updater.performCheck());
        QCOMPARE(updater.state().kind(), outcome);
        QCOMPARE(updater.latestVersion(), release(tag).version());
        QCOMPARE(updater.releaseNotes(), "Notes de " + tag);
    }

    void upToDateTurnsIdleAfterTheDelay() {
        UpdaterService updater(config());
        m_server->route(kLatestPath, json(release("1.9.12")));
        QCoro::waitFor(updater.performCheck());
        QCOMPARE(updater.state(), UpdaterState::upToDate());
        QVERIFY(TestSupport::waitUntil([&] { return updater.state() == UpdaterState::idle(); }, 5000));
        QCOMPARE(updater.latestVersion(), QString("1.9.12")); // fetched values stay
    }

    void delayedResetLeavesANewerCheckAlone_data() {
        QTest::addColumn<bool>("secondAnswers");
        QTest::newRow("second check still running") << false;
        QTest::newRow("second check found an update") << true;
    }
    void delayedResetLeavesANewerCheckAlone() {
        QFETCH(bool, secondAnswers);
        UpdaterService updater(config());
        m_server->route(kLatestPath, json(release("1.9.12")));
        QCoro::waitFor(updater.performCheck());
        QCOMPARE(updater.state(), UpdaterState::upToDate());
        m_server->route(kLatestPath, secondAnswers ? json(release("v2.0.0")) : hanging());
        updater.checkForUpdates();
        const Kind expected = secondAnswers ? Kind::updateAvailable : Kind::checking;
        QVERIFY(TestSupport::waitUntil([&] { return updater.state().kind() == expected; }));
        // Well past the first check's reset.
        TestSupport::waitUntil([] { return false; }, int(kDelay.count()) * 4);
        QCOMPARE(updater.state().kind(), expected);
    }

    void failedCheck_data() {
        QTest::addColumn<ReleaseServer::Response>("response");
        QTest::addColumn<QString>("message");
        ReleaseServer::Response noRelease; // GitHub's answer for a repository without releases
        noRelease.status = 404;
        noRelease.body = "{\"message\":\"Not Found\",\"documentation_url\":\"https://docs.github.com/rest\"}";
        QTest::newRow("repository without releases")
            << noRelease << "Réponse de GitHub illisible : clé « tag_name » absente (GitHub : Not Found)";
        ReleaseServer::Response gateway;
        gateway.status = 500;
        gateway.contentType = "text/html";
        gateway.body = "<html>Bad gateway</html>";
        QTest::newRow("HTML error page") << gateway << "Réponse de GitHub illisible : document JSON invalide";
        ReleaseServer::Response partial = json(release("v2.0.0"));
        partial.body.chop(10);
        QTest::newRow("truncated document")
            << partial << "Réponse de GitHub illisible : document JSON invalide";
        ReleaseServer::Response cut = json(release("v2.0.0"));
        cut.cutAfter = 20;
        QTest::newRow("connection lost") << cut << "La connexion réseau a été perdue.";
    }
    void failedCheck() {
        QFETCH(ReleaseServer::Response, response);
        QFETCH(QString, message);
        UpdaterService updater(config());
        m_server->route(kLatestPath, response);
        QCoro::waitFor(updater.performCheck());
        QCOMPARE(updater.state(), UpdaterState::error(message));
        QCOMPARE(updater.latestVersion(), QString());
        QCOMPARE(updater.releaseNotes(), QString());
    }

    void unreachableServerFailsTheCheck() {
        UpdaterConfig settings = config();
        settings.apiBase = QString("http://127.0.0.1:%1").arg(TestSupport::freePort());
        UpdaterService updater(settings);
        QCoro::waitFor(updater.performCheck());
        QCOMPARE(updater.state(), UpdaterState::error("Impossible de se connecter au serveur."));
    }

    void unparsableAddressFailsTheCheck() {
        UpdaterConfig settings = config();
        settings.repo = "owner/my app";
        UpdaterService updater(settings);
        QCoro::waitFor(updater.performCheck());
        QCOMPARE(updater.state(), UpdaterState::error("URL non prise en charge"));
        QCOMPARE(m_server->requests().size(), 0);
    }

    void repository_data() {
        QTest::addColumn<QString>("configured");
        QTest::addColumn<bool>("accepted");
        QTest::newRow("empty") << "" << false;
        QTest::newRow("engine repository") << "halvornapp/halvorn" << false;
        QTest::newRow("engine repository, other case") << "HalvornApp/HALVORN" << false;
        QTest::newRow("own repository") << "owner/app" << true;
        QTest::newRow("kept as written") << " halvornapp/halvorn" << true;
    }
    void repository() {
        QFETCH(QString, configured);
        QFETCH(bool, accepted);
        QCOMPARE(UpdaterService::validRepo(configured), accepted ? std::optional(configured) : std::nullopt);
    }

    void withoutRepositoryNothingIsChecked_data() {
        QTest::addColumn<QString>("configured");
        QTest::newRow("empty") << "";
        QTest::newRow("engine repository, any case") << "HALVORNAPP/halvorn";
    }
    void withoutRepositoryNothingIsChecked() {
        QFETCH(QString, configured);
        UpdaterConfig settings = config();
        settings.repo = configured;
        UpdaterService updater(settings);
        QCOMPARE(updater.repo(), std::nullopt);
        updater.checkForUpdates();
        QVERIFY(!updater.isCheckRunning());
        QCOMPARE(updater.state(), UpdaterState::idle());
        updater.setState(UpdaterState::error("ancienne erreur"));
        QCoro::waitFor(updater.performCheck());
        QCOMPARE(updater.state(), UpdaterState::idle());
        QCOMPARE(m_server->requests().size(), 0);
    }

    void newCheckAbandonsThePreviousOne() {
        UpdaterService updater(config());
        m_server->route(kLatestPath, hanging());
        QList<UpdaterState>& states = record(updater);
        updater.checkForUpdates();
        QVERIFY(TestSupport::waitUntil([&] { return m_server->requestCount(kLatestPath) == 1; }));
        QVERIFY(updater.isCheckRunning());
        const GitHubRelease offered = release("v2.0.0");
        m_server->route(kLatestPath, json(offered));
        updater.checkForUpdates();
        QVERIFY(TestSupport::waitUntil([&] { return !updater.isCheckRunning(); }));
        QCOMPARE(updater.state(), UpdaterState::updateAvailable(offered));
        // The abandoned request ends without a word: no error in between.
        QCOMPARE(states,
                 (QList<UpdaterState>{UpdaterState::checking(), UpdaterState::updateAvailable(offered)}));
        QCOMPARE(m_server->requestCount(kLatestPath), 2);
    }

    void discardedServiceReceivesNothing() {
        m_server->route(kLatestPath, hanging());
        auto updater = std::make_unique<UpdaterService>(config());
        updater->checkForUpdates();
        QCoro::Task<> direct = updater->performCheck();
        QVERIFY(TestSupport::waitUntil([&] { return m_server->requestCount(kLatestPath) == 2; }));
        updater.reset();
        m_server.reset(); // the direct check's connection drops now
        QVERIFY(TestSupport::waitUntil([&] { return direct.isReady(); }));
    }

    // --- asset choice ---

    void chooseAsset_data() {
        QTest::addColumn<QStringList>("names");
        QTest::addColumn<QString>("chosen");
        QTest::newRow("Linux x86_64 among others")
            << QStringList{"App-linux-aarch64.AppImage", "App-linux-x86_64.AppImage", "notes.txt"}
            << "App-linux-x86_64.AppImage";
        QTest::newRow("only a capitalised ending") << QStringList{"App.APPIMAGE"} << "";
        QTest::newRow("first AppImage otherwise")
            << QStringList{"notes.txt", "A.AppImage", "B.AppImage"} << "A.AppImage";
        QTest::newRow("platform words in any case")
            << QStringList{"App.AppImage", "App-LINUX-X86_64.AppImage"} << "App-LINUX-X86_64.AppImage";
        QTest::newRow("ending compared case-sensitively")
            << QStringList{"App-linux-x86_64.appimage", "Other.AppImage"} << "Other.AppImage";
        QTest::newRow("both words needed")
            << QStringList{"App-linux.AppImage", "App-x86_64-linux.AppImage"} << "App-x86_64-linux.AppImage";
        QTest::newRow("no assets") << QStringList{} << "";
    }
    void chooseAsset() {
        QFETCH(QStringList, names);
        QFETCH(QString, chosen);
        QList<GitHubAsset> assets;
        for (const QString& name : names)
            assets.append(asset(name));
        const auto choice = UpdaterService::chooseAsset(release("v2", assets));
        QCOMPARE(choice ? choice->name : QString(), chosen);
    }

    // --- download and install ---

    void installRefusedBeforeDownloading_data() {
        QTest::addColumn<QString>("assetName");
        QTest::addColumn<QString>("url");
        QTest::addColumn<bool>("appImage");
        QTest::addColumn<QString>("message");
        QTest::newRow("no AppImage asset")
            << "App.APPIMAGE"
            << "http://127.0.0.1/x" << true << "Aucun fichier AppImage compatible trouvé.";
        QTest::newRow("relative address") << kAssetName << "download/App.AppImage" << true << "URL invalide.";
        QTest::newRow("space in host")
            << kAssetName << "http://exa mple.org/App.AppImage" << true << "URL invalide.";
        QTest::newRow("empty address") << kAssetName << "" << true << "URL invalide.";
        QTest::newRow("not running as an AppImage")
            << kAssetName << "http://127.0.0.1/x" << false
            << "Mise à jour automatique disponible uniquement pour l'AppImage.";
    }
    void installRefusedBeforeDownloading() {
        QFETCH(QString, assetName);
        QFETCH(QString, url);
        QFETCH(bool, appImage);
        QFETCH(QString, message);
        UpdaterConfig settings = config();
        if (!appImage)
            settings.appImagePath = QString();
        UpdaterService updater(settings);
        updater.downloadAndInstall(release("v2.0.0", {asset(assetName, url)}));
        QCOMPARE(updater.state(), UpdaterState::error(message));
        QCOMPARE(m_server->requests().size(), 0);
        QCOMPARE(readFile(m_appImage), QByteArray("old version"));
    }

    void installReplacesTheAppImage_data() {
        QTest::addColumn<bool>("withDigest");
        QTest::newRow("digest listed and matching") << true;
        QTest::newRow("no digest listed") << false;
    }
    void installReplacesTheAppImage() {
        QFETCH(bool, withDigest);
        UpdaterService updater(config());
        QList<UpdaterState>& states = record(updater);
        updater.downloadAndInstall(
            offeredRelease(withDigest ? std::optional(digestOf(m_payload)) : std::nullopt));
        QCOMPARE(updater.state(), UpdaterState::downloading(0)); // returns at once
        QVERIFY(TestSupport::waitUntil([&] { return isSettled(updater); }));
        QCOMPARE(updater.state(), UpdaterState::readyToRestart());
        QVERIFY(readFile(m_appImage) == m_payload);
        QVERIFY(QFileInfo(m_appImage).isExecutable());
        QVERIFY(!QFile::exists(m_appImage + ".bak"));
        QCOMPARE(entries(m_temp->path()), QStringList()); // the download is gone too
        // Fractions from 0 to 1, never backwards, then installing, then ready.
        QVERIFY(states.size() >= 4);
        QCOMPARE(states.first(), UpdaterState::downloading(0));
        for (qsizetype i = 1; i < states.size() - 2; ++i) {
            QCOMPARE(states[i].kind(), Kind::downloading);
            QVERIFY(states[i].fraction() > states[i - 1].fraction());
        }
        QCOMPARE(states[states.size() - 3], UpdaterState::downloading(1.0));
        QCOMPARE(states[states.size() - 2], UpdaterState::installing());
    }

    void installOverAnAppImageNamedLikeTheAsset() {
        // The running AppImage sits in the temporary folder under the asset's own name.
        UpdaterConfig settings = config();
        settings.appImagePath = m_temp->filePath(kAssetName);
        writeFile(*settings.appImagePath, "old version");
        UpdaterService updater(settings);
        updater.downloadAndInstall(offeredRelease(digestOf(m_payload)));
        QVERIFY(TestSupport::waitUntil([&] { return isSettled(updater); }));
        QCOMPARE(updater.state(), UpdaterState::readyToRestart());
        QVERIFY(readFile(*settings.appImagePath) == m_payload);
        QCOMPARE(entries(m_temp->path()), QStringList{kAssetName});
    }

    void digestMismatchKeepsTheOldAppImage() {
        UpdaterService updater(config());
        updater.downloadAndInstall(offeredRelease(digestOf("something else")));
        QVERIFY(TestSupport::waitUntil([&] { return isSettled(updater); }));
        QCOMPARE(updater.state(), UpdaterState::error("Somme de contrôle invalide pour " + kAssetName));
        QCOMPARE(readFile(m_appImage), QByteArray("old version"));
        QCOMPARE(entries(m_install->path()), QStringList{"Marlune.AppImage"});
        QCOMPARE(entries(m_temp->path()), QStringList());
    }

    void readOnlyFolderRestoresTheOldAppImage() {
        UpdaterService updater(config());
        ReadOnlyFolder readOnly(m_install->path());
        if (!readOnly.isEffective())
            QSKIP("this machine cannot make a folder read-only");
        updater.downloadAndInstall(offeredRelease(digestOf(m_payload)));
        QVERIFY(TestSupport::waitUntil([&] { return isSettled(updater); }));
        const QString message = updater.state().message();
        QVERIFY2(message.startsWith(
                     QString("Remplacement échoué : impossible de déplacer « %1 » vers « %1.bak » (")
                         .arg(m_appImage)),
                 qPrintable(message));
        QVERIFY2(message.endsWith("(permission refusée)") ||
                     message.endsWith("(système de fichiers en lecture seule)"),
                 qPrintable(message));
        QCOMPARE(readFile(m_appImage), QByteArray("old version"));
        QCOMPARE(entries(m_install->path()), QStringList{"Marlune.AppImage"});
        // The verified download stays in the temporary folder under the asset's name.
        QVERIFY(readFile(m_temp->filePath(kAssetName)) == m_payload);
    }

    void failedDownload_data() {
        QTest::addColumn<ReleaseServer::Response>("response");
        QTest::addColumn<QString>("message");
        ReleaseServer::Response missing;
        missing.status = 404;
        missing.body = "Not Found";
        QTest::newRow("HTTP 404") << missing << "Le serveur a répondu HTTP 404.";
        ReleaseServer::Response cut;
        cut.body = randomBytes(1 << 20);
        cut.cutAfter = 300000;
        QTest::newRow("connection lost midway") << cut << "La connexion réseau a été perdue.";
    }
    void failedDownload() {
        QFETCH(ReleaseServer::Response, response);
        QFETCH(QString, message);
        m_server->route(kAssetPath, response);
        UpdaterService updater(config());
        updater.downloadAndInstall(offeredRelease(std::nullopt));
        QVERIFY(TestSupport::waitUntil([&] { return isSettled(updater); }));
        QCOMPARE(updater.state(), UpdaterState::error(message));
        QCOMPARE(readFile(m_appImage), QByteArray("old version"));
        QCOMPARE(entries(m_temp->path()), QStringList()); // no partial file left
    }

    void unwritableDownloadFolderFails() {
        UpdaterConfig settings = config();
        settings.temporaryDir = m_temp->filePath("absent");
        UpdaterService updater(settings);
        updater.downloadAndInstall(offeredRelease(std::nullopt));
        QVERIFY(TestSupport::waitUntil([&] { return isSettled(updater); }));
        QVERIFY2(updater.state().message().startsWith("Impossible d'écrire « " + settings.temporaryDir),
                 qPrintable(updater.state().description()));
        QCOMPARE(readFile(m_appImage), QByteArray("old version"));
    }

    void secondInstallIsIgnoredWhileOneRuns() {
        UpdaterService updater(config());
        const GitHubRelease offered = offeredRelease(digestOf(m_payload));
        updater.downloadAndInstall(offered);
        updater.downloadAndInstall(offered);
        QVERIFY(TestSupport::waitUntil([&] { return isSettled(updater); }));
        QCOMPARE(updater.state(), UpdaterState::readyToRestart());
        QCOMPARE(m_server->requestCount(kAssetPath), 1);
    }

    void discardedServiceDuringDownloadLeavesNoFile() {
        m_server->route(kAssetPath, hanging());
        auto updater = std::make_unique<UpdaterService>(config());
        updater->downloadAndInstall(offeredRelease(std::nullopt));
        QVERIFY(TestSupport::waitUntil([&] { return m_server->requestCount(kAssetPath) == 1; }));
        updater.reset();
        m_server.reset(); // the download's connection drops now
        QVERIFY(TestSupport::waitUntil([&] { return entries(m_temp->path()).isEmpty(); }));
        QCOMPARE(readFile(m_appImage), QByteArray("old version"));
    }

    // --- restart ---

    void restartLaunchesTheAppImageAndQuits() {
        const QString marker = m_install->filePath("started");
        writeFile(m_appImage, "#!/bin/sh\necho \"$@\" > '" + marker.toUtf8() + "'\n");
        QFile::setPermissions(m_appImage, QFile::permissions(m_appImage) | QFileDevice::ExeOwner);
        UpdaterService updater(config());
        updater.restartApp();
        QCOMPARE(m_quits, 1);
        QVERIFY(TestSupport::waitUntil([&] { return QFile::exists(marker); }));
    }

    void restartQuitsEvenWhenTheAppImageCannotStart() {
        QFile::remove(m_appImage);
        UpdaterService updater(config());
        updater.restartApp();
        QCOMPARE(m_quits, 1);
    }

private:
    static constexpr std::chrono::milliseconds kDelay = 150ms;

    UpdaterConfig config() {
        UpdaterConfig settings;
        settings.repo = "owner/app";
        settings.currentVersion = "1.9.12";
        settings.apiBase = m_server->baseUrl();
        settings.upToDateDelay = kDelay;
        settings.appImagePath = m_appImage;
        settings.temporaryDir = m_temp->path();
        settings.quitApplication = [this] { ++m_quits; };
        return settings;
    }

    GitHubRelease offeredRelease(std::optional<QString> digest) const {
        GitHubAsset offered =
            asset(kAssetName, m_server->baseUrl() + QString::fromLatin1(kAssetPath), m_payload.size());
        offered.digest = std::move(digest);
        return release("v2.0.0", {asset("notes.txt"), offered});
    }

    static QString digestOf(const QByteArray& data) {
        return "sha256:" +
               QString::fromLatin1(QCryptographicHash::hash(data, QCryptographicHash::Sha256).toHex());
    }

    static bool isSettled(const UpdaterService& updater) {
        const Kind kind = updater.state().kind();
        return kind == Kind::readyToRestart || kind == Kind::error;
    }

    static QStringList entries(const QString& folder) {
        return QDir(folder).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
    }

    // Every state the service goes through from now on, kept in `states` for as long as the service lives.
    static QList<UpdaterState>& record(UpdaterService& updater) {
        auto* states = new QList<UpdaterState>;
        connect(&updater, &QObject::destroyed, [states] { delete states; });
        connect(&updater, &UpdaterService::stateChanged, &updater,
                [states](const UpdaterState& state) { states->append(state); });
        return *states;
    }

    std::unique_ptr<ReleaseServer> m_server;
    std::unique_ptr<QTemporaryDir> m_install;
    std::unique_ptr<QTemporaryDir> m_temp;
    QString m_appImage;
    QByteArray m_payload;
    int m_quits = 0;
};

QTEST_GUILESS_MAIN(UpdaterServiceTest)
#include "UpdaterServiceTest.moc"
