// The engine client's two hot paths, each against a fixed target:
// - createJobFromFile uploading a large file (1 GiB; MARLUNE_BENCH_UPLOAD_MIB sets the size in MiB) to a
//   local sink server, beside curl -F posting the same file to the same server in the same run: the
//   upload must reach 0.8× curl's throughput while the process's peak resident memory grows by less
//   than 32 MiB;
// - cutting a job event stream (full job records, keep-alive comments, CR LF line ends, chunks cut at
//   arbitrary bytes) and decoding every event as the event stream client does, on one core: at least
//   50,000 events a second.
// Each benchmark states PASS or FAIL in its label; the verdicts are repeated after the report.
#include "engine_client/BackendService.h"
#include "engine_client/SSEEventCutter.h"
#include "engine_client/SSEJobEvent.h"

#include <QCoreApplication>
#include <QCoro/QCoroTask>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <arpa/inet.h>
#include <atomic>
#include <benchmark/benchmark.h>
#include <cstring>
#include <netinet/in.h>
#include <sched.h>
#include <string>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

constexpr double kMiB = 1024.0 * 1024.0;
constexpr double kUploadRatioTarget = 0.8;
constexpr double kMemoryGrowthLimitMiB = 32.0;
constexpr double kEventsPerSecondTarget = 50000.0;

// The verdict of each benchmark's last run, in the order of their first run; printed after the report.
std::vector<std::pair<std::string, std::string>>& verdicts() {
    static std::vector<std::pair<std::string, std::string>> lines;
    return lines;
}

void recordVerdict(const std::string& benchmark, bool pass, const std::string& text) {
    const std::string line = std::string(pass ? "PASS" : "FAIL") + ": " + text;
    for (auto& [name, verdict] : verdicts()) {
        if (name == benchmark) {
            verdict = line;
            return;
        }
    }
    verdicts().emplace_back(benchmark, line);
}

void stateVerdict(benchmark::State& state, const std::string& benchmark, bool pass, const std::string& text) {
    state.SetLabel(std::string(pass ? "PASS" : "FAIL"));
    recordVerdict(benchmark, pass, text);
}

std::string formatted(const char* format, double a, double b = 0.0, double c = 0.0) {
    char text[256];
    std::snprintf(text, sizeof text, format, a, b, c);
    return text;
}

// ---- Upload -------------------------------------------------------------------------------------------

qint64 uploadBytes() {
    bool ok = false;
    const qint64 mib = qEnvironmentVariable("MARLUNE_BENCH_UPLOAD_MIB").toLongLong(&ok);
    return (ok && mib > 0 ? mib : 1024) * 1024 * 1024;
}

// A field of /proc/self/status ("VmRSS", "VmHWM"), in MiB.
double processStatusMiB(const QByteArray& field) {
    QFile status(QStringLiteral("/proc/self/status"));
    if (!status.open(QIODevice::ReadOnly))
        return 0.0;
    for (const QByteArray& line : status.readAll().split('\n')) {
        if (line.startsWith(field) && line.mid(field.size(), 1) == ":")
            return line.mid(field.size() + 1).trimmed().split(' ').value(0).toDouble() / 1024.0;
    }
    return 0.0;
}

// Resets the peak resident size to the current one; false when the kernel refuses.
bool resetPeakResident() {
    QFile clearRefs(QStringLiteral("/proc/self/clear_refs"));
    return clearRefs.open(QIODevice::WriteOnly) && clearRefs.write("5") == 1;
}

// An HTTP sink on 127.0.0.1 (a free port), on a thread of its own, one connection at a time: reads each
// request's body and keeps none of it, then answers {"job_id":"x"} and closes the connection.
class DiscardingServer {
public:
    DiscardingServer() {
        m_listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t length = sizeof address;
        if (m_listener < 0 ||
            ::bind(m_listener, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
            ::listen(m_listener, 16) != 0 ||
            ::getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &length) != 0)
            qFatal("the sink server cannot listen: %s", std::strerror(errno));
        m_port = ntohs(address.sin_port);
        m_thread = std::thread([this] { serve(); });
    }
    ~DiscardingServer() {
        m_stopping = true;
        ::shutdown(m_listener, SHUT_RDWR);
        m_thread.join();
        ::close(m_listener);
    }
    DiscardingServer(const DiscardingServer&) = delete;
    DiscardingServer& operator=(const DiscardingServer&) = delete;

