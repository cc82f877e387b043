// Checks a picture the tool wrote: a PNG must decode with Cairo to the given
// size and show the six panel colors; an SVG must be well-formed XML whose
// root is an <svg> of the given view box, with drawn paths.
#include <cairo.h>
#include <expat.h>

#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <set>
#include <string>

namespace {

int Fail(const std::string& message)
{
    std::fprintf(stderr, "picture_check: %s\n", message.c_str());
    return 1;
}

int CheckPng(const char* path, int width, int height)
{
    cairo_surface_t* surface = cairo_image_surface_create_from_png(path);
    const cairo_status_t status = cairo_surface_status(surface);
    if (status != CAIRO_STATUS_SUCCESS) {
        cairo_surface_destroy(surface);
        return Fail(std::string(path) + ": " + cairo_status_to_string(status));
    }
    const int w = cairo_image_surface_get_width(surface), h = cairo_image_surface_get_height(surface);
    const int stride = cairo_image_surface_get_stride(surface);
    const unsigned char* data = cairo_image_surface_get_data(surface);
    std::set<uint32_t> colors;
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x) {
            uint32_t pixel;
            std::memcpy(&pixel, data + y * stride + x * 4, 4);
            colors.insert(pixel);
        }
    }
    cairo_surface_destroy(surface);
    if (w != width || h != height)
        return Fail(std::string(path) + ": size " + std::to_string(w) + "x" + std::to_string(h));
    // Six curve colors with their anti-aliased edges, grid, text and white.
    return colors.size() < 50 ? Fail(std::string(path) + ": only " + std::to_string(colors.size()) + " colors") : 0;
}

struct SvgState {
    int depth = 0, paths = 0;
    std::string root, viewBox;
};

int CheckSvg(const char* path, int width, int height)
{
    std::ifstream in(path, std::ios::binary);
    const std::string text((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    SvgState state;
    XML_Parser parser = XML_ParserCreate(nullptr);
    XML_SetUserData(parser, &state);
    XML_SetElementHandler(
        parser,
        [](void* data, const XML_Char* name, const XML_Char** attributes) {
            auto& s = *static_cast<SvgState*>(data);
            if (s.depth++ == 0) {
                s.root = name;
                for (int i = 0; attributes[i]; i += 2)
                    if (std::strcmp(attributes[i], "viewBox") == 0)
                        s.viewBox = attributes[i + 1];
            }
            s.paths += std::strcmp(name, "path") == 0;
        },
        [](void* data, const XML_Char*) { --static_cast<SvgState*>(data)->depth; });
    const bool parsed = XML_Parse(parser, text.data(), static_cast<int>(text.size()), 1) == XML_STATUS_OK;
    const std::string error = parsed ? "" : XML_ErrorString(XML_GetErrorCode(parser));
    XML_ParserFree(parser);
    if (!parsed)
        return Fail(std::string(path) + ": not well-formed XML: " + error);
    const std::string box = "0 0 " + std::to_string(width) + " " + std::to_string(height);
    if (state.root != "svg" || state.viewBox != box)
        return Fail(std::string(path) + ": root <" + state.root + "> with view box \"" + state.viewBox + "\"");
    return state.paths < 20 ? Fail(std::string(path) + ": only " + std::to_string(state.paths) + " paths") : 0;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 4)
        return Fail("usage: picture_check FILE.png|FILE.svg WIDTH HEIGHT");
    const std::string path = argv[1];
    const int width = std::atoi(argv[2]), height = std::atoi(argv[3]);
    const bool svg = path.size() > 4 && path.compare(path.size() - 4, 4, ".svg") == 0;
    return svg ? CheckSvg(argv[1], width, height) : CheckPng(argv[1], width, height);
}
