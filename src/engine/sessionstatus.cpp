#include "engine/sessionstatus.h"

namespace StreamAnswer {

Judgement judge(int statusCode, const QString &contentType, const QByteArray &contentEncoding, bool hasMetaint,
                bool usedFallbackAgent)
{
    if (statusCode >= 300 && statusCode < 400)
        return {Verdict::Failed, QStringLiteral("HTTP %1: redirect that cannot be followed").arg(statusCode)};
    if (statusCode >= 400)
        return {Verdict::Failed, QStringLiteral("HTTP %1").arg(statusCode)};
    const QByteArray coding = contentEncoding.trimmed().toLower();
    if (!coding.isEmpty() && coding != "identity")
        return {Verdict::Failed, QStringLiteral("body in content encoding %1").arg(QString::fromLatin1(coding))};
    if (!hasMetaint && contentType.contains(QLatin1String("html"))) {
        if (!usedFallbackAgent)
            return {Verdict::RetryWithPlayerAgent, {}};
        return {Verdict::Failed, QStringLiteral("web page instead of audio")};
    }
    return {};
}

} // namespace StreamAnswer
