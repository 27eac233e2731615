#include "platform/BaseAddresses.h"

#include <QtTest>

class BaseAddressesTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void defaultsAreTheRealHosts() {
        const BaseAddresses addresses = BaseAddresses::fromEnvironment(QProcessEnvironment());
        QCOMPARE(addresses.githubApi, QStringLiteral("https://api.github.com"));
        QCOMPARE(addresses.githubWeb, QStringLiteral("https://github.com"));
        QCOMPARE(addresses.pypi, QStringLiteral("https://pypi.org"));
        QCOMPARE(addresses.ffmpegFallback, QStringLiteral("https://evermeet.cx"));
    }

    void eachVariableOverridesItsAddress_data() {
        QTest::addColumn<QString>("variable");
        QTest::addColumn<QString>("value");
        QTest::addColumn<QString>("githubApi");
        QTest::addColumn<QString>("githubWeb");
        QTest::addColumn<QString>("pypi");
        QTest::addColumn<QString>("fallback");
        const QString api = QStringLiteral("https://api.github.com");
        const QString web = QStringLiteral("https://github.com");
        const QString pypi = QStringLiteral("https://pypi.org");
        const QString fallback = QStringLiteral("https://evermeet.cx");
        const QString mirror = QStringLiteral("http://127.0.0.1:9/x");
        QTest::newRow("api") << "MARLUNE_GITHUB_API_URL" << mirror << mirror << web << pypi << fallback;
        QTest::newRow("web") << "MARLUNE_GITHUB_URL" << mirror << api << mirror << pypi << fallback;
        QTest::newRow("pypi") << "MARLUNE_PYPI_URL" << mirror << api << web << mirror << fallback;
        QTest::newRow("fallback") << "MARLUNE_FFMPEG_FALLBACK_URL" << mirror << api << web << pypi << mirror;
        QTest::newRow("trailing slashes dropped")
            << "MARLUNE_PYPI_URL" << mirror + "//" << api << web << mirror << fallback;
        QTest::newRow("empty keeps the default") << "MARLUNE_GITHUB_URL"
                                                 << "" << api << web << pypi << fallback;
        QTest::newRow("blank keeps the default") << "MARLUNE_GITHUB_URL"
                                                 << "  " << api << web << pypi << fallback;
    }
    void eachVariableOverridesItsAddress() {
        QFETCH(QString, variable);
        QFETCH(QString, value);
        QProcessEnvironment environment;
        environment.insert(variable, value);
        const BaseAddresses addresses = BaseAddresses::fromEnvironment(environment);
        QTEST(addresses.githubApi, "githubApi");
        QTEST(addresses.githubWeb, "githubWeb");
        QTEST(addresses.pypi, "pypi");
        QTEST(addresses.ffmpegFallback, "fallback");
    }

    void joinKeepsTheBasePath() {
        QCOMPARE(BaseAddresses::join(QStringLiteral("http://127.0.0.1:8/github/"),
                                     QStringLiteral("/a/b/c.tar.gz")),
                 QUrl(QStringLiteral("http://127.0.0.1:8/github/a/b/c.tar.gz")));
        QCOMPARE(
            BaseAddresses::join(QStringLiteral("https://github.com"), QStringLiteral("/o/n/releases/latest")),
            QUrl(QStringLiteral("https://github.com/o/n/releases/latest")));
    }
};

QTEST_GUILESS_MAIN(BaseAddressesTest)
#include "BaseAddressesTest.moc"
