// Not compiled: stations may not reach sideways into the engine.
#include "engine/radiorecorder.h" // flagged
#include "platform/httpclient.h"
