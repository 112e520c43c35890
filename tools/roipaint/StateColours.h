// The colour of a ROI's outline and label by its "state" in the result model, and the key to them
// for the help: what passed, what did not, and what the model says nothing about.
#pragma once

#include <QColor>
#include <QString>
#include <string>
#include <vector>

class StateColours
{
public:
    struct Key
    {
        char const* colour;
        char const* meaning;
    };

    static QColor of(QString const& state);
    static std::vector<Key> key();
};
