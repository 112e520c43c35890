// The bytes of one formatted answer while they are made: short pieces are gathered in one buffer,
// large blobs are only referred to, so that every byte is copied once into the buffer the host
// gets, whose size is known before it is allocated.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include <QByteArray>

class VornFormatOutput
{
public:
    // Blobs from this size on are referred to rather than gathered.
    static constexpr int ViewFrom = 4096;

    void append(char const* data, size_t size) { m_text.append(data, size); }
    void append(QByteArray const& bytes) { m_text.append(bytes.constData(), size_t(bytes.size())); }
    void append(size_t count, char byte) { m_text.append(count, byte); }
    // The gathered bytes: what is appended to it is appended to the output, after every blob so far.
    std::string& gathered() { return m_text; }
    // The blob's bytes must stay where they are until the output is copied out.
    void appendBlob(QByteArray const& blob);

    size_t size() const { return m_text.size() + m_viewBytes; }
    // Writes all size() bytes to destination, in order.
    void copyTo(unsigned char* destination) const;
    QByteArray toByteArray() const;

private:
    struct View
    {
        size_t textBefore; // the gathered bytes that come before the blob
        QByteArray blob;
    };
    std::string m_text;
    std::vector<View> m_views;
    size_t m_viewBytes = 0;
};
