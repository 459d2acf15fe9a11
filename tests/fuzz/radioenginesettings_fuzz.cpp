// The engine-settings decoder on arbitrary preference bytes.
//
// The input is read both as one record ("ov.engine.global") and as a map of station
// overrides ("ov.engine.stations"). A decoded record must survive being written and read
// again, decoding from bytes must agree with decoding the parsed object, and clamping must
// land in range and be idempotent.

#include "engine/radioenginesettings.h"

#include "fuzzcheck.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <cstdint>

// Found by argument-dependent lookup from the checks' printing, hence not file-local.
QDebug operator<<(QDebug debug, const RadioEngineSettings &s)
{
    return debug << s.toJson();
}

namespace {

void checkRecord(const RadioEngineSettings &s)
{
    FUZZ_CHECK_EQ(RadioEngineSettings::fromJson(s.toJson()), std::optional(s));

    const RadioEngineSettings c = s.clamped();
    FUZZ_CHECK(c.leadInSec >= 0 && c.leadInSec <= RadioEngineSettings::kMaxLeadSec);
    FUZZ_CHECK(c.leadOutSec >= 0 && c.leadOutSec <= RadioEngineSettings::kMaxLeadSec);
    FUZZ_CHECK(c.minDurationSec >= 0 && c.minDurationSec <= RadioEngineSettings::kMaxMinDurationSec);
    FUZZ_CHECK(c.skipJingles == s.skipJingles && c.lossless == s.lossless);
    FUZZ_CHECK_EQ(c.clamped(), c);
    if (s.leadInSec >= 0 && s.leadInSec <= RadioEngineSettings::kMaxLeadSec)
        FUZZ_CHECK(c.leadInSec == s.leadInSec);
}

// The overrides as the loader takes them: every member an object that decodes, or none.
void checkOverrides(const QJsonDocument &doc)
{
    if (!doc.isObject())
        return;
    QMap<QString, RadioEngineSettings> overrides;
    const QJsonObject object = doc.object();
    for (auto it = object.begin(); it != object.end(); ++it) {
        const auto record = it.value().isObject() ? RadioEngineSettings::fromJson(it.value().toObject()) : std::nullopt;
        if (!record)
            return;
        overrides.insert(it.key(), record->clamped());
    }
    const QJsonDocument encoded = QJsonDocument::fromJson(RadioEngineSettings::encodeOverrides(overrides));
    FUZZ_CHECK(encoded.isObject());
    const QJsonObject reread = encoded.object();
    FUZZ_CHECK(reread.size() == overrides.size());
    for (auto it = overrides.cbegin(); it != overrides.cend(); ++it) {
        const QJsonValue value = reread.value(it.key());
        FUZZ_CHECK(value.isObject());
        FUZZ_CHECK_EQ(RadioEngineSettings::fromJson(value.toObject()), std::optional(it.value()));
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    const QByteArray bytes = FuzzInput::bytes(data, size);
    const auto decoded = RadioEngineSettings::fromJson(bytes);

    QJsonParseError error;
    const QJsonDocument doc = QJsonDocument::fromJson(bytes, &error);
    const bool isObject = error.error == QJsonParseError::NoError && doc.isObject();
    FUZZ_CHECK(!decoded || isObject);
    if (isObject)
        FUZZ_CHECK(RadioEngineSettings::fromJson(doc.object()) == decoded);
    if (decoded)
        checkRecord(*decoded);
    checkOverrides(doc);
    return 0;
}
