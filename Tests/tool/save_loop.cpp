// Writer for the crash-safe save check: saves a project of KEYS keys to FILE through the file-backed
// bag, either once as version V (1 or 2) or alternating versions 1 and 2 until it is killed.
//   save_loop FILE KEYS V      one save of version V
//   save_loop FILE KEYS loop   saves 1, 2, 1, 2, ... forever
// Both versions have the same key times and every value equal to V, so their saved texts have the same
// length and the same entries; the entry "SaveLoopVersion" marks which one a file holds.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "IQMXKeyFrame.h"
#include "QMXCommon.h"
#include "QMXKeyFrameGuids.h"
#include "QMXPropertyBag.h"

namespace {

// A new track of `keys` keys at times 0, 0.04, 0.08, ... with every value equal to `version`.
IQMXStorage* NewVersion(int keys, int version)
{
    IQMXKeyFrame* track = nullptr;
    IQMXStorage* storage = nullptr;
    if (QMXCommon::GetInterface(CLSID_QMXKeyFrame, nullptr, 0, IID_IQMXKeyFrame,
                                reinterpret_cast<void**>(&track)) != S_OK)
        return nullptr;
    for (int i = 0; i < keys; ++i) {
        const double v = version;
        KeyFrameParam key = {i * 0.04, v, v, v, v, v, v};
        track->AddKeyFrame(key);
    }
    track->QueryInterface(IID_IQMXStorage, reinterpret_cast<void**>(&storage));
    track->Release();
    return storage;
}

bool Save(IQMXProperties* bag, IQMXStorage* version, int number)
{
    version->WriteTo(bag);
    bag->SetInt(L"SaveLoopVersion", number);
    char error[512] = {};
    if (FAILED(QMXSaveFileProperties(bag, error, sizeof error))) {
        std::fprintf(stderr, "save_loop: %s\n", error);
        return false;
    }
    return true;
}

}  // namespace

int main(int argc, char** argv)
{
    if (argc != 4) {
        std::fprintf(stderr, "usage: save_loop FILE KEYS 1|2|loop\n");
        return 2;
    }
    const int keys = std::atoi(argv[2]);
    const bool loop = std::strcmp(argv[3], "loop") == 0;
    char error[512] = {};
    IQMXProperties* bag = QMXOpenFileProperties(argv[1], 1, error, sizeof error);
    IQMXStorage* versions[2] = {NewVersion(keys, 1), NewVersion(keys, 2)};
    if (bag == nullptr || versions[0] == nullptr || versions[1] == nullptr) {
        std::fprintf(stderr, "save_loop: %s\n", bag == nullptr ? error : "no keyframe track");
        return 1;
    }
    bool ok = true;
    if (!loop) {
        const int number = std::atoi(argv[3]) == 2 ? 2 : 1;
        ok = Save(bag, versions[number - 1], number);
    }
    // The first line tells a watcher that the saves have begun.
    for (int round = 0; loop && ok; ++round) {
        ok = Save(bag, versions[round % 2], 1 + round % 2);
        if (round == 0) {
            std::printf("saving\n");
            std::fflush(stdout);
        }
    }
    versions[0]->Release();
    versions[1]->Release();
    bag->Release();
    return ok ? 0 : 1;
}
