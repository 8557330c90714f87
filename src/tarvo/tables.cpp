#include "tarvo/tables.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <string_view>

#include "tarvo/frame.h"

namespace tarvo {

// Range kinds and families as the .def files spell them.
#define AT_LEAST Range::at_least
#define AT_MOST Range::at_most
#define ANY Range::any
#define BETWEEN Range::between

constexpr IntParam int_params[num_ipar] = {
#define IPAR(index, name, value, kind, lo, up, family, meaning) {"TRV_IPAR_" #name, value, kind, lo, up, #family},
#define IPAR_UNUSED(index) {"", 0, Range::any, 0, 0, "NONE"},
#include "tarvo/tables/ipar.def"
#undef IPAR
#undef IPAR_UNUSED
};
constexpr DouParam dou_params[num_dpar] = {
#define DPAR(index, name, value, kind, lo, up, meaning) {"TRV_DPAR_" #name, value, kind, lo, up},
#include "tarvo/tables/dpar.def"
#undef DPAR
};
constexpr StrParam str_params[num_spar] = {
#define SPAR(index, name, value, meaning) {"TRV_SPAR_" #name, value},
#include "tarvo/tables/spar.def"
#undef SPAR
};
constexpr const char* int_items[num_iinf] = {
#define IINF(index, name) "TRV_IINF_" #name,
#include "tarvo/tables/iinf.def"
#undef IINF
};
constexpr const char* dou_items[num_dinf] = {
#define DINF(index, name) "TRV_DINF_" #name,
#include "tarvo/tables/dinf.def"
#undef DINF
};

#undef AT_LEAST
#undef AT_MOST
#undef ANY
#undef BETWEEN

constexpr Symbol symbols[] = {
#define ENUM(family, member, value) {"TRV_" #family "_" #member, #family, value, SymbolKind::constant},
#include "tarvo/tables/enums.def"
#undef ENUM
    {"TRV_OFF", nullptr, TRV_OFF, SymbolKind::constant},
    {"TRV_ON", nullptr, TRV_ON, SymbolKind::constant},
    {"TRV_MAX_STR_LEN", nullptr, TRV_MAX_STR_LEN, SymbolKind::constant},
#define RES(number, name, message, description) {"TRV_RES_" #name, nullptr, number, SymbolKind::code},
#include "tarvo/tables/rescodes.def"
#undef RES
#define CALLBACK(number, name) {"TRV_CALLBACK_" #name, nullptr, number, SymbolKind::callback},
#include "tarvo/tables/callbacks.def"
#undef CALLBACK
#define IPAR(index, name, value, kind, lo, up, family, meaning) {"TRV_IPAR_" #name, nullptr, index, SymbolKind::ipar},
#define IPAR_UNUSED(index)
#include "tarvo/tables/ipar.def"
#undef IPAR
#undef IPAR_UNUSED
#define DPAR(index, name, value, kind, lo, up, meaning) {"TRV_DPAR_" #name, nullptr, index, SymbolKind::dpar},
#include "tarvo/tables/dpar.def"
#undef DPAR
#define SPAR(index, name, value, meaning) {"TRV_SPAR_" #name, nullptr, index, SymbolKind::spar},
#include "tarvo/tables/spar.def"
#undef SPAR
#define DINF(index, name) {"TRV_DINF_" #name, nullptr, index, SymbolKind::dinf},
#include "tarvo/tables/dinf.def"
#undef DINF
#define IINF(index, name) {"TRV_IINF_" #name, nullptr, index, SymbolKind::iinf},
#include "tarvo/tables/iinf.def"
#undef IINF
};
constexpr int32_t num_symbols = static_cast<int32_t>(std::size(symbols));

namespace {

constexpr CodeText codes[] = {
#define RES(number, name, message, description) {number, "TRV_RES_" #name, message, description},
#include "tarvo/tables/rescodes.def"
#undef RES
};

consteval int32_t longest_symbol() {
  std::size_t longest = 0;
  for (const Symbol& symbol : symbols) longest = std::max(longest, std::string_view(symbol.name).size());
  return static_cast<int32_t>(longest);
}

// strcmp for the compiler as well.
constexpr int compare(const char* a, const char* b) {
  for (; *a == *b; ++a, ++b) {
    if (*a == '\0') return 0;
  }
  return *a < *b ? -1 : 1;
}

// The rows of `symbols` in the order of their names.
consteval auto sorted_symbols() {
  std::array<int16_t, num_symbols> order{};
  for (int16_t k = 0; k < num_symbols; ++k) order[static_cast<std::size_t>(k)] = k;
  std::ranges::sort(order, [](int16_t a, int16_t b) { return compare(symbols[a].name, symbols[b].name) < 0; });
  return order;
}
constexpr auto by_name = sorted_symbols();

// The tables' own consistency: index = position, ordered codes, defaults inside their ranges, unique names.
consteval bool positions_hold() {
  constexpr int32_t ipar[] = {
#define IPAR(index, name, value, kind, lo, up, family, meaning) index,
#define IPAR_UNUSED(index) index,
#include "tarvo/tables/ipar.def"
#undef IPAR
#undef IPAR_UNUSED
  };
  constexpr int32_t dpar[] = {
#define DPAR(index, name, value, kind, lo, up, meaning) index,
#include "tarvo/tables/dpar.def"
#undef DPAR
  };
  constexpr int32_t spar[] = {
#define SPAR(index, name, value, meaning) index,
#include "tarvo/tables/spar.def"
#undef SPAR
  };
  constexpr int32_t iinf[] = {
#define IINF(index, name) index,
#include "tarvo/tables/iinf.def"
#undef IINF
  };
  constexpr int32_t dinf[] = {
#define DINF(index, name) index,
#include "tarvo/tables/dinf.def"
#undef DINF
  };
  const auto counts_up = [](const auto& list, int32_t size) {
    if (static_cast<int32_t>(std::size(list)) != size) return false;
    for (int32_t k = 0; k < size; ++k) {
      if (list[k] != k) return false;
    }
    return true;
  };
  return counts_up(ipar, 193) && counts_up(dpar, 61) && counts_up(spar, 25) && counts_up(iinf, 170) &&
         counts_up(dinf, 90);
}
static_assert(positions_hold());

consteval bool defaults_hold(const auto& params) {
  for (const auto& p : params) {
    const bool above = p.kind == Range::any || p.kind == Range::at_most || p.lo <= p.value;
    const bool below = p.kind == Range::any || p.kind == Range::at_least || p.value <= p.up;
    if (!above || !below) return false;
  }
  return true;
}
static_assert(defaults_hold(int_params) && defaults_hold(dou_params));

static_assert(std::ranges::is_sorted(codes, std::ranges::less_equal{}, &CodeText::code) && std::size(codes) == 285);
static_assert(std::ranges::none_of(codes, [](const CodeText& row) { return row.description[0] == '\0'; }));
static_assert(std::ranges::adjacent_find(by_name, [](int16_t a, int16_t b) {
                return compare(symbols[a].name, symbols[b].name) == 0;
              }) == by_name.end());

bool replace_string(sysenv* sys, char** slot, const char* text) {
  char* copy = sysenv_strdup(sys, text);
  if (copy == nullptr) return false;
  sysenv_free(sys, *slot);
  *slot = copy;
  return true;
}

}  // namespace

constexpr int32_t max_symbol_length = longest_symbol();

const Symbol* find_symbol(const char* name) {
  const auto before = [](int16_t k, const char* wanted) { return compare(symbols[k].name, wanted) < 0; };
  const auto at = std::lower_bound(by_name.begin(), by_name.end(), name, before);
  return at != by_name.end() && compare(symbols[*at].name, name) == 0 ? &symbols[*at] : nullptr;
}

int32_t find_index(const char* name, SymbolKind kind) {
  const Symbol* symbol = find_symbol(name);
  return symbol != nullptr && symbol->kind == kind ? symbol->value : -1;
}

const CodeText* find_code(int32_t code) {
  const auto at = std::ranges::lower_bound(codes, code, {}, &CodeText::code);
  return at != std::end(codes) && at->code == code ? at : nullptr;
}

const char* message_template(int32_t code) {
  const CodeText* row = find_code(code);
  return row != nullptr ? row->message : "No message for this code.";
}

bool fill_defaults(Env* env) {
  for (int32_t k = 0; k < num_ipar; ++k) env->ipar[k] = int_params[k].value;
  for (int32_t k = 0; k < num_dpar; ++k) env->dpar[k] = dou_params[k].value;
  for (int32_t k = 0; k < num_spar; ++k) {
    if (!replace_string(env->sys, &env->spar[k], str_params[k].value)) return false;
  }
  return true;
}

int32_t fill_defaults(Task* task) {
  const Env* env = task->env;
  std::memcpy(task->ipar, env->ipar, sizeof task->ipar);
  std::memcpy(task->dpar, env->dpar, sizeof task->dpar);
  for (int32_t k = 0; k < num_spar; ++k) {
    if (!replace_string(task->sys, &task->spar[k], env->spar[k])) return report<TRV_RES_ERR_SPACE>(task);
  }
  return TRV_RES_OK;
}

void free_strings(sysenv* sys, char* (&strings)[num_spar]) {
  for (char*& text : strings) {
    sysenv_free(sys, text);
    text = nullptr;
  }
}

}  // namespace tarvo
