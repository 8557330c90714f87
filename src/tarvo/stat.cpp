// Statistics records, and the texts that list parameters and introduce the library.
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "cpub/clocale.h"
#include "tarvo/frame.h"
#include "tarvo/log.h"
#include "tarvo/tables.h"
#include "tarvo/version.h"

namespace tarvo {
namespace {

// The file of the statistics, opened in a mode of fopen. A file that can't be opened is passed over in silence, and
// so is an empty name.
class StatFile {
 public:
  StatFile(const char* name, const char* mode)
      : file_(name != nullptr && name[0] != '\0' ? std::fopen(name, mode) : nullptr) {}
  StatFile(const StatFile&) = delete;
  StatFile& operator=(const StatFile&) = delete;
  ~StatFile() {
    if (file_ != nullptr) std::fclose(file_);
  }
  std::FILE* get() { return file_; }

 private:
  CLocale locale_;
  std::FILE* file_;
};

const char* stat_name(const Task* task) { return task->spar[TRV_SPAR_STAT_FILE_NAME]; }

bool is_xml(const char* name) {
  constexpr const char* extension = ".xml.stat";
  if (name == nullptr) return true;
  const std::size_t length = std::strlen(name);
  const std::size_t tail = std::strlen(extension);
  return length >= tail && std::strcmp(name + length - tail, extension) == 0;
}

void put_xml_text(std::FILE* out, const char* text) {
  for (; text != nullptr && *text != '\0'; ++text) {
    switch (*text) {
      case '&':
        std::fputs("&amp;", out);
        break;
      case '<':
        std::fputs("&lt;", out);
        break;
      case '>':
        std::fputs("&gt;", out);
        break;
      case '"':
        std::fputs("&quot;", out);
        break;
      default:
        std::fputc(*text, out);
    }
  }
}

void append_xml(std::FILE* out, const Task* task) {
  std::fputs("  <record name=\"", out);
  put_xml_text(out, task->spar[TRV_SPAR_STAT_NAME]);
  std::fputs("\" key=\"", out);
  put_xml_text(out, task->spar[TRV_SPAR_STAT_KEY]);
  std::fputs("\">\n", out);
  std::fprintf(out, "    <field name=\"task_numcon\"> %d </field>\n", task->numcon);
  for (int k = 0; k < num_dinf; ++k) {
    std::fprintf(out, "    <field name=\"%s\"> %-24.16e </field>\n", dou_items[k], task->dinf[k]);
  }
  for (int k = 0; k < num_iinf; ++k) {
    std::fprintf(out, "    <field name=\"%s\"> %d </field>\n", int_items[k], task->iinf[k]);
  }
  std::fputs("  </record>\n", out);
}

void append_csv(std::FILE* out, const Task* task) {
  const char* name = task->spar[TRV_SPAR_STAT_NAME] != nullptr ? task->spar[TRV_SPAR_STAT_NAME] : "";
  const char* key = task->spar[TRV_SPAR_STAT_KEY] != nullptr ? task->spar[TRV_SPAR_STAT_KEY] : "";
  for (int k = 0; k < num_dinf; ++k) {
    std::fprintf(out, "%s,%s,%s,%-24.16e\n", name, key, dou_items[k], task->dinf[k]);
  }
  for (int k = 0; k < num_iinf; ++k) std::fprintf(out, "%s,%s,%s,%d\n", name, key, int_items[k], task->iinf[k]);
}

bool has_minimum(Range kind) { return kind == Range::at_least || kind == Range::between; }
bool has_maximum(Range kind) { return kind == Range::at_most || kind == Range::between; }

void print_bound(Task* task, bool present, int32_t value) {
  if (present) {
    task_print(task, TRV_STREAM_MSG, "   %-18d", value);
  } else {
    task_print(task, TRV_STREAM_MSG, "   %-18s", "NONE");
  }
}
void print_bound(Task* task, bool present, double value) {
  if (present) {
    task_print(task, TRV_STREAM_MSG, "   %-18.8e", value);
  } else {
    task_print(task, TRV_STREAM_MSG, "   %-18s", "NONE");
  }
}

}  // namespace
}  // namespace tarvo

using namespace tarvo;

