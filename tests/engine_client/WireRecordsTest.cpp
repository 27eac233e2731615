#include "engine_client/APIErrorDetail.h"
#include "engine_client/AnyCodableString.h"
#include "engine_client/AnyDecodable.h"
#include "engine_client/BackendHealth.h"
#include "engine_client/CreateJobRequest.h"
#include "engine_client/JobCreateResponse.h"
#include "engine_client/JobStatus.h"
#include "engine_client/JsonObjectWriter.h"
#include "engine_client/StemJob.h"
#include "engine_client/StemRef.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

namespace {
const QDateTime kNow = QDateTime::fromSecsSinceEpoch(1'800'000'000, Qt::UTC);

StemJob decode(const QByteArray& json) {
    const std::optional<StemJob> job = StemJob::fromJsonText(json, kNow);
    if (!job)
        qFatal("job did not decode: %s", json.constData());
    return *job;
}
} // namespace

class WireRecordsTest : public QObject {
    Q_OBJECT

private slots:
    void statusLabels_data() {
        QTest::addColumn<int>("index");
        QTest::addColumn<QString>("raw");
        QTest::addColumn<QString>("label");
        QTest::addColumn<bool>("final");
        QTest::newRow("queued") << 0 << "queued"
                                << "En file d'attente…" << false;
        QTest::newRow("downloading") << 1 << "downloading"
                                     << "Téléchargement…" << false;
        QTest::newRow("analyzing") << 2 << "analyzing"
                                   << "Analyse…" << false;
        QTest::newRow("separating") << 3 << "separating"
                                    << "Séparation des pistes…" << false;
        QTest::newRow("processing") << 4 << "processing"
                                    << "Finalisation…" << false;
        QTest::newRow("done") << 5 << "done"
                              << "Terminé" << true;
        QTest::newRow("error") << 6 << "error"
                               << "Échec" << true;
        QTest::newRow("cancelled") << 7 << "cancelled"
                                   << "Annulé" << true;
        QTest::newRow("stopped") << 8 << "stopped"
                                 << "Arrêté" << true;
        QTest::newRow("unknown") << 9 << "unknown"
                                 << "Traitement…" << false;
    }

    void statusLabels() {
        QFETCH(int, index);
        QFETCH(QString, raw);
        QFETCH(QString, label);
        QFETCH(bool, final);
        const JobStatus status = JobStatuses::all().at(index);
        QCOMPARE(JobStatuses::rawValue(status), raw);
        QCOMPARE(JobStatuses::statusLabel(status), label);
        QCOMPARE(JobStatuses::isFinal(status), final);
        QCOMPARE(JobStatuses::fromWord(raw), status);
    }

    void statusWords_data() {
        QTest::addColumn<QByteArray>("status");
        QTest::addColumn<JobStatus>("expected");
        QTest::newRow("pending") << QByteArray(R"("pending")") << JobStatus::queued;
        QTest::newRow("uploading") << QByteArray(R"("uploading")") << JobStatus::downloading;
        QTest::newRow("mixing") << QByteArray(R"("mixing")") << JobStatus::processing;
        QTest::newRow("failed") << QByteArray(R"("failed")") << JobStatus::error;
        QTest::newRow("separating") << QByteArray(R"("separating")") << JobStatus::separating;
        QTest::newRow("unlisted word") << QByteArray(R"("thinking")") << JobStatus::unknown;
        QTest::newRow("capitalised") << QByteArray(R"("Done")") << JobStatus::unknown;
        QTest::newRow("empty") << QByteArray(R"("")") << JobStatus::unknown;
        QTest::newRow("number") << QByteArray("5") << JobStatus::queued;
        QTest::newRow("null") << QByteArray("null") << JobStatus::queued;
        QTest::newRow("object") << QByteArray(R"({"s":"done"})") << JobStatus::queued;
    }

    void statusWords() {
        QFETCH(QByteArray, status);
        QFETCH(JobStatus, expected);
        QCOMPARE(decode(R"({"job_id":"a","status":)" + status + "}").status, expected);
    }

