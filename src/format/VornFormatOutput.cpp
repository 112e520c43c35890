#include "format/VornFormatOutput.h"

#include <cstring>

void VornFormatOutput::appendBlob(QByteArray const& blob)
{
    if (blob.size() < ViewFrom) {
        append(blob);
        return;
    }
    m_views.push_back({m_text.size(), blob});
    m_viewBytes += size_t(blob.size());
}

void VornFormatOutput::copyTo(unsigned char* destination) const
{
    size_t textAt = 0;
    for (View const& view : m_views) {
        memcpy(destination, m_text.data() + textAt, view.textBefore - textAt);
        destination += view.textBefore - textAt;
        textAt = view.textBefore;
        memcpy(destination, view.blob.constData(), size_t(view.blob.size()));
        destination += view.blob.size();
    }
    memcpy(destination, m_text.data() + textAt, m_text.size() - textAt);
}

QByteArray VornFormatOutput::toByteArray() const
{
    QByteArray bytes(static_cast<int>(size()), Qt::Uninitialized);
    copyTo(reinterpret_cast<unsigned char*>(bytes.data()));
    return bytes;
}
