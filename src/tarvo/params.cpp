// Parameters and information items: by index, by name, and from text.
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "cpub/numtext.h"
#include "tarvo/frame.h"
#include "tarvo/tables.h"

namespace tarvo {
namespace {

constexpr const char* type_double = "double";
constexpr const char* type_string = "string";

bool below(const auto& param, auto value) {
  return (param.kind == Range::at_least || param.kind == Range::between) && value < param.lo;
}
bool above(const auto& param, auto value) {
  return (param.kind == Range::at_most || param.kind == Range::between) && value > param.up;
}

// The text of a number as "%d" and "%g" print it.
struct NumberText {
  char text[num_text_size];
  explicit NumberText(double value) { num_print_g(text, 6, value); }
  explicit NumberText(int32_t value) { std::snprintf(text, sizeof text, "%d", value); }
};

int32_t too_large(TaskAt where, auto value, const char* name) {
  const NumberText number(value);
  return report<TRV_RES_ERR_PARAM_IS_TOO_LARGE>(where, static_cast<const char*>(number.text), name);
}
int32_t too_small(TaskAt where, auto value, const char* name) {
  const NumberText number(value);
  return report<TRV_RES_ERR_PARAM_IS_TOO_SMALL>(where, static_cast<const char*>(number.text), name);
}

int32_t put_int(Task* task, int32_t k, int32_t value) {
  if (value == task->ipar[k]) return TRV_RES_OK;
  const IntParam& param = int_params[k];
  if (below(param, value)) return too_small(task, value, param.name);
  if (above(param, value)) return too_large(task, value, param.name);
  task->ipar[k] = value;
  return TRV_RES_OK;
}

int32_t put_double(Task* task, int32_t k, double value) {
  if (value == task->dpar[k]) return TRV_RES_OK;
  const DouParam& param = dou_params[k];
  // A NaN lies in no range, not even in that of a parameter without limits: refused as too small.
  if (std::isnan(value) || below(param, value)) return too_small(task, value, param.name);
  if (above(param, value)) return too_large(task, value, param.name);
  task->dpar[k] = value;
  return TRV_RES_OK;
}

// The value of a text in double quotes, which stand around it and may be missing at the end; `out` has room
// for the text.
void unquote(const char* text, char* out) {
  for (++text; *text != '\0' && *text != '"'; ++text) {
    if (text[0] == '\\' && text[1] == '"') ++text;
    *out++ = *text;
  }
  *out = '\0';
}

int32_t put_string(Task* task, int32_t k, const char* value) {
  // The copy comes first: `value` may be the parameter's own string.
  char* copy = sysenv_strdup(task->sys, value);
  if (copy == nullptr) return TRV_RES_ERR_SPACE;
  if (copy[0] == '"') unquote(copy, copy);
  sysenv_free(task->sys, task->spar[k]);
  task->spar[k] = copy;
  return TRV_RES_OK;
}

int32_t get_string(Task* task, int32_t k, int32_t size, int32_t* len, char* value) {
  const char* text = task->spar[k] != nullptr ? task->spar[k] : "";
  const std::size_t length = std::strlen(text);
  if (len != nullptr) *len = static_cast<int32_t>(length);
  if (value == nullptr) return TRV_RES_OK;
  if (size > 0) std::snprintf(value, static_cast<std::size_t>(size), "%s", text);
  return length != 0 && static_cast<int64_t>(length) >= size ? TRV_RES_WRN_SPAR_MAX_LEN : TRV_RES_OK;
}

int32_t get_string_copy(Task* task, int32_t k, int32_t extra, char** value) {
  if (value == nullptr) return report<TRV_RES_ERR_NULL_POINTER>(task, "value");
  *value = nullptr;
  if (extra < 0) return report<TRV_RES_ERR_IN_ARGUMENT>(task, "extra");
  const char* text = task->spar[k] != nullptr ? task->spar[k] : "";
  const std::size_t length = std::strlen(text);
  char* copy = static_cast<char*>(sysenv_calloc(task->sys, length + static_cast<std::size_t>(extra) + 1, 1));
  if (copy == nullptr) return TRV_RES_ERR_SPACE;
  std::memcpy(copy, text, length);
  *value = copy;
  return TRV_RES_OK;
}

// Opens the calls by name: the object check, then the index of the name, or the report that it is no
// parameter of this type.
template <int32_t Code>
int32_t find_param(Task* task, const char* name, SymbolKind kind, int32_t* index) {
  const int32_t code = task_check(task);
  if (code != TRV_RES_OK) return code;
  if (name == nullptr) return report<TRV_RES_ERR_NULL_POINTER>(task, "name");
  *index = find_index(name, kind);
  return *index >= 0 ? TRV_RES_OK : report<Code>(task, name);
}
int32_t find_int(Task* task, const char* name, int32_t* k) {
  return find_param<TRV_RES_ERR_PARAM_NAME_INT>(task, name, SymbolKind::ipar, k);
}
int32_t find_double(Task* task, const char* name, int32_t* k) {
  return find_param<TRV_RES_ERR_PARAM_NAME_DOU>(task, name, SymbolKind::dpar, k);
}
int32_t find_string(Task* task, const char* name, int32_t* k) {
  return find_param<TRV_RES_ERR_PARAM_NAME_STR>(task, name, SymbolKind::spar, k);
}

// Opens the calls that ask whether a name is a parameter of one type; the index is the table's size if not.
int32_t is_param(Task* task, const char* name, SymbolKind kind, int32_t size, int32_t* index) {
  const int32_t code = task_check(task);
  if (code != TRV_RES_OK) return code;
  if (name == nullptr) return report<TRV_RES_ERR_NULL_POINTER>(task, "name");
  const int32_t k = find_index(name, kind);
  if (index != nullptr) *index = k >= 0 ? k : size;
  return TRV_RES_OK;
}

// The first word of a text: what stands behind the leading spaces up to a space or the end.
std::string_view first_word(const char* text) {
  text += std::strspn(text, " ");
  return {text, std::strcspn(text, " ")};
}

int32_t type_count(int32_t type) {
  return type == TRV_PAR_DOU_TYPE   ? num_dpar
         : type == TRV_PAR_INT_TYPE ? num_ipar
         : type == TRV_PAR_STR_TYPE ? num_spar
                                    : -1;
}

}  // namespace
}  // namespace tarvo

