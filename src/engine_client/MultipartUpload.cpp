#include "engine_client/MultipartUpload.h"

#include "engine_client/StemList.h"
#include "engine_client/UploadError.h"

#include <QFile>
#include <QFileInfo>
#include <QScopeGuard>
#include <QUuid>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace {

QString systemReason(int error) {
    return QString::fromLocal8Bit(std::strerror(error));
}

bool writeAll(int fd, const QByteArray& bytes) {
    qsizetype done = 0;
    while (done < bytes.size()) {
        const ssize_t written = ::write(fd, bytes.constData() + done, size_t(bytes.size() - done));
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0)
            return false;
        done += written;
    }
    return true;
}

enum class CopyFailure { none, read, write };

// Copies the rest of `source` to `target` in chunks of at most `chunkBytes`: copy_file_range while the
// kernel accepts it, read and write through one buffer otherwise.
CopyFailure copyChunks(int source, int target, qint64 chunkBytes) {
    for (;;) {
        const ssize_t copied = ::copy_file_range(source, nullptr, target, nullptr, size_t(chunkBytes), 0);
        if (copied == 0)
            return CopyFailure::none;
        if (copied > 0)
            continue;
        if (errno == EINTR)
            continue;
        if (errno != EXDEV && errno != ENOSYS && errno != EINVAL && errno != EOPNOTSUPP)
            return errno == EIO ? CopyFailure::read : CopyFailure::write;
        break;
    }
    const std::unique_ptr<char[]> buffer(new char[size_t(chunkBytes)]);
    for (;;) {
        const ssize_t count = ::read(source, buffer.get(), size_t(chunkBytes));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return CopyFailure::read;
        if (count == 0)
            return CopyFailure::none;
        if (!writeAll(target, QByteArray::fromRawData(buffer.get(), count)))
            return CopyFailure::write;
    }
}

} // namespace

namespace MultipartUpload {

QString newBoundary() {
    return QStringLiteral("Halvorn-") + QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper();
}

QString contentType(const QString& fileName) {
    const QString extension = QFileInfo(fileName).suffix().toLower();
    if (extension == QLatin1String("wav"))
        return QStringLiteral("audio/wav");
    if (extension == QLatin1String("mp3"))
        return QStringLiteral("audio/mpeg");
    if (extension == QLatin1String("m4a") || extension == QLatin1String("m4b"))
        return QStringLiteral("audio/mp4");
    if (extension == QLatin1String("flac"))
        return QStringLiteral("audio/flac");
    if (extension == QLatin1String("ogg"))
        return QStringLiteral("audio/ogg");
    if (extension == QLatin1String("opus"))
        return QStringLiteral("audio/opus");
    return QStringLiteral("application/octet-stream");
}

QString filenameParameter(const QString& filePath) {
    QString name = QFileInfo(filePath).fileName();
    name.replace(QLatin1Char('"'), QLatin1Char('\''));
    return name;
}

QByteArray contentTypeHeader(const QString& boundary) {
    return "multipart/form-data; boundary=" + boundary.toUtf8();
}

QByteArray head(const QString& boundary, const QList<StemKind>& stems, const QString& filePath) {
    const QByteArray delimiter = "--" + boundary.toUtf8() + "\r\n";
    return delimiter + "Content-Disposition: form-data; name=\"stems\"\r\n\r\n" +
           StemList::jsonText(StemList::rawValues(stems)) + "\r\n" + delimiter +
           "Content-Disposition: form-data; name=\"file\"; filename=\"" +
           filenameParameter(filePath).toUtf8() + "\"\r\nContent-Type: " + contentType(filePath).toUtf8() +
           "\r\n\r\n";
}

QByteArray tail(const QString& boundary) {
    return "\r\n--" + boundary.toUtf8() + "--\r\n";
}

void writeBody(const QString& filePath, const QString& bodyPath, const QString& boundary,
               const QList<StemKind>& stems) {
    const QString name = QFileInfo(filePath).fileName();
    // O_NONBLOCK: opening a named pipe must not wait for a writer.
    const int source = ::open(QFile::encodeName(filePath).constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (source < 0)
        throw UploadError(openFailure(filePath, systemReason(errno)));
    const auto closeSource = qScopeGuard([source] { ::close(source); });
    struct stat status {};
    if (::fstat(source, &status) != 0)
        throw UploadError(openFailure(filePath, systemReason(errno)));
    if (S_ISDIR(status.st_mode))
        throw UploadError(openFailure(filePath, QStringLiteral("c’est un dossier.")));
    if (!S_ISREG(status.st_mode))
        throw UploadError(openFailure(filePath, QStringLiteral("ce n’est pas un fichier ordinaire.")));

    const QByteArray bodyName = QFile::encodeName(bodyPath);
    const int body = ::open(bodyName.constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    const auto writeFailure = [&](int error) {
        return UploadError(
            QStringLiteral("Impossible de préparer l’envoi de « %1 » : %2").arg(name, systemReason(error)));
    };
    if (body < 0)
        throw writeFailure(errno);
    const auto fail = [&](const UploadError& error) {
        ::close(body);
        ::unlink(bodyName.constData());
        throw error;
    };
    if (!writeAll(body, head(boundary, stems, filePath)))
        fail(writeFailure(errno));
    const CopyFailure copy = copyChunks(source, body, chunkBytes);
    const int copyError = errno;
    if (copy == CopyFailure::read)
        fail(UploadError(readFailure(filePath, systemReason(copyError))));
    if (copy == CopyFailure::write)
        fail(writeFailure(copyError));
    if (!writeAll(body, tail(boundary)))
        fail(writeFailure(errno));
    if (::close(body) != 0) {
        const int error = errno;
        ::unlink(bodyName.constData());
        throw writeFailure(error);
    }
}

QString openFailure(const QString& filePath, const QString& reason) {
    return QStringLiteral("Le fichier « %1 » n’a pas pu être ouvert : %2")
        .arg(QFileInfo(filePath).fileName(),
             QFileInfo::exists(filePath) ? reason : QStringLiteral("il n’existe pas."));
}

QString readFailure(const QString& filePath, const QString& reason) {
    return QStringLiteral("Le fichier « %1 » n’a pas pu être lu : %2")
        .arg(QFileInfo(filePath).fileName(), reason);
}

} // namespace MultipartUpload
