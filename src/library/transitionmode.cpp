#include "library/transitionmode.h"

namespace TransitionModes {

QString rawValue(TransitionMode mode)
{
    switch (mode) {
    case TransitionMode::off:
        return QStringLiteral("off");
    case TransitionMode::gapless:
        return QStringLiteral("gapless");
    case TransitionMode::crossfade:
        return QStringLiteral("crossfade");
    case TransitionMode::automix:
        return QStringLiteral("automix");
    }
    return QStringLiteral("off");
}

std::optional<TransitionMode> fromRawValue(const QString &raw)
{
    for (TransitionMode mode : kAll) {
        if (rawValue(mode) == raw)
            return mode;
    }
    return std::nullopt;
}

} // namespace TransitionModes
