#include "format/VornFormatPlanCache.h"

std::shared_ptr<VornFormatPlan const> VornFormatPlanCache::find(QByteArray const& text, bool bigEndianBus)
{
    for (auto it = m_entries.begin(); it != m_entries.end(); ++it) {
        if (it->bigEndianBus == bigEndianBus && it->text == text) {
            m_entries.splice(m_entries.begin(), m_entries, it);
            return it->plan;
        }
    }
    return nullptr;
}

void VornFormatPlanCache::insert(QByteArray const& text, bool bigEndianBus,
                                 std::shared_ptr<VornFormatPlan const> plan)
{
    if (text.size() > MaxTextSize)
        return;
    if (m_entries.size() >= size_t(Capacity))
        m_entries.pop_back();
    // A deep copy: the text may be a view over the host's request buffer.
    m_entries.push_front({bigEndianBus, QByteArray(text.constData(), text.size()), std::move(plan)});
}
