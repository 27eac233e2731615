#include "engine_client/FilePost.h"

#include <QFile>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <netdb.h>
#include <optional>
#include <poll.h>
#include <pthread.h>
#include <sys/sendfile.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace FilePost {
namespace {

using Clock = std::chrono::steady_clock;
constexpr qsizetype kMaxAnswerBytes = 16 * 1024 * 1024;
constexpr qsizetype kReceiveBytes = 64 * 1024;

QString systemError(int error) {
    return QString::fromLocal8Bit(std::strerror(error));
}

Failure transportFailure(QNetworkReply::NetworkError code, const QString& detail) {
    return Failure{Failure::Kind::transport, code, detail};
}

Failure fileFailure(Failure::Kind kind, const QString& detail) {
    return Failure{kind, QNetworkReply::NoError, detail};
}

bool connectionClosed(int error) {
    return error == EPIPE || error == ECONNRESET || error == ENOTCONN;
}

// A file descriptor closed with the scope.
class Descriptor {
public:
    explicit Descriptor(int fd = -1)
        : m_fd(fd) {}
    ~Descriptor() {
        if (m_fd >= 0)
            ::close(m_fd);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    void reset(int fd) {
        if (m_fd >= 0)
            ::close(m_fd);
        m_fd = fd;
    }
    int get() const { return m_fd; }

private:
    int m_fd;
};

// Writing to a socket the peer has closed raises SIGPIPE, which sendfile cannot turn off: the signal is
// blocked on this thread while the scope lasts, and one raised meanwhile is taken back before leaving.
class SigpipeHeld {
public:
    SigpipeHeld() {
        sigemptyset(&m_pipe);
        sigaddset(&m_pipe, SIGPIPE);
        sigset_t pending;
        sigemptyset(&pending);
        sigpending(&pending);
        m_wasPending = sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &m_pipe, &m_previous);
    }
    ~SigpipeHeld() {
        sigset_t pending;
        sigemptyset(&pending);
        sigpending(&pending);
        if (!m_wasPending && sigismember(&pending, SIGPIPE) == 1) {
            const timespec now{0, 0};
            sigtimedwait(&m_pipe, nullptr, &now);
        }
        pthread_sigmask(SIG_SETMASK, &m_previous, nullptr);
    }
    SigpipeHeld(const SigpipeHeld&) = delete;
    SigpipeHeld& operator=(const SigpipeHeld&) = delete;

private:
    sigset_t m_pipe;
    sigset_t m_previous;
    bool m_wasPending = false;
};

// A non-blocking connection whose every wait is bounded by the idle and the total time-outs.
class Connection {
public:
    explicit Connection(const Request& request)
        : m_idle(request.idleTimeout)
        , m_end(Clock::now() + request.totalTimeout) {}

    std::optional<Failure> open(const QUrl& url) {
        addrinfo hints{};
        hints.ai_family = AF_UNSPEC;
        hints.ai_socktype = SOCK_STREAM;
        // No AI_ADDRCONFIG: a machine whose only interface is the loopback must still connect.
        hints.ai_flags = AI_NUMERICSERV;
        addrinfo* found = nullptr;
        const QByteArray host = url.host(QUrl::FullyEncoded).toUtf8();
        const QByteArray port = QByteArray::number(url.port(80));
        const int lookup = ::getaddrinfo(host.constData(), port.constData(), &hints, &found);
        if (lookup != 0 || !found)
            return transportFailure(QNetworkReply::HostNotFoundError,
                                    QString::fromLocal8Bit(gai_strerror(lookup)));
        std::optional<Failure> failure;
        for (const addrinfo* address = found; address; address = address->ai_next) {
            failure = connectTo(*address);
            if (!failure)
                break;
        }
        ::freeaddrinfo(found);
        return failure;
    }

