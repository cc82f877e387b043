#include "Project.h"

#include <sys/stat.h>

#include "QMXPropertyBag.h"
#include "SegmentCounts.h"
#include "ToolError.h"

namespace qmxkf {

Project::Project(const ModuleHost& module, const std::string& path, Open mode) : m_path(path)
{
    struct stat info {};
    if (mode == Open::New && stat(path.c_str(), &info) == 0)
        throw ToolError(path + ": already exists");
    char error[512] = {};
    m_bag.Attach(QMXOpenFileProperties(path.c_str(), mode == Open::New ? 1 : 0, error, sizeof error));
    if (!m_bag)
        throw ToolError(error);
    if (mode == Open::Existing && stat(path.c_str(), &info) == 0) {
        const std::string refusal = CheckSegmentCounts(m_bag.Get(), info.st_size);
        if (!refusal.empty())
            throw ToolError(path + ": " + refusal);
    }
    m_track = module.CreateTrack();
    m_storage = module.Query<IQMXStorage>(m_track.Get(), module.Id("IID_IQMXStorage"));
    if (!m_storage)
        throw ToolError(module.Path() + ": the track has no storage interface");
    m_storage->ReadFrom(m_bag.Get());
}

KeyFrameParam Project::Key(int index)
{
    const int count = KeyCount();
    if (index < 0 || index >= count) {
        throw ToolError("key index " + std::to_string(index) + " is out of range: " + m_path + " has " +
                        (count == 0 ? "no keys" : "keys 0 to " + std::to_string(count - 1)));
    }
    KeyFrameParam key{};
    m_track->GetKeyFrame(index, key);
    return key;
}

void Project::Save()
{
    m_storage->WriteTo(m_bag.Get());
    char error[512] = {};
    if (FAILED(QMXSaveFileProperties(m_bag.Get(), error, sizeof error)))
        throw ToolError(error);
}

}  // namespace qmxkf