    QUrl baseURL() const { return QUrl(QStringLiteral("http://127.0.0.1:%1/").arg(m_port)); }
    // Body bytes of the last request answered.
    qint64 lastBodyBytes() const { return m_lastBodyBytes; }

private:
    void serve() {
        std::vector<char> buffer(1 << 20);
        while (!m_stopping) {
            const int connection = ::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
            if (connection < 0)
                continue;
            handle(connection, buffer);
            ::close(connection);
        }
    }

    static std::string lowerCase(std::string text) {
        for (char& c : text)
            c = char(std::tolower(static_cast<unsigned char>(c)));
        return text;
    }

    static bool sendAll(int connection, const std::string& text) {
        for (size_t sent = 0; sent < text.size();) {
            const ssize_t count = ::send(connection, text.data() + sent, text.size() - sent, MSG_NOSIGNAL);
            if (count <= 0)
                return false;
            sent += size_t(count);
        }
        return true;
    }

    void handle(int connection, std::vector<char>& buffer) {
        std::string head;
        size_t headEnd = std::string::npos;
        while (headEnd == std::string::npos) {
            const ssize_t count = ::recv(connection, buffer.data(), buffer.size(), 0);
            if (count <= 0)
                return;
            head.append(buffer.data(), size_t(count));
            headEnd = head.find("\r\n\r\n");
        }
        const qint64 bodyWithHead = qint64(head.size() - headEnd - 4);
        head = lowerCase(head.substr(0, headEnd + 2));
        const size_t lengthField = head.find("\r\ncontent-length:");
        const qint64 length =
            lengthField == std::string::npos ? 0 : std::strtoll(head.c_str() + lengthField + 17, nullptr, 10);
        if (head.find("\r\nexpect: 100-continue") != std::string::npos &&
            !sendAll(connection, "HTTP/1.1 100 Continue\r\n\r\n"))
            return;
        for (qint64 remaining = length - bodyWithHead; remaining > 0;) {
            const ssize_t count = ::recv(connection, buffer.data(),
                                         size_t(std::min<qint64>(remaining, qint64(buffer.size()))), 0);
            if (count <= 0)
                return;
            remaining -= count;
        }
        m_lastBodyBytes = length;
        const std::string body = R"({"job_id":"x"})";
        sendAll(connection, "HTTP/1.1 200 OK\r\nContent-Type: application/json\r\nContent-Length: " +
                                std::to_string(body.size()) + "\r\nConnection: close\r\n\r\n" + body);
        ::shutdown(connection, SHUT_WR);
    }

    int m_listener = -1;
    quint16 m_port = 0;
    std::thread m_thread;
    std::atomic<bool> m_stopping{false};
    std::atomic<qint64> m_lastBodyBytes{0};
};

// The file to upload, in a temporary folder under /tmp removed with it, and a client of the sink.
class UploadFixture {
public:
    UploadFixture()
        : m_dir(QDir::tempPath() + QStringLiteral("/marlune-upload-bench-XXXXXX")) {
        if (!m_dir.isValid())
            qFatal("cannot create the benchmark folder");
        QFile file(song());
        if (!file.open(QIODevice::WriteOnly))
            qFatal("cannot write the file to upload");
        QByteArray block(4 << 20, Qt::Uninitialized);
        quint32 seed = 2024;
        for (char& byte : block) {
            seed = seed * 1664525u + 1013904223u;
            byte = char(seed >> 24);
        }
        for (qint64 written = 0; written < m_bytes;) {
            const qint64 count = std::min<qint64>(block.size(), m_bytes - written);
            if (file.write(block.constData(), count) != count)
                qFatal("cannot write the file to upload");
            written += count;
        }
        BackendService::Config config;
        config.baseURL = m_server.baseURL();
        config.cacheRoot = m_dir.filePath(QStringLiteral("cache"));
        config.console = [](const QString&) {};
        m_service = std::make_unique<BackendService>(config);
    }

    qint64 bytes() const { return m_bytes; }
    QString song() const { return m_dir.filePath(QStringLiteral("chanson.flac")); }
    BackendService& service() { return *m_service; }
    DiscardingServer& server() { return m_server; }

private:
    qint64 m_bytes = uploadBytes();
    QTemporaryDir m_dir;
    DiscardingServer m_server;
    std::unique_ptr<BackendService> m_service;
};

