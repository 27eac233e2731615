#pragma once

#include <QByteArray>
#include <QNetworkReply>
#include <QString>
#include <QUrl>
#include <chrono>
#include <functional>
#include <optional>
#include <variant>

// One HTTP/1.1 POST whose body is `head`, the bytes of a file, then `tail`, announced with its length.
// The file goes from the page cache to the socket (sendfile, at most `chunkBytes` a call) and never
// through this process's memory; it may be sent while it is being written. Blocking: run it off the main
// thread. Plain "http" addresses only.
namespace FilePost {

struct Request {
    QUrl url;
    QByteArray contentType;
    QByteArray head;
    QString filePath;
    QByteArray tail;
    // For a file still being written: blocks until it holds more than `offset` bytes and returns how
    // many it holds, or none when its writing failed. The file's size is then `finalFileSize`.
    std::function<std::optional<qint64>(qint64 offset)> bytesWritten;
    qint64 finalFileSize = 0;
    qint64 chunkBytes = 4 * 1024 * 1024;
    std::chrono::milliseconds idleTimeout{60000};    // longest wait for the socket to move a byte
    std::chrono::milliseconds totalTimeout{3600000}; // the whole exchange
};

// The server's answer, whatever its status.
struct Answer {
    int status = 0;
    QByteArray body;
};

struct Failure {
    enum class Kind {
        openFile,  // nothing was sent
        readFile,  // the file failed or changed size while it was sent
        transport, // no complete answer
    };
    Kind kind = Kind::transport;
    QNetworkReply::NetworkError code = QNetworkReply::NoError; // transport failures
    QString detail;                                            // what the system said
};

using Outcome = std::variant<Answer, Failure>;

Outcome send(const Request& request);

} // namespace FilePost