    // Waits until the socket can take (POLLOUT) or give (POLLIN) bytes.
    std::optional<Failure> wait(short events) {
        for (;;) {
            const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(m_end - Clock::now());
            if (left.count() <= 0)
                return transportFailure(QNetworkReply::TimeoutError, QString());
            pollfd descriptor{m_socket.get(), events, 0};
            const int ready = ::poll(&descriptor, 1, int(std::min(left, m_idle).count()));
            if (ready > 0)
                return std::nullopt;
            if (ready == 0)
                return transportFailure(QNetworkReply::TimeoutError, QString());
            if (errno != EINTR)
                return transportFailure(QNetworkReply::UnknownNetworkError, systemError(errno));
        }
    }

    // Sends every byte; on failure `closedError` tells whether the peer closed the connection.
    std::optional<Failure> sendAll(QByteArrayView bytes, int& closedError) {
        for (qsizetype sent = 0; sent < bytes.size();) {
            const ssize_t count =
                ::send(m_socket.get(), bytes.data() + sent, size_t(bytes.size() - sent), MSG_NOSIGNAL);
            if (count > 0) {
                sent += count;
                continue;
            }
            if (errno == EINTR)
                continue;
            if (errno == EAGAIN || errno == EWOULDBLOCK) {
                if (std::optional<Failure> failure = wait(POLLOUT))
                    return failure;
                continue;
            }
            closedError = errno;
            return transportFailure(connectionClosed(errno) ? QNetworkReply::RemoteHostClosedError
                                                            : QNetworkReply::UnknownNetworkError,
                                    systemError(errno));
        }
        return std::nullopt;
    }

    // Sends `size` bytes of `file` from its start, at most `chunkBytes` a call, each one once it is
    // written when the file is still being written.
    std::optional<Failure> sendFile(int file, qint64 size, const Request& request, int& closedError) {
        const SigpipeHeld held;
        off_t offset = 0;
        qint64 available = request.bytesWritten ? 0 : size;
        while (offset < size) {
            if (offset >= available) {
                const std::optional<qint64> written = request.bytesWritten(offset);
                if (!written)
                    return fileFailure(Failure::Kind::readFile, QStringLiteral("son écriture a échoué."));
                if (*written <= offset)
                    return sizeChanged();
                available = std::min(*written, size);
            }
            const ssize_t count =
                ::sendfile(m_socket.get(), file, &offset,
                           size_t(std::min<qint64>(request.chunkBytes, available - offset)));
            if (count > 0)
                continue;
            if (count == 0)
                return sizeChanged();
            if (errno == EINTR)
                continue;
            if (errno == EAGAIN || errno == EWOULDBLOCK) {
                if (std::optional<Failure> failure = wait(POLLOUT))
                    return failure;
                continue;
            }
            if (connectionClosed(errno)) {
                closedError = errno;
                return transportFailure(QNetworkReply::RemoteHostClosedError, systemError(errno));
            }
            return fileFailure(Failure::Kind::readFile, systemError(errno));
        }
        return std::nullopt;
    }

    static Failure sizeChanged() {
        return fileFailure(Failure::Kind::readFile, QStringLiteral("sa taille a changé pendant l’envoi."));
    }

    // Appends what arrives to `input`; false once the peer has closed its side.
    std::variant<bool, Failure> receive(QByteArray& input) {
        char buffer[kReceiveBytes];
        for (;;) {
            const ssize_t count = ::recv(m_socket.get(), buffer, sizeof buffer, 0);
            if (count > 0) {
                input.append(buffer, count);
                return true;
            }
            if (count == 0)
                return false;
            if (errno == EINTR)
                continue;
            if (errno == EAGAIN || errno == EWOULDBLOCK) {
                if (std::optional<Failure> failure = wait(POLLIN))
                    return *failure;
                continue;
            }
            if (connectionClosed(errno))
                return false;
            return transportFailure(QNetworkReply::UnknownNetworkError, systemError(errno));
        }
    }

private:
    std::optional<Failure> connectTo(const addrinfo& address) {
        m_socket.reset(::socket(address.ai_family, address.ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC,
                                address.ai_protocol));
        if (m_socket.get() < 0)
            return transportFailure(QNetworkReply::UnknownNetworkError, systemError(errno));
        if (::connect(m_socket.get(), address.ai_addr, address.ai_addrlen) == 0)
            return std::nullopt;
        if (errno != EINPROGRESS)
            return connectFailure(errno);
        if (std::optional<Failure> failure = wait(POLLOUT))
            return failure;
        int error = 0;
        socklen_t length = sizeof error;
        if (::getsockopt(m_socket.get(), SOL_SOCKET, SO_ERROR, &error, &length) != 0)
            error = errno;
        if (error != 0)
            return connectFailure(error);
        return std::nullopt;
    }

