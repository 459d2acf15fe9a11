// The Icecast status reader on arbitrary documents.
//
// Input: the stream address up to the first newline, then the status-json.xsl body. A
// title found must be the non-empty title of one of the document's sources, a lone source
// reads the same whether the server sent it as an object or as an array of one, and the
// status address is always the stream host's "/status-json.xsl" on the default port.

#include "engine/icecaststatus.h"

#include "fuzzcheck.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <cstdint>

namespace {

QJsonArray sourcesOf(const QJsonDocument &doc)
{
    const QJsonValue source = doc.object().value(QLatin1StringView("icestats")).toObject().value(
        QLatin1StringView("source"));
    return source.isArray() ? source.toArray() : QJsonArray { source };
}

void checkStatusUrl(const QString &streamUrl)
{
    const auto status = IcecastStatus::statusUrl(streamUrl);
    if (!status)
        return;
    const QUrl stream(streamUrl, QUrl::StrictMode);
    FUZZ_CHECK(status->isValid());
    FUZZ_CHECK_EQ(status->host(), stream.host());
    FUZZ_CHECK_EQ(status->port(), -1);
    FUZZ_CHECK_EQ(status->path(), QStringLiteral("/status-json.xsl"));
    FUZZ_CHECK(status->query().isEmpty() && status->userInfo().isEmpty());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray input = FuzzInput::bytes(data, size);
    const qsizetype newline = input.indexOf('\n');
    const QString streamUrl = QString::fromUtf8(newline < 0 ? input : input.first(newline));
    const QByteArray statusJson = newline < 0 ? QByteArray() : input.sliced(newline + 1);

    checkStatusUrl(streamUrl);
    const QString mount = IcecastStatus::mountPath(streamUrl);
    const auto title = IcecastStatus::titleFor(statusJson, mount);

    const QJsonDocument doc = QJsonDocument::fromJson(statusJson);
    if (title) {
        FUZZ_CHECK(!title->isEmpty());
        bool fromASource = false;
        for (const QJsonValue &source : sourcesOf(doc))
            fromASource = fromASource || source.toObject().value(QLatin1StringView("title")) == *title;
        FUZZ_CHECK(fromASource);
    }

    QJsonObject icestats = doc.object().value(QLatin1StringView("icestats")).toObject();
    const QJsonValue source = icestats.value(QLatin1StringView("source"));
    if (source.isObject()) {
        icestats.insert(QLatin1StringView("source"), QJsonArray { source });
        QJsonObject root = doc.object();
        root.insert(QLatin1StringView("icestats"), icestats);
        const QByteArray asArray = QJsonDocument(root).toJson(QJsonDocument::Compact);
        FUZZ_CHECK_EQ(IcecastStatus::titleFor(asArray, mount), title);
    }
    return 0;
}
