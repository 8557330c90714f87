// Response codes and symbolic constants as text, and back.
#include <cstdio>
#include <cstring>
#include <iterator>

#include "tarvo/frame.h"
#include "tarvo/tables.h"

namespace tarvo {
namespace {

constexpr const char* sk_texts[] = {"UN", "BS", "SB", "LL", "UL", "EQ", "**"};
constexpr int32_t num_sk = static_cast<int32_t>(std::size(sk_texts));

constexpr const char* prosta_texts[] = {"UNKNOWN",
                                        "PRIMAL_AND_DUAL_FEASIBLE",
                                        "PRIMAL_FEASIBLE",
                                        "DUAL_FEASIBLE",
                                        "PRIMAL_INFEASIBLE",
                                        "DUAL_INFEASIBLE",
                                        "PRIMAL_AND_DUAL_INFEASIBLE",
                                        "ILL_POSED",
                                        "NEAR_PRIMAL_AND_DUAL_FEASIBLE",
                                        "NEAR_PRIMAL_FEASIBLE",
                                        "NEAR_DUAL_FEASIBLE",
                                        "PRIMAL_INFEASIBLE_OR_UNBOUNDED"};

constexpr const char* solsta_texts[] = {"UNKNOWN",
                                        "OPTIMAL",
                                        "PRIMAL_FEASIBLE",
                                        "DUAL_FEASIBLE",
                                        "PRIMAL_AND_DUAL_FEASIBLE",
                                        "PRIMAL_INFEASIBLE_CER",
                                        "DUAL_INFEASIBLE_CER",
                                        nullptr,  // 7 is not assigned
                                        "NEAR_OPTIMAL",
                                        "NEAR_PRIMAL_FEASIBLE",
                                        "NEAR_DUAL_FEASIBLE",
                                        "NEAR_PRIMAL_AND_DUAL_FEASIBLE",
                                        "NEAR_PRIMAL_INFEASIBLE_CER",
                                        "NEAR_DUAL_INFEASIBLE_CER",
                                        "INTEGER_OPTIMAL",
                                        "NEAR_INTEGER_OPTIMAL"};

constexpr const char* probtype_texts[] = {"LO (linear optimization problem)",
                                          "QO (quadratic optimization problem)",
                                          "QCQO (quadratically constrained optimization problem)",
                                          "GECO (general convex optimization problem)",
                                          "CONIC (conic optimization problem)",
                                          "MIXED (mixed nonlinear and conic optimization problem)"};

template <std::size_t N>
const char* entry(const char* const (&texts)[N], int32_t k) {
  return k >= 0 && k < static_cast<int32_t>(N) ? texts[k] : nullptr;
}

// Text into a caller's buffer of TRV_MAX_STR_LEN bytes; either may be NULL.
void put_text(char* out, const char* text) {
  if (out != nullptr) std::snprintf(out, TRV_MAX_STR_LEN, "%s", text != nullptr ? text : "");
}

// The name of the member of a family that has the value, or NULL.
const char* member_name(const char* family, int32_t value) {
  for (int32_t k = 0; k < num_symbols; ++k) {
    const Symbol& symbol = symbols[k];
    if (symbol.family != nullptr && symbol.value == value && std::strcmp(symbol.family, family) == 0) {
      return symbol.name;
    }
  }
  return nullptr;
}

}  // namespace
}  // namespace tarvo

using namespace tarvo;

int32_t TRV_getcodedisc(int32_t code, char* symname, char* disc) {
  const CodeText* row = find_code(code);
  put_text(symname, row != nullptr ? row->name : "");
  put_text(disc, row != nullptr ? row->description : "");
  return TRV_RES_OK;
}

int32_t TRV_getresponseclass(int32_t code, int32_t* responseclass) {
  if (responseclass == nullptr) return TRV_RES_ERR_NULL_POINTER;
  // No code is negative; one that comes in all the same is no success.
  *responseclass = code == 0                  ? TRV_RESPONSE_OK
                   : code < 0 || code >= 4000 ? (code < 0 ? TRV_RESPONSE_ERR : TRV_RESPONSE_TRM)
                   : code < 1000              ? TRV_RESPONSE_WRN
                                              : TRV_RESPONSE_ERR;
  return TRV_RES_OK;
}

int32_t TRV_symnamtovalue(const char* name, char* value) {
  const Symbol* symbol = name != nullptr ? find_symbol(name) : nullptr;
  if (symbol == nullptr) {
    put_text(value, "");
    return 0;
  }
  if (value != nullptr) std::snprintf(value, TRV_MAX_STR_LEN, "%d", symbol->value);
  return 1;
}

int32_t TRV_getsymbcondim(TRVenv env, int32_t* num, int32_t* maxlen) {
  const int32_t code = env_check(env);
  if (code != TRV_RES_OK) return code;
  if (num != nullptr) *num = num_symbols;
  if (maxlen != nullptr) *maxlen = max_symbol_length;
  return TRV_RES_OK;
}