using namespace tarvo;

int32_t TRV_putintparam(TRVtask task, int32_t whichparam, int32_t value) {
  const int32_t code = task_check(task);
  if (code != TRV_RES_OK) return code;
  if (whichparam < 0 || whichparam >= num_ipar) return report<TRV_RES_ERR_PARAM_INDEX>(task, whichparam, "int");
  return put_int(task, whichparam, value);
}

int32_t TRV_putdouparam(TRVtask task, int32_t whichparam, double value) {
  const int32_t code = task_check(task);
  if (code != TRV_RES_OK) return code;
  if (whichparam < 0 || whichparam >= num_dpar) return report<TRV_RES_ERR_PARAM_INDEX>(task, whichparam, type_double);
  return put_double(task, whichparam, value);
}

int32_t TRV_putstrparam(TRVtask task, int32_t whichparam, const char* value) {
  const int32_t code = task_check(task);
  if (code != TRV_RES_OK) return code;
  if (whichparam < 0 || whichparam >= num_spar) return report<TRV_RES_ERR_PARAM_INDEX>(task, whichparam, type_string);
  return put_string(task, whichparam, value);
}

int32_t TRV_putnaintparam(TRVtask task, const char* name, int32_t value) {
  int32_t k = 0;
  const int32_t code = find_int(task, name, &k);
  return code != TRV_RES_OK ? code : put_int(task, k, value);
}

int32_t TRV_putnadouparam(TRVtask task, const char* name, double value) {
  int32_t k = 0;
  const int32_t code = find_double(task, name, &k);
  return code != TRV_RES_OK ? code : put_double(task, k, value);
}

int32_t TRV_putnastrparam(TRVtask task, const char* name, const char* value) {
  int32_t k = 0;
  const int32_t code = find_string(task, name, &k);
  return code != TRV_RES_OK ? code : put_string(task, k, value);
}

