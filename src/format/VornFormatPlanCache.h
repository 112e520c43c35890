// The plans of the last few descriptions the format-results command was sent, found again by the
// request's text and the bus byte order, so that a client that sends the same description with
// every request pays for reading it once.
#pragma once

#include <list>
#include <memory>

#include <QByteArray>

#include "format/VornFormatPlan.h"

class VornFormatPlanCache
{
public:
    static constexpr int Capacity = 8;
    // Longer texts are not kept: eight of them would hold too much memory for a rare client.
    static constexpr int MaxTextSize = 1 << 20;

    // Null when the text and order are not among the kept ones.
    std::shared_ptr<VornFormatPlan const> find(QByteArray const& text, BusByteOrder bus);
    // Copies the text; the least recently used entry goes when the cache is full.
    void insert(QByteArray const& text, BusByteOrder bus, std::shared_ptr<VornFormatPlan const> plan);

private:
    struct Entry
    {
        BusByteOrder bus;
        QByteArray text;
        std::shared_ptr<VornFormatPlan const> plan;
    };
    std::list<Entry> m_entries; // the most recently used first
};
