// The names of generated code: every name a legal identifier in C and in Structured Text, never a
// reserved word of either, and unique where the languages need it. The rule, so that a PLC
// programmer can predict a name from the description:
//   1. every run of characters other than ASCII letters and digits becomes one "_", and "_" at the
//      start or end is dropped ("a-b" gives a_b, "models.count" models_count);
//   2. nothing left gives "field";
//   3. a name that starts with a digit or is a reserved word of either language (compared without
//      case, as Structured Text compares) gets the prefix "f_" ("1st" gives f_1st, "type" f_type);
//   4. a name already taken in the same scope, compared without case, gets "_2", "_3", ...
// One rule for both languages, so the C and the Structured Text of one description name every
// field alike.
#pragma once

#include <QSet>
#include <QString>

class PlcNames
{
public:
    // Rules 1 to 3.
    static QString identifier(QString const& wanted);
    static bool reserved(QString const& name);

    // Rule 4 within this scope; the name returned is taken.
    QString unique(QString const& wanted);
    // Takes a name as it is (a fixed name of the generated code).
    void take(QString const& name) { m_taken.insert(name.toLower()); }

private:
    QSet<QString> m_taken; // lower case
};
