#include "engine_client/CreateJobRequest.h"

#include "engine_client/JsonObjectWriter.h"
#include "engine_client/StemList.h"

CreateJobRequest CreateJobRequest::from(const QString& url, const QList<StemKind>& kinds) {
    return CreateJobRequest{url, StemList::rawValues(kinds)};
}

QByteArray CreateJobRequest::toJsonText() const {
    return JsonObjectWriter()
        .string(QLatin1String("url"), url)
        .raw(QLatin1String("stems"), StemList::jsonText(stems))
        .finish();
}
