// A track's six curves as a web animation: a CSS stylesheet, Web Animations
// keyframes in JSON, or a Lottie file. Values between keys are exact: every
// segment is written as the cubic Bezier it is.
#pragma once

#include <string>

#include "KeyData.h"

namespace qmxkf {

enum class WebFormat { Css, Waapi, Lottie };

// The track as a web animation; `source` names the project in the header or
// notes; `rate` is the Lottie frame rate (frames per second, > 0). Throws
// ToolError for what cannot be exported (one line, naming property and key).
std::string WriteWebExport(const TrackKeys& keys, WebFormat format, double rate, const std::string& source);

}  // namespace qmxkf
