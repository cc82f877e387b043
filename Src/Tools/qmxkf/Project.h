// A project file: one property bag on disk holding one keyframe track. It is
// loaded only when the track in it reads back whole, edited under the file's
// edit lock, and saved only when what is about to be stored reopens to the
// same track.
#pragma once

#include <array>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "IKeyFrame.h"
#include "IQMXKeyFrame.h"
#include "KeyData.h"
#include "ModuleHost.h"
#include "QMXComPtr.h"

namespace qmxkf {

class Project {
public:
    enum class Open {
        Read,  // any number of readers; saves are atomic, so a reader sees one whole version
        Edit,  // holds the file's edit lock until the project is destroyed
        New,   // the file must not exist yet; the first save creates it
    };
    // How long an edit waits for another process's edit of the same file.
    static constexpr int kDefaultWaitMilliseconds = 10000;

    // Opens and loads `path`. Throws ToolError naming the file and its first
    // fault when it does not load.
    Project(const ModuleHost& module, const std::string& path, Open mode,
            int waitMilliseconds = kDefaultWaitMilliseconds);

    // Every fault that keeps `path` from loading, one line each; empty when
    // it loads.
    static std::vector<std::string> Check(const ModuleHost& module, const std::string& path);

    const std::string& Path() const { return m_path; }
    IQMXKeyFrame& Track() { return *m_track; }
    int KeyCount() { return m_track->GetKeyFrameCount(); }
    // The key at `index`; throws ToolError naming the valid range.
    KeyFrameParam Key(int index);

    // The kind of key `index` on `property` when it is one the module never
    // recomputes (free or none; such keys come only from a file), else -1.
    int FixedKind(int property, int index);
    // The key at `time` was removed or replaced by a new one (or, with
    // ForgetAll, every key was).
    void Forget(double time) { m_fixedKinds.erase(time); }
    void ForgetAll() { m_fixedKinds.clear(); }

    using Curves = std::array<core::IKeyFrame*, qmx::kTrackPropertyCount>;
    // Runs `edit` on the track's six curves, as the module reads them back
    // from the track's texts, and has the track take the curves as `edit`
    // leaves them: the way to what the track's own interface does not offer
    // (a key's kind, keys as data). `edit` throws ToolError to change nothing.
    void EditCurves(const std::function<void(const Curves&)>& edit);
    // Every key of every property, as the curves store them.
    TrackKeys Keys();

    // The track as it is now, to go back to when an edit made of several
    // steps is refused after its first. Throws ToolError when the track's
    // texts do not read back whole (they could not bring it back exactly).
    struct Checkpoint {
        QMXComPtr<IQMXProperties> bag;
        std::map<double, std::array<int, 6>> fixedKinds;
    };
    Checkpoint Mark();
    void Restore(const Checkpoint& checkpoint);

    // Writes the track into the bag, checks that the bag now holds a track
    // that reads back whole, then saves the bag to disk (see
    // QMXSaveFileProperties). Throws ToolError, leaving the file as it was.
    void Save();

private:
    // The track's curves as its texts in the bag read back (the bag is
    // brought up to date with the track first).
    std::array<QMXComPtr<core::IKeyFrame>, 6> ReadCurves();
    // Notes the keys of kind free or none (see FixedKind).
    void RememberFixedKinds(const std::array<QMXComPtr<core::IKeyFrame>, 6>& curves);

    const ModuleHost* m_module;
    std::string m_path;
    QMXComPtr<IQMXProperties> m_bag;
    QMXComPtr<IQMXKeyFrame> m_track;
    QMXComPtr<IQMXStorage> m_storage;
    // Keys with a free or none kind on some property, by time: the kind per
    // property, -1 for the others.
    std::map<double, std::array<int, 6>> m_fixedKinds;
};

}  // namespace qmxkf
