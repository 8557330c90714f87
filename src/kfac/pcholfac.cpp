// The numeric factorisation: left-looking over the blocks, after Ng and Peyton, Block sparse Cholesky algorithms on
// advanced uniprocessor computers, SIAM J. Sci. Comput. 14 (1993). Every block takes the products that its list of
// updates names, then is factored as a dense trapezoid. Which product takes which way depends on the structure alone,
// and every element takes its products in the order of the list: the number of threads cannot be seen in the result.
#include <atomic>
#include <cmath>

#include "kfac/kopenmp.h"
#include "kfac/parblas_internal.h"
#include "kfac/parshare.h"
#include "kfac/symface_internal.h"

namespace tarvo {

namespace {

constexpr int32_t depth_at_once = PACK_DEPTH;
// Multiplications of an update below which plain loops are faster than a kernel.
constexpr int64_t small_update = 300;
// Multiplications between two questions to the hook.
constexpr double work_between = 2e8;

struct Numeric {
  SymFace* face;
  const DenseKernels* kernels;
  PivotRule rule;
  int32_t threads;
};

// The products that members[0..count) hold for a target, as far as they meet its local rows from..to-1.
struct Group {
  const SymUpdate* members;
  int32_t count;
  int32_t rows, cols;  // rows in the lists, of which so many are columns of the target
  const int32_t* local;
};

struct Source {
  int32_t depth;
  const double* list[depth_at_once];
  double mult[depth_at_once];
};

// Calls product(source) for the columns of all members, some at once; source.list points at the first row of the group.
template <class Product>
void for_sources(const SymFace* face, const Group& group, const Product& product) {
  Source source;
  source.depth = 0;
  for (int32_t k = 0; k < group.count; ++k) {
    const SymBlock& u = face->blocks[group.members[k].block];
    const double* from = face->values + u.val + u.width + group.members[k].pos;
    for (int32_t c = 0; c < u.width; ++c) {
      source.list[source.depth] = from + int64_t{c} * u.ld;
      source.mult[source.depth++] = face->diag[u.first + c];
      if (source.depth < depth_at_once) continue;
      product(source);
      source.depth = 0;
    }
  }
  if (source.depth > 0) product(source);
}

// A group by plain loops.
void scatter_products(const SymFace* face, const Group& group, int32_t from, int32_t to, double* target, int64_t ld) {
  for (int32_t k = 0; k < group.count; ++k) {
    const SymBlock& u = face->blocks[group.members[k].block];
    for (int32_t c = 0; c < u.width; ++c) {
      const double* source = face->values + u.val + u.width + group.members[k].pos + int64_t{c} * u.ld;
      for (int32_t j = 0; j < group.cols; ++j) {
        const double factor = face->diag[u.first + c] * source[j];
        double* column = target + group.local[j] * ld;
        for (int32_t i = std::max(from, j); i < to; ++i) column[group.local[i]] -= factor * source[i];
      }
    }
  }
}

void apply_group(const Numeric& run, const Group& group, int32_t from, int32_t to, int64_t depth, double* target,
                 int64_t ld, const SymWork& work) {
  const SymFace* face = run.face;
  const int32_t* local = group.local;
  if (depth * group.cols * group.rows < small_update) {
    scatter_products(face, group, from, to, target, ld);
    return;
  }
  const auto subtract = [&](int32_t row, int32_t end, int32_t col, int32_t cols, double* at, int64_t stride) {
    for_sources(face, group, [&](const Source& source) {
      const SourceColumns columns{source.list, nullptr, 0};
      run.kernels->update(
          {end - row, cols, row - col, source.depth, columns, columns, row, col, source.mult, at, stride, work.kernel});
    });
  };
  if (local[group.rows - 1] - local[0] == group.rows - 1) {
    subtract(from, to, 0, std::min(group.cols, to), target + local[0] * ld + local[from], ld);
    return;
  }
  const int32_t strip = symface_strip(group.rows, group.cols);
  for (int32_t col = 0; col < group.cols; col += strip) {
    const int32_t row = std::max(from, col), end = std::min(group.cols, col + strip), m = to - row;
    if (m <= 0) break;
    const int64_t stride = dense_leading(m);
    for (int32_t j = col; j < end; ++j) {
      const int32_t skip = std::max(j - row, 0);
      if (skip < m) std::fill(work.buffer + (j - col) * stride + skip, work.buffer + (j - col) * stride + m, 0.0);
    }
    subtract(row, to, col, std::min(end - col, to - col), work.buffer, stride);
    run.kernels->scatter(m, std::min(end - col, to - col), row - col, work.buffer, stride, local + row, local + col,
                         target, ld);
  }
}

// Products of the panels before panel b of the tail.
void apply_panels(const Numeric& run, int32_t b, int32_t from, int32_t to, const SymWork& work) {
  const SymFace* face = run.face;
  const SymBlock& target = face->blocks[b];
  const double* list[depth_at_once];
  const SourceColumns columns{list, nullptr, 0};
  int32_t depth = 0, begin = face->dstart;
  const auto flush = [&] {
    run.kernels->update({to - from, std::min(target.width, to), from, depth, columns, columns, from, 0,
                         face->diag.data() + begin, face->values + target.val + from, target.ld, work.kernel});
    begin += depth;
    depth = 0;
  };
  for (int32_t p = face->firsttail; p < b; ++p) {
    const SymBlock& panel = face->blocks[p];
    const double* source = face->values + panel.val + (target.first - panel.first);
    for (int32_t c = 0; c < panel.width; ++c) {
      list[depth++] = source + int64_t{c} * panel.ld;
      if (depth == depth_at_once) flush();
    }
  }
  if (depth > 0) flush();
}

// All products for the local rows from..to-1 of block b.
void apply_updates(const Numeric& run, int32_t b, int32_t from, int32_t to, const SymWork& work) {
  const SymFace* face = run.face;
  const SymBlock& target = face->blocks[b];
  const bool tail = b >= face->firsttail, all = from == 0 && to == target.width + target.nrows;
  const SymUpdate* update = face->updates.data() + face->updstart[b];
  const SymUpdate* end = face->updates.data() + face->updstart[b + 1];
  if (update != end && !tail) {
    const int32_t* rows = symface_rowlist(face, target);
    for (int32_t k = 0; k < target.width; ++k) work.map[target.first + k] = k;
    for (int32_t k = 0; k < target.nrows; ++k) work.map[rows[k]] = target.width + k;
  }
  for (; update != end; update += update->count) {
    const SymBlock& u = face->blocks[update->block];
    const int32_t* rows = symface_rowlist(face, u) + update->pos;
    const int32_t count = u.nrows - update->pos, limit = target.first + target.width;
    int32_t cols = 0;
    while (cols < count && rows[cols] < limit) ++cols;
    if (tail) {
      for (int32_t k = 0; k < count; ++k) work.local[k] = rows[k] - target.first;
    } else {
      for (int32_t k = 0; k < count; ++k) work.local[k] = work.map[rows[k]];
    }
    int64_t depth = 0;
    for (int32_t k = 0; k < update->count; ++k) depth += face->blocks[update[k].block].width;
    int32_t* last = work.local + count;
    const auto first = all ? 0 : static_cast<int32_t>(std::lower_bound(work.local, last, from) - work.local);
    const auto stop = all ? count : static_cast<int32_t>(std::lower_bound(work.local + first, last, to) - work.local);
    if (first == stop) continue;
    apply_group(run, {update, update->count, count, cols, work.local}, first, stop, depth, face->values + target.val,
                target.ld, work);
  }
  if (b > face->firsttail) apply_panels(run, b, from, to, work);
}

void factor_one_column(const Numeric& run, const SymBlock& block) {
  SymFace* face = run.face;
  double* column = face->values + block.val;
  const int32_t j = block.first;
  const double pivot = symface_pivot(run.rule, face->before[j], column[0], &face->flags[j]);
  face->diag[j] = pivot;
  column[0] = 1.0;
  const double inverse = 1.0 / pivot;
  for (int32_t i = 1; i <= block.nrows; ++i) column[i] *= inverse;
}

DenseColumns dense_columns(SymFace* face, const SymBlock& block) {
  return {block.width + block.nrows,       block.width,
          face->values + block.val,        block.ld,
          face->diag.data() + block.first, face->before.data() + block.first,
          face->flags.data() + block.first};
}

// One thread makes the whole block.
void factor_block(const Numeric& run, int32_t b, const SymWork& work) {
  const SymBlock& block = run.face->blocks[b];
  apply_updates(run, b, 0, block.width + block.nrows, work);
  if (block.width == 1)
    factor_one_column(run, block);
  else
    dense_factor(*run.kernels, dense_columns(run.face, block), run.rule, 1, work.kernel);
}

// All threads make the block, each its own rows.
void factor_team(const Numeric& run, int32_t b) {
  SymFace* face = run.face;
  const SymBlock& block = face->blocks[b];
  const int32_t rows = block.width + block.nrows;
  // Shares of about the same number of elements, in whole lines.
  const double w = block.width, total = w * (w + 1.0) / 2.0 + w * block.nrows;
  const auto begin = [&](int32_t t) {
    if (t >= run.threads) return rows;
    const double part = total * t / run.threads;
    const double row = part < w * (w + 1.0) / 2.0 ? std::sqrt(2.0 * part) : (part - w * (w + 1.0) / 2.0) / w + w;
    return std::min(static_cast<int32_t>(row) / 8 * 8, rows);
  };
  if (face->updstart[b] < face->updstart[b + 1] || b > face->firsttail) {
    for_threads(run.threads, [&](int32_t t) {
      if (begin(t) < begin(t + 1)) apply_updates(run, b, begin(t), begin(t + 1), symface_scratch(face, t));
    });
  }
  dense_factor(*run.kernels, dense_columns(face, block), run.rule, run.threads, symface_scratch(face, 0).kernel);
}

// Asks the hook from time to time.
struct Watch {
  const OrderHook* hook;
  double work = 0.0;
  bool stop(const SymBlock& block) {
    work += symface_blockwork(block.width, block.nrows);
    if (work < work_between) return false;
    work = 0.0;
    return hook->func != nullptr && hook->func(hook->handle, 7, -1.0) != 0;
  }
};

bool factor_subtrees(const Numeric& run, Watch* watch) {
  SymFace* face = run.face;
  const SymSchedule& schedule = *face->schedule;
  std::atomic<bool> stopped{false};
  for_threads(schedule.threads, [&](int32_t t) {
    const SymWork work = symface_scratch(face, t);
    for (int32_t k = schedule.treestart[t]; k < schedule.treestart[t + 1]; ++k) {
      for (int32_t b = schedule.trees[k].begin; b < schedule.trees[k].end; ++b) {
        if (stopped.load(std::memory_order_relaxed)) return;
        factor_block(run, b, work);
        // Logical thread 0 is the caller's.
        if (t == 0 && watch->stop(face->blocks[b])) stopped = true;
      }
    }
  });
  return !stopped;
}

bool factor_top(const Numeric& run, Watch* watch) {
  SymFace* face = run.face;
  const SymSchedule& schedule = *face->schedule;
  for (const SymStep& step : schedule.steps) {
    if (step.team) {
      for (int32_t k = step.begin; k < step.end; ++k) {
        factor_team(run, schedule.top[k]);
        if (watch->stop(face->blocks[schedule.top[k]])) return false;
      }
      continue;
    }
    for_threads(step.parallel ? schedule.threads : 1, [&](int32_t t) {
      for (int32_t k = step.begin; k < step.end; ++k)
        if (!step.parallel || schedule.owner[k] == t) factor_block(run, schedule.top[k], symface_scratch(face, t));
    });
    for (int32_t k = step.begin; k < step.end; ++k)
      if (watch->stop(face->blocks[schedule.top[k]])) return false;
  }
  return true;
}

// Shifts and remembers the diagonal; returns the scale ratio of the pivot rule.
void prepare_diagonal(SymFace* face) {
  const double shift = std::max(face->options.diagshift, 0.0);
  for (const SymBlock& block : face->blocks) {
    for (int32_t c = 0; c < block.width; ++c) {
      const int32_t j = block.first + c;
      double& d = face->values[block.val + int64_t{c} * block.ld + c];
      d += (face->flags[j] & NODE_NEGATIVE) != 0 ? -shift : shift;
      face->before[j] = d;
    }
  }
}

}  // namespace

int32_t symface_numfac(SymFace* face, const OrderHook& hook) {
  const auto cancelled = [&hook](int32_t code) {
    return hook.func != nullptr && hook.func(hook.handle, code, code == 7 ? -1.0 : 0.0) != 0;
  };
  const SymSchedule& schedule = *face->schedule;
  Numeric run{face, &dense_kernels(), {}, std::min(schedule.threads, mpc_getnthreads())};
  run.rule.tol = std::max(face->options.pivottol, 2.2204460492503132e-17);
  run.rule.shiftbelow = face->options.shiftbelow;
  run.rule.floor = face->options.floor;
  prepare_diagonal(face);
  if (cancelled(6)) return 5;
  Watch watch{&hook};
  const SymWork work = symface_scratch(face, 0);
  const bool parallel = run.threads > 1;
  if (parallel) {
    if (!factor_subtrees(run, &watch) || !factor_top(run, &watch)) return 5;
  } else {
    for (int32_t b = 0; b < face->firsttail; ++b) {
      factor_block(run, b, work);
      if (watch.stop(face->blocks[b])) return 5;
    }
  }
  if (face->firsttail < face->nblk && cancelled(8)) return 5;
  for (int32_t b = face->firsttail; b < face->nblk; ++b) {
    if (parallel && schedule.teamtail)
      factor_team(run, b);
    else
      factor_block(run, b, work);
    if (watch.stop(face->blocks[b])) return 5;
  }
  return 0;
}

}  // namespace tarvo
