// The smallest host: loads the keyframe module (the path given, or the one the
// host runtime finds), animates a track from two keys and prints samples.
#include <dlfcn.h>

#include <cstdio>

#include "IQMXKeyFrame.h"
#include "QMXComPtr.h"
#include "QMXCommon.h"
#include "QMXRuntime.h"

int main(int argc, char** argv)
{
    void* module = QMXLoadModule(argc > 1 ? argv[1] : nullptr);
    if (module == nullptr) {
        std::fprintf(stderr, "minimal_host: %s\n", QMXLastModuleError());
        return 1;
    }
    const char* version = QMXModuleVersion(module);
    std::printf("runtime %s, module %s\n", QMXRuntimeVersion(), version != nullptr ? version : "(unversioned)");

    // The identifiers are the module's own exports.
    const auto* clsid = static_cast<const _GUID*>(dlsym(module, "CLSID_QMXKeyFrame"));
    const auto* iid = static_cast<const _GUID*>(dlsym(module, "IID_IQMXKeyFrame"));
    QMXComPtr<IQMXKeyFrame> track;
    if (clsid == nullptr || iid == nullptr ||
        FAILED(QMXCommon::GetInterface(*clsid, nullptr, 0, *iid, reinterpret_cast<void**>(&track)))) {
        std::fprintf(stderr, "minimal_host: the module serves no keyframe track\n");
        return 1;
    }

    // time; angle; position x, y; scale x, y; opacity
    KeyFrameParam keys[] = {{0.0, 0, -400, 0, 0.5, 0.5, 0}, {1.0, 90, 0, 0, 1, 1, 1}};
    for (KeyFrameParam& key : keys) {
        int index = -1;
        track->AddKeyFrame(key, index);
    }
    for (double time = 0; time <= 1.0; time += 0.25) {
        KeyFrameParam at{};
        track->GetKeyFrame(time, at);
        std::printf("t=%.2f angle=%g x=%g scale=%g opacity=%g\n", time, at.dAngle, at.dPositionX, at.dScaleX,
                    at.dOpacity);
    }
    return 0;
}