    static Failure connectFailure(int error) {
        return transportFailure(error == ECONNREFUSED ? QNetworkReply::ConnectionRefusedError
                                : error == ETIMEDOUT  ? QNetworkReply::TimeoutError
                                                      : QNetworkReply::UnknownNetworkError,
                                systemError(error));
    }

    Descriptor m_socket;
    std::chrono::milliseconds m_idle;
    Clock::time_point m_end;
};

// What has arrived of an answer, read as far as it goes.
struct Parsed {
    enum class State { incomplete, complete, malformed } state = State::incomplete;
    Answer answer;
    bool untilClose = false; // the body ends with the connection
};

std::optional<qint64> headerNumber(const QByteArray& value) {
    bool ok = false;
    const qint64 number = value.trimmed().toLongLong(&ok);
    return ok && number >= 0 ? std::optional<qint64>(number) : std::nullopt;
}

// Decodes a chunked body starting at `from`; none while incomplete, false when malformed.
std::optional<bool> dechunk(const QByteArray& input, qsizetype from, QByteArray& body) {
    qsizetype at = from;
    for (;;) {
        const qsizetype lineEnd = input.indexOf("\r\n", at);
        if (lineEnd < 0)
            return std::nullopt;
        bool ok = false;
        const qint64 size = input.mid(at, lineEnd - at).split(';').value(0).trimmed().toLongLong(&ok, 16);
        if (!ok || size < 0)
            return false;
        at = lineEnd + 2;
        if (size == 0) {
            // Trailer lines, up to an empty one.
            for (;;) {
                const qsizetype end = input.indexOf("\r\n", at);
                if (end < 0)
                    return std::nullopt;
                if (end == at)
                    return true;
                at = end + 2;
            }
        }
        if (input.size() < at + size + 2)
            return std::nullopt;
        body.append(input.constData() + at, size);
        at += size + 2;
    }
}

// The answer in `input`, after any interim (1xx) answers.
Parsed parseAnswer(const QByteArray& input) {
    Parsed parsed;
    qsizetype start = 0;
    for (;;) {
        const qsizetype headEnd = input.indexOf("\r\n\r\n", start);
        if (headEnd < 0)
            return parsed;
        const QList<QByteArray> lines = input.mid(start, headEnd - start).split('\n');
        const QList<QByteArray> statusLine = lines.value(0).trimmed().split(' ');
        bool ok = false;
        const int status = statusLine.value(1).toInt(&ok);
        if (!statusLine.value(0).startsWith("HTTP/") || !ok || status < 100 || status > 999) {
            parsed.state = Parsed::State::malformed;
            return parsed;
        }
        const qsizetype bodyStart = headEnd + 4;
        if (status < 200) {
            start = bodyStart;
            continue;
        }
        parsed.answer.status = status;
        std::optional<qint64> length;
        bool chunked = false;
        for (qsizetype i = 1; i < lines.size(); ++i) {
            const qsizetype colon = lines[i].indexOf(':');
            if (colon <= 0)
                continue;
            const QByteArray name = lines[i].left(colon).trimmed().toLower();
            const QByteArray value = lines[i].mid(colon + 1).trimmed();
            if (name == "content-length")
                length = headerNumber(value);
            else if (name == "transfer-encoding")
                chunked = value.toLower().contains("chunked");
        }
        if (status == 204 || status == 304) {
            parsed.state = Parsed::State::complete;
        } else if (chunked) {
            const std::optional<bool> done = dechunk(input, bodyStart, parsed.answer.body);
            if (done)
                parsed.state = *done ? Parsed::State::complete : Parsed::State::malformed;
        } else if (length) {
            if (input.size() - bodyStart >= *length) {
                parsed.answer.body = input.mid(bodyStart, *length);
                parsed.state = Parsed::State::complete;
            }
        } else {
            parsed.answer.body = input.mid(bodyStart);
            parsed.untilClose = true;
        }
        return parsed;
    }
}

Outcome readAnswer(Connection& connection) {
    QByteArray input;
    for (;;) {
        std::variant<bool, Failure> received = connection.receive(input);
        if (const Failure* failure = std::get_if<Failure>(&received))
            return *failure;
        const bool open = std::get<bool>(received);
        Parsed parsed = parseAnswer(input);
        if (parsed.state == Parsed::State::complete || (!open && parsed.untilClose))
            return std::move(parsed.answer);
        if (parsed.state == Parsed::State::malformed || input.size() > kMaxAnswerBytes)
            return transportFailure(QNetworkReply::ProtocolFailure, QString());
        if (!open)
            return transportFailure(QNetworkReply::RemoteHostClosedError, QString());
    }
}

QByteArray requestHead(const Request& request, qint64 contentLength) {
    QByteArray target = request.url.path(QUrl::FullyEncoded).toUtf8();
    if (target.isEmpty())
        target = "/";
    if (request.url.hasQuery())
        target += '?' + request.url.query(QUrl::FullyEncoded).toUtf8();
    const QByteArray host = request.url.adjusted(QUrl::RemoveUserInfo).authority(QUrl::FullyEncoded).toUtf8();
    return "POST " + target + " HTTP/1.1\r\nHost: " + host + "\r\nContent-Type: " + request.contentType +
           "\r\nContent-Length: " + QByteArray::number(contentLength) + "\r\nConnection: close\r\n\r\n";
}

} // namespace