// The job identifier, or the failure's text prefixed with "error: ".
QCoro::Task<QString> jobIdOrFailure(BackendService& service, QString path) {
    try {
        const QList<StemKind> stems{StemKind::vocals, StemKind::drums};
        QCoro::Task<QString> upload = service.createJobFromFile(path, stems);
        const QString id = co_await upload;
        co_return id;
    } catch (const std::exception& error) {
        co_return QStringLiteral("error: ") + QString::fromUtf8(error.what());
    }
}

// Seconds taken by curl posting the same form to the same server; negative when curl failed.
double curlUploadSeconds(UploadFixture& fixture) {
    QProcess curl;
    const QStringList arguments{QStringLiteral("-sS"),
                                QStringLiteral("-o"),
                                QStringLiteral("/dev/null"),
                                QStringLiteral("-F"),
                                QStringLiteral("stems=[\"vocals\",\"drums\"]"),
                                QStringLiteral("-F"),
                                QStringLiteral("file=@") + fixture.song(),
                                fixture.service().endpoint(QStringLiteral("api/jobs")).toString()};
    QElapsedTimer timer;
    timer.start();
    curl.start(QStringLiteral("/usr/bin/curl"), arguments);
    if (!curl.waitForFinished(-1) || curl.exitStatus() != QProcess::NormalExit || curl.exitCode() != 0)
        return -1.0;
    return double(timer.nsecsElapsed()) / 1e9;
}

// Each iteration uploads the file through the client (timed), then through curl (timed apart); the best
// time of each side gives its throughput.
void uploadLargeFile(benchmark::State& state) {
    UploadFixture fixture;
    const double mib = double(fixture.bytes()) / kMiB;
    double ours = 1e18, reference = 1e18, growthMiB = 0.0;
    bool peakReset = true;
    std::string failure;
    for (auto _ : state) {
        peakReset = resetPeakResident() && peakReset;
        const double residentBefore = processStatusMiB("VmRSS");
        QElapsedTimer timer;
        timer.start();
        const QString id = QCoro::waitFor(jobIdOrFailure(fixture.service(), fixture.song()));
        ours = std::min(ours, double(timer.nsecsElapsed()) / 1e9);
        growthMiB = std::max(growthMiB, processStatusMiB("VmHWM") - residentBefore);
        state.PauseTiming();
        if (id != QLatin1String("x") || fixture.server().lastBodyBytes() < fixture.bytes())
            failure = "the upload through createJobFromFile failed: " + id.toStdString();
        const double curlSeconds = failure.empty() ? curlUploadSeconds(fixture) : -1.0;
        if (failure.empty() && (curlSeconds < 0 || fixture.server().lastBodyBytes() < fixture.bytes()))
            failure = "the reference curl upload failed";
        reference = std::min(reference, curlSeconds);
        state.ResumeTiming();
        if (!failure.empty()) {
            state.SkipWithError(failure.c_str());
            recordVerdict("upload", false, failure);
            return;
        }
    }
    const double ratio = reference / ours;
    state.counters["client_MiB_per_s"] = mib / ours;
    state.counters["curl_MiB_per_s"] = mib / reference;
    state.counters["vs_curl"] = ratio;
    state.counters["peak_growth_MiB"] = growthMiB;
    state.counters["upload_MiB"] = mib;
    const bool fastEnough = ratio >= kUploadRatioTarget;
    const bool smallEnough = growthMiB < kMemoryGrowthLimitMiB;
    stateVerdict(state, "upload", fastEnough && smallEnough,
                 formatted("upload %.0f MiB/s = %.2f× curl (target ≥ 0.8×)", mib / ours, ratio) +
                     formatted(", peak memory +%.1f MiB (target < 32 MiB)", growthMiB) +
                     (peakReset ? "" : " [peak not resettable: growth measured from the process's start]"));
}
BENCHMARK(uploadLargeFile)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(5);

// ---- Event stream -------------------------------------------------------------------------------------

constexpr int kStreamEvents = 5000;

