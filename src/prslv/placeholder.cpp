#include "prslv/prslv_internal.h"
