#include "engine_client/MultipartUpload.h"

#include "engine_client/StemList.h"
#include "engine_client/UploadError.h"

#include <QFile>
#include <QFileInfo>
#include <QUuid>
#include <memory>

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
    QFile source(filePath);
    if (QFileInfo(filePath).isDir() || !source.open(QIODevice::ReadOnly))
        throw UploadError(QStringLiteral("Le fichier « %1 » n’a pas pu être ouvert : %2")
                              .arg(name, QFileInfo::exists(filePath) ? source.errorString()
                                                                     : QStringLiteral("il n’existe pas.")));
    QFile body(bodyPath);
    auto fail = [&](const QString& message) {
        body.close();
        QFile::remove(bodyPath);
        throw UploadError(message);
    };
    const auto writeFailure = [&] {
        return QStringLiteral("Impossible de préparer l’envoi de « %1 » : %2").arg(name, body.errorString());
    };
    if (!body.open(QIODevice::WriteOnly | QIODevice::Truncate))
        throw UploadError(writeFailure());
    if (body.write(head(boundary, stems, filePath)) < 0)
        fail(writeFailure());
    const std::unique_ptr<char[]> buffer(new char[chunkBytes]);
    for (;;) {
        const qint64 count = source.read(buffer.get(), chunkBytes);
        if (count < 0)
            fail(QStringLiteral("Le fichier « %1 » n’a pas pu être lu : %2").arg(name, source.errorString()));
        if (count == 0)
            break;
        if (body.write(buffer.get(), count) != count)
            fail(writeFailure());
    }
    if (body.write(tail(boundary)) < 0 || !body.flush())
        fail(writeFailure());
    body.close();
    if (body.error() != QFileDevice::NoError)
        fail(writeFailure());
}

} // namespace MultipartUpload