int32_t TRV_startstat(TRVtask task) {
  if (const int32_t rc = task_check(task); rc != TRV_RES_OK) return rc;
  StatFile out(stat_name(task), "wt");
  if (out.get() != nullptr && is_xml(stat_name(task))) {
    std::fputs("<?xml version=\"1.0\" ?>\n<tarvo-statistics>\n", out.get());
  }
  return TRV_RES_OK;
}

int32_t TRV_appendstat(TRVtask task) {
  if (const int32_t rc = task_check(task); rc != TRV_RES_OK) return rc;
  StatFile out(stat_name(task), "at");
  if (out.get() == nullptr) return TRV_RES_OK;
  if (is_xml(stat_name(task))) {
    append_xml(out.get(), task);
  } else {
    append_csv(out.get(), task);
  }
  return TRV_RES_OK;
}

int32_t TRV_stopstat(TRVtask task) {
  if (const int32_t rc = task_check(task); rc != TRV_RES_OK) return rc;
  if (!is_xml(stat_name(task))) return TRV_RES_OK;
  StatFile out(stat_name(task), "at");
  if (out.get() != nullptr) std::fputs("</tarvo-statistics>\n", out.get());
  return TRV_RES_OK;
}

int32_t TRV_printparam(TRVtask task) {
  if (const int32_t rc = task_check(task); rc != TRV_RES_OK) return rc;
  task_print(task, TRV_STREAM_MSG, "Integer parameters\n");
  for (int k = 0; k < num_ipar; ++k) {
    const IntParam& row = int_params[k];
    if (row.name[0] == '\0') continue;  // an unassigned slot
    task_print(task, TRV_STREAM_MSG, "%-3d %-33s: %-18d", k, row.name, task->ipar[k]);
    print_bound(task, has_minimum(row.kind), row.lo);
    print_bound(task, has_maximum(row.kind), row.up);
    task_print(task, TRV_STREAM_MSG, "\n");
  }
  task_print(task, TRV_STREAM_MSG, "\nDouble parameters\n");
  for (int k = 0; k < num_dpar; ++k) {
    const DouParam& row = dou_params[k];
    task_print(task, TRV_STREAM_MSG, "%-3d %-33s: %-18.8e", k, row.name, task->dpar[k]);
    print_bound(task, has_minimum(row.kind), row.lo);
    print_bound(task, has_maximum(row.kind), row.up);
    task_print(task, TRV_STREAM_MSG, "\n");
  }
  task_print(task, TRV_STREAM_MSG, "\nString parameters\n");
  for (int k = 0; k < num_spar; ++k) {
    const char* value = task->spar[k] != nullptr ? task->spar[k] : "";
    task_print(task, TRV_STREAM_MSG, "%-3d %-33s: %-s\n", k, str_params[k].name, value);
  }
  return TRV_RES_OK;
}

int32_t TRV_echointro(TRVenv env, int32_t longver) {
  if (const int32_t rc = env_check(env); rc != TRV_RES_OK) return rc;
  char date[TRV_MAX_STR_LEN];
  TRV_getbuildinfo(nullptr, date, nullptr);
  TRV_echoenv(env, TRV_STREAM_MSG, "\n");
  TRV_echoenv(env, TRV_STREAM_MSG, "%s Version %d.%d.%d.%d (Build date: %s)\n", "TARVO", version_major, version_minor,
              version_build, version_revision, date);
  if (longver != 0) {
    // No global optimiser library exists that could tell its version.
    TRV_echoenv(env, TRV_STREAM_MSG, "Global optimizer version: %s. Global optimizer build date: %s.\n", "none",
                "none");
    TRV_echoenv(env, TRV_STREAM_MSG, "64 bit architecture.\n");
  }
  TRV_echoenv(env, TRV_STREAM_MSG, "\n");
  if (longver != 0) {
    constexpr const char* search_path = "LD_LIBRARY_PATH";
    const char* value = std::getenv(search_path);
    TRV_echoenv(env, TRV_STREAM_MSG, "\nOperating system variables\n");
    TRV_echoenv(env, TRV_STREAM_MSG, "%-25s: %s\n", search_path, value != nullptr ? value : "");
  }
  return TRV_RES_OK;
}
