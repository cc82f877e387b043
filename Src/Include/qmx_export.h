/// @file
/// Symbol visibility for the module and the host runtime.
/// Both libraries hide everything by default; QMX_EXPORT marks the binary contract.
#pragma once

#define QMX_EXPORT __attribute__((visibility("default")))
