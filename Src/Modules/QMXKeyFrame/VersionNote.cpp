// The module's release, kept in an allocated note section: the loader maps
// it with the module (a PT_NOTE segment), readelf -n shows it, and no symbol
// is exported for it.
#include <cstdint>
#include <string_view>

#include "qmx_version.h"
#include "qmx_version_note.h"

namespace {

constexpr uint32_t Padded(uint32_t n)
{
    return (n + 3) / 4 * 4;
}

struct Note {
    uint32_t ownerSize, textSize, type;
    char owner[Padded(sizeof qmx::kVersionNoteOwner)];
    char text[Padded(sizeof QMX_VERSION)];
};

static_assert(std::string_view("QMX") == qmx::kVersionNoteOwner);
__attribute__((section(".note.qmx.version"), used, aligned(4)))
const Note kVersionNote = {sizeof qmx::kVersionNoteOwner, sizeof QMX_VERSION, qmx::kVersionNoteType, "QMX",
                           QMX_VERSION};

}  // namespace
