#include "engine/relayrequest.h"

#include <QList>

namespace RelayRequest {

namespace {

    // Splits the head into lines at LF, dropping a CR before it.
    QList<QByteArrayView> lines(QByteArrayView head)
    {
        QList<QByteArrayView> out;
        qsizetype start = 0;
        while (start <= head.size()) {
            qsizetype end = head.indexOf('\n', start);
            if (end < 0)
                end = head.size();
            QByteArrayView line = head.sliced(start, end - start);
            if (line.endsWith('\r'))
                line.chop(1);
            out << line;
            start = end + 1;
        }
        return out;
    }

    bool isTokenChar(char c)
    {
        // RFC 9110 tchar
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')
            || QByteArrayView("!#$%&'*+-.^_`|~").contains(c);
    }

    bool isToken(QByteArrayView text)
    {
        if (text.isEmpty())
            return false;
        for (char c : text) {
            if (!isTokenChar(c))
                return false;
        }
        return true;
    }

    QByteArrayView trimmedValue(QByteArrayView value)
    {
        while (!value.isEmpty() && (value.front() == ' ' || value.front() == '\t'))
            value = value.sliced(1);
        while (!value.isEmpty() && (value.back() == ' ' || value.back() == '\t'))
            value.chop(1);
        return value;
    }

    bool hasControlBytes(QByteArrayView text)
    {
        for (char c : text) {
            if ((uchar(c) < 0x20 && c != '\t') || c == 0x7F)
                return true;
        }
        return false;
    }

} // namespace

std::optional<qsizetype> headLength(QByteArrayView received)
{
    // The first empty line ends the head: "\n\n" or "\n\r\n".
    for (qsizetype i = received.indexOf('\n'); i >= 0; i = received.indexOf('\n', i + 1)) {
        const QByteArrayView rest = received.sliced(i + 1);
        if (rest.startsWith('\n') || rest.startsWith("\r\n"))
            return i > 0 && received[i - 1] == '\r' ? i - 1 : i;
    }
    return std::nullopt;
}

int status(QByteArrayView head, quint16 port)
{
    const QList<QByteArrayView> all = lines(head);
    const QByteArrayView requestLine = all.front();
    const QList<QByteArrayView> parts = [&] {
        QList<QByteArrayView> p;
        qsizetype start = 0;
        for (qsizetype sp = requestLine.indexOf(' '); sp >= 0; sp = requestLine.indexOf(' ', start)) {
            p << requestLine.sliced(start, sp - start);
            start = sp + 1;
        }
        p << requestLine.sliced(start);
        return p;
    }();
    if (parts.size() != 3 || !isToken(parts[0]) || parts[1].isEmpty() || hasControlBytes(parts[1]))
        return 400;
    const QByteArrayView version = parts[2];
    if (version.size() != 8 || !version.startsWith("HTTP/1.") || version[7] < '0' || version[7] > '9')
        return 400;

    std::optional<QByteArrayView> host;
    for (qsizetype i = 1; i < all.size(); ++i) {
        const QByteArrayView line = all[i];
        const qsizetype colon = line.indexOf(':');
        // No folded lines, no space before the colon: a header we would read one way and
        // a proxy another is refused outright.
        if (colon <= 0 || !isToken(line.first(colon)) || hasControlBytes(line))
            return 400;
        if (line.first(colon).compare("host", Qt::CaseInsensitive) != 0)
            continue;
        if (host)
            return 400;
        host = trimmedValue(line.sliced(colon + 1));
    }
    if (!host || *host != QByteArray("127.0.0.1:" + QByteArray::number(port)))
        return 403;
    if (parts[0] != "GET")
        return 405;
    if (parts[1] != "/stream.mp3")
        return 404;
    return 200;
}

QByteArray refusal(int status)
{
    QByteArray reason;
    QByteArray extra;
    switch (status) {
    case 403:
        reason = "Forbidden";
        break;
    case 404:
        reason = "Not Found";
        break;
    case 405:
        reason = "Method Not Allowed";
        extra = "Allow: GET\r\n";
        break;
    case 503:
        reason = "Service Unavailable";
        break;
    default:
        status = 400;
        reason = "Bad Request";
        break;
    }
    return "HTTP/1.0 " + QByteArray::number(status) + ' ' + reason + "\r\n" + extra
        + "Content-Length: 0\r\nConnection: close\r\n\r\n";
}

} // namespace RelayRequest
