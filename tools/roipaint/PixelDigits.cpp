#include "PixelDigits.h"

#include <QString>

namespace {

constexpr int GlyphWidth = 3;
constexpr int GlyphHeight = 5;

// Rows top to bottom, three bits each with the leftmost pixel in the highest bit.
constexpr unsigned char Digits[10][GlyphHeight] = {
    {7, 5, 5, 5, 7}, {2, 6, 2, 2, 7}, {7, 1, 7, 4, 7}, {7, 1, 7, 1, 7}, {5, 5, 7, 1, 1},
    {7, 4, 7, 1, 7}, {7, 4, 7, 5, 7}, {7, 1, 1, 1, 1}, {7, 5, 7, 5, 7}, {7, 5, 7, 1, 7},
};
constexpr unsigned char Minus[GlyphHeight] = {0, 0, 7, 0, 0};

void setPixel(QImage& image, int x, int y, QRgb colour)
{
    if (image.rect().contains(x, y))
        image.setPixel(x, y, colour);
}

} // namespace

QSize PixelDigits::size(int number)
{
    int const glyphs = QString::number(number).size();
    // One pixel between glyphs and a frame of one pixel all round.
    return QSize(glyphs * (GlyphWidth + 1) + 1, GlyphHeight + 2);
}

void PixelDigits::draw(QImage& image, QPoint at, int number, QColor colour)
{
    QSize const box = size(number);
    QRgb const frame = qRgb(0, 0, 0);
    for (int y = 0; y < box.height(); ++y)
        for (int x = 0; x < box.width(); ++x)
            setPixel(image, at.x() + x, at.y() + y, frame);
    QString const text = QString::number(number);
    for (int i = 0; i < text.size(); ++i) {
        unsigned char const* rows = text[i] == '-' ? Minus : Digits[text[i].digitValue()];
        for (int y = 0; y < GlyphHeight; ++y)
            for (int x = 0; x < GlyphWidth; ++x)
                if (rows[y] & (4 >> x))
                    setPixel(image, at.x() + 1 + i * (GlyphWidth + 1) + x, at.y() + 1 + y, colour.rgb());
    }
}
