#pragma once

#include <QCoro/QCoroTask>
#include <QString>
#include <QUrl>
#include <functional>

class QNetworkAccessManager;

// Downloads `url` into a new file of `folder`, writing as the data arrives; `onProgress` gets the bytes
// received and the total (-1 when unknown) at each step. Yields the file's path. On failure the partial
// file is removed and an UpdaterError carries the French reason.
QCoro::Task<QString> downloadToFile(QNetworkAccessManager& network, QUrl url, QString folder,
                                    std::function<void(qint64 received, qint64 total)> onProgress);
