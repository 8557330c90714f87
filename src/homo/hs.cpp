#include "homo/hom_internal.h"

namespace tarvo {}
