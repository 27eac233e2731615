#include "audio/FrameRingBuffer.h"

#include <QtTest>
#include <numeric>
#include <thread>

namespace {
std::vector<float> ramp(size_t frames, int channels, float first) {
    std::vector<float> values(frames * static_cast<size_t>(channels));
    std::iota(values.begin(), values.end(), first);
    return values;
}
} // namespace

class FrameRingBufferTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void capacityIsRoundedUpToAPowerOfTwo_data() {
        QTest::addColumn<int>("asked");
        QTest::addColumn<int>("capacity");
        QTest::newRow("0") << 0 << 2;
        QTest::newRow("1") << 1 << 2;
        QTest::newRow("exact") << 1024 << 1024;
        QTest::newRow("one over") << 1025 << 2048;
        QTest::newRow("two seconds at 44.1 kHz") << 88200 << 131072;
    }
    void capacityIsRoundedUpToAPowerOfTwo() {
        QFETCH(int, asked);
        QFETCH(int, capacity);
        FrameRingBuffer ring(static_cast<size_t>(asked), 2);
        QCOMPARE(ring.capacityFrames(), static_cast<size_t>(capacity));
        QCOMPARE(ring.writableFrames(), static_cast<size_t>(capacity));
    }

    void writeStopsWhenFullAndKeepsOrderAcrossTheWrap_data() {
        QTest::addColumn<int>("chunk");
        QTest::newRow("1 frame") << 1;
        QTest::newRow("3 frames") << 3;
        QTest::newRow("7 frames") << 7;
        QTest::newRow("whole ring") << 16;
    }
    void writeStopsWhenFullAndKeepsOrderAcrossTheWrap() {
        QFETCH(int, chunk);
        FrameRingBuffer ring(16, 2);
        const std::vector<float> source = ramp(1000, 2, 0.0f);
        size_t written = 0, read = 0;
        std::vector<float> out(static_cast<size_t>(chunk) * 2);
        // Keep the ring nearly full, so that every chunk crosses the end of the storage at some point.
        while (read < 1000) {
            written += ring.write(source.data() + written * 2, std::min<size_t>(13, 1000 - written));
            QVERIFY(ring.readableFrames() <= 16);
            const size_t got = ring.read(out.data(), static_cast<size_t>(chunk), UINT64_MAX);
            for (size_t i = 0; i < got * 2; ++i)
                QCOMPARE(out[i], source[read * 2 + i]);
            read += got;
        }
        QCOMPARE(written, size_t(1000));
        QCOMPARE(ring.write(source.data(), 20), size_t(16));
        QCOMPARE(ring.write(source.data(), 1), size_t(0));
    }

    void mixIntoAddsTheGainedFramesAcrossTheWrap() {
        FrameRingBuffer ring(8, 2);
        const std::vector<float> first = ramp(6, 2, 1.0f);
        ring.write(first.data(), 6);
        std::vector<float> scratch(12);
        ring.read(scratch.data(), 6, UINT64_MAX); // read position now 6: the next 5 frames wrap
        const std::vector<float> second = ramp(5, 2, 100.0f);
        QCOMPARE(ring.write(second.data(), 5), size_t(5));
        std::vector<float> out(10, 1.0f);
        QCOMPARE(ring.mixInto(out.data(), 5, 0.5f, UINT64_MAX), size_t(5));
        for (size_t i = 0; i < 10; ++i)
            QCOMPARE(out[i], 1.0f + 0.5f * second[i]);
        QCOMPARE(ring.readableFrames(), size_t(0));
    }

    void readingNeverPassesTheLimit() {
        FrameRingBuffer ring(16, 1);
        const std::vector<float> source = ramp(10, 1, 0.0f);
        ring.write(source.data(), 10);
        std::vector<float> out(10, 0.0f);
        QCOMPARE(ring.read(out.data(), 10, 4), size_t(4));
        QCOMPARE(ring.mixInto(out.data(), 10, 1.0f, 6), size_t(2));
        QCOMPARE(ring.skip(10, 5), size_t(0)); // limit behind the reader
        QCOMPARE(ring.skip(10, UINT64_MAX), size_t(4));
        QCOMPARE(ring.readPosition(), uint64_t(10));
    }

    void discardToMovesOnlyForwardAndNeverPastTheWriter() {
        FrameRingBuffer ring(16, 2);
        const std::vector<float> source = ramp(10, 2, 0.0f);
        ring.write(source.data(), 10);
        ring.discardTo(4);
        QCOMPARE(ring.readPosition(), uint64_t(4));
        ring.discardTo(2);
        QCOMPARE(ring.readPosition(), uint64_t(4));
        ring.discardTo(50);
        QCOMPARE(ring.readPosition(), uint64_t(10));
        QCOMPARE(ring.readableFrames(), size_t(0));
        QCOMPARE(ring.writableFrames(), size_t(16));
    }

    void aProducerAndAConsumerThreadHandOverEveryFrameInOrder() {
        FrameRingBuffer ring(64, 2);
        constexpr size_t total = 400000;
        std::thread producer([&] {
            std::vector<float> chunk(2 * 37);
            for (size_t next = 0; next < total;) {
                const size_t count = std::min<size_t>(37, total - next);
                for (size_t i = 0; i < count; ++i)
                    chunk[2 * i] = chunk[2 * i + 1] = static_cast<float>(next + i);
                size_t done = 0;
                while (done < count)
                    done += ring.write(chunk.data() + 2 * done, count - done);
                next += count;
            }
        });
        std::vector<float> out(2 * 29);
        size_t expected = 0;
        bool inOrder = true;
        while (expected < total) {
            const size_t got = ring.read(out.data(), 29, UINT64_MAX);
            for (size_t i = 0; i < got; ++i)
                inOrder =
                    inOrder && out[2 * i] == static_cast<float>(expected + i) && out[2 * i + 1] == out[2 * i];
            expected += got;
        }
        producer.join();
        QVERIFY(inOrder);
        QCOMPARE(ring.readableFrames(), size_t(0));
    }
};

QTEST_GUILESS_MAIN(FrameRingBufferTest)
#include "FrameRingBufferTest.moc"
