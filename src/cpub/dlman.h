// Libraries loaded at run time.
#pragma once

#include "cpub/sysenv.h"

namespace tarvo {

struct DynamicLibrary;

// Tries `name` in each folder of `path` (separated by ";", an empty one is the current folder; NULL allowed), then the
// bare name. SYS_OK, SYS_SPACE, or SYS_FILE_OPEN with *library NULL and the reason in `message`.
inline constexpr int32_t dl_message_size = 1024;
int32_t dl_open(sysenv* env, const char* path, const char* name, DynamicLibrary** library,
                char message[dl_message_size]);
void* dl_symbol(const DynamicLibrary* library, const char* name);
void dl_close(DynamicLibrary** library);

// The file name of a versioned library, as "stem5_0.dll".
void sysenv_getdllname(const char* stem, int32_t major, int32_t minor, std::size_t size, char* out);

}  // namespace tarvo