int32_t TRV_getintparam(TRVtask task, int32_t whichparam, int32_t* value) {
  const int32_t code = task_check(task);
  if (code != TRV_RES_OK) return code;
  if (whichparam < 0 || whichparam >= num_ipar) return TRV_RES_ERR_PARAM_INDEX;
  if (value == nullptr) return report<TRV_RES_ERR_NULL_POINTER>(task, "value");
  *value = task->ipar[whichparam];
  return TRV_RES_OK;
}

int32_t TRV_getdouparam(TRVtask task, int32_t whichparam, double* value) {
  const int32_t code = task_check(task);
  if (code != TRV_RES_OK) return code;
  if (whichparam < 0 || whichparam >= num_dpar) return report<TRV_RES_ERR_PARAM_INDEX>(task, whichparam, type_double);
  if (value == nullptr) return report<TRV_RES_ERR_NULL_POINTER>(task, "value");
  *value = task->dpar[whichparam];
  return TRV_RES_OK;
}

int32_t TRV_getstrparam(TRVtask task, int32_t whichparam, int32_t size, int32_t* len, char* value) {
  const int32_t code = task_check(task);
  if (code != TRV_RES_OK) return code;
  if (whichparam < 0 || whichparam >= num_spar) return report<TRV_RES_ERR_PARAM_INDEX>(task, whichparam, type_string);
  return get_string(task, whichparam, size, len, value);
}

int32_t TRV_getstrparamal(TRVtask task, int32_t whichparam, int32_t extra, char** value) {
  const int32_t code = task_check(task);
  if (code != TRV_RES_OK) return code;
  if (value != nullptr) *value = nullptr;
  if (whichparam < 0 || whichparam >= num_spar) return report<TRV_RES_ERR_PARAM_INDEX>(task, whichparam, type_string);
  return get_string_copy(task, whichparam, extra, value);
}

int32_t TRV_getnaintparam(TRVtask task, const char* name, int32_t* value) {
  int32_t k = 0;
  const int32_t code = find_int(task, name, &k);
  return code != TRV_RES_OK ? code : TRV_getintparam(task, k, value);
}

int32_t TRV_getnadouparam(TRVtask task, const char* name, double* value) {
  int32_t k = 0;
  const int32_t code = find_double(task, name, &k);
  return code != TRV_RES_OK ? code : TRV_getdouparam(task, k, value);
}

int32_t TRV_getnastrparam(TRVtask task, const char* name, int32_t size, int32_t* len, char* value) {
  int32_t k = 0;
  const int32_t code = find_string(task, name, &k);
  return code != TRV_RES_OK ? code : get_string(task, k, size, len, value);
}

int32_t TRV_getnastrparamal(TRVtask task, const char* name, int32_t extra, char** value) {
  if (value != nullptr) *value = nullptr;
  int32_t k = 0;
  const int32_t code = find_string(task, name, &k);
  return code != TRV_RES_OK ? code : get_string_copy(task, k, extra, value);
}

int32_t TRV_putparam(TRVtask task, const char* name, const char* value) {
  const int32_t code = task_check(task);
  if (code != TRV_RES_OK) return code;
  if (name == nullptr) return report<TRV_RES_ERR_NULL_POINTER>(task, "name");
  if (value == nullptr) return report<TRV_RES_ERR_NULL_POINTER>(task, "value");
  char buffer[TRV_MAX_STR_LEN];
  std::size_t length = 0;
  for (const char* p = name; *p != '\0' && length < sizeof buffer - 1; ++p) {
    if (*p != ' ') buffer[length++] = *p;
  }
  buffer[length] = '\0';
  const char* plain = buffer;

  const Symbol* symbol = find_symbol(plain);
  if (symbol != nullptr && symbol->kind == SymbolKind::dpar) {
    double number;
    if (!num_parse(first_word(value), &number)) return report<TRV_RES_ERR_PARAM_VALUE_STR>(task, value, plain);
    return put_double(task, symbol->value, number);
  }
  if (symbol != nullptr && symbol->kind == SymbolKind::ipar) {
    int32_t number;
    if (!num_parseint(first_word(value), &number)) {
      const Symbol* constant = find_symbol(value);
      if (constant == nullptr) return report<TRV_RES_ERR_PARAM_VALUE_STR>(task, value, plain);
      number = constant->value;
    }
    return put_int(task, symbol->value, number);
  }
  if (symbol != nullptr && symbol->kind == SymbolKind::spar) return put_string(task, symbol->value, value);
  return report<TRV_RES_ERR_PARAM_NAME>(task, plain);
}