// One event of a running job, as the engine sends it (compact JSON, non-ASCII text kept).
QByteArray jobRecord(int index, bool last) {
    const QByteArray progress = QByteArray::number(last ? 100.0 : (index % 1000) / 10.0, 'f', 1);
    const QByteArray status = last ? "done" : "separating";
    const QByteArray stems = last ? R"(["vocals","drums","bass","guitar","piano","other"])" : "[]";
    return R"({"job_id":"9c1e4b7a2f6d4e0b8a3c5d7e9f1a2b3c","status":")" + status + R"(","progress":)" +
           progress +
           R"json(,"stage":"Séparation des pistes… (htdemucs_6s)","title":"Beyoncé — Déjà vu (live à l’Olympia) 🎤",)json"
           R"("created_at":1718030000.123,"updated_at":)" +
           QByteArray::number(1718030000.5 + index, 'f', 3) + R"(,"stems":)" + stems +
           R"(,"requested_stems":["vocals","drums","bass","guitar","piano","other"],)"
           R"("analysis":{"bpm":123.05,"key":"F#","scale":"minor","key_confidence":0.812,)"
           R"("integrated_lufs":-9.37,"sample_peak_db":-0.41},"error":null,"error_detail":null,)"
           R"("favorite":false,"source":"file","url":null})";
}

// A whole job stream with CR LF line ends and a keep-alive comment every eighth event, cut into chunks of
// 1 to 4,096 bytes at arbitrary places (inside characters and between CR and LF included).
QList<QByteArray> eventStreamChunks() {
    QByteArray stream;
    for (int i = 0; i < kStreamEvents; ++i) {
        if (i % 8 == 0)
            stream += ": keep-alive\r\n\r\n";
        stream += "data: " + jobRecord(i, i + 1 == kStreamEvents) + "\r\n\r\n";
    }
    QList<QByteArray> chunks;
    quint32 seed = 7;
    for (qsizetype at = 0; at < stream.size();) {
        seed = seed * 1664525u + 1013904223u;
        const qsizetype size = std::min<qsizetype>(1 + (seed >> 8) % 4096, stream.size() - at);
        chunks.append(stream.mid(at, size));
        at += size;
    }
    return chunks;
}

// Runs the calling thread on the core it is on until the scope ends.
class OneCore {
public:
    OneCore() {
        sched_getaffinity(0, sizeof m_saved, &m_saved);
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(std::max(sched_getcpu(), 0), &one);
        sched_setaffinity(0, sizeof one, &one);
    }
    ~OneCore() { sched_setaffinity(0, sizeof m_saved, &m_saved); }

private:
    cpu_set_t m_saved;
};

void cutAndDecodeJobEvents(benchmark::State& state) {
    const QList<QByteArray> chunks = eventStreamChunks();
    const OneCore oneCore;
    int64_t decoded = 0;
    bool complete = true;
    QElapsedTimer timer;
    timer.start();
    for (auto _ : state) {
        SSEEventCutter cutter([](const QString&) {});
        int events = 0;
        JobStatus lastStatus = JobStatus::queued;
        for (const QByteArray& chunk : chunks) {
            for (const QByteArray& json : cutter.feed(chunk)) {
                std::optional<StemJob> job = StemJob::fromJsonText(json);
                if (!job)
                    continue;
                const SSEJobEvent event{std::move(*job)};
                lastStatus = event.job.status;
                ++events;
                benchmark::DoNotOptimize(event);
            }
        }
        complete = complete && events == kStreamEvents && lastStatus == JobStatus::done;
        decoded += events;
    }
    if (!complete) {
        state.SkipWithError("the stream did not decode into every event");
        recordVerdict("events", false, "the event stream did not decode into every event");
        return;
    }
    const double perSecond = double(decoded) / (double(timer.nsecsElapsed()) / 1e9);
    state.SetItemsProcessed(decoded);
    state.counters["events_per_s"] = perSecond;
    state.counters["vs_target"] = perSecond / kEventsPerSecondTarget;
    stateVerdict(state, "events", perSecond >= kEventsPerSecondTarget,
                 formatted("%.0f job events/s on one core = %.2f× the target (≥ 50,000/s)", perSecond,
                           perSecond / kEventsPerSecondTarget));
}
BENCHMARK(cutAndDecodeJobEvents)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);

// The console report, then the verdicts of the targets.
class TargetReporter : public benchmark::ConsoleReporter {
public:
    void Finalize() override {
        ConsoleReporter::Finalize();
        GetOutputStream() << "Targets:\n";
        for (const auto& [name, line] : verdicts())
            GetOutputStream() << "  " << name << ": " << line << "\n";
    }
};

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    TargetReporter reporter;
    benchmark::RunSpecifiedBenchmarks(&reporter);
    return 0;
}
