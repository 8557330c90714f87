// The editable constraint matrix of a task.
#pragma once

#include "cpub/sysenv.h"

namespace tarvo {

struct sprmat;

}  // namespace tarvo
