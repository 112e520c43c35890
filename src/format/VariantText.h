// A value of a result as text, written the way the camera's original Qt 4 based system wrote it:
// Qt 5 turns a double into its shortest round-trip form ("26.400000000000002"), Qt 4 into 15
// significant digits ("26.4"), and PLC code reads these texts at fixed lengths.
#pragma once

#include <QString>
#include <QVariant>

inline QString variantText(QVariant const& value)
{
    switch (static_cast<QMetaType::Type>(value.userType())) {
    case QMetaType::Double:
        return QString::number(value.toDouble(), 'g', 15);
    case QMetaType::Float:
        return QString::number(static_cast<double>(value.toFloat()), 'g', 6);
    default:
        return value.toString();
    }
}
