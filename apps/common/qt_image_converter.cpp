#include "common/qt_image_converter.h"

#include <QBuffer>
#include <QByteArray>
#include <QImage>
#include <QImageReader>
#include <QImageWriter>
#include <fmt/format.h>

#include <string>

namespace tasket::apps {
namespace {

std::string readableFormats() {
    std::string list;
    for (const QByteArray& format : QImageReader::supportedImageFormats()) {
        if (!list.empty())
            list += ", ";
        list += format.toStdString();
    }
    return list;
}

} // namespace

platform::Result<platform::Bytes>
QtImageConverter::convertToPNG(std::span<const std::uint8_t> encoded) const {
    using platform::Errc;
    // fromRawData does not copy; the bytes outlive the reader.
    QByteArray input = QByteArray::fromRawData(reinterpret_cast<const char*>(encoded.data()),
                                               static_cast<qsizetype>(encoded.size()));
    QBuffer inputBuffer(&input);
    inputBuffer.open(QIODevice::ReadOnly);
    QImageReader reader(&inputBuffer);
    reader.setAutoTransform(true);
    const QImage decoded = reader.read();
    if (decoded.isNull())
        return platform::fail(Errc::invalidArgument,
                              fmt::format("the image cannot be decoded ({}); readable formats: {}",
                                          reader.errorString().toStdString(), readableFormats()));

    // A fresh image over the same pixels leaves the text keys and the
    // resolution of the original behind.
    const QImage pixels = decoded.convertToFormat(decoded.hasAlphaChannel() ? QImage::Format_ARGB32
                                                                            : QImage::Format_RGB32);
    const QImage bare(pixels.constBits(), pixels.width(), pixels.height(), pixels.bytesPerLine(),
                      pixels.format());

    QByteArray output;
    QBuffer outputBuffer(&output);
    outputBuffer.open(QIODevice::WriteOnly);
    QImageWriter writer(&outputBuffer, "png");
    if (!writer.write(bare))
        return platform::fail(Errc::ioError, fmt::format("the image cannot be written as PNG ({})",
                                                         writer.errorString().toStdString()));
    return platform::Bytes(output.begin(), output.end());
}

} // namespace tasket::apps
