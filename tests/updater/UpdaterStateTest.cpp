#include "updater/UpdaterState.h"

#include <QtTest>

using Kind = UpdaterState::Kind;
Q_DECLARE_METATYPE(UpdaterState::Kind)

class UpdaterStateTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void casesCarryTheirPayload_data() {
        QTest::addColumn<UpdaterState>("state");
        QTest::addColumn<Kind>("kind");
        QTest::addColumn<QString>("description");
        GitHubRelease release;
        release.tagName = "v2.0.0";
        QTest::newRow("default") << UpdaterState() << Kind::idle << "idle";
        QTest::newRow("idle") << UpdaterState::idle() << Kind::idle << "idle";
        QTest::newRow("checking") << UpdaterState::checking() << Kind::checking << "checking";
        QTest::newRow("upToDate") << UpdaterState::upToDate() << Kind::upToDate << "upToDate";
        QTest::newRow("updateAvailable")
            << UpdaterState::updateAvailable(release) << Kind::updateAvailable << "updateAvailable(v2.0.0)";
        QTest::newRow("downloading") << UpdaterState::downloading(0.25) << Kind::downloading
                                     << "downloading(0.25)";
        QTest::newRow("installing") << UpdaterState::installing() << Kind::installing << "installing";
        QTest::newRow("readyToRestart")
            << UpdaterState::readyToRestart() << Kind::readyToRestart << "readyToRestart";
        QTest::newRow("error") << UpdaterState::error("Échec") << Kind::error << "error(Échec)";
    }
    void casesCarryTheirPayload() {
        QFETCH(UpdaterState, state);
        QFETCH(Kind, kind);
        QFETCH(QString, description);
        QCOMPARE(state.kind(), kind);
        QCOMPARE(state.description(), description);
        QCOMPARE(state.release().tagName, kind == Kind::updateAvailable ? QString("v2.0.0") : QString());
        QCOMPARE(state.fraction(), kind == Kind::downloading ? 0.25 : 0.0);
        QCOMPARE(state.message(), kind == Kind::error ? QString("Échec") : QString());
    }

    void equalityComparesPayloads() {
        QCOMPARE(UpdaterState::downloading(0.5), UpdaterState::downloading(0.5));
        QVERIFY(UpdaterState::downloading(0.5) != UpdaterState::downloading(0.6));
        QVERIFY(UpdaterState::error("a") != UpdaterState::error("b"));
        QVERIFY(UpdaterState::idle() != UpdaterState::checking());
        GitHubRelease first;
        first.tagName = "v1";
        GitHubRelease second = first;
        second.body = "autres notes";
        QVERIFY(UpdaterState::updateAvailable(first) != UpdaterState::updateAvailable(second));
        QVERIFY(UpdaterState::downloading(0) != UpdaterState::idle());
    }
};

QTEST_GUILESS_MAIN(UpdaterStateTest)
#include "UpdaterStateTest.moc"
