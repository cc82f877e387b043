// A project file: one property bag on disk holding one keyframe track.
#pragma once

#include <string>

#include "IQMXKeyFrame.h"
#include "ModuleHost.h"
#include "QMXComPtr.h"

namespace qmxkf {

class Project {
public:
    enum class Open { Existing, New };

    // Opens `path` (Existing: it must be a readable project; New: it must
    // not exist yet) and loads its track. Throws ToolError.
    Project(const ModuleHost& module, const std::string& path, Open mode);

    IQMXKeyFrame& Track() { return *m_track; }
    int KeyCount() { return m_track->GetKeyFrameCount(); }
    // The key at `index`; throws ToolError naming the valid range.
    KeyFrameParam Key(int index);
    // Writes the track into the bag and the bag to disk, atomically.
    void Save();

private:
    std::string m_path;
    QMXComPtr<IQMXProperties> m_bag;
    QMXComPtr<IQMXKeyFrame> m_track;
    QMXComPtr<IQMXStorage> m_storage;
};

}  // namespace qmxkf
