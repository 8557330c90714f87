#include "result.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <nlohmann/json.hpp>
#include <vector>

#include "names.h"

namespace app {
namespace {

bool is_optimal(int32_t solsta) { return solsta == TRV_SOL_STA_OPTIMAL || solsta == TRV_SOL_STA_INTEGER_OPTIMAL; }

std::string solution_name(int32_t whichsol) {
  return whichsol == TRV_SOL_BAS ? "basic" : whichsol == TRV_SOL_ITR ? "interior" : "integer";
}

// JSON has no infinities and no NaN.
nlohmann::ordered_json number(double value) {
  return std::isfinite(value) ? nlohmann::ordered_json(value) : nlohmann::ordered_json(nullptr);
}

int32_t iterations(TRVtask task) {
  int32_t total = 0;
  for (const int32_t item : {TRV_IINF_INTPNT_ITER, TRV_IINF_SIM_PRIMAL_ITER, TRV_IINF_SIM_DUAL_ITER}) {
    int32_t count = 0;
    TRV_getintinf(task, item, &count);
    total += count;
  }
  return total;
}

// The optimizer that ran, or the one that was asked for if none did.
int32_t optimizer(TRVtask task) {
  int32_t value = TRV_OPTIMIZER_FREE;
  TRV_getnaintinf(task, "TRV_IINF_OPTIMIZER", &value);
  if (value == TRV_OPTIMIZER_FREE) TRV_getintparam(task, TRV_IPAR_OPTIMIZER, &value);
  return value;
}

std::string name_of(TRVtask task, int32_t item, int32_t i) {
  int32_t length = 0;
  TRV_getname(task, item, i, 0, &length, nullptr);
  std::string name(static_cast<std::size_t>(length) + 1, '\0');
  TRV_getname(task, item, i, length + 1, nullptr, name.data());
  name.resize(static_cast<std::size_t>(length));
  return name.empty() ? (item == TRV_PI_VAR ? "x" : "c") + std::to_string(i + 1) : name;
}

}  // namespace

std::optional<Reported> pick_solution(const Session& session) {
  std::optional<Reported> best;
  for (const int32_t which : {TRV_SOL_ITG, TRV_SOL_BAS, TRV_SOL_ITR}) {
    int32_t defined = 0;
    TRV_solutiondef(session.task, which, &defined);
    if (defined == 0) continue;
    Reported r{};
    r.which = which;
    r.has_dual = which != TRV_SOL_ITG;
    double pbi = 0, pcni = 0, peqi = 0, inti = 0, dbi = 0, dcni = 0, deqi = 0;
    if (TRV_getsolutioninf(session.task, which, &r.prosta, &r.solsta, &r.primalobj, &pbi, &pcni, &peqi, &inti,
                           r.has_dual ? &r.dualobj : nullptr, r.has_dual ? &dbi : nullptr, r.has_dual ? &dcni : nullptr,
                           r.has_dual ? &deqi : nullptr) != TRV_RES_OK) {
      continue;
    }
    r.maxprimal = std::max({pbi, pcni, peqi, inti});
    r.maxdual = std::max({dbi, dcni, deqi});
    if (!best || (is_optimal(r.solsta) && !is_optimal(best->solsta))) best = r;
  }
  return best;
}

Exit exit_status(const Result& result) {
  switch (result.code) {
    case TRV_RES_OK:
      break;
    case TRV_RES_TRM_STALL:
    case TRV_RES_TRM_NUMERICAL_PROBLEM:
    case TRV_RES_TRM_INTERNAL:
    case TRV_RES_TRM_INTERNAL_STOP:
      return exit_other;
    default:
      return result.code >= TRV_RES_TRM_MAX_ITERATIONS ? exit_stopped : exit_other;
  }
  if (!result.solved) return exit_optimal;
  if (!result.reported) return exit_other;
  if (is_optimal(result.reported->solsta)) return exit_optimal;
  switch (result.reported->prosta) {
    case TRV_PRO_STA_PRIM_INFEAS:
    case TRV_PRO_STA_PRIM_AND_DUAL_INFEAS:
      return exit_infeasible;
    case TRV_PRO_STA_DUAL_INFEAS:
      return exit_unbounded;
    default:
      return exit_other;
  }
}

std::string outcome(const Session& session, const Result& result) {
  char text[512];
  const double objective = result.reported ? result.reported->primalobj : NAN;
  const char* detail = "%s after %d iterations and %.2f seconds.";
  std::string head;
  switch (exit_status(result)) {
    case exit_optimal:
      std::snprintf(text, sizeof text, "Optimal: objective %.10g", objective);
      head = text;
      break;
    case exit_infeasible:
      head = "Infeasible: no point satisfies all constraints; proven";
      break;
    case exit_unbounded:
      head = "Unbounded: the objective has no limit if there is a feasible point; proven";
      break;
    case exit_stopped:
      head = "Stopped: " + session.message(result.code) + " Ended";
      break;
    default:
      head = result.code != TRV_RES_OK ? "Not solved: " + session.message(result.code) + " Ended"
             : result.reported         ? "Ended with status " + member_name("SOL_STA", result.reported->solsta)
                                       : "Ended without a solution";
  }
  std::snprintf(text, sizeof text, detail, head.c_str(), iterations(session.task), result.seconds);
  return text;
}

// Number of basic keys among rows and columns of a solution.
int64_t count_basic(TRVtask task, int32_t which, int32_t rows, int32_t columns) {
  int64_t count = 0;
  for (const auto& [accmode, n] : {std::pair{TRV_ACC_CON, rows}, std::pair{TRV_ACC_VAR, columns}}) {
    std::vector<int32_t> keys(static_cast<std::size_t>(n));
    if (TRV_getsolutionstatuskeyslice(task, accmode, which, 0, n, keys.data()) == TRV_RES_OK)
      count += std::count(keys.begin(), keys.end(), TRV_SK_BAS);
  }
  return count;
}

nlohmann::ordered_json to_json(const Session& session, const Result& result) {
  TRVtask task = session.task;
  char name[TRV_MAX_STR_LEN];
  char description[TRV_MAX_STR_LEN];
  TRV_getcodedisc(result.code, name, description);
  int32_t rows = 0;
  int32_t columns = 0;
  int32_t nonzeros = 0;
  int32_t integers = 0;
  TRV_getnumcon(task, &rows);
  TRV_getnumvar(task, &columns);
  TRV_getnumanz(task, &nonzeros);
  TRV_getnumintvar(task, &integers);

  nlohmann::ordered_json json;
  json["file"] = result.file;
  json["response"] = {{"code", result.code}, {"name", name}};
  json["message"] = result.message.empty() ? nlohmann::ordered_json(nullptr) : nlohmann::ordered_json(result.message);
  json["optimizer"] = optimizer_name(optimizer(task));
  const auto& r = result.reported;
  json["problem_status"] = r ? member_name("PRO_STA", r->prosta) : "unknown";
  json["solution_status"] = r ? member_name("SOL_STA", r->solsta) : "unknown";
  json["solution"] = r ? nlohmann::ordered_json(solution_name(r->which)) : nlohmann::ordered_json(nullptr);
  json["primal_objective"] = number(r ? r->primalobj : NAN);
  json["dual_objective"] = number(r && r->has_dual ? r->dualobj : NAN);
  json["max_primal_infeasibility"] = number(r ? r->maxprimal : NAN);
  json["max_dual_infeasibility"] = number(r && r->has_dual ? r->maxdual : NAN);
  json["iterations"] = iterations(task);
  if (r && r->which == TRV_SOL_BAS) json["basic_keys"] = count_basic(task, r->which, rows, columns);
  json["seconds"] = result.seconds;
  json["read_seconds"] = result.read_seconds;
  if (!result.mps_format.empty()) json["mps_format"] = result.mps_format;
  json["rows"] = rows;
  json["columns"] = columns;
  json["nonzeros"] = nonzeros;
  json["integers"] = integers;
  // Items that are reached by name only.
  for (const auto& [key, item] : {std::pair{"presolved_rows", "TRV_IINF_PRESOLVE_FNUMCON"},
                                  std::pair{"presolved_columns", "TRV_IINF_PRESOLVE_FNUMVAR"},
                                  std::pair{"presolved_nonzeros", "TRV_IINF_PRESOLVE_FNUMNZA"}}) {
    int32_t value = 0;
    TRV_getnaintinf(task, item, &value);
    json[key] = value;
  }
  return json;
}

void write_table(const Session& session, const Result& result, const std::string& file) {
  const auto close = [](std::FILE* f) { return f == stdout ? std::fflush(f) : std::fclose(f); };
  std::FILE* out = file == "-" ? stdout : std::fopen(file.c_str(), "w");
  if (out == nullptr) throw Failure(exit_other, "cannot write the solution to '" + file + "'");
  bool written = true;
  if (!result.reported) {
    std::fprintf(out, "No solution.\n");
  } else {
    TRVtask task = session.task;
    const Reported& r = *result.reported;
    std::fprintf(out, "File             : %s\nProblem status   : %s\nSolution status  : %s\nSolution         : %s\n",
                 result.file.c_str(), member_name("PRO_STA", r.prosta).c_str(),
                 member_name("SOL_STA", r.solsta).c_str(), solution_name(r.which).c_str());
    std::fprintf(out, "Primal objective : %.17g\n", r.primalobj);
    if (r.has_dual) std::fprintf(out, "Dual objective   : %.17g\n", r.dualobj);

    for (const int32_t accmode : {TRV_ACC_CON, TRV_ACC_VAR}) {
      const bool con = accmode == TRV_ACC_CON;
      int32_t n = 0;
      con ? TRV_getnumcon(task, &n) : TRV_getnumvar(task, &n);
      const auto size = static_cast<std::size_t>(n);
      std::vector<int32_t> keys(size), bk(size);
      std::vector<double> x(size), lower(size), upper(size), sl(size), su(size);
      int32_t code = TRV_getsolutionstatuskeyslice(task, accmode, r.which, 0, n, keys.data());
      const auto get = [&](int32_t item, std::vector<double>& values) {
        if (code == TRV_RES_OK) code = TRV_getsolutionslice(task, r.which, item, 0, n, values.data());
      };
      get(con ? TRV_SOL_ITEM_XC : TRV_SOL_ITEM_XX, x);
      if (r.has_dual) {
        get(con ? TRV_SOL_ITEM_SLC : TRV_SOL_ITEM_SLX, sl);
        get(con ? TRV_SOL_ITEM_SUC : TRV_SOL_ITEM_SUX, su);
      }
      if (code == TRV_RES_OK) code = TRV_getboundslice(task, accmode, 0, n, bk.data(), lower.data(), upper.data());
      if (code != TRV_RES_OK) {
        close(out);
        session.check(code, "cannot get the solution");
      }
      std::fprintf(out, "\n%s\n%10s %-24s %2s %24s %14s %14s %24s\n", con ? "Constraints" : "Variables", "index",
                   "name", "at", con ? "activity" : "value", "lower", "upper", r.has_dual ? "dual" : "");
      for (std::size_t i = 0; i < size; ++i) {
        char key[TRV_MAX_STR_LEN];
        TRV_sktostr(task, keys[i], key);
        const bool has_lower = bk[i] == TRV_BK_LO || bk[i] == TRV_BK_RA || bk[i] == TRV_BK_FX;
        const bool has_upper = bk[i] == TRV_BK_UP || bk[i] == TRV_BK_RA || bk[i] == TRV_BK_FX;
        const auto index = static_cast<int32_t>(i);
        std::fprintf(out, "%10d %-24s %2s %24.17g %14.8g %14.8g", index,
                     name_of(task, con ? TRV_PI_CON : TRV_PI_VAR, index).c_str(), key, x[i],
                     has_lower ? lower[i] : -INFINITY, has_upper ? upper[i] : INFINITY);
        if (r.has_dual) std::fprintf(out, " %24.17g", sl[i] - su[i] + 0.0 /* no -0 */);
        std::fputc('\n', out);
      }
    }
  }
  written = std::ferror(out) == 0;
  if (close(out) != 0 || !written) throw Failure(exit_other, "cannot write the solution to '" + file + "'");
}

}  // namespace app
