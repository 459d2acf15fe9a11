// Not compiled: the platform is the bottom layer; it alone talks to curl and D-Bus.
#include "library/track.h" // flagged
#include <curl/curl.h>
#include <QDBusConnection>
