#include "Project.h"

#include <sys/stat.h>

#include "Properties.h"
#include "QMXPropertyBag.h"
#include "StoredTrack.h"
#include "ToolError.h"

namespace qmxkf {

namespace {

QMXComPtr<IQMXProperties> OpenBag(const std::string& path, Project::Open mode, int waitMilliseconds)
{
    struct stat info {};
    if (mode == Project::Open::New && lstat(path.c_str(), &info) == 0)
        throw ToolError(path + ": already exists");
    char error[512] = {};
    QMXComPtr<IQMXProperties> bag;
    if (mode == Project::Open::Read)
        bag.Attach(QMXOpenFileProperties(path.c_str(), 0, error, sizeof error));
    else
        bag.Attach(QMXEditFileProperties(path.c_str(), mode == Project::Open::New ? 1 : 0, waitMilliseconds, error,
                                         sizeof error));
    if (!bag)
        throw ToolError(error);
    return bag;
}

long long FileSize(const std::string& path)
{
    struct stat info {};
    return stat(path.c_str(), &info) == 0 ? static_cast<long long>(info.st_size) : 0;
}

}  // namespace

Project::Project(const ModuleHost& module, const std::string& path, Open mode, int waitMilliseconds)
    : m_module(&module), m_path(path), m_bag(OpenBag(path, mode, waitMilliseconds))
{
    m_track = module.CreateTrack();
    m_storage = module.Query<IQMXStorage>(m_track.Get(), module.Id("IID_IQMXStorage"));
    if (!m_storage)
        throw ToolError(module.Path() + ": the track has no storage interface");
    if (mode == Open::New)
        return;
    const StoredTrack stored = ReadStoredTrack(module, m_bag.Get(), FileSize(path));
    if (!stored.problems.empty()) {
        const size_t more = stored.problems.size() - 1;
        throw ToolError(path + ": " + stored.problems.front() +
                        (more > 0 ? " (and " + std::to_string(more) + " more: see qmxkf check)" : ""));
    }
    m_storage->ReadFrom(m_bag.Get());
    RememberFixedKinds(stored.curves);
}

void Project::RememberFixedKinds(const std::array<QMXComPtr<core::IKeyFrame>, 6>& curves)
{
    m_fixedKinds.clear();
    for (int key = 0, count = KeyCount(); key < count; ++key) {
        for (int p = 0; p < 6; ++p) {
            const int kind = curves[p]->GetInterpolationType(key);
            if (kind != core::eKeyframeTypeFree && kind != core::eKeyframeTypeNone)
                continue;
            auto [entry, added] = m_fixedKinds.try_emplace(curves[0]->GetPointTime(key));
            if (added)
                entry->second.fill(-1);
            entry->second[p] = kind;
        }
    }
}

std::array<QMXComPtr<core::IKeyFrame>, 6> Project::ReadCurves()
{
    RemoveSegments(m_bag.Get());
    m_storage->WriteTo(m_bag.Get());
    StoredTrack stored = ReadStoredTrack(*m_module, m_bag.Get(), -1);
    if (!stored.problems.empty())
        throw ToolError(stored.problems.front());
    return stored.curves;
}

void Project::EditCurves(const std::function<void(const Curves&)>& edit)
{
    const std::array<QMXComPtr<core::IKeyFrame>, 6> curves = ReadCurves();
    Curves faces;
    for (int p = 0; p < 6; ++p)
        faces[p] = curves[p].Get();
    edit(faces);
    for (int p = 0; p < 6; ++p)
        WriteCurveText(m_bag.Get(), p, curves[p]->Serialize());
    m_storage->ReadFrom(m_bag.Get());
    RememberFixedKinds(curves);
}

Project::Checkpoint Project::Mark()
{
    Checkpoint checkpoint{QMXComPtr<IQMXProperties>(), m_fixedKinds};
    checkpoint.bag.Attach(QMXCreateMemoryProperties());
    m_storage->WriteTo(checkpoint.bag.Get());
    // The track comes back from its texts exactly only when they read back
    // whole; a track that does not (an earlier edit of the same script made
    // it unsaveable) takes no edit that might need taking back.
    const StoredTrack stored = ReadStoredTrack(*m_module, checkpoint.bag.Get(), -1);
    if (!stored.problems.empty())
        throw ToolError(stored.problems.front());
    return checkpoint;
}

void Project::Restore(const Checkpoint& checkpoint)
{
    m_storage->ReadFrom(checkpoint.bag.Get());
    m_fixedKinds = checkpoint.fixedKinds;
}

TrackKeys Project::Keys()
{
    const std::array<QMXComPtr<core::IKeyFrame>, 6> curves = ReadCurves();
    TrackKeys keys;
    for (int p = 0; p < 6; ++p) {
        for (int i = 0, count = curves[p]->GetKeyFramesCount(); i < count; ++i) {
            KeyRecord key{curves[p]->GetPointTime(i), curves[p]->GetPointValue(i).Get<double>(),
                          curves[p]->GetInterpolationType(i), 0.0, 0.0};
            curves[p]->GetPointControlParam(i, key.left, key.right);
            keys[p].push_back(key);
        }
    }
    return keys;
}

std::vector<std::string> Project::Check(const ModuleHost& module, const std::string& path)
{
    std::vector<std::string> problems;
    try {
        const QMXComPtr<IQMXProperties> bag = OpenBag(path, Open::Read, 0);
        for (const std::string& problem : ReadStoredTrack(module, bag.Get(), FileSize(path)).problems)
            problems.push_back(path + ": " + problem);
    } catch (const ToolError& e) {
        problems.push_back(e.what());
    }
    return problems;
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

int Project::FixedKind(int property, int index)
{
    if (m_fixedKinds.empty() || index < 0 || index >= KeyCount())
        return -1;
    const auto found = m_fixedKinds.find(Key(index).dPosition);
    return found == m_fixedKinds.end() ? -1 : found->second[property];
}

void Project::Save()
{
    // The bag is rewritten in memory; the file changes only at the end.
    RemoveSegments(m_bag.Get());
    m_storage->WriteTo(m_bag.Get());
    const StoredTrack stored = ReadStoredTrack(*m_module, m_bag.Get(), -1);
    if (!stored.problems.empty())
        throw ToolError(stored.problems.front() + " (" + m_path + " is left as it was)");
    char error[512] = {};
    if (FAILED(QMXSaveFileProperties(m_bag.Get(), error, sizeof error)))
        throw ToolError(error);
}

}  // namespace qmxkf
