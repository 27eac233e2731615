#include "engine_client/MultipartUpload.h"

#include "engine_client/StemList.h"

#include <QFileInfo>
#include <QUuid>

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