    void onlyAnIdentifier() {
        const QDateTime before = QDateTime::currentDateTimeUtc();
        const std::optional<StemJob> job = StemJob::fromJsonText(R"({"job_id":"abc"})");
        const QDateTime after = QDateTime::currentDateTimeUtc();
        QVERIFY(job);
        QCOMPARE(job->id, QStringLiteral("abc"));
        QCOMPARE(job->status, JobStatus::queued);
        QCOMPARE(job->progress, 0.0);
        QCOMPARE(job->stage, QString());
        QVERIFY(job->stems.isEmpty());
        QCOMPARE(job->analysis, std::nullopt);
        QCOMPARE(job->title, QStringLiteral("Sans titre"));
        QCOMPARE(job->error, std::nullopt);
        QCOMPARE(job->errorDetail, std::nullopt);
        QCOMPARE(job->favorite, false);
        QVERIFY(job->createdAt >= before.addMSecs(-1) && job->createdAt <= after.addMSecs(1));
    }

    void identifierRequired_data() {
        QTest::addColumn<QByteArray>("json");
        QTest::newRow("missing") << QByteArray(R"({"status":"done"})");
        QTest::newRow("number") << QByteArray(R"({"job_id":12})");
        QTest::newRow("null") << QByteArray(R"({"job_id":null})");
        QTest::newRow("array document") << QByteArray(R"([{"job_id":"a"}])");
        QTest::newRow("not json") << QByteArray("job_id=a");
        QTest::newRow("empty") << QByteArray();
    }

    void identifierRequired() {
        QFETCH(QByteArray, json);
        QCOMPARE(StemJob::fromJsonText(json, kNow), std::nullopt);
    }

    void wrongTypesFallBack() {
        const StemJob job =
            decode(R"({"job_id":"a","progress":"50","stage":3,"title":null,"error":false,)"
                   R"("error_detail":[],"favorite":"yes","stems":"vocals","created_at":true})");
        QCOMPARE(job.progress, 0.0);
        QCOMPARE(job.stage, QString());
        QCOMPARE(job.title, QStringLiteral("Sans titre"));
        QCOMPARE(job.error, std::nullopt);
        QCOMPARE(job.errorDetail, std::nullopt);
        QCOMPARE(job.favorite, false);
        QVERIFY(job.stems.isEmpty());
        QCOMPARE(job.createdAt, kNow);
    }

    void presentFields() {
        const StemJob job =
            decode(R"({"job_id":"j1","status":"separating","progress":42.5,"stage":"demucs",)"
                   R"("title":"Chanson","error":"boom","error_detail":"trace","favorite":true})");
        QCOMPARE(job.status, JobStatus::separating);
        QCOMPARE(job.progress, 42.5);
        QCOMPARE(job.stage, QStringLiteral("demucs"));
        QCOMPARE(job.title, QStringLiteral("Chanson"));
        QCOMPARE(job.error, std::optional<QString>(QStringLiteral("boom")));
        QCOMPARE(job.errorDetail, std::optional<QString>(QStringLiteral("trace")));
        QCOMPARE(job.favorite, true);
    }

