#include "audio/StemKind.h"

#include <QSet>
#include <QTest>

class StemKindTest : public QObject {
    Q_OBJECT

private slots:
    void tableRows_data() {
        QTest::addColumn<int>("index");
        QTest::addColumn<QString>("raw");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("icon");
        QTest::addColumn<QString>("hex");
        QTest::newRow("vocals") << 0 << "vocals"
                                << "Voix"
                                << "mic.fill"
                                << "#C084FC";
        QTest::newRow("drums") << 1 << "drums"
                               << "Batterie"
                               << "waveform"
                               << "#F97316";
        QTest::newRow("bass") << 2 << "bass"
                              << "Basse"
                              << "music.note"
                              << "#22D3EE";
        QTest::newRow("guitar") << 3 << "guitar"
                                << "Guitare"
                                << "guitars.fill"
                                << "#4ADE80";
        QTest::newRow("piano") << 4 << "piano"
                               << "Piano"
                               << "pianokeys"
                               << "#FBBF24";
        QTest::newRow("other") << 5 << "other"
                               << "Autres (sax, cordes…)"
                               << "music.note.list"
                               << "#94A3B8";
        QTest::newRow("original") << 6 << "original"
                                  << "Original"
                                  << "music.quarternote.3"
                                  << "#60A5FA";
        QTest::newRow("mix") << 7 << "mix"
                             << "Mix"
                             << "slider.horizontal.3"
                             << "#A3E635";
    }

    void tableRows() {
        QFETCH(int, index);
        QFETCH(QString, raw);
        QFETCH(QString, name);
        QFETCH(QString, icon);
        QFETCH(QString, hex);
        const StemKind kind = StemKinds::all().at(index);
        QCOMPARE(StemKinds::rawValue(kind), raw);
        QCOMPARE(StemKinds::displayName(kind), name);
        QCOMPARE(StemKinds::iconName(kind), icon);
        QCOMPARE(StemKinds::colorHex(kind), hex);
        QCOMPARE(StemKinds::color(kind), colorFromHex(hex));
        QCOMPARE(StemKinds::fromRawValue(raw), std::optional<StemKind>(kind));
    }

    void fixedLists() {
        const QList<StemKind> all = StemKinds::all();
        QCOMPARE(all.size(), 8);
        QCOMPARE(all.first(), StemKind::vocals);
        QCOMPARE(all.last(), StemKind::mix);
        QCOMPARE(StemKinds::separable(),
                 (QList<StemKind>{StemKind::vocals, StemKind::drums, StemKind::bass, StemKind::guitar,
                                  StemKind::piano, StemKind::other}));
        QCOMPARE(StemKinds::studioFallback(), all.first(7));
        QCOMPARE(StemKinds::studioFallback().last(), StemKind::original);
    }

    void unknownRawValues_data() {
        QTest::addColumn<QString>("raw");
        QTest::newRow("capitalised") << "Vocals";
        QTest::newRow("empty") << "";
        QTest::newRow("padded") << " mix";
        QTest::newRow("file name") << "vocals.wav";
        QTest::newRow("display name") << "Voix";
    }

    void unknownRawValues() {
        QFETCH(QString, raw);
        QCOMPARE(StemKinds::fromRawValue(raw), std::nullopt);
    }

    void kindsAreHashable() {
        const QList<StemKind> all = StemKinds::all();
        QSet<StemKind> set(all.begin(), all.end());
        set.insert(StemKind::mix);
        QCOMPARE(set.size(), 8);
        QHash<StemKind, QString> names;
        names.insert(StemKind::bass, QStringLiteral("b"));
        QCOMPARE(names.value(StemKind::bass), QStringLiteral("b"));
        QVERIFY(!names.contains(StemKind::piano));
    }

    void colorFromHexParsing_data() {
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("red");
        QTest::addColumn<int>("green");
        QTest::addColumn<int>("blue");
        QTest::newRow("blue") << "#60A5FA" << 96 << 165 << 250;
        QTest::newRow("no hash, lower case") << "60a5fa" << 96 << 165 << 250;
        QTest::newRow("separators ignored") << "# 60-A5:FA " << 96 << 165 << 250;
        QTest::newRow("white") << "#FFFFFF" << 255 << 255 << 255;
        QTest::newRow("three digits") << "#FFF" << 0 << 0 << 0;
        QTest::newRow("empty") << "" << 0 << 0 << 0;
        QTest::newRow("seven digits") << "#60A5FA0" << 0 << 0 << 0;
        QTest::newRow("eight digits with alpha") << "#60A5FAFF" << 0 << 0 << 0;
        QTest::newRow("six letters, not hex") << "#GGGGGG" << 0 << 0 << 0;
    }

    void colorFromHexParsing() {
        QFETCH(QString, text);
        QFETCH(int, red);
        QFETCH(int, green);
        QFETCH(int, blue);
        const QColor color = colorFromHex(text);
        QCOMPARE(color.red(), red);
        QCOMPARE(color.green(), green);
        QCOMPARE(color.blue(), blue);
        QCOMPARE(color.alphaF(), 1.0f);
        QCOMPARE(color.spec(), QColor::Rgb);
    }

    void colorComponentsAreExactFractions() {
        const QColor color = colorFromHex(QStringLiteral("#60A5FA"));
        QVERIFY(qAbs(color.redF() - 96.0f / 255.0f) < 1e-4f);
        QVERIFY(qAbs(color.greenF() - 165.0f / 255.0f) < 1e-4f);
        QVERIFY(qAbs(color.blueF() - 250.0f / 255.0f) < 1e-4f);
    }
};

QTEST_GUILESS_MAIN(StemKindTest)
#include "StemKindTest.moc"
