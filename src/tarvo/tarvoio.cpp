// Reading and writing problem files: which format a file has, and what is the same for every format.
#include "tarvo/tarvoio.h"

#include <algorithm>
#include <cstring>

#include "cpub/sysfile.h"
#include "tarvo/frame.h"
#include "tarvo/log.h"
#include "tarvo/tarvodat.h"
#include "tarvo/tarvomps.h"
#include "tarvo/tarvonam.h"

namespace tarvo {

namespace {

char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

bool extension_is(const char* text, const char* word) {
  for (; *word != '\0'; ++word, ++text) {
    if (lower(*text) != *word) return false;
  }
  return *text == '\0' || *text == '.';
}

constexpr const char* extension_words[] = {"tbt", "mps", "lp", "opf", "xml", "fmps"};
constexpr int32_t extension_formats[] = {TRV_DATA_FORMAT_TBT, TRV_DATA_FORMAT_MPS, TRV_DATA_FORMAT_LP,
                                         TRV_DATA_FORMAT_OP,  TRV_DATA_FORMAT_XML, TRV_DATA_FORMAT_MPS};
constexpr std::size_t free_mps_extension = 5;
constexpr const char* packed_words[] = {"gz"};

bool named_packed(const char* filename) { return classify_extension(filename, packed_words) == 0; }

// The name to use, copied: the caller's, or the one of the parameter, which a file that is read may change.
char* copy_filename(Task* task, const char* filename, std::size_t extra) {
  if (filename == nullptr || *filename == '\0') filename = task->spar[TRV_SPAR_DATA_FILE_NAME];
  if (filename == nullptr) filename = "";
  const std::size_t length = std::strlen(filename);
  auto* copy = static_cast<char*>(sysenv_malloc(task->sys, length + extra + 1, 1));
  if (copy != nullptr) std::memcpy(copy, filename, length + 1);
  return copy;
}

bool log_files(const Task* task) {
  return log_enabled(task, std::min(task->ipar[TRV_IPAR_LOG_FILE], task->ipar[TRV_IPAR_LOG_HEAD]));
}

// Opens a data file and reports a failure.
int32_t open_data(Task* task, const char* filename, FileMode mode, bool compressed, File** file) {
  if (log_files(task)) task_print(task, TRV_STREAM_MSG, "Open file: '%s'.\n", filename);
  const int32_t status = file_open(task->sys, filename, mode, compressed, file);
  switch (status) {
    case SYS_OK:
      return TRV_RES_OK;
    case SYS_FILE_OPEN:
      return report<TRV_RES_ERR_FILE_OPEN>(task, filename);
    case SYS_FILE_READ:
      return report<TRV_RES_ERR_FILE_READ>(task, filename);
    case SYS_SPACE:
      return report<TRV_RES_ERR_SPACE>(task);
    default:
      return sysenv_rescode(status);
  }
}

// The problem goes, with its names, its objective sense and the task's name; parameters and streams stay.
void empty_task(Task* task) {
  data_clear(task);
  task->cfix = 0;
  task->objective_sense = TRV_OBJECTIVE_SENSE_UNDEFINED;
  sysenv_free(task->sys, task->task_name);
  task->task_name = nullptr;
}

void store_summary(Task* task) {
  ReadRecord& read = task->read;
  const QuadStore& quad = task->quad;
  read.numcon = task->numcon;
  read.numvar = task->numvar;
  read.numcone = task->numcone;
  read.numintvar = task->numintvar;
  TRV_getnumanz(task, &read.numanz);
  TRV_getprobtype(task, &read.probtype);
  read.numqnz = quad.qobjend - quad.qobjbegin;
  read.numq = read.numqnz > 0 ? 1 : 0;
  if (!quad.qconbegin.empty()) {
    for (int32_t i = 0; i < task->numcon; ++i) {
      const int32_t count = quad.qconend[i] - quad.qconbegin[i];
      read.numqnz += count;
      read.numq += count > 0 ? 1 : 0;
    }
  }
  task->iinf[TRV_IINF_RD_NUMCON] = read.numcon;
  task->iinf[TRV_IINF_RD_NUMVAR] = read.numvar;
  task->iinf[TRV_IINF_RD_NUMCONE] = read.numcone;
  task->iinf[TRV_IINF_RD_NUMINTVAR] = read.numintvar;
  task->iinf[TRV_IINF_RD_NUMANZ] = read.numanz;
  task->iinf[TRV_IINF_RD_PROTYPE] = read.probtype;
  task->iinf[TRV_IINF_RD_NUMQNZ] = read.numqnz;
  task->iinf[TRV_IINF_RD_NUMQ] = read.numq;
}

int32_t read_format(Task* task, File* file, int32_t format, const char* filename) {
  switch (format) {
    case TRV_DATA_FORMAT_MPS:
      return mps_read(task, file, filename);
    default:
      return report<TRV_RES_ERR_READ_FORMAT>(task, format);
  }
}

int32_t read_file(Task* task, const char* filename) {
  int32_t format = task->ipar[TRV_IPAR_READ_DATA_FORMAT];
  if (format == TRV_DATA_FORMAT_EXTENSION) {
    const std::size_t k = classify_extension(filename, extension_words);
    format = k < std::size(extension_words) ? extension_formats[k] : TRV_DATA_FORMAT_MPS;
    if (k == free_mps_extension) task->ipar[TRV_IPAR_READ_MPS_FORMAT] = TRV_MPS_FORMAT_FREE;
  }
  File* file = nullptr;
  const bool compressed = format == TRV_DATA_FORMAT_TBT || named_packed(filename);
  int32_t response = open_data(task, filename, FileMode::read, compressed, &file);
  if (response != TRV_RES_OK) return response;

  const double start = sysenv_cputime();
  empty_task(task);
  response = read_format(task, file, format, filename);
  task->read.seconds = sysenv_cputime() - start;
  task->dinf[TRV_DINF_RD_CPUTIME] = task->read.seconds;
  if (response == TRV_RES_OK) store_summary(task);
  file_close(&file);
  return response;
}

bool any_blank(const Task* task, int32_t whichitem, int32_t count) {
  for (int32_t i = 0; i < count; ++i) {
    if (*item_name(task, whichitem, i) == '\0') return true;
  }
  return false;
}

// One blank name makes all names generic, as a file with both kinds could give a name twice.
int32_t choose_names(Task* task, int32_t format, bool* generic) {
  *generic = task->ipar[TRV_IPAR_WRITE_GENERIC_NAMES] != TRV_OFF;
  if (*generic) return TRV_RES_OK;
  *generic = (format == TRV_DATA_FORMAT_MPS && *objective_name(task) == '\0') ||
             any_blank(task, TRV_PI_VAR, task->numvar) || any_blank(task, TRV_PI_CON, task->numcon) ||
             any_blank(task, TRV_PI_CONE, task->numcone);
  return *generic ? report<TRV_RES_WRN_USING_GENERIC_NAMES>(task) : TRV_RES_OK;
}

// `filename` has room for ".gz" behind it. Whatever can fail without the file fails before it is opened, so that an old
// file of this name is not lost for nothing.
int32_t write_file(Task* task, char* filename) {
  int32_t format = task->ipar[TRV_IPAR_WRITE_DATA_FORMAT];
  if (format == TRV_DATA_FORMAT_EXTENSION) {
    const std::size_t k = classify_extension(filename, extension_words);
    format = k < std::size(extension_words) ? extension_formats[k] : TRV_DATA_FORMAT_MPS;
  }
  if (format != TRV_DATA_FORMAT_MPS) return report<TRV_RES_ERR_INVALID_FORMAT_TYPE>(task, format);
  bool compressed = format == TRV_DATA_FORMAT_TBT || named_packed(filename);
  if (!compressed && task->ipar[TRV_IPAR_WRITE_DATA_COMPRESSED] > 0) {
    std::strcat(filename, ".gz");
    compressed = true;
  }
  bool generic = false;
  int32_t response = choose_names(task, format, &generic);
  if (response != TRV_RES_OK) return response;

  File* file = nullptr;
  response = open_data(task, filename, FileMode::write, compressed, &file);
  if (response != TRV_RES_OK) return response;
  const double start = sysenv_cputime();
  if (log_files(task)) task_print(task, TRV_STREAM_MSG, "Start writing.\n");
  response = mps_write(task, file, generic);
  const int32_t status = file_close(&file);
  if (log_files(task)) task_print(task, TRV_STREAM_MSG, "done writing. Time: %.2f\n\n", sysenv_cputime() - start);
  if (response != TRV_RES_OK || status == SYS_OK) return response;
  return status == SYS_SPACE ? report<TRV_RES_ERR_SPACE>(task) : report<TRV_RES_ERR_FILE_WRITE>(task, filename);
}

}  // namespace

std::size_t classify_extension(const char* filename, std::span<const char* const> words) {
  for (const char* p = filename + std::strlen(filename); p > filename && p[-1] != '/';) {
    if (*--p != '.') continue;
    for (std::size_t k = 0; k < words.size(); ++k) {
      if (extension_is(p + 1, words[k])) return k;
    }
  }
  return words.size();
}

}  // namespace tarvo

using namespace tarvo;

int32_t TRV_readdata(TRVtask task, const char* filename) {
  int32_t response = task_check(task);
  if (response == TRV_RES_OK) response = data_checkunlocked(task);
  if (response != TRV_RES_OK) return response;
  char* name = copy_filename(task, filename, 0);
  if (name == nullptr) return report<TRV_RES_ERR_SPACE>(task);
  const int32_t mps_format = task->ipar[TRV_IPAR_READ_MPS_FORMAT];
  response = read_file(task, name);
  task->ipar[TRV_IPAR_READ_MPS_FORMAT] = mps_format;
  sysenv_free(task->sys, name);
  return response;
}

int32_t TRV_writedata(TRVtask task, const char* filename) {
  int32_t response = task_check(task);
  if (response != TRV_RES_OK) return response;
  char* name = copy_filename(task, filename, std::strlen(".gz"));
  if (name == nullptr) return report<TRV_RES_ERR_SPACE>(task);
  response = *name == '\0' ? report<TRV_RES_ERR_FILE_OPEN>(task, name) : write_file(task, name);
  sysenv_free(task->sys, name);
  return response;
}
