#include "platform/SettingsStore.h"

#include <QTemporaryDir>
#include <QtTest>

class SettingsStoreTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void defaultsThenStoredValuesSurviveAReopen() {
        QTemporaryDir dir;
        const QString file = dir.filePath(QStringLiteral("settings.ini"));
        {
            SettingsStore settings(file);
            QCOMPARE(settings.backendPort(), 8000);
            QCOMPARE(settings.demucsDevice(), QStringLiteral("auto"));
            QCOMPARE(settings.maxDuration(), 1200);
            QVERIFY(!settings.storedMaxDuration());
            QVERIFY(settings.autoUpdate());
            QVERIFY(!settings.installCompilerTools());
            QVERIFY(!settings.compilerToolsDeclined());
            settings.setBackendPort(8123);
            settings.setDemucsDevice(QStringLiteral("cpu"));
            settings.setMaxDuration(60);
            settings.setAutoUpdate(false);
            settings.setInstallCompilerTools(true);
            settings.setCompilerToolsDeclined(true);
        }
        SettingsStore settings(file);
        QCOMPARE(settings.backendPort(), 8123);
        QCOMPARE(settings.demucsDevice(), QStringLiteral("cpu"));
        QCOMPARE(settings.storedMaxDuration(), 60);
        QVERIFY(!settings.autoUpdate());
        QVERIFY(settings.installCompilerTools());
        QVERIFY(settings.compilerToolsDeclined());
    }

    void unreadableNumbersFallBackToDefaults() {
        QTemporaryDir dir;
        const QString file = dir.filePath(QStringLiteral("settings.ini"));
        QFile raw(file);
        QVERIFY(raw.open(QIODevice::WriteOnly));
        raw.write("[General]\nbackendPort=abc\nmaxDuration=\n");
        raw.close();
        SettingsStore settings(file);
        QCOMPARE(settings.backendPort(), 8000);
        QCOMPARE(settings.maxDuration(), 1200);
        QVERIFY(!settings.storedMaxDuration());
    }
};

QTEST_GUILESS_MAIN(SettingsStoreTest)
#include "SettingsStoreTest.moc"
