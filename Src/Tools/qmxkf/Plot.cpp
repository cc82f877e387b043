#include "Plot.h"

#include <cairo-svg.h>
#include <cairo.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdlib>
#include <cstdio>
#include <cstring>
#include <memory>

#include "Project.h"
#include "Properties.h"
#include "ToolError.h"
#include "val_any.h"

namespace qmxkf {

namespace {

struct Color {
    double r, g, b;
};

// One color per panel, readable on white and distinct from each other.
constexpr Color kPalette[] = {{0.84, 0.37, 0.00}, {0.00, 0.45, 0.70}, {0.00, 0.62, 0.45},
                              {0.80, 0.47, 0.65}, {0.34, 0.47, 0.74}, {0.60, 0.40, 0.20}};
constexpr Color kInk = {0.15, 0.15, 0.15};
constexpr Color kGrid = {0.88, 0.88, 0.88};
constexpr Color kGuide = {0.45, 0.45, 0.45};

constexpr double kHeader = 56.0;  // title and legend band
constexpr double kFont = 13.0;

void SetColor(cairo_t* cr, Color c, double alpha = 1.0)
{
    cairo_set_source_rgba(cr, c.r, c.g, c.b, alpha);
}

// Draws `text` with its anchor at `alignX` of its width (0 left, 1 right);
// returns the width.
double Text(cairo_t* cr, double x, double y, const std::string& text, double size, double alignX = 0.0,
            bool bold = false)
{
    cairo_select_font_face(cr, "sans-serif", CAIRO_FONT_SLANT_NORMAL,
                           bold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(cr, size);
    cairo_text_extents_t extents;
    cairo_text_extents(cr, text.c_str(), &extents);
    cairo_move_to(cr, x - alignX * extents.x_advance, y);
    cairo_show_text(cr, text.c_str());
    return extents.x_advance;
}

// Evenly spaced round values (1, 2 or 5 times a power of ten) covering
// [low, high], with the decimals their labels need.
struct Ticks {
    double first, step;
    int count, decimals;
};

Ticks NiceTicks(double low, double high, int wanted)
{
    const double raw = (high - low) / wanted;
    const double magnitude = std::pow(10.0, std::floor(std::log10(raw)));
    const double fraction = raw / magnitude;
    const double step = (fraction <= 1.0 ? 1.0 : fraction <= 2.0 ? 2.0 : fraction <= 5.0 ? 5.0 : 10.0) * magnitude;
    const double first = std::ceil(low / step - 1e-9) * step;
    const int count = static_cast<int>(std::floor((high - first) / step + 1e-9)) + 1;
    return {first, step, std::max(count, 0), std::max(0, -static_cast<int>(std::floor(std::log10(step) + 1e-9)))};
}

std::string TickLabel(double value, int decimals)
{
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", decimals, std::fabs(value) < 1e-12 ? 0.0 : value);
    return text;
}

// The value range a panel shows: its samples, keys and guides, padded; a
// flat curve gets a band around its value.
std::pair<double, double> ValueRange(const Panel& panel)
{
    double low = INFINITY, high = -INFINITY;
    for (const std::vector<double>* values : {&panel.series.values, &panel.series.keyValues, &panel.guides}) {
        for (double v : *values) {
            low = std::min(low, v);
            high = std::max(high, v);
        }
    }
    if (!(low <= high))
        return {-1.0, 1.0};
    const double span = high - low;
    const double pad = span > 0.0 ? span * 0.08 : std::max(std::fabs(low) * 0.1, 1.0);
    return {low - pad, high + pad};
}

// A panel's plotting area and its mapping from (time, value) to device space.
struct Frame {
    double x, y, width, height;
    double t0, t1, v0, v1;
    double X(double t) const { return x + (t - t0) / (t1 - t0) * width; }
    double Y(double v) const { return y + height - (v - v0) / (v1 - v0) * height; }
};

void DrawAxes(cairo_t* cr, const Frame& f)
{
    cairo_set_line_width(cr, 1.0);
    const Ticks vt = NiceTicks(f.v0, f.v1, 5), tt = NiceTicks(f.t0, f.t1, 6);
    for (int i = 0; i < vt.count; ++i) {
        const double v = vt.first + i * vt.step, y = std::round(f.Y(v)) + 0.5;
        SetColor(cr, kGrid);
        cairo_move_to(cr, f.x, y);
        cairo_line_to(cr, f.x + f.width, y);
        cairo_stroke(cr);
        SetColor(cr, kInk);
        Text(cr, f.x - 6, y + 4, TickLabel(v, vt.decimals), kFont * 0.85, 1.0);
    }
    for (int i = 0; i < tt.count; ++i) {
        const double t = tt.first + i * tt.step, x = std::round(f.X(t)) + 0.5;
        SetColor(cr, kGrid);
        cairo_move_to(cr, x, f.y);
        cairo_line_to(cr, x, f.y + f.height);
        cairo_stroke(cr);
        SetColor(cr, kInk);
        Text(cr, x, f.y + f.height + 15, TickLabel(t, tt.decimals), kFont * 0.85, 0.5);
    }
    SetColor(cr, kInk);
    cairo_rectangle(cr, f.x + 0.5, f.y + 0.5, f.width, f.height);
    cairo_stroke(cr);
    Text(cr, f.x + f.width, f.y + f.height + 30, "time (s)", kFont * 0.85, 1.0);
}

void DashedLine(cairo_t* cr, double x0, double x1, double y)
{
    const double dash[] = {5.0, 4.0};
    cairo_set_dash(cr, dash, 2, 0.0);
    SetColor(cr, kGuide);
    cairo_set_line_width(cr, 1.0);
    cairo_move_to(cr, x0, y);
    cairo_line_to(cr, x1, y);
    cairo_stroke(cr);
    cairo_set_dash(cr, nullptr, 0, 0.0);
}

void DrawGuides(cairo_t* cr, const Frame& f, const std::vector<double>& guides)
{
    for (double v : guides)
        DashedLine(cr, f.x, f.x + f.width, f.Y(v));
}

void DrawKey(cairo_t* cr, double x, double y, Color color)
{
    cairo_new_path(cr);
    cairo_arc(cr, x, y, 4.0, 0.0, 2.0 * M_PI);
    cairo_set_source_rgb(cr, 1.0, 1.0, 1.0);
    cairo_fill_preserve(cr);
    SetColor(cr, color);
    cairo_set_line_width(cr, 2.0);
    cairo_stroke(cr);
}

void DrawSeries(cairo_t* cr, const Frame& f, const Series& s, Color color)
{
    cairo_save(cr);
    cairo_rectangle(cr, f.x, f.y, f.width, f.height);
    cairo_clip(cr);
    SetColor(cr, color);
    cairo_set_line_width(cr, 2.0);
    cairo_set_line_join(cr, CAIRO_LINE_JOIN_ROUND);
    for (size_t i = 0; i < s.times.size(); ++i)
        (i == 0 ? cairo_move_to : cairo_line_to)(cr, f.X(s.times[i]), f.Y(s.values[i]));
    cairo_stroke(cr);
    cairo_restore(cr);
    for (size_t i = 0; i < s.keyTimes.size(); ++i)
        DrawKey(cr, f.X(s.keyTimes[i]), f.Y(s.keyValues[i]), color);
}

// Title on the left, legend (line, key marker, guide) on the right.
void DrawHeader(cairo_t* cr, Size size, const std::string& title, const std::string& guideLabel)
{
    SetColor(cr, kInk);
    Text(cr, 24, 34, title, kFont * 1.5, 0.0, true);
    double x = size.width - 24.0;
    const double y = 30.0;
    auto entry = [&](const std::string& label, auto&& mark) {
        SetColor(cr, kInk);
        x -= Text(cr, x, y + 4, label, kFont, 1.0) + 34.0;
        mark(x);
        x -= 20.0;
    };
    if (!guideLabel.empty()) {
        entry(guideLabel, [&](double at) { DashedLine(cr, at, at + 28, y); });
    }
    entry("key", [&](double at) { DrawKey(cr, at + 14, y, kInk); });
    entry("value", [&](double at) {
        SetColor(cr, kInk);
        cairo_set_line_width(cr, 2.0);
        cairo_move_to(cr, at, y);
        cairo_line_to(cr, at + 28, y);
        cairo_stroke(cr);
    });
}

struct SurfaceDeleter {
    void operator()(cairo_surface_t* s) const { cairo_surface_destroy(s); }
};
struct ContextDeleter {
    void operator()(cairo_t* c) const { cairo_destroy(c); }
};

bool EndsWith(const std::string& text, const std::string& tail)
{
    return text.size() >= tail.size() && text.compare(text.size() - tail.size(), tail.size(), tail) == 0;
}

}  // namespace

Size ParseSize(const std::string& text)
{
    Size size;
    char tail = 0;
    if (std::sscanf(text.c_str(), "%dx%d%c", &size.width, &size.height, &tail) != 2 || size.width < 200 ||
        size.height < 200 || size.width > 8000 || size.height > 8000)
        throw ToolError("--size " + text + ": expected WIDTHxHEIGHT, each from 200 to 8000 pixels");
    return size;
}

void DrawPanels(const std::string& path, Size size, const std::string& title, const std::vector<Panel>& panels,
                int columns, const std::string& guideLabel)
{
    const bool svg = EndsWith(path, ".svg");
    if (!svg && !EndsWith(path, ".png"))
        throw ToolError(path + ": the picture's name must end in .svg or .png");
    // Drawn beside the target into a new file of its own (never one that
    // exists: another plot's, or a user's) and renamed over it, so a failure
    // leaves no half-written picture. Created here because Cairo reports a
    // file it cannot create without the reason; given the mode a new file
    // gets.
    std::string temporary = path + ".tmp-XXXXXX";
    const int created = mkstemp(temporary.data());
    if (created < 0)
        throw ToolError(path + ": cannot write the picture (" + std::strerror(errno) + ")");
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(created, 0666 & ~mask);
    close(created);
    std::unique_ptr<cairo_surface_t, SurfaceDeleter> surface(
        svg ? cairo_svg_surface_create(temporary.c_str(), size.width, size.height)
            : cairo_image_surface_create(CAIRO_FORMAT_ARGB32, size.width, size.height));
    std::unique_ptr<cairo_t, ContextDeleter> context(cairo_create(surface.get()));
    cairo_t* cr = context.get();
    cairo_set_source_rgb(cr, 1.0, 1.0, 1.0);
    cairo_paint(cr);
    DrawHeader(cr, size, title, guideLabel);

    const int rows = (static_cast<int>(panels.size()) + columns - 1) / columns;
    const double cellWidth = size.width / static_cast<double>(columns);
    const double cellHeight = (size.height - kHeader) / rows;
    for (size_t i = 0; i < panels.size(); ++i) {
        const Panel& panel = panels[i];
        const Series& s = panel.series;
        const double cellX = (i % columns) * cellWidth, cellY = kHeader + (i / columns) * cellHeight;
        const auto [v0, v1] = ValueRange(panel);
        const double t0 = s.times.empty() ? 0.0 : s.times.front();
        const double t1 = s.times.size() < 2 ? t0 + 1.0 : s.times.back();
        const Frame frame{cellX + 64, cellY + 28, cellWidth - 84, cellHeight - 70, t0, t1, v0, v1};
        const Color color = kPalette[i % std::size(kPalette)];
        SetColor(cr, color);
        Text(cr, frame.x, cellY + 18, panel.title, kFont * 1.1, 0.0, true);
        DrawAxes(cr, frame);
        DrawGuides(cr, frame, panel.guides);
        DrawSeries(cr, frame, s, color);
    }
    context.reset();
    cairo_status_t status = cairo_surface_status(surface.get());
    if (status == CAIRO_STATUS_SUCCESS && !svg)
        status = cairo_surface_write_to_png(surface.get(), temporary.c_str());
    cairo_surface_finish(surface.get());
    if (status == CAIRO_STATUS_SUCCESS)
        status = cairo_surface_status(surface.get());
    surface.reset();
    std::string reason;
    if (status != CAIRO_STATUS_SUCCESS)
        reason = cairo_status_to_string(status);
    else if (std::rename(temporary.c_str(), path.c_str()) != 0)
        reason = std::strerror(errno);
    if (!reason.empty()) {
        unlink(temporary.c_str());
        throw ToolError(path + ": cannot write the picture (" + reason + ")");
    }
}

void CommandPlot(const ModuleHost& module, const std::string& file, const std::string& out, Size size, int rate)
{
    Project project(module, file, Project::Open::Read);
    const int count = project.KeyCount();
    if (count == 0)
        throw ToolError(file + " has no keys to plot");
    std::vector<KeyFrameParam> keys;
    for (int i = 0; i < count; ++i)
        keys.push_back(project.Key(i));

    // The keys' span with a margin, sampled at every frame of the rate (at
    // most two samples per pixel column).
    const double first = keys.front().dPosition, last = keys.back().dPosition;
    const double margin = last > first ? (last - first) * 0.05 : 0.5;
    const double t0 = first - margin, t1 = last + margin;
    const double frames = (t1 - t0) * rate;
    const double step = std::max(1.0, std::ceil(frames / (2.0 * size.width))) / rate;
    std::vector<double> times;
    for (double k = std::ceil(t0 / step); k * step <= t1; ++k)
        times.push_back(k * step);

    std::vector<Panel> panels;
    for (const Property& property : kProperties) {
        Panel panel{property.title, {}, {}};
        panel.series.times = times;
        for (const KeyFrameParam& key : keys) {
            panel.series.keyTimes.push_back(key.dPosition);
            panel.series.keyValues.push_back(key.*property.field);
        }
        panels.push_back(std::move(panel));
    }
    for (double t : times) {
        KeyFrameParam sample{};
        project.Track().GetKeyFrame(t, sample);
        for (size_t i = 0; i < panels.size(); ++i)
            panels[i].series.values.push_back(sample.*kProperties[i].field);
    }
    const std::string name = file.substr(file.find_last_of('/') + 1);
    DrawPanels(out, size, name + ": " + std::to_string(count) + " keys, " + std::to_string(rate) + " fps", panels,
               3, "");
    std::printf("wrote %s (%dx%d)\n", out.c_str(), size.width, size.height);
}

void CommandKinds(const ModuleHost& module, const std::string& out, Size size)
{
    // A rise, a near-plateau, a drop and a hold: smooth overshoots the
    // plateau and the hold, smooth clamped keeps within each segment.
    const double keyTimes[] = {0.0, 1.0, 2.0, 3.0, 4.0, 5.0};
    const double keyValues[] = {0.0, 8.0, 9.0, 2.0, 2.0, 6.0};
    std::vector<Panel> panels;
    for (int kind = core::eKeyframeTypeConstant; kind <= core::eKeyframeTypeFlat; ++kind) {
        QMXComPtr<core::IKeyFrame> curve = module.CreateCurve();
        curve->SetParameterType(core::eParameterTypeDouble);
        for (size_t i = 0; i < std::size(keyTimes); ++i)
            curve->AddPoint(keyTimes[i], core::ValAny(keyValues[i]), static_cast<core::KeyframeInterpolationType>(kind));
        Panel panel{kKindNames[kind], {}, {0.0, 9.0}};
        const int samples = 2 * size.width / 3;
        for (int i = 0; i <= samples; ++i) {
            const double t = -0.25 + 5.5 * i / samples;
            panel.series.times.push_back(t);
            panel.series.values.push_back(curve->GetValue(t, false).Get<double>());
        }
        panel.series.keyTimes.assign(std::begin(keyTimes), std::end(keyTimes));
        panel.series.keyValues.assign(std::begin(keyValues), std::end(keyValues));
        panels.push_back(std::move(panel));
    }
    DrawPanels(out, size, "One key set under each interpolation kind", panels, 3, "key value range");
    std::printf("wrote %s (%dx%d)\n", out.c_str(), size.width, size.height);
}

}  // namespace qmxkf
