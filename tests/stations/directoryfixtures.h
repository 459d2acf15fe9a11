#pragma once

#include "stations/station.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QList>
#include <QStringList>

// Shared by the directory and globe tests: directory answers as bytes, results as ids.

inline QByteArray jsonArray(const QList<QJsonObject> &objects)
{
    QJsonArray array;
    for (const QJsonObject &o : objects)
        array.append(o);
    return QJsonDocument(array).toJson(QJsonDocument::Compact);
}

inline QStringList ids(const QList<Station> &stations)
{
    QStringList out;
    for (const Station &s : stations)
        out << s.id;
    return out;
}
