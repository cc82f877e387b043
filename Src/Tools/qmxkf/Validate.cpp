#include "Validate.h"

namespace qmxkf {

int CommandValidate(const std::string&)
{
    return 1;
}

}  // namespace qmxkf
