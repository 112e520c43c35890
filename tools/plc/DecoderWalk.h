// One walk over the answer of a description, in the order its bytes come, for every language a
// decoder is written in: each language's sink turns the steps into its own statements, so the C and
// the Structured Text decoders read the same fields, check the same bounds and follow the same counts.
#pragma once

#include <vector>

#include <QString>

#include "plc/PlcLayout.h"

// What a language makes of each step.
class DecoderSink
{
public:
    virtual ~DecoderSink() = default;
    // target: where the field goes in the decoded answer, as "models[i1].rois[i2].x".
    virtual void number(PlcLayout::Item const& item, QString const& target) = 0;
    virtual void text(PlcLayout::Item const& item, QString const& target) = 0;
    virtual void constant(PlcLayout::Item const& item) = 0;
    // The records of a list follow, as many as `count` holds, each read with the loop variable `index`.
    virtual void beginList(PlcLayout::Item const& list, PlcLayout::Item const& countItem,
                           QString const& count, QString const& index) = 0;
    virtual void endList() = 0;
};

class DecoderWalk
{
public:
    // A binary number type of the descriptions in both languages.
    struct Scalar
    {
        char const* st;
        char const* c;
        int bytes;
        bool isSigned;
        bool isFloat;
    };
    static Scalar scalar(QString const& type);
    // The largest value of an integer type, for a capacity check that can fail.
    static unsigned long long maximum(QString const& type);

    static void walk(PlcLayout const& layout, DecoderSink& sink);
    // The record types, each after the types its lists hold.
    static std::vector<PlcLayout::Record const*> types(PlcLayout const& layout);
    // How deeply lists nest: the number of loop variables a decoder needs.
    static int depth(PlcLayout::Record const& record);
    // What a field holds, for its comment: its id or constant, type, byte order and scale.
    static QString describe(PlcLayout::Item const& item);
    // An element's place in the description, in plain ASCII for a comment.
    static QString place(PlcLayout::Item const& item);
    // A comment's text on one line that cannot end the comment early: control characters as \xHH.
    static QString commentText(QString const& text, char const* closing);
    // Lines of a leading comment, each made safe and indented under the comment's opening.
    static QString commentLines(QString const& text, char const* closing);
    // "models 4, rois 16": the capacities of the lists, outermost first.
    static QString capacities(PlcLayout::Record const& record);

private:
    static void walkRecord(PlcLayout::Record const& record, QString const& base, int depth,
                           DecoderSink& sink);
    static void addTypes(PlcLayout::Record const& record, std::vector<PlcLayout::Record const*>& out);
};
