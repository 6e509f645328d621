/// The program's settings as the records that every writer takes.

#pragma once

#include "tools/base/settings.h"

#include <vndlp/container.h>

namespace vndlp::tools {

/// \param settings complete.
DlpParameters parametersOf(const PrintSettings& settings);
DlpSliceBasicParameters sliceParametersOf(const PrintSettings& settings);

/// Area of a pixel in square micrometres.
double pixelAreaOf(const PrintSettings& settings, int width, int height);

}  // namespace vndlp::tools
