#pragma once

#include "fixtureserver.h"
#include "testenv.h"

#include <QCryptographicHash>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QString>

// Stand-ins for ffmpeg and yt-dlp: shell scripts with the behaviour a test needs.
inline void writeScript(const QString &path, const QByteArray &body, bool executable = true)
{
    writeFile(path, "#!/bin/sh\n" + body);
    QFile::Permissions mode = QFile::ReadOwner | QFile::WriteOwner;
    if (executable)
        mode |= QFile::ExeOwner;
    QFile::setPermissions(path, mode);
}

// yt-dlp's releases as the release server's API serves them, for the updater and the
// service that falls back to it.
inline const QByteArray kYtDlpRepo = "/repos/yt-dlp/yt-dlp";
inline const QByteArray kYtDlpLatest = kYtDlpRepo + "/releases/latest";

inline QByteArray sha256Hex(const QByteArray &data)
{
    return QCryptographicHash::hash(data, QCryptographicHash::Sha256).toHex();
}

inline QByteArray ytDlpAssetPath(const QString &tag, const QByteArray &file)
{
    return kYtDlpRepo + "/releases/download/" + tag.toUtf8() + "/" + file;
}

// Release `tag` with `asset` as its Linux build, listed in the checksums with `sha` after
// another build's line.
inline void publishYtDlp(FixtureServer &server, const QString &tag, const QByteArray &asset, const QByteArray &sha)
{
    const QJsonObject release{{"tag_name", tag}, {"name", "yt-dlp " + tag}};
    server.route(kYtDlpLatest, FixtureServer::Script::response(200, "application/json", QJsonDocument(release).toJson()));
    server.route(ytDlpAssetPath(tag, "yt-dlp_linux"), FixtureServer::Script::response(200, "application/octet-stream", asset));
    server.route(ytDlpAssetPath(tag, "SHA2-256SUMS"),
                 FixtureServer::Script::response(200, "text/plain",
                                                 QByteArray(64, 'f') + "  yt-dlp_linux_aarch64\n" + sha + "  yt-dlp_linux\n"));
}
