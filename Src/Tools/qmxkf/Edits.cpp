#include "Edits.h"

#include <algorithm>
#include <cmath>

#include "Output.h"
#include "Properties.h"
#include "ToolError.h"

namespace qmxkf {

namespace {

std::string Seconds(double time) { return Number(time) + " s"; }

// The number of keys earlier than `time`.
int KeysBefore(Project& project, double time)
{
    int low = 0, high = project.KeyCount();
    while (low < high) {
        const int middle = low + (high - low) / 2;
        if (project.Key(middle).dPosition < time)
            low = middle + 1;
        else
            high = middle;
    }
    return low;
}

// Refuses the edit when it would make the module recompute the tangents of
// key `index` on `property` (on every property for -1) and that key's kind
// there is free or none, which the module stops the program on. Neighbours
// of an edited key (`neighbour`) are passed over when their kind is none.
void RequireRecomputable(Project& project, int index, int property, bool neighbour)
{
    for (int p = 0; p < 6; ++p) {
        if (property >= 0 && p != property)
            continue;
        const int kind = project.FixedKind(p, index);
        if (kind < 0 || (neighbour && kind == core::eKeyframeTypeNone))
            continue;
        throw ToolError("key " + std::to_string(index) + " is of kind " + kKindNames[kind] + " on " +
                        kProperties[p].title + ": its tangents are kept as the file gives them, and this edit "
                        "would make the module recompute them");
    }
}

// Checks a move of key `index` to `time` and returns the index of the key it
// would replace there, or -1. The moved key is recomputed, and so are its
// new neighbours among the keys that stay.
int CheckRetime(Project& project, int index, double time, bool replace)
{
    if (time == project.Key(index).dPosition)
        return -1;
    RequireRecomputable(project, index, -1, false);
    const int other = project.Track().GetKeyFrameIndex(time);
    if (other >= 0 && !replace)
        throw ToolError("key " + std::to_string(other) + " is already at " + Seconds(time) +
                        ": give --replace to replace it");
    const int before = KeysBefore(project, time);
    const int below = before - 1 == index ? before - 2 : before - 1;
    const int first = other >= 0 ? other + 1 : before;
    const int above = first == index ? first + 1 : first;
    RequireRecomputable(project, below, -1, true);
    RequireRecomputable(project, above, -1, true);
    return other;
}

std::string Add(Project& project, double time, const ValueOptions& values)
{
    KeyFrameParam key = kNeutral;
    project.Track().GetKeyFrame(time, key);  // leaves the neutral values on an empty track
    key.dPosition = time;
    for (int p = 0; p < 6; ++p) {
        const double sampled = key.*kProperties[p].field;
        if (!values.Given(p) && !std::isfinite(sampled)) {
            throw ToolError(std::string("the track's ") + kProperties[p].title + " at " + Seconds(time) + " is " +
                            Number(sampled) + ": give --" + kProperties[p].option);
        }
    }
    values.ApplyTo(key);
    const int existing = project.Track().GetKeyFrameIndex(time);
    const int before = existing >= 0 ? existing : KeysBefore(project, time);
    RequireRecomputable(project, before - 1, -1, true);
    RequireRecomputable(project, existing >= 0 ? existing + 1 : before, -1, true);
    int index = -1;
    project.Track().AddKeyFrame(key, index);
    project.Forget(time);
    return (existing >= 0 ? "replaced key " : "added key ") + std::to_string(index) + " at " + Seconds(time);
}

std::string Set(Project& project, int index, std::optional<double> time, const ValueOptions& values, bool replace)
{
    const KeyFrameParam old = project.Key(index);
    KeyFrameParam key = old;
    values.ApplyTo(key);
    key.dPosition = time.value_or(old.dPosition);
    // The track writes the values first, at the key's old place: a changed
    // value recomputes the key and its neighbours on that property.
    for (int p = 0; p < 6; ++p) {
        if (key.*kProperties[p].field != old.*kProperties[p].field) {
            RequireRecomputable(project, index, p, false);
            RequireRecomputable(project, index - 1, p, true);
            RequireRecomputable(project, index + 1, p, true);
        }
    }
    const int replaced = CheckRetime(project, index, key.dPosition, replace);
    project.Track().SetKeyFrame(index, key);
    if (replaced >= 0)
        project.Forget(key.dPosition);
    return "set key " + std::to_string(index) + " (now key " +
           std::to_string(project.Track().GetKeyFrameIndex(key.dPosition)) + " at " + Seconds(key.dPosition) +
           (replaced >= 0 ? ", replacing the key that was there)" : ")");
}

std::string Move(Project& project, int index, double time, bool replace)
{
    project.Key(index);
    const int replaced = CheckRetime(project, index, time, replace);
    project.Track().ChangeKeyFramePosition(index, time);
    if (replaced >= 0)
        project.Forget(time);
    return "moved key " + std::to_string(index) + " to " + Seconds(time) + " (now key " +
           std::to_string(project.Track().GetKeyFrameIndex(time)) +
           (replaced >= 0 ? ", replacing the key that was there)" : ")");
}

std::string Delete(Project& project, int index)
{
    const double time = project.Key(index).dPosition;
    // The module recomputes both neighbours; the one before the first key is
    // the last key, when there are more than two.
    const int count = project.KeyCount();
    RequireRecomputable(project, index > 0 ? index - 1 : count > 2 ? count - 1 : -1, -1, false);
    RequireRecomputable(project, index + 1, -1, false);
    project.Track().DeleteKeyFrame(index);
    project.Forget(time);
    return "deleted key " + std::to_string(index) + " (" + std::to_string(project.KeyCount()) + " left)";
}

std::string Clear(Project& project)
{
    const int count = project.KeyCount();
    project.Track().CleanAllKeyFrame();
    project.ForgetAll();
    return "cleared " + std::to_string(count) + " keys";
}

// Gives key `index` the kinds asked for, through the curves: the module
// recomputes the key's tangents and its neighbours' on each property whose
// kind changes. Returns what changed, for the edit's report.
std::string SetKinds(Project& project, int index, const KindOptions& kinds)
{
    std::string changed;
    project.EditCurves([&](const Project::Curves& curves) {
        for (int p = 0; p < 6; ++p) {
            if (!kinds[p] || curves[p]->GetInterpolationType(index) == *kinds[p])
                continue;
            RequireRecomputable(project, index - 1, p, true);
            RequireRecomputable(project, index + 1, p, true);
            curves[p]->SetPointInterpolationType(index, static_cast<core::KeyframeInterpolationType>(*kinds[p]));
            changed += std::string(changed.empty() ? ", kinds " : " ") + kProperties[p].option + "=" +
                       kKindNames[*kinds[p]];
        }
    });
    return changed;
}

}  // namespace

void ValueOptions::ApplyTo(KeyFrameParam& key) const
{
    for (int p = 0; p < 6; ++p)
        if (values[p])
            key.*kProperties[p].field = *values[p];
}

std::string ApplyEdit(Project& project, const Edit& edit)
{
    const bool kinds = std::any_of(edit.kinds.begin(), edit.kinds.end(), [](auto kind) { return kind.has_value(); });
    if (kinds && (edit.verb == Edit::Verb::Add || edit.verb == Edit::Verb::Set)) {
        // Two steps, the values through the track, then the kinds through
        // the curves: a refusal of the second takes back the first.
        const Project::Checkpoint before = project.Mark();
        try {
            const bool add = edit.verb == Edit::Verb::Add;
            const std::string done = add ? Add(project, edit.at.value(), edit.values)
                                         : Set(project, edit.index, edit.at, edit.values, edit.replace);
            const int index = edit.at ? project.Track().GetKeyFrameIndex(*edit.at) : edit.index;
            return done + SetKinds(project, index, edit.kinds);
        } catch (const ToolError&) {
            project.Restore(before);
            throw;
        }
    }
    switch (edit.verb) {
    case Edit::Verb::Add:
        return Add(project, edit.at.value(), edit.values);
    case Edit::Verb::Set:
        return Set(project, edit.index, edit.at, edit.values, edit.replace);
    case Edit::Verb::Move:
        return Move(project, edit.index, edit.at.value(), edit.replace);
    case Edit::Verb::Delete:
        return Delete(project, edit.index);
    case Edit::Verb::Clear:
        return Clear(project);
    }
    throw ToolError("unknown edit");
}

}  // namespace qmxkf
