#include "cpub/dlman.h"

#include <dlfcn.h>

#include <cstdio>
#include <cstring>

#include "cpub/array.h"

namespace tarvo {

struct DynamicLibrary {
  sysenv* env;
  void* module;
};

namespace {

// Loads folder/name, or the bare name for a NULL folder. False when out of memory.
bool try_folder(sysenv* env, const char* folder, std::size_t length, const char* name, void** module) {
  Array<char> file;
  const std::size_t room = length + std::strlen(name) + 3;
  if (!file.alloc(env, room)) return false;
  if (folder == nullptr) {
    std::snprintf(file.data(), room, "%s", name);
  } else {
    const bool joined = length != 0 && (folder[length - 1] == '/' || folder[length - 1] == '\\');
    if (length == 0) folder = ".", length = 1;
    std::snprintf(file.data(), room, "%.*s%s%s", static_cast<int>(length), folder, joined ? "" : "/", name);
  }
  *module = dlopen(file.data(), RTLD_NOW | RTLD_LOCAL);
  return true;
}

}  // namespace

int32_t dl_open(sysenv* env, const char* path, const char* name, DynamicLibrary** library,
                char message[dl_message_size]) {
  *library = nullptr;
  message[0] = '\0';
  auto* made = static_cast<DynamicLibrary*>(sysenv_calloc(env, 1, sizeof(DynamicLibrary)));
  if (made == nullptr) return SYS_SPACE;
  made->env = env;
  bool space = true;
  for (const char* p = path; p != nullptr && space && made->module == nullptr;) {
    const std::size_t length = std::strcspn(p, ";");
    space = try_folder(env, p, length, name, &made->module);
    p = p[length] == ';' ? p + length + 1 : nullptr;
  }
  if (space && made->module == nullptr) space = try_folder(env, nullptr, 0, name, &made->module);
  if (made->module == nullptr) {
    const char* reason = space ? dlerror() : nullptr;
    std::snprintf(message, dl_message_size, "[%s] %s", name, reason == nullptr ? "" : reason);
    sysenv_free(env, made);
    return space ? SYS_FILE_OPEN : SYS_SPACE;
  }
  *library = made;
  return SYS_OK;
}

void* dl_symbol(const DynamicLibrary* library, const char* name) { return dlsym(library->module, name); }

void dl_close(DynamicLibrary** library) {
  if (*library == nullptr) return;
  dlclose((*library)->module);
  sysenv_free((*library)->env, *library);
  *library = nullptr;
}

void sysenv_getdllname(const char* stem, int32_t major, int32_t minor, std::size_t size, char* out) {
  std::snprintf(out, size, "%s%d_%d.dll", stem, major, minor);
}

}  // namespace tarvo
