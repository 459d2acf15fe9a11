#pragma once

#include <QByteArray>
#include <QtGlobal>

#include <ctime>

// Puts the process in another local time zone for one test and the old one back after,
// so a date taken from UTC instead of the local calendar shows.
class ZoneGuard {
public:
    explicit ZoneGuard(const char *zone)
        : m_had(qEnvironmentVariableIsSet("TZ"))
        , m_old(qgetenv("TZ"))
    {
        qputenv("TZ", zone);
        tzset();
    }
    ~ZoneGuard()
    {
        if (m_had)
            qputenv("TZ", m_old);
        else
            qunsetenv("TZ");
        tzset();
    }
    ZoneGuard(const ZoneGuard &) = delete;
    ZoneGuard &operator=(const ZoneGuard &) = delete;

private:
    bool m_had;
    QByteArray m_old;
};
