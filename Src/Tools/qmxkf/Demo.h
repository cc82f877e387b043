// The demo: a title card flying in, saved, listed, sampled and drawn.
#pragma once

#include <string>

#include "ModuleHost.h"

namespace qmxkf {

// Writes demo.qmxbag, demo.svg, demo.png and kinds.png into `dir`.
void CommandDemo(const ModuleHost& module, const std::string& dir);

}  // namespace qmxkf