int32_t TRV_getsymbcon(TRVtask task, int32_t i, int32_t sizename, char* name, int32_t* value) {
  const int32_t code = task_check(task);
  if (code != TRV_RES_OK) return code;
  if (i < 0) return report<TRV_RES_ERR_INDEX_IS_TOO_SMALL>(task, i, "i");
  if (i >= num_symbols) return report<TRV_RES_ERR_INDEX_IS_TOO_LARGE>(task, i, "i");
  const Symbol& symbol = symbols[i];
  const int32_t length = static_cast<int32_t>(std::strlen(symbol.name));
  if (value != nullptr) *value = symbol.value;
  if (name == nullptr) return TRV_RES_OK;
  const int32_t copied = sizename > length ? length + 1 : sizename;
  if (copied > 0) std::memcpy(name, symbol.name, static_cast<std::size_t>(copied));
  if (sizename <= length) return report<TRV_RES_WRN_NAME_MAX_LEN>(task, length, sizename);
  return TRV_RES_OK;
}

int32_t TRV_iparvaltosymnam(TRVenv env, int32_t whichparam, int32_t value, char* name) {
  (void)env;  // the names are the same in every environment
  const bool known = whichparam >= 0 && whichparam < num_ipar;
  put_text(name, known ? member_name(int_params[whichparam].family, value) : nullptr);
  return TRV_RES_OK;
}

int32_t TRV_bktostr(TRVtask task, int32_t bk, char* text) {
  const int32_t code = task_check(task);
  if (code != TRV_RES_OK) return code;
  const char* name = member_name("BK", bk);
  put_text(text, name != nullptr ? name + std::strlen("TRV_BK_") : "");
  return name != nullptr ? TRV_RES_OK : TRV_RES_ERR_INV_BK;
}

int32_t TRV_sktostr(TRVtask task, int32_t sk, char* text) {
  const int32_t code = task_check(task);
  if (code != TRV_RES_OK) return code;
  const char* name = entry(sk_texts, sk);
  put_text(text, name);
  return name != nullptr ? TRV_RES_OK : TRV_RES_ERR_INV_SK;
}

int32_t TRV_strtosk(TRVtask task, const char* text, int32_t* sk) {
  const int32_t code = task_check(task);
  if (code != TRV_RES_OK) return code;
  int32_t found = 0;
  while (found < num_sk && (text == nullptr || std::strcmp(text, sk_texts[found]) != 0)) ++found;
  if (sk != nullptr) *sk = found;
  return found < num_sk ? TRV_RES_OK : TRV_RES_ERR_INV_SK_STR;
}

int32_t TRV_conetypetostr(TRVtask task, int32_t conetype, char* text) {
  const int32_t code = task_check(task);
  if (code != TRV_RES_OK) return code;
  const char* name = member_name("CT", conetype);
  put_text(text, name);
  return name != nullptr ? TRV_RES_OK : TRV_RES_ERR_CONE_TYPE;
}

int32_t TRV_strtoconetype(TRVtask task, const char* text, int32_t* conetype) {
  const int32_t code = task_check(task);
  if (code != TRV_RES_OK) return code;
  const Symbol* symbol = text != nullptr ? find_symbol(text) : nullptr;
  if (symbol == nullptr || symbol->family == nullptr || std::strcmp(symbol->family, "CT") != 0) {
    return TRV_RES_ERR_CONE_TYPE_STR;
  }
  if (conetype != nullptr) *conetype = symbol->value;
  return TRV_RES_OK;
}

int32_t TRV_probtypetostr(TRVtask task, int32_t probtype, char* text) {
  const int32_t code = task_check(task);
  if (code != TRV_RES_OK) return code;
  const char* name = entry(probtype_texts, probtype);
  put_text(text, name != nullptr ? name : "INVALID");
  return TRV_RES_OK;
}

int32_t TRV_prostatostr(TRVtask task, int32_t prosta, char* text) {
  (void)task;
  const char* name = entry(prosta_texts, prosta);
  if (name != nullptr) {
    put_text(text, name);
  } else if (text != nullptr) {
    std::snprintf(text, TRV_MAX_STR_LEN, "INVALID CODE(%d)", prosta);
  }
  return TRV_RES_OK;
}

int32_t TRV_solstatostr(TRVtask task, int32_t solsta, char* text) {
  (void)task;
  const char* name = entry(solsta_texts, solsta);
  if (name != nullptr) {
    put_text(text, name);
  } else if (text != nullptr) {
    std::snprintf(text, TRV_MAX_STR_LEN, "INVALID code(%d)", solsta);
  }
  return TRV_RES_OK;
}

int32_t TRV_callbackcodetostr(int32_t code, char* text) {
  const char* name = "[UNDEFINED CODE]";
  for (int32_t k = 0; k < num_symbols; ++k) {
    if (symbols[k].kind == SymbolKind::callback && symbols[k].value == code) name = symbols[k].name;
  }
  put_text(text, name);
  return TRV_RES_OK;
}

int32_t TRV_replacefileext(char* filename, const char* newextension) {
  if (filename == nullptr || newextension == nullptr) return TRV_RES_ERR_NULL_POINTER;
  const std::size_t length = std::strlen(filename);
  std::size_t at = length;  // where the "." of the old extension stands, else the end
  for (std::size_t k = length; k > 0 && filename[k - 1] != '/' && filename[k - 1] != '\\'; --k) {
    if (filename[k - 1] == '.') {
      at = k - 1;
      break;
    }
  }
  filename[at] = '.';
  std::strcpy(filename + at + 1, newextension);
  return TRV_RES_OK;
}
