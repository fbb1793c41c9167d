#include "platform/extension/image_converter.h"

namespace tasket::platform {

ImageConverter::~ImageConverter() = default;

} // namespace tasket::platform
