#include "updater/GitHubRelease.h"
#include "updater/UpdaterError.h"

#include <QJsonDocument>
#include <QtTest>

namespace {

QJsonObject validAsset() {
    return QJsonObject{{"name", "Marlune-linux-x86_64.AppImage"},
                       {"browser_download_url", "https://example.org/Marlune-linux-x86_64.AppImage"},
                       {"size", 123456},
                       {"digest", QJsonValue::Null}};
}

QJsonObject validRelease() {
    return QJsonObject{{"tag_name", "v2.0.0"},
                       {"name", "Marlune 2.0.0"},
                       {"body", "Nouveautés :\n- tout"},
                       {"prerelease", false},
                       {"published_at", "2024-05-01T10:00:00Z"},
                       {"assets", QJsonArray{validAsset()}},
                       {"html_url", "https://example.org/ignored"}};
}

QByteArray bytes(const QJsonObject& object) {
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

QString decodeFailure(const QByteArray& body) {
    try {
        GitHubRelease::decode(body);
    } catch (const UpdaterError& error) {
        return error.message();
    }
    return QString();
}

} // namespace

class GitHubReleaseTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void decodesEveryField() {
        QJsonObject release = validRelease();
        QJsonObject asset = validAsset();
        asset["digest"] = "sha256:abc";
        release["assets"] = QJsonArray{asset, validAsset()};
        const GitHubRelease decoded = GitHubRelease::decode(bytes(release));
        QCOMPARE(decoded.tagName, QString("v2.0.0"));
        QCOMPARE(decoded.name, QString("Marlune 2.0.0"));
        QCOMPARE(decoded.body, QString("Nouveautés :\n- tout"));
        QCOMPARE(decoded.prerelease, false);
        QCOMPARE(decoded.publishedAt, QString("2024-05-01T10:00:00Z"));
        QCOMPARE(decoded.assets.size(), 2);
        QCOMPARE(decoded.assets[0].name, QString("Marlune-linux-x86_64.AppImage"));
        QCOMPARE(decoded.assets[0].browserDownloadURL,
                 QString("https://example.org/Marlune-linux-x86_64.AppImage"));
        QCOMPARE(decoded.assets[0].size, qint64(123456));
        QCOMPARE(decoded.assets[0].digest, std::optional<QString>("sha256:abc"));
        QCOMPARE(decoded.assets[1].digest, std::nullopt);
    }

    void encodesBackUnderTheSameKeys() {
        QJsonObject asset = validAsset();
        asset["digest"] = "sha256:00ff";
        QJsonObject release = validRelease();
        release["assets"] = QJsonArray{asset};
        const GitHubRelease decoded = GitHubRelease::decode(bytes(release));
        const QJsonObject encoded = decoded.toJson();
        QCOMPARE(encoded.keys(),
                 (QStringList{"assets", "body", "name", "prerelease", "published_at", "tag_name"}));
        QCOMPARE(encoded["assets"].toArray().first().toObject(), asset);
        QCOMPARE(GitHubRelease::fromJson(encoded), decoded);
        QCOMPARE(GitHubAsset::fromJson(validAsset()).toJson().keys(),
                 (QStringList{"browser_download_url", "name", "size"}));
    }

