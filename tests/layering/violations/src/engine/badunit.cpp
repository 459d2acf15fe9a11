// Not compiled: the include check must name exactly the lines marked below.
#include "engine/tracksegmenter.h"
#include "stations/station.h"
#include "platform/paths.h"
#include "app/mainwindow.h" // flagged
#include "cli/cli.h" // flagged
#include <QString>
#include <QWidget> // flagged
#include <QtWidgets/QLabel> // flagged
#include <curl/curl.h> // flagged
#include <QDBusMessage> // flagged
#include <avahi-client/client.h> // flagged
