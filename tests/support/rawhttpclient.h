#pragma once

#include <QByteArray>
#include <QHostAddress>
#include <QTcpSocket>

// A client on the test's thread that sends exactly the bytes it is given once connected,
// and collects everything that comes back until the server closes (or refuses).
struct RawHttpClient {
    QTcpSocket socket;
    QByteArray received;
    bool closed = false;

    RawHttpClient(quint16 port, const QByteArray &request)
    {
        QObject::connect(&socket, &QTcpSocket::connected, [this, request] { socket.write(request); });
        QObject::connect(&socket, &QTcpSocket::readyRead, [this] { received += socket.readAll(); });
        QObject::connect(&socket, &QTcpSocket::disconnected, [this] {
            if (socket.isOpen())
                received += socket.readAll();
            closed = true;
        });
        QObject::connect(&socket, &QTcpSocket::errorOccurred, [this] {
            if (socket.state() == QAbstractSocket::UnconnectedState)
                closed = true;
        });
        socket.connectToHost(QHostAddress::LocalHost, port);
    }
    QByteArray statusLine() const { return received.left(received.indexOf("\r\n")); }

    // What a player sends for the relay's stream at 127.0.0.1:`port`.
    static QByteArray request(quint16 port, const QByteArray &method = "GET", const QByteArray &target = "/stream.mp3",
        const QByteArray &host = {})
    {
        const QByteArray hostValue = host.isEmpty() ? "127.0.0.1:" + QByteArray::number(port) : host;
        return method + ' ' + target + " HTTP/1.1\r\nHost: " + hostValue + "\r\nUser-Agent: test\r\n\r\n";
    }
};
