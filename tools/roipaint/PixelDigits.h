// Numbers in a 3 x 5 pixel font of its own, for the ROI labels: no font files needed on the machine,
// and sharp when the picture is enlarged pixel by pixel (--scale).
#pragma once

#include <QColor>
#include <QImage>
#include <QPoint>
#include <QSize>

class PixelDigits
{
public:
    // The pixels the label of `number` covers, its dark frame included.
    static QSize size(int number);
    // The label with its top-left corner at `at`: the digits in `colour` on a dark frame, so they
    // stay readable on a bright picture. Pixels outside the image are left out.
    static void draw(QImage& image, QPoint at, int number, QColor colour);
};
