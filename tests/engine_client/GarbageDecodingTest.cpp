#include "engine_client/APIErrorDetail.h"
#include "engine_client/BackendHealth.h"
#include "engine_client/BackendService.h"
#include "engine_client/JobCreateResponse.h"
#include "engine_client/SSEEventCutter.h"
#include "engine_client/StemJob.h"
#include "engine_client/Utf8Prefix.h"

#include <QFile>
#include <QJsonDocument>
#include <QRandomGenerator>
#include <QTest>

namespace {
const QDateTime kNow = QDateTime::fromSecsSinceEpoch(1'800'000'000, Qt::UTC);

const QList<QByteArray> kSeeds = {
    R"({"job_id":"a1","status":"separating","progress":42.5,"stage":"demucs","stems":["vocals","drums","kazoo"],)"
    R"("analysis":{"bpm":120,"key":"A","scale":"minor","key_confidence":0.7,"integrated_lufs":-9,"sample_peak_db":-0.2},)"
    R"("title":"Été 🎵","created_at":"2023-11-14T22:13:20Z","error":null,"error_detail":"x","favorite":true})",
    R"({"job_id":"b","status":"failed","created_at":1700000000.5,"bpm":98,"lufs":-11,"peak_db":-1,"key":"C#"})",
    R"([{"job_id":"c","status":"done"},{"job_id":"d","stems":[]}])",
    R"({"detail":[{"loc":["body","url"],"msg":"field required","type":"missing"},{"msg":"bad"}]})",
    R"({"status":"ok","version":"1.0.0","ffmpeg_configured":true,"demucs_device":"cpu"})",
    R"({"job_id":"e","created_at":"2023-11-15T00:13:20+02:00","analysis":null})",
};

const QList<QByteArray> kJsonValues = {
    "null",
    "true",
    "false",
    "0",
    "-1",
    "1e308",
    "-1e-308",
    "3.5",
    "\"\"",
    "\"done\"",
    "\"vocals\"",
    "\"\\ud800\"",
    "\"\\u0000\"",
    "[]",
    "{}",
    "[\"bass\",1]",
    "{\"msg\":\"m\"}",
    "\"2023-11-14T22:13:20Z\"",
    "123456789012345678901234567890",
    "\"\xc3\xa9\"",
    "[[[[[]]]]]",
};

class Mutator {
public:
    explicit Mutator(quint32 seed)
        : m_random(seed) {}

    int below(int n) { return int(m_random.bounded(quint32(n))); }

    QByteArray randomBytes(int maximum) {
        QByteArray bytes(below(maximum + 1), Qt::Uninitialized);
        for (char& c : bytes)
            c = char(below(256));
        return bytes;
    }

    // One of several kinds of damage to a document.
    QByteArray mutate(QByteArray text) {
        const int rounds = 1 + below(4);
        for (int r = 0; r < rounds && !text.isEmpty(); ++r) {
            const int at = below(int(text.size()));
            switch (below(7)) {
            case 0: // flip a byte
                text[at] = char(below(256));
                break;
            case 1: // cut
                text.truncate(at);
                break;
            case 2: // delete a span
                text.remove(at, 1 + below(8));
                break;
            case 3: // duplicate a span
                text.insert(at, text.mid(at, 1 + below(16)));
                break;
            case 4: // insert structural characters
                text.insert(at, QByteArray(1, "{}[]\",:\\"[below(8)]));
                break;
            case 5: // replace the value after a colon with another JSON value
                if (const qsizetype colon = text.indexOf(':', at); colon >= 0) {
                    qsizetype end = colon + 1;
                    while (end < text.size() && text[end] != ',' && text[end] != '}')
                        ++end;
                    text.replace(colon + 1, end - colon - 1, kJsonValues[below(int(kJsonValues.size()))]);
                }
                break;
            default: // random bytes
                text.insert(at, randomBytes(8));
            }
        }
        return text;
    }

private:
    QRandomGenerator m_random;
};

qint64 residentKiB() {
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return 0;
    for (const QByteArray& line : status.readAll().split('\n'))
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').value(0).toLongLong();
    return 0;
}

// Whole-stream cutting: the reference the chunked cutter must agree with on valid text.
QList<QByteArray> referenceCut(QByteArray stream) {
    stream.replace("\r\n", "\n");
    QList<QByteArray> events;
    qsizetype start = 0;
    for (qsizetype end; (end = stream.indexOf("\n\n", start)) >= 0; start = end + 2)
        if (std::optional<QByteArray> data =
                SSEEventCutter::dataOf(QByteArrayView(stream).sliced(start, end - start)))
            events.append(*data);
    return events;
}
} // namespace

class GarbageDecodingTest : public QObject {
    Q_OBJECT

private:
    static void decodeEverything(const QByteArray& text, int& decodedJobs) {
        if (const std::optional<StemJob> job = StemJob::fromJsonText(text, kNow)) {
            ++decodedJobs;
            // Whatever decodes re-encodes into a document that decodes to the same job.
            const QByteArray encoded = job->toJsonText();
            const std::optional<StemJob> again = StemJob::fromJsonText(encoded, kNow);
            if (!again || job->id != again->id || job->status != again->status ||
                job->progress != again->progress || job->title != again->title ||
                job->createdAt != again->createdAt || job->analysis != again->analysis ||
                job->favorite != again->favorite || job->error != again->error)
                QFAIL(qPrintable(QStringLiteral("round trip changed %1 into %2")
                                     .arg(QString::fromUtf8(text), QString::fromUtf8(encoded))));
        }
        StemJob::listFromJsonText(text, kNow);
        BackendHealth::fromJsonText(text);
        APIErrorDetail::fromJsonText(text);
        JobCreateResponse::fromJsonText(text);
        const QString message = BackendService::errorMessage(500, text);
        QVERIFY(!message.isEmpty() || !text.isEmpty());
    }

private slots:
    void mutatedDocuments() {
        Mutator mutator(20240611);
        int decodedJobs = 0;
        qint64 rssAfterWarmUp = 0;
        constexpr int rounds = 100000;
        for (int i = 0; i < rounds; ++i) {
            const QByteArray text = i % 10 == 9 ? mutator.randomBytes(200)
                                                : mutator.mutate(kSeeds[mutator.below(int(kSeeds.size()))]);
            decodeEverything(text, decodedJobs);
            if (QTest::currentTestFailed())
                return;
            if (i == rounds / 3)
                rssAfterWarmUp = residentKiB();
        }
        QVERIFY2(decodedJobs > 1000,
                 qPrintable(QString::number(decodedJobs))); // the mutations reach the decoders
        QVERIFY2(
            residentKiB() - rssAfterWarmUp < 4096,
            qPrintable(QStringLiteral("resident memory grew by %1 KiB").arg(residentKiB() - rssAfterWarmUp)));
    }