Outcome send(const Request& request) {
    if (request.url.scheme() != QLatin1String("http"))
        return transportFailure(QNetworkReply::ProtocolUnknownError, request.url.scheme());

    // O_NONBLOCK: opening a named pipe must not wait for a writer.
    Descriptor file(
        ::open(QFile::encodeName(request.filePath).constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (file.get() < 0)
        return fileFailure(Failure::Kind::openFile, systemError(errno));
    struct stat status {};
    if (::fstat(file.get(), &status) != 0)
        return fileFailure(Failure::Kind::openFile, systemError(errno));
    if (S_ISDIR(status.st_mode))
        return fileFailure(Failure::Kind::openFile, QStringLiteral("c’est un dossier."));
    if (!S_ISREG(status.st_mode))
        return fileFailure(Failure::Kind::openFile, QStringLiteral("ce n’est pas un fichier ordinaire."));
    const qint64 fileSize = request.bytesWritten ? request.finalFileSize : qint64(status.st_size);

    Connection connection(request);
    if (std::optional<Failure> failure = connection.open(request.url))
        return *failure;
    const qint64 contentLength = request.head.size() + fileSize + request.tail.size();
    int closedError = 0;
    const QByteArray opening = requestHead(request, contentLength) + request.head;
    std::optional<Failure> failure = connection.sendAll(opening, closedError);
    if (!failure)
        failure = connection.sendFile(file.get(), fileSize, request, closedError);
    if (!failure)
        failure = connection.sendAll(request.tail, closedError);
    if (failure && closedError == 0)
        return *failure;
    // A server may answer and close before taking the whole body: its answer stands.
    Outcome answer = readAnswer(connection);
    if (failure && std::holds_alternative<Failure>(answer))
        return *failure;
    return answer;
}

} // namespace FilePost
