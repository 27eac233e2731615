#include "audio/PeakEnvelope.h"

#include <QRandomGenerator>
#include <QtTest>
#include <vector>

class PeakEnvelopeTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void pointCountFollowsTheBucketRule_data() {
        QTest::addColumn<int>("samples");
        QTest::addColumn<int>("target");
        QTest::addColumn<int>("points");
        QTest::newRow("3000 at 1800: bucket 1") << 3000 << 1800 << 3000;
        QTest::newRow("3600 at 1800: bucket 2") << 3600 << 1800 << 1800;
        QTest::newRow("3601 at 1800: a short last bucket") << 3601 << 1800 << 1801;
        QTest::newRow("3599 at 1800: bucket 1") << 3599 << 1800 << 3599;
        QTest::newRow("fewer samples than points") << 100 << 1800 << 100;
        QTest::newRow("one sample") << 1 << 1800 << 1;
        QTest::newRow("no sample") << 0 << 1800 << 0;
        QTest::newRow("5 minutes at 1800") << 13230000 << 1800 << 1800;
        QTest::newRow("one point") << 1000 << 1 << 1;
    }
    void pointCountFollowsTheBucketRule() {
        QFETCH(int, samples);
        QFETCH(int, target);
        QFETCH(int, points);
        std::vector<float> signal(static_cast<size_t>(samples), 0.25f);
        const QList<float> envelope = PeakEnvelope::ofSignal(signal.data(), samples, target);
        QCOMPARE(envelope.size(), points);
        for (float value : envelope)
            QCOMPARE(value, 1.0f);
    }

    void eachValueIsItsBucketsPeakOverTheLoudestBucket() {
        // Bucket 2 (8 samples, 4 points): peaks 0.5, 0.25 (a negative sample counts by its size), 0, 0.1.
        const std::vector<float> signal{0.1f, 0.5f, -0.25f, 0.2f, 0.0f, 0.0f, 0.05f, -0.1f};
        const QList<float> envelope = PeakEnvelope::ofSignal(signal.data(), 8, 4);
        QCOMPARE(envelope, (QList<float>{1.0f, 0.5f, 0.0f, 0.2f}));
    }

    void silenceIsKeptAsZerosNotNormalised() {
        const std::vector<float> signal(3601, 0.0f);
        const QList<float> envelope = PeakEnvelope::ofSignal(signal.data(), 3601, 1800);
        QCOMPARE(envelope.size(), 1801);
        QVERIFY(std::all_of(envelope.cbegin(), envelope.cend(), [](float value) { return value == 0.0f; }));
    }

    void theTrailingSilentBucketIsDroppedOnlyWhenAsked_data() {
        QTest::addColumn<bool>("keepSilentTail");
        QTest::addColumn<int>("points");
        QTest::newRow("kept") << true << 3;
        QTest::newRow("dropped") << false << 2;
    }
    void theTrailingSilentBucketIsDroppedOnlyWhenAsked() {
        QFETCH(bool, keepSilentTail);
        QFETCH(int, points);
        PeakEnvelope envelope(4);
        const std::vector<float> signal{0, 0, 0, 0, 1, 0, 0, 0, 0, 0};
        envelope.add(signal.data(), 10);
        QCOMPARE(envelope.finish(keepSilentTail).size(), points);
    }

    void aFullSilentBucketIsAlwaysKept() {
        PeakEnvelope envelope(2);
        const std::vector<float> signal{0, 0, 0.5f, 0, 0, 0, 0.3f};
        envelope.add(signal.data(), 7);
        QCOMPARE(envelope.finish(false), (QList<float>{0.0f, 0.5f, 0.0f, 0.3f}));
    }

    void feedingInPiecesGivesTheWholeSignalsEnvelope() {
        QRandomGenerator random(7);
        std::vector<float> signal(100003);
        for (float& sample : signal)
            sample = static_cast<float>(random.generateDouble() * 2.0 - 1.0);
        const QList<float> whole = PeakEnvelope::ofSignal(signal.data(), 100003, 1800);
        PeakEnvelope pieces(PeakEnvelope::bucketSize(100003, 1800));
        for (size_t at = 0; at < signal.size();) {
            const auto run = std::min<size_t>(random.bounded(1, 200), signal.size() - at);
            pieces.add(signal.data() + at, static_cast<int64_t>(run));
            at += run;
        }
        QCOMPARE(pieces.samplesSeen(), int64_t(100003));
        QList<float> values = pieces.finish(true);
        PeakEnvelope::normalise(values);
        QCOMPARE(values, whole);
    }
};

QTEST_GUILESS_MAIN(PeakEnvelopeTest)
#include "PeakEnvelopeTest.moc"
