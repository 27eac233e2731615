#include "updater/VersionComparison.h"

#include <QtTest>

class VersionComparisonTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void isNewer_data() {
        QTest::addColumn<QString>("candidate");
        QTest::addColumn<QString>("current");
        QTest::addColumn<bool>("newer");
        QTest::newRow("minor as number, not text") << "1.10.0"
                                                   << "1.9.9" << true;
        QTest::newRow("older minor") << "1.9.9"
                                     << "1.10.0" << false;
        QTest::newRow("missing piece is zero") << "1.2"
                                               << "1.2.0" << false;
        QTest::newRow("extra zero piece") << "1.2.0"
                                          << "1.2" << false;
        QTest::newRow("extra non-zero piece") << "1.2.0.1"
                                              << "1.2" << true;
        QTest::newRow("beta piece dropped") << "2.0.0-beta"
                                            << "2.0.0" << false;
        QTest::newRow("beta piece dropped, still newer") << "2.1.0-beta"
                                                         << "2.0.0" << true;
        QTest::newRow("major") << "2.0.0"
                               << "1.9.12" << true;
        QTest::newRow("plus sign reads") << "+3"
                                         << "2" << true;
        QTest::newRow("minus sign reads") << "-1"
                                          << "0" << false;
        QTest::newRow("negative against missing") << "1.-1"
                                                  << "1" << false;
        QTest::newRow("no numeric piece") << "beta"
                                          << "0.0.1" << false;
        QTest::newRow("both empty") << ""
                                    << "" << false;
        QTest::newRow("empty pieces dropped") << "1..2"
                                              << "1.1" << true;
        QTest::newRow("rc piece dropped, so 1.3 vs 1.2") << "1.rc1.3"
                                                         << "1.2" << true;
        QTest::newRow("overflowing piece dropped") << "1.99999999999999999999"
                                                   << "1.5" << false;
        QTest::newRow("overflow drop shifts positions") << "99999999999999999999.2"
                                                        << "1.5" << true;
        QTest::newRow("int64 max fits") << "9223372036854775807"
                                        << "9223372036854775806" << true;
        QTest::newRow("int64 max + 1 dropped") << "9223372036854775808"
                                               << "1" << false;
        QTest::newRow("int64 min fits") << "-9223372036854775808"
                                        << "-9223372036854775807" << false;
        QTest::newRow("int64 min - 1 dropped") << "-9223372036854775809"
                                               << "-1" << true;
        QTest::newRow("spaces are not digits") << " 3"
                                               << "2" << false;
        QTest::newRow("lone sign dropped") << "+.5"
                                           << "4" << true;
        QTest::newRow("non-ASCII digits dropped") << QString::fromUtf8("٣") << "2" << false;
        QTest::newRow("equal") << "1.4.0"
                               << "1.4.0" << false;
    }
    void isNewer() {
        QFETCH(QString, candidate);
        QFETCH(QString, current);
        QFETCH(bool, newer);
        QCOMPARE(VersionComparison::isNewer(candidate, current), newer);
    }

    void numericPieces_data() {
        QTest::addColumn<QString>("version");
        QTest::addColumn<QList<qint64>>("pieces");
        QTest::newRow("plain") << "1.10.2" << QList<qint64>{1, 10, 2};
        QTest::newRow("signs") << "+3.-4" << QList<qint64>{3, -4};
        QTest::newRow("garbage") << "a.b..c" << QList<qint64>{};
        QTest::newRow("leading zeros") << "01.002" << QList<qint64>{1, 2};
        QTest::newRow("mixed") << "2.0.0-beta.7" << QList<qint64>{2, 0, 7};
    }
    void numericPieces() {
        QFETCH(QString, version);
        QFETCH(QList<qint64>, pieces);
        QCOMPARE(VersionComparison::numericPieces(version), pieces);
    }
};

QTEST_GUILESS_MAIN(VersionComparisonTest)
#include "VersionComparisonTest.moc"
