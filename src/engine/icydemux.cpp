#include "engine/icydemux.h"

#include <QStringDecoder>

#include <algorithm>

IcyDemux::IcyDemux(qint64 metaint)
    : m_metaint(std::max<qint64>(metaint, 0))
    , m_audioLeft(m_metaint)
{
}

void IcyDemux::feed(QByteArrayView data)
{
    if (isPassThrough()) {
        if (!data.isEmpty() && onAudio)
            onAudio(data);
        return;
    }
    const char *p = data.data();
    const char *const end = p + data.size();
    while (p < end) {
        switch (m_state) {
        case State::Audio: {
            const qint64 n = std::min<qint64>(end - p, m_audioLeft);
            if (n >= 1) {
                if (onAudio)
                    onAudio(QByteArrayView(p, qsizetype(n)));
                m_audioLeft -= n;
                p += n;
            }
            if (m_audioLeft == 0)
                m_state = State::Len;
            break;
        }
        case State::Len: {
            const auto b = static_cast<unsigned char>(*p++);
            m_metaExpected = qint64(b) * 16;
            if (b == 0) {
                m_audioLeft = m_metaint;
                m_state = State::Audio;
            } else {
                m_metaBuf.clear();
                m_state = State::Meta;
            }
            break;
        }
        case State::Meta: {
            const qint64 want = m_metaExpected - m_metaBuf.size();
            const qint64 n = std::min<qint64>(end - p, want);
            m_metaBuf.append(p, qsizetype(n));
            p += n;
            if (m_metaBuf.size() >= m_metaExpected) {
                flushMeta();
                m_audioLeft = m_metaint;
                m_state = State::Audio;
            }
            break;
        }
        }
    }
}

void IcyDemux::flushMeta()
{
    const QString text = IcyText::decodeUtf8OrLatin1(m_metaBuf);
    m_metaBuf.clear();
    m_metaExpected = 0;
    if (auto title = IcyText::extractStreamTitle(text); title && onTitle)
        onTitle(*title);
}

namespace IcyText {

QString decodeUtf8OrLatin1(QByteArrayView bytes)
{
    QStringDecoder utf8(QStringDecoder::Utf8, QStringDecoder::Flag::Stateless);
    QString text = utf8.decode(bytes);
    if (!utf8.hasError())
        return text;
    return QString::fromLatin1(bytes);
}

std::optional<QString> extractStreamTitle(const QString &text)
{
    static const QString kMarker = QStringLiteral("StreamTitle='");
    const qsizetype at = text.indexOf(kMarker);
    if (at < 0)
        return std::nullopt;
    const QStringView rest = QStringView(text).sliced(at + kMarker.size());
    // The closing pair first: a title like "It's" holds a lone quote of its own.
    qsizetype close = rest.indexOf(QLatin1StringView("';"));
    if (close < 0)
        close = rest.indexOf(QLatin1Char('\''));
    if (close < 0)
        return std::nullopt;
    return rest.first(close).toString();
}

std::optional<qint64> parseMetaint(QByteArrayView value)
{
    const QByteArrayView t = value.trimmed();
    qsizetype i = 0;
    bool negative = false;
    if (i < t.size() && (t[i] == '+' || t[i] == '-')) {
        negative = t[i] == '-';
        ++i;
    }
    if (i == t.size())
        return std::nullopt;
    qint64 n = 0;
    for (; i < t.size(); ++i) {
        const char c = t[i];
        if (c < '0' || c > '9')
            return std::nullopt;
        if (n > (std::numeric_limits<qint64>::max() - 9) / 10)
            return std::nullopt;
        n = n * 10 + (c - '0');
    }
    return negative ? -n : n;
}

} // namespace IcyText
