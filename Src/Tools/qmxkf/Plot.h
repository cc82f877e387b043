// Pictures of curves: panels of sampled values with their keys, drawn with
// Cairo into SVG or PNG from the same drawing code.
#pragma once

#include <string>
#include <vector>

#include "ModuleHost.h"

namespace qmxkf {

struct Size {
    int width = 0, height = 0;
};

// "WIDTHxHEIGHT", each from 200 to 8000 pixels; throws ToolError.
Size ParseSize(const std::string& text);

// One curve: samples joined by a line, keys marked.
struct Series {
    std::vector<double> times, values;
    std::vector<double> keyTimes, keyValues;
};

// A labelled panel; `guides` are values drawn as dashed reference lines.
struct Panel {
    std::string title;
    Series series;
    std::vector<double> guides;
};

// Draws the panels in a grid of `columns` under `title` into `path`, whose
// extension (.svg or .png) picks the format. Throws ToolError.
void DrawPanels(const std::string& path, Size size, const std::string& title, const std::vector<Panel>& panels,
                int columns, const std::string& guideLabel);

// The six curves of a project, sampled at `rate` frames per second.
void CommandPlot(const ModuleHost& module, const std::string& file, const std::string& out, Size size, int rate);
// One set of keys under each interpolation kind, through the module's curve.
void CommandKinds(const ModuleHost& module, const std::string& out, Size size);

}  // namespace qmxkf
