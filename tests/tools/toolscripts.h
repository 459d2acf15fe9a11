#pragma once

#include "testenv.h"

#include <QFile>
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
