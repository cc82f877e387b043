#include "Demo.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <iterator>

#include "Commands.h"
#include "Plot.h"
#include "Project.h"
#include "ToolError.h"

namespace qmxkf {

namespace {

// A title card enters from the left, tilted, small and transparent,
// overshoots a little, settles, holds, then fades out.
//                                 time  angle      x      y    sx    sy  opacity
constexpr KeyFrameParam kCard[] = {{0.0, -30.0, -800.0, 120.0, 0.3, 0.3, 0.0},
                                   {0.8, 8.0, 40.0, -10.0, 1.15, 1.15, 1.0},
                                   {1.2, 0.0, 0.0, 0.0, 1.0, 1.0, 1.0},
                                   {2.5, 0.0, 0.0, 0.0, 1.0, 1.0, 1.0},
                                   {3.0, 0.0, 0.0, -20.0, 1.1, 1.1, 0.0}};
// The easing of each key (the segment it starts, and its tangents): the card
// eases in, swings through its overshoot, holds flat, and fades out in an
// ease; its opacity snaps on at the first key's end.
constexpr core::KeyframeInterpolationType kCardKinds[] = {
    core::eKeyframeTypeSmoothClamped, core::eKeyframeTypeSmooth, core::eKeyframeTypeFlat,
    core::eKeyframeTypeSmoothClamped, core::eKeyframeTypeLinear};
constexpr int kOpacity = 3;
constexpr core::KeyframeInterpolationType kOpacityKinds[] = {
    core::eKeyframeTypeConstant, core::eKeyframeTypeFlat, core::eKeyframeTypeFlat, core::eKeyframeTypeSmoothClamped,
    core::eKeyframeTypeLinear};

void MakeDirectory(const std::string& dir)
{
    if (mkdir(dir.c_str(), 0777) != 0 && errno != EEXIST)
        throw ToolError(dir + ": " + std::strerror(errno));
}

}  // namespace

void CommandDemo(const ModuleHost& module, const std::string& dir)
{
    MakeDirectory(dir);
    const std::string file = dir + "/demo.qmxbag";
    unlink(file.c_str());  // the demo's own output of an earlier run
    {
        Project project(module, file, Project::Open::New);
        for (KeyFrameParam key : kCard) {
            int index = -1;
            project.Track().AddKeyFrame(key, index);
        }
        project.EditCurves([](const Project::Curves& curves) {
            for (int p = 0; p < 6; ++p)
                for (int key = 0; key < int(std::size(kCard)); ++key)
                    curves[p]->SetPointInterpolationType(key, (p == kOpacity ? kOpacityKinds : kCardKinds)[key]);
        });
        project.Save();
    }
    std::printf("Saved a title card flying in: %s\n\nIts keys, read back from the file (30 fps):\n", file.c_str());
    CommandList(module, file, 30, SampleFormat::Table);
    std::printf("\nIts first second, sampled at 10 fps:\n");
    CommandSample(module, file, 10, 0.0, 1.0, SampleFormat::Table);
    std::printf("\n");
    const Size size{1200, 760};
    for (const char* picture : {"/demo.svg", "/demo.png"})
        CommandPlot(module, file, dir + picture, size, 30);
    CommandKinds(module, dir + "/kinds.png", size);
    std::printf("\nPictures: %s/demo.svg, %s/demo.png and %s/kinds.png\n", dir.c_str(), dir.c_str(), dir.c_str());
}

}  // namespace qmxkf
