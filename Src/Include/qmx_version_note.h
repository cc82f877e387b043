// The ELF note in which the module records its release, so that a host reads
// it without the module exporting anything beyond its contract: owner "QMX",
// type 1, the release as a zero-terminated text. The module writes it
// (VersionNote.cpp); the host runtime's QMXModuleVersion reads it.
#pragma once

#include <cstdint>

namespace qmx {

constexpr char kVersionNoteOwner[] = "QMX";
constexpr uint32_t kVersionNoteType = 1;

}  // namespace qmx
