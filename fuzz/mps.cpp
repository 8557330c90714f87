// Any bytes as an MPS file: the first one chooses the layout, the rest is the text. What could be read is written with
// generic names and read again, and must be as large as before.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "tarvo.h"

namespace {

void demand(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "broken: %s\n", what);
  std::abort();
}

struct Sizes {
  int32_t numcon, numvar, numcone, numintvar, numanz;
  bool operator==(const Sizes&) const = default;
};
Sizes sizes(TRVtask task) {
  Sizes s{};
  TRV_getnumcon(task, &s.numcon);
  TRV_getnumvar(task, &s.numvar);
  TRV_getnumcone(task, &s.numcone);
  TRV_getnumintvar(task, &s.numintvar);
  TRV_getnumanz(task, &s.numanz);
  return s;
}

// A file in memory, of whose descriptor the path is.
struct MemoryFile {
  int fd = memfd_create("fuzz", 0);
  char path[64];
  MemoryFile() { std::snprintf(path, sizeof path, "/proc/self/fd/%d", fd); }
  ~MemoryFile() { close(fd); }
};

TRVtask new_task(TRVenv env, int32_t format) {
  TRVtask task = nullptr;
  demand(TRV_makeemptytask(env, &task) == TRV_RES_OK, "a task");
  TRV_putintparam(task, TRV_IPAR_READ_MPS_FORMAT, format);
  TRV_putintparam(task, TRV_IPAR_LOG, 0);
  return task;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  TRVenv env = nullptr;
  demand(TRV_makeenv(&env, nullptr, nullptr, nullptr, nullptr) == TRV_RES_OK && TRV_initenv(env) == TRV_RES_OK,
         "an environment");
  MemoryFile text;
  demand(write(text.fd, data + 1, size - 1) == static_cast<ssize_t>(size - 1), "the file");
  TRVtask task = new_task(env, data[0] % 3);
  if (TRV_readdata(task, text.path) == TRV_RES_OK) {
    MemoryFile written;
    TRV_putintparam(task, TRV_IPAR_WRITE_GENERIC_NAMES, TRV_ON);
    TRV_putintparam(task, TRV_IPAR_WRITE_DATA_FORMAT, TRV_DATA_FORMAT_MPS);
    TRV_putintparam(task, TRV_IPAR_WRITE_DATA_COMPRESSED, 0);
    demand(TRV_writedata(task, written.path) == TRV_RES_OK, "writing what was read");
    TRVtask again = new_task(env, TRV_MPS_FORMAT_FREE);
    demand(TRV_readdata(again, written.path) == TRV_RES_OK, "reading what was written");
    demand(sizes(task) == sizes(again), "sizes after writing and reading");
    TRV_deletetask(&again);
  }
  demand(TRV_deletetask(&task) == TRV_RES_OK && TRV_deleteenv(&env) == TRV_RES_OK, "deletion");
  return 0;
}
