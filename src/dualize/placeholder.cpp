#include "cpub/array.h"
