#include "engine_client/MultipartUpload.h"

#include "engine_client/StemList.h"
#include "engine_client/UploadError.h"
#include "engine_client/WriteProgress.h"

#include <QFile>
#include <QFileInfo>
#include <QScopeGuard>
#include <QUuid>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <functional>
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

enum class CopyFailure { none, read, write, stopped };

// Copies the rest of `source` to `target` in chunks of at most `chunkBytes`: copy_file_range while the
// kernel accepts it, read and write through one buffer otherwise. `copied` is told each chunk's size and
// stops the copy by answering false.
CopyFailure copyChunks(int source, int target, qint64 chunkBytes, const std::function<bool(qint64)>& copied) {
    for (;;) {
        const ssize_t count = ::copy_file_range(source, nullptr, target, nullptr, size_t(chunkBytes), 0);
        if (count == 0)
            return CopyFailure::none;
        if (count > 0) {
            if (!copied(count))
                return CopyFailure::stopped;
            continue;
        }
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
        if (!copied(count))
            return CopyFailure::stopped;
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
               const QList<StemKind>& stems, WriteProgress* progress) {
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
    const QByteArray opening = head(boundary, stems, filePath);
    const QByteArray closing = tail(boundary);
    if (progress)
        progress->plan(opening.size() + qint64(status.st_size) + closing.size());
    qint64 written = 0;
    const auto advance = [&](qint64 count) {
        written += count;
        return !progress || progress->advance(written);
    };
    if (!writeAll(body, opening))
        fail(writeFailure(errno));
    const bool going = advance(opening.size());
    const CopyFailure copy = going ? copyChunks(source, body, chunkBytes, advance) : CopyFailure::stopped;
    const int copyError = errno;
    if (copy == CopyFailure::stopped) {
        ::close(body);
        ::unlink(bodyName.constData());
        return;
    }
    if (copy == CopyFailure::read)
        fail(UploadError(readFailure(filePath, systemReason(copyError))));
    if (copy == CopyFailure::write)
        fail(writeFailure(copyError));
    if (!writeAll(body, closing))
        fail(writeFailure(errno));
    advance(closing.size());
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
