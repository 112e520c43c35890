// A value of a result as text, a double with 15 significant digits ("26.4") as Qt 4 wrote it, not in
// Qt 5's shortest round-trip form ("26.400000000000002"): PLC code reads these texts at fixed lengths.
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
