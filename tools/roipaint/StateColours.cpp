#include "StateColours.h"

QColor StateColours::of(QString const& state)
{
    if (state.isEmpty())
        return QColor(255, 255, 0);
    // The plug-in's own outline colour for what passed.
    if (state.compare(QLatin1String("good"), Qt::CaseInsensitive) == 0)
        return QColor(0, 255, 0);
    return QColor(255, 0, 0);
}

std::vector<StateColours::Key> StateColours::key()
{
    return {{"green", "state \"good\""},
            {"red", "any other state (\"bad\", ...)"},
            {"yellow", "no state in the model"}};
}