int32_t TRV_whichparam(TRVtask task, const char* name, int32_t* type, int32_t* index) {
  const int32_t code = task_check(task);
  if (code != TRV_RES_OK) return code;
  if (name == nullptr) return report<TRV_RES_ERR_NULL_POINTER>(task, "name");
  const Symbol* symbol = find_symbol(name);
  const SymbolKind kind = symbol != nullptr ? symbol->kind : SymbolKind::constant;
  const int32_t found = kind == SymbolKind::dpar   ? TRV_PAR_DOU_TYPE
                        : kind == SymbolKind::ipar ? TRV_PAR_INT_TYPE
                        : kind == SymbolKind::spar ? TRV_PAR_STR_TYPE
                                                   : TRV_PAR_INVALID_TYPE;
  if (type != nullptr) *type = found;
  if (index != nullptr) *index = found != TRV_PAR_INVALID_TYPE ? symbol->value : -1;
  return TRV_RES_OK;
}

int32_t TRV_isdouparname(TRVtask task, const char* name, int32_t* index) {
  return is_param(task, name, SymbolKind::dpar, num_dpar, index);
}
int32_t TRV_isintparname(TRVtask task, const char* name, int32_t* index) {
  return is_param(task, name, SymbolKind::ipar, num_ipar, index);
}
int32_t TRV_isstrparname(TRVtask task, const char* name, int32_t* index) {
  return is_param(task, name, SymbolKind::spar, num_spar, index);
}

int32_t TRV_getparamname(TRVtask task, int32_t type, int32_t index, char* name) {
  const int32_t code = task_check(task);
  if (code != TRV_RES_OK) return code;
  const int32_t count = type_count(type);
  if (count < 0) return report<TRV_RES_ERR_PARAM_TYPE>(task, type);
  if (index < 0 || index >= count) {
    const char* text = type == TRV_PAR_DOU_TYPE ? type_double : type == TRV_PAR_INT_TYPE ? "integer" : type_string;
    return report<TRV_RES_ERR_PARAM_INDEX>(task, index, text);
  }
  if (name == nullptr) return report<TRV_RES_ERR_NULL_POINTER>(task, "name");
  std::strcpy(name, type == TRV_PAR_DOU_TYPE   ? dou_params[index].name
                    : type == TRV_PAR_INT_TYPE ? int_params[index].name
                                               : str_params[index].name);
  return TRV_RES_OK;
}

int32_t TRV_getparammax(TRVtask task, int32_t type, int32_t* num) {
  const int32_t code = task_check(task);
  if (code != TRV_RES_OK) return code;
  const int32_t count = type_count(type);
  if (num != nullptr) *num = count;
  return count >= 0 ? TRV_RES_OK : report<TRV_RES_ERR_PARAM_TYPE>(task, type);
}

int32_t TRV_getnumparam(TRVtask task, int32_t type, int32_t* num) {
  const int32_t code = task_check(task);
  if (code != TRV_RES_OK) return code;
  const int32_t count = type_count(type);
  if (count < 0) return report<TRV_RES_ERR_PARAM_TYPE>(task, type);
  if (num != nullptr) *num = count;
  return TRV_RES_OK;
}

int32_t TRV_putcpudefaults(TRVenv env, int32_t cputype, int32_t sizel1, int32_t sizel2) {
  if (env == nullptr) return TRV_RES_ERR_NULL_ENV;
  if (cputype != 0) env->ipar[TRV_IPAR_CPU_TYPE] = cputype;
  if (sizel1 >= 0) env->ipar[TRV_IPAR_CACHE_SIZE_L1] = sizel1;
  if (sizel2 >= 0) env->ipar[TRV_IPAR_CACHE_SIZE_L2] = sizel2;
  return TRV_RES_OK;
}

