// roipaint: outlines the ROIs of a result model on a picture (the camera's amplitude PNG or a plain
// canvas) exactly as the plug-in does for the amplitude picture, and writes the result as PNG.
#include <cstdio>
#include <cstring>
#include <string>

#include <QFile>
#include <QImage>

#include "roi/RoiSyncer_RX7100.h"

namespace {

struct Options
{
    QString model;
    QString output;
    QString background;
    int width = 176;
    int height = 132;
    int scale = 1;
};

int usage(int status)
{
    std::fprintf(
        status == 0 ? stdout : stderr,
        "usage: roipaint [--background PNG] [--size WxH] [--scale N] MODEL.json OUT.png\n"
        "  MODEL.json  result model text with \"model_...\" entries and their \"ROIs\" (- reads stdin)\n"
        "  --background PNG  draw onto this picture instead of a dark canvas\n"
        "  --size WxH  canvas size without a background (default 176x132)\n"
        "  --scale N   enlarge the result N times, pixel by pixel, to inspect outlines\n");
    return status;
}

bool parse(int argc, char** argv, Options& options)
{
    QStringList positional;
    for (int i = 1; i < argc; ++i) {
        QString const arg = QString::fromLocal8Bit(argv[i]);
        bool const hasValue = i + 1 < argc;
        if (arg == "--background" && hasValue) {
            options.background = QString::fromLocal8Bit(argv[++i]);
        } else if (arg == "--size" && hasValue) {
            QStringList const parts = QString::fromLocal8Bit(argv[++i]).split('x');
            if (parts.size() != 2)
                return false;
            options.width = parts[0].toInt();
            options.height = parts[1].toInt();
        } else if (arg == "--scale" && hasValue) {
            options.scale = QString::fromLocal8Bit(argv[++i]).toInt();
        } else if (arg.startsWith("--")) {
            return false;
        } else {
            positional << arg;
        }
    }
    if (positional.size() != 2 || options.width <= 0 || options.height <= 0 || options.scale <= 0)
        return false;
    options.model = positional[0];
    options.output = positional[1];
    return true;
}

bool readModel(QString const& name, QByteArray& text)
{
    QFile file;
    bool const opened = name == "-" ? file.open(stdin, QIODevice::ReadOnly)
                                    : (file.setFileName(name), file.open(QIODevice::ReadOnly));
    if (!opened)
        return false;
    text = file.readAll();
    return true;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 2 && (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0))
        return usage(0);
    Options options;
    if (!parse(argc, argv, options))
        return usage(2);

    QByteArray model;
    if (!readModel(options.model, model)) {
        std::fprintf(stderr, "roipaint: cannot read %s\n", qPrintable(options.model));
        return 1;
    }
    orv::RoiSyncer_RX7100 syncer;
    if (!syncer.loadFromJson(model)) {
        std::fprintf(stderr, "roipaint: %s is not a JSON result model\n", qPrintable(options.model));
        return 1;
    }

    QImage image;
    if (!options.background.isEmpty()) {
        if (!image.load(options.background)) {
            std::fprintf(stderr, "roipaint: cannot read the picture %s\n", qPrintable(options.background));
            return 1;
        }
    } else {
        image = QImage(options.width, options.height, QImage::Format_RGB32);
        image.fill(qRgb(24, 24, 24));
    }
    syncer.paintRois(image);
    if (options.scale > 1)
        image = image.scaled(image.width() * options.scale, image.height() * options.scale);
    if (!image.save(options.output, "PNG")) {
        std::fprintf(stderr, "roipaint: cannot write %s\n", qPrintable(options.output));
        return 1;
    }
    std::printf("%d ROIs drawn, %d skipped\n", syncer.rois().elements().size(), syncer.rois().skipped());
    return 0;
}