    void deeplyNestedDocuments() {
        for (int depth : {100, 1000, 100000}) {
            const QByteArray nested =
                "{\"job_id\":\"n\",\"analysis\":" + QByteArray(depth, '[') + QByteArray(depth, ']') + "}";
            StemJob::fromJsonText(nested, kNow);
            APIErrorDetail::fromJsonText("{\"detail\":" + QByteArray(depth, '[') + QByteArray(depth, ']') +
                                         "}");
        }
    }

    void eventStreams() {
        Mutator mutator(77);
        const QList<QByteArray> pieces = {"data:",    "data: ", "\n",
                                          "\r\n",     "\r",     ": ping",
                                          "event: x", "\n\n",   "{\"job_id\":\"j\",\"status\":\"done\"}",
                                          "Été",      "🎵",      "id: 3",
                                          " "};
        qint64 rssAfterWarmUp = 0;
        constexpr int rounds = 10000;
        int compared = 0;
        for (int i = 0; i < rounds; ++i) {
            QByteArray stream;
            const int count = 5 + mutator.below(60);
            for (int p = 0; p < count; ++p)
                stream += mutator.below(150) == 0 ? mutator.randomBytes(6)
                                                  : pieces[mutator.below(int(pieces.size()))];
            const bool validText = completeUtf8Prefix(stream) == stream.size();
            SSEEventCutter cutter([](const QString&) {});
            QList<QByteArray> events;
            for (qsizetype at = 0; at < stream.size();) {
                const qsizetype size = 1 + mutator.below(12);
                for (const QByteArray& data :
                     cutter.feed(QByteArrayView(stream).sliced(at, std::min(size, stream.size() - at)))) {
                    QCOMPARE(completeUtf8Prefix(data), data.size());
                    events.append(data);
                    StemJob::fromJsonText(data, kNow);
                }
                at += size;
            }
            if (validText) {
                QCOMPARE(events, referenceCut(stream));
                ++compared;
            }
            if (i == rounds / 3)
                rssAfterWarmUp = residentKiB();
        }
        QVERIFY(compared > rounds / 2);
        QVERIFY2(
            residentKiB() - rssAfterWarmUp < 4096,
            qPrintable(QStringLiteral("resident memory grew by %1 KiB").arg(residentKiB() - rssAfterWarmUp)));
    }
};

QTEST_GUILESS_MAIN(GarbageDecodingTest)
#include "GarbageDecodingTest.moc"
