// Tool provisioning throughput, each beside a reference tool doing the same work in the same run:
// SHA-256 of a 64 MiB file against sha256sum, and a 64 MiB download from a local server against curl.
#include "runtime/ToolDigest.h"
#include "runtime/ToolDownloader.h"

#include <QCoreApplication>
#include <QCoro/QCoroTask>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QThread>
#include <benchmark/benchmark.h>

namespace {

constexpr qint64 kFileSize = 64 << 20;

// A 64 MiB file of pseudo-random bytes, served over HTTP on 127.0.0.1 by Python's http.server.
class Fixture {
public:
    Fixture() {
        QFile file(m_dir.filePath(QStringLiteral("tool.bin")));
        if (!file.open(QIODevice::WriteOnly))
            qFatal("cannot write the benchmark file");
        QByteArray block(1 << 20, Qt::Uninitialized);
        quint32 state = 12345;
        for (qint64 written = 0; written < kFileSize; written += block.size()) {
            for (char& byte : block) {
                state = state * 1664525u + 1013904223u;
                byte = char(state >> 24);
            }
            file.write(block);
        }
        QTcpServer probe;
        probe.listen(QHostAddress::LocalHost, 0);
        m_port = probe.serverPort();
        probe.close();
        m_server.setWorkingDirectory(m_dir.path());
        m_server.start(QStringLiteral("/usr/bin/python3"),
                       {"-m", "http.server", "--bind", "127.0.0.1", QString::number(m_port)});
        m_server.waitForStarted();
        for (int attempt = 0; attempt < 100 && !listening(); ++attempt)
            QThread::msleep(50);
        m_downloads.setPath(m_dir.filePath(QStringLiteral("downloads")));
        QDir().mkpath(m_downloads.path());
    }
    ~Fixture() {
        m_server.kill();
        m_server.waitForFinished();
    }

    QString file() const { return m_dir.filePath(QStringLiteral("tool.bin")); }
    QUrl address() const { return QUrl(QStringLiteral("http://127.0.0.1:%1/tool.bin").arg(m_port)); }
    QString downloads() const { return m_downloads.path(); }

private:
    bool listening() const {
        QTcpSocket socket;
        socket.connectToHost(QHostAddress::LocalHost, m_port);
        return socket.waitForConnected(100);
    }

    QTemporaryDir m_dir;
    QProcess m_server;
    quint16 m_port = 0;
    QDir m_downloads;
};

Fixture& fixture() {
    static Fixture instance;
    return instance;
}

void sha256HexOfFile(benchmark::State& state) {
    const QString path = fixture().file();
    for (auto _ : state)
        benchmark::DoNotOptimize(QCoro::waitFor(ToolDigest::sha256Hex(path)));
    state.SetBytesProcessed(state.iterations() * kFileSize);
}
BENCHMARK(sha256HexOfFile)->Unit(benchmark::kMillisecond);

// Reference: coreutils' sha256sum on the same file.
void sha256sumOfFile(benchmark::State& state) {
    const QString path = fixture().file();
    for (auto _ : state) {
        QProcess process;
        process.start(QStringLiteral("/usr/bin/sha256sum"), {path});
        process.waitForFinished(-1);
        benchmark::DoNotOptimize(process.readAll());
    }
    state.SetBytesProcessed(state.iterations() * kFileSize);
}
BENCHMARK(sha256sumOfFile)->Unit(benchmark::kMillisecond);

void downloadToTemporaryFile(benchmark::State& state) {
    const QUrl address = fixture().address();
    const QString folder = fixture().downloads();
    for (auto _ : state) {
        const QString file = QCoro::waitFor(ToolDownloader::download(address, folder));
        state.PauseTiming();
        QFile::remove(file);
        state.ResumeTiming();
    }
    state.SetBytesProcessed(state.iterations() * kFileSize);
}
BENCHMARK(downloadToTemporaryFile)->Unit(benchmark::kMillisecond);

// Reference: curl writing the same download to a file.
void curlToFile(benchmark::State& state) {
    const QString address = fixture().address().toString();
    const QString target = fixture().downloads() + QStringLiteral("/curl.bin");
    for (auto _ : state) {
        QProcess process;
        process.start(QStringLiteral("/usr/bin/curl"), {"-s", "-o", target, address});
        process.waitForFinished(-1);
        state.PauseTiming();
        QFile::remove(target);
        state.ResumeTiming();
    }
    state.SetBytesProcessed(state.iterations() * kFileSize);
}
BENCHMARK(curlToFile)->Unit(benchmark::kMillisecond);

} // namespace

int main(int argc, char** argv) {
    QCoreApplication app(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    return 0;
}
