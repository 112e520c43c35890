// roipaint: outlines the ROIs of a result model on a picture (the camera's amplitude PNG or a plain
// canvas) with the plug-in's own shapes, each in the colour of its state and labelled with its id,
// and writes the result as PNG.
#include <cstdio>
#include <string>
#include <vector>

#include <QFile>
#include <QImage>

#include "PixelDigits.h"
#include "StateColours.h"
#include "ToolMain.h"
#include "Words.h"
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

void printHelp()
{
    printf("usage: roipaint [OPTIONS] MODEL.json OUT.png\n\n"
           "Outlines the ROIs of a result model with the plug-in's own shapes, each in the colour of\n"
           "its state and labelled with its id at its top-left corner, on the camera's amplitude\n"
           "picture or on a dark canvas, and writes the result as PNG. MODEL.json is the result model\n"
           "text with its \"model_...\" entries (- reads standard input), as `vorn-host query ID\n"
           "json_model --out MODEL.json` writes it.\n\n"
           "options:\n");
    std::pair<char const*, char const*> const options[] = {
        {"--background PNG", "draw onto this picture instead of a dark canvas"},
        {"--size WxH", "canvas size without a background (default 176x132)"},
        {"--scale N", "enlarge the result N times (1 to 16), pixel by pixel, to inspect outlines"},
        {"--help", "this help"},
        {"--version", "the version of this tool"},
    };
    for (auto const& [spelling, help] : options)
        printf("  %-18s %s\n", spelling, help);
    printf("\ncolours:\n");
    for (StateColours::Key const& key : StateColours::key())
        printf("  %-18s %s\n", key.colour, key.meaning);
    printf("\nexample:\n  roipaint --background amplitude.png --scale 4 model.json rois.png\n");
}

Options parse(cli::Words& words)
{
    Options options;
    if (auto background = words.option("--background"))
        options.background = QString::fromLocal8Bit(background->c_str());
    if (auto size = words.option("--size")) {
        QStringList const parts = QString::fromLocal8Bit(size->c_str()).split('x');
        bool wide = false, high = false;
        if (parts.size() == 2) {
            options.width = parts[0].toInt(&wide);
            options.height = parts[1].toInt(&high);
        }
        if (!wide || !high || options.width <= 0 || options.height <= 0 || options.width > 8192 ||
            options.height > 8192)
            throw cli::UsageError("--size is WIDTHxHEIGHT from 1x1 to 8192x8192, e.g. 176x132, not \"" +
                                  *size + "\"");
    }
    if (auto scale = words.number("--scale", 1, 16))
        options.scale = static_cast<int>(*scale);
    words.expectCount(2, 2);
    options.model = QString::fromLocal8Bit(words.at(0, "MODEL.json").c_str());
    options.output = QString::fromLocal8Bit(words.at(1, "OUT.png").c_str());
    return options;
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

// Each label sits just inside its ROI's top-left corner, and inside the picture.
void label(QImage& image, orv::RoiElements const& rois)
{
    for (orv::RoiElements::Element const& element : rois.elements()) {
        QSize const size = PixelDigits::size(element.id);
        QPoint at = element.shape.boundingRect().topLeft().toPoint() + QPoint(1, 1);
        at.setX(qBound(0, at.x(), image.width() - size.width()));
        at.setY(qBound(0, at.y(), image.height() - size.height()));
        PixelDigits::draw(image, at, element.id, StateColours::of(element.state));
    }
}

int paint(Options const& options)
{
    QByteArray model;
    if (!readModel(options.model, model)) {
        fprintf(stderr, "roipaint: cannot read %s\n", qPrintable(options.model));
        return 1;
    }
    orv::RoiSyncer_RX7100 syncer;
    if (!syncer.loadFromJson(model)) {
        fprintf(stderr, "roipaint: %s is not a JSON result model\n", qPrintable(options.model));
        return 1;
    }

    QImage image;
    if (!options.background.isEmpty()) {
        if (!image.load(options.background)) {
            fprintf(stderr, "roipaint: cannot read the picture %s\n", qPrintable(options.background));
            return 1;
        }
    } else {
        image = QImage(options.width, options.height, QImage::Format_RGB32);
        image.fill(qRgb(24, 24, 24));
    }
    // Coloured outlines and labels need a picture with colours.
    image = image.convertToFormat(QImage::Format_RGB32);
    syncer.paintRois(image, [](orv::RoiElements::Element const& roi) { return StateColours::of(roi.state); });
    label(image, syncer.rois());
    if (options.scale > 1)
        image = image.scaled(image.width() * options.scale, image.height() * options.scale);
    if (!image.save(options.output, "PNG")) {
        fprintf(stderr, "roipaint: cannot write %s\n", qPrintable(options.output));
        return 1;
    }
    printf("%d ROIs drawn, %d skipped\n", syncer.rois().elements().size(), syncer.rois().skipped());
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    cli::Words words(std::vector<std::string>(argv + 1, argv + argc));
    Options options;
    if (auto const end =
            cli::ToolMain::startPlain("roipaint", words, printHelp, [&] { options = parse(words); }))
        return *end;
    return paint(options);
}