int32_t TRV_getintinf(TRVtask task, int32_t whichinf, int32_t* value) {
  const int32_t code = task_check(task);
  if (code != TRV_RES_OK) return code;
  if (whichinf < 0 || whichinf >= num_iinf_public) return TRV_RES_ERR_INF_INT_INDEX;
  if (value != nullptr) *value = task->iinf[whichinf];
  return TRV_RES_OK;
}

int32_t TRV_getdouinf(TRVtask task, int32_t whichinf, double* value) {
  const int32_t code = task_check(task);
  if (code != TRV_RES_OK) return code;
  if (whichinf < 0 || whichinf >= num_dinf_public) return TRV_RES_ERR_INF_DOU_INDEX;
  if (value != nullptr) *value = task->dinf[whichinf];
  return TRV_RES_OK;
}

int32_t TRV_getnaintinf(TRVtask task, const char* name, int32_t* value) {
  const int32_t code = task_check(task);
  if (code != TRV_RES_OK) return code;
  const int32_t k = name != nullptr ? find_index(name, SymbolKind::iinf) : -1;
  if (k < 0) return TRV_RES_ERR_INF_INT_NAME;
  if (value != nullptr) *value = task->iinf[k];
  return TRV_RES_OK;
}

int32_t TRV_getnadouinf(TRVtask task, const char* name, double* value) {
  const int32_t code = task_check(task);
  if (code != TRV_RES_OK) return code;
  const int32_t k = name != nullptr ? find_index(name, SymbolKind::dinf) : -1;
  if (k < 0) return TRV_RES_ERR_INF_DOU_NAME;
  if (value != nullptr) *value = task->dinf[k];
  return TRV_RES_OK;
}

int32_t TRV_getinfindex(TRVtask task, int32_t type, const char* name, int32_t* index) {
  const int32_t code = task_check(task);
  if (code != TRV_RES_OK) return code;
  if (type != TRV_INF_DOU_TYPE && type != TRV_INF_INT_TYPE) return report<TRV_RES_ERR_INF_TYPE>(task, type);
  const bool is_double = type == TRV_INF_DOU_TYPE;
  const int32_t k = name != nullptr ? find_index(name, is_double ? SymbolKind::dinf : SymbolKind::iinf) : -1;
  if (k < 0) return is_double ? TRV_RES_ERR_INF_DOU_NAME : TRV_RES_ERR_INF_INT_NAME;
  if (index != nullptr) *index = k;
  return TRV_RES_OK;
}

int32_t TRV_getinfname(TRVtask task, int32_t type, int32_t index, char* name) {
  const int32_t code = task_check(task);
  if (code != TRV_RES_OK) return code;
  if (type != TRV_INF_DOU_TYPE && type != TRV_INF_INT_TYPE) return report<TRV_RES_ERR_INF_TYPE>(task, type);
  const bool is_double = type == TRV_INF_DOU_TYPE;
  if (is_double && (index < 0 || index >= num_dinf_public)) return report<TRV_RES_ERR_INF_DOU_INDEX>(task, index);
  if (!is_double && (index < 0 || index >= num_iinf_public)) return report<TRV_RES_ERR_INF_INT_INDEX>(task, index);
  if (name == nullptr) return report<TRV_RES_ERR_NULL_POINTER>(task, "name");
  std::strcpy(name, is_double ? dou_items[index] : int_items[index]);
  return TRV_RES_OK;
}

int32_t TRV_getinfmax(TRVtask task, int32_t type, int32_t* num) {
  const int32_t code = task_check(task);
  if (code != TRV_RES_OK) return code;
  const int32_t count = type == TRV_INF_DOU_TYPE ? num_dinf_public : type == TRV_INF_INT_TYPE ? num_iinf_public : -1;
  if (num != nullptr) *num = count >= 0 ? count : 0;
  return count >= 0 ? TRV_RES_OK : report<TRV_RES_ERR_INF_TYPE>(task, type);
}