    void refusesMissingNullOrMistypedKeys_data() {
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("message");
        const QStringList keys{"tag_name", "name", "body", "prerelease", "published_at", "assets"};
        for (const QString& key : keys) {
            QJsonObject missing = validRelease();
            missing.remove(key);
            QTest::addRow("%s missing", qPrintable(key))
                << bytes(missing) << QString("Réponse de GitHub illisible : clé « %1 » absente").arg(key);
            QJsonObject null = validRelease();
            null[key] = QJsonValue::Null;
            QTest::addRow("%s null", qPrintable(key))
                << bytes(null) << QString("Réponse de GitHub illisible : clé « %1 » nulle").arg(key);
        }
        QJsonObject numberTag = validRelease();
        numberTag["tag_name"] = 2;
        QTest::newRow("number tag") << bytes(numberTag)
                                    << "Réponse de GitHub illisible : clé « tag_name » : texte attendu";
        QJsonObject textFlag = validRelease();
        textFlag["prerelease"] = "false";
        QTest::newRow("text prerelease")
            << bytes(textFlag) << "Réponse de GitHub illisible : clé « prerelease » : booléen attendu";
        QJsonObject objectAssets = validRelease();
        objectAssets["assets"] = QJsonObject{};
        QTest::newRow("assets not a list")
            << bytes(objectAssets) << "Réponse de GitHub illisible : clé « assets » : liste attendue";
        QJsonObject assetNotObject = validRelease();
        assetNotObject["assets"] = QJsonArray{validAsset(), 3};
        QTest::newRow("asset not an object")
            << bytes(assetNotObject) << "Réponse de GitHub illisible : « assets[1] » n'est pas un objet";
        for (const char* key : {"name", "browser_download_url", "size"}) {
            QJsonObject asset = validAsset();
            asset.remove(key);
            QJsonObject release = validRelease();
            release["assets"] = QJsonArray{validAsset(), asset};
            QTest::addRow("asset %s missing", key)
                << bytes(release)
                << QString("Réponse de GitHub illisible : clé « assets[1].%1 » absente").arg(key);
        }
        for (const QJsonValue& size : {QJsonValue(1.5), QJsonValue("12"), QJsonValue(1e300)}) {
            QJsonObject asset = validAsset();
            asset["size"] = size;
            QJsonObject release = validRelease();
            release["assets"] = QJsonArray{asset};
            QTest::addRow("size %s",
                          QJsonDocument(QJsonArray{size}).toJson(QJsonDocument::Compact).constData())
                << bytes(release) << "Réponse de GitHub illisible : clé « assets[0].size » : entier attendu";
        }
        QTest::newRow("GitHub error document")
            << QByteArray("{\"message\":\"Not Found\",\"documentation_url\":\"https://docs.github.com\"}")
            << "Réponse de GitHub illisible : clé « tag_name » absente (GitHub : Not Found)";
        QTest::newRow("empty body") << QByteArray() << "Réponse de GitHub illisible : document JSON invalide";
        QTest::newRow("HTML") << QByteArray("<html>502 Bad Gateway</html>")
                              << "Réponse de GitHub illisible : document JSON invalide";
        QTest::newRow("array") << QByteArray("[1,2]")
                               << "Réponse de GitHub illisible : document JSON invalide";
        QTest::newRow("truncated") << bytes(validRelease()).chopped(5)
                                   << "Réponse de GitHub illisible : document JSON invalide";
        QTest::newRow("binary") << QByteArray("\x00\xff\xfe{\x01", 5)
                                << "Réponse de GitHub illisible : document JSON invalide";
    }
    void refusesMissingNullOrMistypedKeys() {
        QFETCH(QByteArray, body);
        QFETCH(QString, message);
        QCOMPARE(decodeFailure(body), message);
    }

    void acceptsLargeIntegralSizes() {
        QJsonObject asset = validAsset();
        asset["size"] = qint64(5000000000);
        QCOMPARE(GitHubAsset::fromJson(asset).size, qint64(5000000000));
        asset["size"] = 1e3;
        QCOMPARE(GitHubAsset::fromJson(asset).size, qint64(1000));
    }

    void versionTrimsEveryVFromBothEnds_data() {
        QTest::addColumn<QString>("tag");
        QTest::addColumn<QString>("version");
        QTest::newRow("v prefix") << "v1.4.0"
                                  << "1.4.0";
        QTest::newRow("no prefix") << "1.4.0"
                                   << "1.4.0";
        QTest::newRow("several v both ends") << "vv1.4v"
                                             << "1.4";
        QTest::newRow("capital V kept") << "V1.4"
                                        << "V1.4";
        QTest::newRow("inner v kept") << "1.v4"
                                      << "1.v4";
        QTest::newRow("only v") << "vvv"
                                << "";
        QTest::newRow("empty") << ""
                               << "";
    }
    void versionTrimsEveryVFromBothEnds() {
        QFETCH(QString, tag);
        QFETCH(QString, version);
        GitHubRelease release;
        release.tagName = tag;
        QCOMPARE(release.version(), version);
    }
};

QTEST_GUILESS_MAIN(GitHubReleaseTest)
#include "GitHubReleaseTest.moc"
