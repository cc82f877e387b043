// What the host contract fixes about a build of the keyframe module, as
// qmxkf validate checks it: the names it exports, the host symbols it leaves
// to the host, its identifiers' values and the classes it serves.
#pragma once

#include <vector>

#include "qmx_unknown.h"

namespace qmxkf {

struct ContractIdentifier {
    const char* name;
    _GUID value;
};

// A served class, in the order of its g_Templates row.
struct ContractClass {
    const char* clsid;
    const wchar_t* title;
    const char* create;              // the exported creation function
    std::vector<const char*> names;  // IID_IUnknown, then the interfaces the class answers
    const char* foreign;             // an interface of the module the class refuses
};

// The module's export set, read from the one list the build also writes the
// module's version script from.
extern const std::vector<const char*> kContractExports;
// Symbols the module uses and the host runtime (or the host program) defines.
extern const std::vector<const char*> kContractHostSymbols;
// The module's five identifiers and the host's two.
extern const std::vector<ContractIdentifier> kContractIdentifiers;
extern const std::vector<ContractClass> kContractClasses;
// g_cTemplates: the served classes and the terminating row.
constexpr int kContractTemplateCount = 3;

}  // namespace qmxkf
