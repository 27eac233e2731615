#include "audio/SafeTitle.h"

#include <QtTest>

class SafeTitleTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void rule_data() {
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("expected");
        QTest::newRow("plain") << "Song 2"
                               << "Song 2";
        QTest::newRow("punctuation removed") << "Don't Stop (Live!), vol. 2"
                                             << "Dont Stop Live vol 2";
        QTest::newRow("punctuation only") << "?!.,;:()"
                                          << "";
        QTest::newRow("empty") << ""
                               << "";
        QTest::newRow("dash and underscore kept") << "a-b_c"
                                                  << "a-b_c";
        QTest::newRow("ends trimmed") << "  Title  "
                                      << "Title";
        QTest::newRow("trimmed after removal") << "* Title *"
                                               << "Title";
        QTest::newRow("double space") << "A  B"
                                      << "A B";
        QTest::newRow("space left by removal") << "A & B"
                                               << "A B";
        QTest::newRow("accents kept") << "Écoute à l'été"
                                      << "Écoute à lété";
        QTest::newRow("combining accent stays on its letter") << QStringLiteral("Cafe\u0301") << "Café";
        QTest::newRow("emoji removed") << "🎵 Hit 🎵"
                                       << "Hit";
        QTest::newRow("tab and newline removed") << "A\tB\nC"
                                                 << "ABC";
        QTest::newRow("slashes cannot escape the folder") << "../../etc/passwd"
                                                          << "etcpasswd";
        QTest::newRow("non-latin letters kept") << "Песня 東京"
                                                << "Песня 東京";
        QTest::newRow("letter outside the basic plane kept")
            << QStringLiteral("x\U0001D504y") << QStringLiteral("x\U0001D504y");
    }
    void rule() {
        QFETCH(QString, title);
        QFETCH(QString, expected);
        QCOMPARE(safeTitle(title), expected);
    }

    void cutToSixtyCharacters_data() {
        QTest::addColumn<int>("length");
        QTest::addColumn<int>("expected");
        QTest::newRow("59") << 59 << 59;
        QTest::newRow("60") << 60 << 60;
        QTest::newRow("61") << 61 << 60;
        QTest::newRow("200") << 200 << 60;
    }
    void cutToSixtyCharacters() {
        QFETCH(int, length);
        QFETCH(int, expected);
        QString title;
        for (int i = 0; i < length; ++i)
            title.append(QChar(u'a' + i % 26));
        const QString result = safeTitle(title);
        QCOMPARE(result.size(), expected);
        QCOMPARE(result, title.left(expected));
    }

    void cutCountsCharactersNotCodeUnits() {
        QString title;
        for (int i = 0; i < 61; ++i)
            title += QStringLiteral("\U0001D504");
        const QString result = safeTitle(title);
        QCOMPARE(result.toUcs4().size(), 60);
        QVERIFY(!result.back().isHighSurrogate());
    }

    void cutHappensAfterPunctuationIsRemoved() {
        const QString title = QString(30, u'!') + QString(61, u'x');
        QCOMPARE(safeTitle(title), QString(60, u'x'));
    }
};

QTEST_GUILESS_MAIN(SafeTitleTest)
#include "SafeTitleTest.moc"
