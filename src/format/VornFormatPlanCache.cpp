#include "format/VornFormatPlanCache.h"

std::shared_ptr<VornFormatPlan const> VornFormatPlanCache::find(QByteArray const& text, BusByteOrder bus)
{
    for (auto it = m_entries.begin(); it != m_entries.end(); ++it) {
        if (it->bus == bus && it->text == text) {
            m_entries.splice(m_entries.begin(), m_entries, it);
            return it->plan;
        }
    }
    return nullptr;
}

void VornFormatPlanCache::insert(QByteArray const& text, BusByteOrder bus,
                                 std::shared_ptr<VornFormatPlan const> plan)
{
    if (text.size() > MaxTextSize)
        return;
    if (m_entries.size() >= size_t(Capacity))
        m_entries.pop_back();
    // A deep copy: the text may be a view over the host's request buffer.
    m_entries.push_front({bus, QByteArray(text.constData(), text.size()), std::move(plan)});
}
