// Not compiled: the command line never borrows the window's code or widgets.
#include "app/application.h" // flagged
#include <QApplication> // flagged
#include "engine/radiorecorder.h"
