// The version of the library.
#pragma once

namespace tarvo {

inline constexpr int version_major = 5, version_minor = 0, version_build = 0, version_revision = 127;
#define TARVO_VERSION_TEXT "5.0.0.127"

}  // namespace tarvo
