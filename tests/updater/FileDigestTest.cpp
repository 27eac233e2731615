#include "updater/FileDigest.h"
#include "platform/FileSha256.h"

#include <QTemporaryDir>
#include <QtTest>

namespace {
// SHA-256 of "abc".
const QByteArray kAbcDigest = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";
QString sha256(const QByteArray& hex) {
    return QStringLiteral("sha256:") + QString::fromLatin1(hex);
}
} // namespace

class FileDigestTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void init() {
        QVERIFY(m_dir.isValid());
        QFile file(m_dir.filePath("abc"));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("abc");
    }

    void hashesContents() {
        QCOMPARE(FileSha256::hex(m_dir.filePath("abc")), std::optional<QByteArray>(kAbcDigest));
    }

    void hashesAcrossBlockBoundaries() {
        // Two full 1 MiB blocks and a tail, compared with a one-shot hash.
        QByteArray data((2 << 20) + 17, Qt::Uninitialized);
        for (qsizetype i = 0; i < data.size(); ++i)
            data[i] = char(i * 31 + (i >> 8));
        QFile file(m_dir.filePath("big"));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(data);
        file.close();
        QCOMPARE(*FileSha256::hex(file.fileName()),
                 QCryptographicHash::hash(data, QCryptographicHash::Sha256).toHex());
    }

    void unreadableFileHasNoDigest() {
        QCOMPARE(FileSha256::hex(m_dir.filePath("absent")), std::nullopt);
        QCOMPARE(FileSha256::hex(m_dir.path()), std::nullopt);
    }

    void matches_data() {
        QTest::addColumn<QString>("digest");
        QTest::addColumn<bool>("match");
        QTest::newRow("exact") << sha256(kAbcDigest) << true;
        QTest::newRow("upper-case hex") << sha256(kAbcDigest.toUpper()) << true;
        QTest::newRow("upper-case algorithm") << "SHA256:" + QString(kAbcDigest) << true;
        QTest::newRow("one digit off") << sha256(kAbcDigest.chopped(1) + "e") << false;
        QTest::newRow("too short") << sha256(kAbcDigest.chopped(2)) << false;
        QTest::newRow("other algorithm") << "sha512:" + QString(kAbcDigest) << false;
        QTest::newRow("no algorithm") << QString(kAbcDigest) << false;
        QTest::newRow("empty") << QString() << false;
        QTest::newRow("garbage") << QString("sha256:zz") << false;
    }
    void matches() {
        QFETCH(QString, digest);
        QFETCH(bool, match);
        QCOMPARE(FileDigest::matches(m_dir.filePath("abc"), digest), match);
    }

    void missingFileNeverMatches() {
        QVERIFY(!FileDigest::matches(m_dir.filePath("absent"), sha256(kAbcDigest)));
    }

private:
    QTemporaryDir m_dir;
};

QTEST_GUILESS_MAIN(FileDigestTest)
#include "FileDigestTest.moc"