    void creationTime_data() {
        QTest::addColumn<QByteArray>("value");
        QTest::addColumn<QDateTime>("expected");
        const QDateTime instant = QDateTime::fromSecsSinceEpoch(1'700'000'000, Qt::UTC);
        QTest::newRow("seconds") << QByteArray("1700000000") << instant;
        QTest::newRow("fractional seconds") << QByteArray("1700000000.25") << instant.addMSecs(250);
        QTest::newRow("iso zulu") << QByteArray(R"("2023-11-14T22:13:20Z")") << instant;
        QTest::newRow("iso offset") << QByteArray(R"("2023-11-15T00:13:20+02:00")") << instant;
        QTest::newRow("iso fraction") << QByteArray(R"("2023-11-14T22:13:20.5Z")") << kNow;
        QTest::newRow("iso without zone") << QByteArray(R"("2023-11-14T22:13:20")") << kNow;
        QTest::newRow("date only") << QByteArray(R"("2023-11-14")") << kNow;
        QTest::newRow("impossible date") << QByteArray(R"("2023-13-45T25:61:61Z")") << kNow;
        QTest::newRow("words") << QByteArray(R"("yesterday")") << kNow;
        QTest::newRow("huge number") << QByteArray("1e300") << kNow;
        QTest::newRow("null") << QByteArray("null") << kNow;
        QTest::newRow("negative seconds")
            << QByteArray("-86400") << QDateTime::fromSecsSinceEpoch(-86400, Qt::UTC);
    }

    void creationTime() {
        QFETCH(QByteArray, value);
        QFETCH(QDateTime, expected);
        QCOMPARE(decode(R"({"job_id":"a","created_at":)" + value + "}").createdAt, expected);
    }

    void stemsFromNames() {
        const StemJob job = decode(R"({"job_id":"J","stems":["vocals","drums","kazoo","Vocals"]})");
        QCOMPARE(job.stems.size(), 2);
        QCOMPARE(job.stems[0].id, QStringLiteral("J-vocals"));
        QCOMPARE(job.stems[0].fileName, QStringLiteral("vocals.wav"));
        QCOMPARE(job.stems[0].kind, StemKind::vocals);
        QCOMPARE(job.stems[1].id, QStringLiteral("J-drums"));
        QCOMPARE(job.stems[1].fileName, QStringLiteral("drums.wav"));
        QCOMPARE(job.stems[1].durationSeconds, std::nullopt);
        QCOMPARE(job.stems[1].localURL, std::nullopt);
    }

    void stemsNotAllTexts() {
        QVERIFY(decode(R"({"job_id":"J","stems":["vocals",{"name":"drums"}]})").stems.isEmpty());
        QVERIFY(decode(R"({"job_id":"J","stems":{"vocals":1}})").stems.isEmpty());
    }

    void analysis_data() {
        QTest::addColumn<QByteArray>("members");
        QTest::addColumn<bool>("present");
        QTest::addColumn<QVariant>("bpm");
        QTest::addColumn<QVariant>("lufs");
        QTest::addColumn<QVariant>("peak");
        QTest::newRow("nested bpm only")
            << QByteArray(R"("analysis":{"bpm":120})") << true << QVariant(120.0) << QVariant() << QVariant();
        QTest::newRow("flat lufs only")
            << QByteArray(R"("lufs":-9.5)") << true << QVariant() << QVariant(-9.5) << QVariant();
        QTest::newRow("null nested, nothing flat")
            << QByteArray(R"("analysis":null)") << false << QVariant() << QVariant() << QVariant();
        QTest::newRow("flat peak only is no analysis") << QByteArray(R"("peak_db":-1,"scale":"minor")")
                                                       << false << QVariant() << QVariant() << QVariant();
        QTest::newRow("nested unreadable falls back to flat")
            << QByteArray(R"("analysis":{"bpm":"fast"},"bpm":98,"peak_db":-0.5)") << true << QVariant(98.0)
            << QVariant() << QVariant(-0.5);
        QTest::newRow("nested wins over flat") << QByteArray(R"("analysis":{"integrated_lufs":-14},"bpm":98)")
                                               << true << QVariant() << QVariant(-14.0) << QVariant();
        QTest::newRow("empty nested object")
            << QByteArray(R"("analysis":{})") << true << QVariant() << QVariant() << QVariant();
        QTest::newRow("flat wrong types") << QByteArray(R"("bpm":"120","key":7,"lufs":null)") << false
                                          << QVariant() << QVariant() << QVariant();
    }

    void analysis() {
        QFETCH(QByteArray, members);
        QFETCH(bool, present);
        QFETCH(QVariant, bpm);
        QFETCH(QVariant, lufs);
        QFETCH(QVariant, peak);
        const StemJob job = decode(R"({"job_id":"a",)" + members + "}");
        QCOMPARE(job.analysis.has_value(), present);
        if (!present)
            return;
        const auto asVariant = [](const std::optional<double>& value) {
            return value ? QVariant(*value) : QVariant();
        };
        QCOMPARE(asVariant(job.analysis->bpm), bpm);
        QCOMPARE(asVariant(job.analysis->integratedLufs), lufs);
        QCOMPARE(asVariant(job.analysis->samplePeakDb), peak);
    }

    void flatAnalysisTakesAllSix() {
        const StemJob job =
            decode(R"({"job_id":"a","bpm":128.5,"key":"A","scale":"minor","key_confidence":0.8,)"
                   R"("lufs":-8,"peak_db":-0.3})");
        SongAnalysis expected;
        expected.bpm = 128.5;
        expected.key = QStringLiteral("A");
        expected.scale = QStringLiteral("minor");
        expected.keyConfidence = 0.8;
        expected.integratedLufs = -8;
        expected.samplePeakDb = -0.3;
        QCOMPARE(job.analysis, std::optional<SongAnalysis>(expected));
    }

    void encodingOrder() {
        StemJob job;
        job.id = QStringLiteral("j<1");
        job.status = JobStatus::done;
        job.progress = 100;
        job.stage = QStringLiteral("fin");
        job.title = QStringLiteral("Été");
        job.createdAt = QDateTime::fromMSecsSinceEpoch(1'700'000'000'500, Qt::UTC);
        job.error = QStringLiteral("x");
        job.errorDetail = QStringLiteral("not written");
        job.stems = {StemFile::forJob(job.id, StemKind::bass)};
        job.analysis = SongAnalysis{};
        job.analysis->bpm = 120;
        job.analysis->key = QStringLiteral("C");
        job.favorite = true;
        QCOMPARE(job.toJsonText(),
                 QByteArray(R"({"job_id":"j<1","status":"done","progress":100,"stage":"fin",)"
                            R"("title":"Été","created_at":1700000000.5,"error":"x",)"
                            R"("analysis":{"bpm":120,"key":"C"},"favorite":true})"));
        job.error.reset();
        job.analysis.reset();
        QCOMPARE(job.toJsonText(),
                 QByteArray(R"({"job_id":"j<1","status":"done","progress":100,"stage":"fin","title":"Été",)"
                            R"("created_at":1700000000.5,"favorite":true})"));
    }

    void encodingRoundTrip() {
        const StemJob job =
            decode(R"({"job_id":"r","status":"mixing","progress":12.75,"stage":"s\n2",)"
                   R"("title":"T\u0001","created_at":1700000000,"error":"e",)"
                   R"("analysis":{"bpm":90.5,"scale":"major","sample_peak_db":-1e-7},"favorite":true})");
        const StemJob again = decode(job.toJsonText());
        QCOMPARE(again, job);
        QVERIFY(QJsonDocument::fromJson(StemJob::listToJsonText({job, job})).isArray());
        QCOMPARE(StemJob::listToJsonText({}), QByteArray("[]"));
    }

    void listDecoding() {
        const auto jobs =
            StemJob::listFromJsonText(R"([{"job_id":"a"},{"job_id":"b","status":"done"}])", kNow);
        QVERIFY(jobs);
        QCOMPARE(jobs->size(), 2);
        QCOMPARE(jobs->at(1).status, JobStatus::done);
        QCOMPARE(StemJob::listFromJsonText(R"([{"job_id":"a"},{"status":"done"}])", kNow), std::nullopt);
        QCOMPARE(StemJob::listFromJsonText(R"({"job_id":"a"})", kNow), std::nullopt);
        QCOMPARE(StemJob::listFromJsonText("[]", kNow)->size(), 0);
    }

    void anyCodableString_data() {
        QTest::addColumn<QByteArray>("detail");
        QTest::addColumn<QString>("expected");
        QTest::newRow("text") << QByteArray(R"("Fichier trop long")") << "Fichier trop long";
        QTest::newRow("validation list")
            << QByteArray(R"([{"loc":["body","stems"],"msg":"field required","type":"missing"},)"
                          R"({"msg":"bad url"}])")
            << "field required; bad url";
        QTest::newRow("list without msg") << QByteArray(R"([{"loc":1},{"msg":5}])") << "";
        QTest::newRow("empty list") << QByteArray("[]") << "";
        QTest::newRow("list of texts") << QByteArray(R"(["a","b"])") << "Erreur inconnue";
        QTest::newRow("mixed list") << QByteArray(R"([{"msg":"a"},"b"])") << "Erreur inconnue";
        QTest::newRow("object") << QByteArray(R"({"msg":"a"})") << "Erreur inconnue";
        QTest::newRow("number") << QByteArray("42") << "Erreur inconnue";
    }

    void anyCodableString() {
        QFETCH(QByteArray, detail);
        QFETCH(QString, expected);
        const auto error = APIErrorDetail::fromJsonText(R"({"detail":)" + detail + "}");
        QVERIFY(error && error->detail);
        QCOMPARE(error->detail->value, expected);
        const QJsonValue value = QJsonDocument::fromJson("[" + detail + "]").array().at(0);
        QCOMPARE(AnyCodableString::fromJson(value).value, expected);
    }

    void errorDetailAbsent() {
        QVERIFY(APIErrorDetail::fromJsonText(R"({"message":"x"})"));
        QCOMPARE(APIErrorDetail::fromJsonText(R"({"message":"x"})")->detail.has_value(), false);
        QCOMPARE(APIErrorDetail::fromJsonText(R"({"detail":null})")->detail.has_value(), false);
        QCOMPARE(APIErrorDetail::fromJsonText("Internal Server Error"), std::nullopt);
    }

    void anyDecodable() {
        QCOMPARE(AnyDecodable::fromJson(QJsonValue(QStringLiteral("x"))).string,
                 std::optional<QString>(QStringLiteral("x")));
        QCOMPARE(AnyDecodable::fromJson(QJsonValue(3)).string, std::nullopt);
        QCOMPARE(AnyDecodable::fromJson(QJsonValue()).string, std::nullopt);
    }

    void health_data() {
        QTest::addColumn<QByteArray>("json");
        QTest::addColumn<bool>("decodes");
        QTest::addColumn<bool>("ok");
        QTest::newRow("full") << QByteArray(R"({"status":"ok","version":"1.2","ffmpeg_configured":true,)"
                                            R"("demucs_device":"cpu"})")
                              << true << true;
        QTest::newRow("status only") << QByteArray(R"({"status":"starting"})") << true << false;
        QTest::newRow("no status") << QByteArray(R"({"version":"1.2"})") << false << false;
        QTest::newRow("wrong optional type")
            << QByteArray(R"({"status":"ok","ffmpeg_configured":"yes"})") << false << false;
        QTest::newRow("null optional") << QByteArray(R"({"status":"ok","version":null})") << true << true;
        QTest::newRow("html") << QByteArray("<html>ok</html>") << false << false;
    }

    void health() {
        QFETCH(QByteArray, json);
        QFETCH(bool, decodes);
        QFETCH(bool, ok);
        const std::optional<BackendHealth> health = BackendHealth::fromJsonText(json);
        QCOMPARE(health.has_value(), decodes);
        if (health) {
            QCOMPARE(health->isOk(), ok);
            QCOMPARE(BackendHealth::fromJsonText(health->toJsonText()), health);
        }
    }

    void createJobRequest() {
        const CreateJobRequest request = CreateJobRequest::from(QStringLiteral("youtu.be/x?a=b&c"),
                                                                {StemKind::drums, StemKind::vocals});
        QCOMPARE(request.toJsonText(),
                 QByteArray(R"({"url":"youtu.be/x?a=b&c","stems":["drums","vocals"]})"));
    }

    void jobCreateResponse() {
        QCOMPARE(JobCreateResponse::fromJsonText(R"({"job_id":"n1","status":"queued"})")->jobId,
                 QStringLiteral("n1"));
        QCOMPARE(JobCreateResponse::fromJsonText(R"({"job_id":1})").has_value(), false);
        QCOMPARE(JobCreateResponse::fromJsonText(R"({"id":"n1"})").has_value(), false);
        QCOMPARE(JobCreateResponse::fromJsonText("").has_value(), false);
    }

    void stemRef() {
        QCOMPARE(StemRef::fromJson(QJsonObject{{"name", "bass"}}), std::optional<StemRef>(StemRef{"bass"}));
        QCOMPARE(StemRef::fromJson(QJsonValue(QStringLiteral("bass"))), std::nullopt);
    }

    void numbers_data() {
        QTest::addColumn<double>("value");
        QTest::addColumn<QByteArray>("text");
        QTest::newRow("integral") << 1700000000.0 << QByteArray("1700000000");
        QTest::newRow("negative zero") << -0.0 << QByteArray("0");
        QTest::newRow("fraction") << 0.1 << QByteArray("0.1");
        QTest::newRow("beyond 2^53") << 1e300 << QByteArray("1e+300");
        QTest::newRow("infinity") << qInf() << QByteArray("null");
    }

    void numbers() {
        QFETCH(double, value);
        QFETCH(QByteArray, text);
        QCOMPARE(JsonObjectWriter::numberText(value), text);
    }

    void loneSurrogateSurvivesEncoding() {
        const QString lone = QString(QChar(0xD800)) + QStringLiteral("🎵");
        const QByteArray text = JsonObjectWriter::quoted(lone);
        QCOMPARE(text, QByteArray("\"\\ud800🎵\""));
        QCOMPARE(QJsonDocument::fromJson("[" + text + "]").array().at(0).toString(), lone);
    }

    void quotedControlCharacters() {
        const QByteArray text = JsonObjectWriter::quoted(QStringLiteral("a\tb\x01\"\\é"));
        QCOMPARE(text, QByteArray("\"a\\tb\\u0001\\\"\\\\é\""));
        QCOMPARE(QJsonDocument::fromJson("[" + text + "]").array().at(0).toString(),
                 QStringLiteral("a\tb\x01\"\\é"));
    }
};

QTEST_GUILESS_MAIN(WireRecordsTest)
#include "WireRecordsTest.moc"
