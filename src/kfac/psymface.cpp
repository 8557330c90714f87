// The parallel schedule: which subtrees each thread makes alone, and how the blocks above them are made. Everything is
// assigned here, by estimates of work alone.
#include <cstdint>
#include <new>

#include "kfac/kopenmp.h"
#include "kfac/symface_internal.h"

namespace tarvo {

namespace {

constexpr double worth_threads = 4e6;  // multiplications of a factorisation from which on threads are used at all
constexpr double worth_team = 1e6;     // and of one block, with its updates, for all threads to make it together
constexpr double worth_solve = 400e3;  // elements of a factor that are read in parallel
constexpr double step_cost = 2e4;      // multiplications in the time of a parallel region
constexpr int32_t most_splits = 4000;

struct Plan {
  SymFace* face;
  int32_t threads, nblk;
  int32_t *parent, *child, *sibling, *firstof;  // firstof: first block of the subtree
  double *work, *subtree;                       // of the block with its updates, of its subtree
  int32_t* heap;
  int32_t heapsize;
};

// The work of a block is what left-looking does for it: its updates and its own factorisation.
void weigh_blocks(Plan* p) {
  const SymFace* face = p->face;
  for (int32_t b = 0; b < p->nblk; ++b) {
    const SymBlock& block = face->blocks[b];
    p->child[b] = p->sibling[b] = -1;
    p->work[b] = 0.5 * symface_blockwork(block.width, 0) + double{1.0} * block.width * block.width * block.nrows + 20.0;
    const int32_t limit = block.first + block.width;
    for (int64_t k = face->updstart[b]; k < face->updstart[b + 1]; ++k) {
      const SymUpdate& update = face->updates[k];
      const SymBlock& u = face->blocks[update.block];
      const int32_t* rows = symface_rowlist(face, u);
      int32_t cols = 0;
      while (update.pos + cols < u.nrows && rows[update.pos + cols] < limit) ++cols;
      p->work[b] += (2.0 * u.width * cols + 1.0) * (u.nrows - update.pos);
    }
  }
  for (int32_t b = 0; b < p->nblk; ++b) {
    const SymBlock& block = face->blocks[b];
    p->subtree[b] = p->work[b];
    p->firstof[b] = b;
    p->parent[b] = block.nrows > 0 ? face->blockof[symface_rowlist(face, block)[0]] : -1;
    if (p->parent[b] >= p->nblk) p->parent[b] = -1;
  }
  for (int32_t b = 0; b < p->nblk; ++b) {
    const int32_t up = p->parent[b];
    if (up < 0) continue;
    p->subtree[up] += p->subtree[b];
    p->firstof[up] = std::min(p->firstof[up], p->firstof[b]);
    p->sibling[b] = p->child[up];
    p->child[up] = b;
  }
}

void push(Plan* p, int32_t b) {
  const auto lighter = [p](int32_t x, int32_t y) {
    return p->subtree[x] != p->subtree[y] ? p->subtree[x] < p->subtree[y] : x < y;
  };
  p->heap[p->heapsize++] = b;
  std::push_heap(p->heap, p->heap + p->heapsize, lighter);
}

int32_t pop(Plan* p) {
  const auto lighter = [p](int32_t x, int32_t y) {
    return p->subtree[x] != p->subtree[y] ? p->subtree[x] < p->subtree[y] : x < y;
  };
  std::pop_heap(p->heap, p->heap + p->heapsize, lighter);
  return p->heap[--p->heapsize];
}

double push_roots(Plan* p) {
  p->heapsize = 0;
  double sum = 0.0;
  for (int32_t b = 0; b < p->nblk; ++b) {
    if (p->parent[b] >= 0) continue;
    push(p, b);
    sum += p->subtree[b];
  }
  return sum;
}

void split_heaviest(Plan* p, double* sum, double* top) {
  const int32_t b = pop(p);
  *sum -= p->work[b];
  *top += p->work[b] >= worth_team ? p->work[b] / p->threads + step_cost : p->work[b];
  for (int32_t c = p->child[b]; c >= 0; c = p->sibling[c]) push(p, c);
}

// How many times to replace the heaviest tree by its children, so that the whole takes the least time.
int32_t best_cut(Plan* p) {
  double sum = push_roots(p), top = 0.0, least = 0.0;
  int32_t best = 0;
  for (int32_t k = 0; k <= most_splits && p->heapsize > 0; ++k) {
    const double time = std::max(p->subtree[p->heap[0]], sum / p->threads) + top;
    if (k == 0 || time < 0.999 * least) {
      least = time;
      best = k;
    }
    if (top > 2.0 * least) break;
    split_heaviest(p, &sum, &top);
  }
  return best;
}

// Trees to threads, the heaviest first to the one with the least work.
bool assign_trees(Plan* p, SymSchedule* s) {
  sysenv* env = p->face->env;
  const int32_t count = p->heapsize;
  Array<int32_t> thread, order;
  Array<double> load;
  if (!thread.alloc(env, static_cast<size_t>(p->nblk)) ||
      !load.alloc(env, static_cast<size_t>(p->threads), Fill::zero) || !order.alloc(env, static_cast<size_t>(count)) ||
      !s->trees.alloc(env, static_cast<size_t>(count)) ||
      !s->treestart.alloc(env, static_cast<size_t>(p->threads) + 2, Fill::zero))
    return false;
  for (int32_t k = 0; k < count; ++k) order[k] = pop(p);
  for (const int32_t root : order) {
    const auto t = static_cast<int32_t>(std::min_element(load.begin(), load.end()) - load.begin());
    load[t] += p->subtree[root];
    thread[root] = t;
    ++s->treestart[t + 2];
  }
  for (int32_t t = 0; t < p->threads; ++t) s->treestart[t + 2] += s->treestart[t + 1];
  std::sort(order.begin(), order.end());
  for (const int32_t root : order) s->trees[s->treestart[thread[root] + 1]++] = {p->firstof[root], root + 1};
  return true;
}

// The blocks above the trees by level, heavy ones for the team, the others dealt out.
bool plan_top(Plan* p, SymSchedule* s, int32_t count) {
  sysenv* env = p->face->env;
  const auto size = static_cast<size_t>(count);
  Array<int32_t> level;
  Array<double> load;
  if (!level.alloc(env, static_cast<size_t>(p->nblk), Fill::zero) || !s->top.alloc(env, size) ||
      !s->owner.alloc(env, size, Fill::zero) || !s->steps.alloc(env, 2 * size) ||
      !load.alloc(env, static_cast<size_t>(p->threads)))
    return false;
  for (const int32_t b : s->ascending) {
    level[b] = std::max(level[b], 1);
    if (p->parent[b] >= 0) level[p->parent[b]] = std::max(level[p->parent[b]], level[b] + 1);
  }
  std::copy(s->ascending.begin(), s->ascending.end(), s->top.begin());
  const auto before = [&](int32_t a, int32_t b) {
    if (level[a] != level[b]) return level[a] < level[b];
    if (p->work[a] != p->work[b]) return p->work[a] < p->work[b];
    return a < b;
  };
  std::sort(s->top.begin(), s->top.end(), before);
  size_t steps = 0;
  for (int32_t begin = 0; begin < count;) {
    int32_t end = begin, heavy = begin;
    double sum = 0.0;
    for (; end < count && level[s->top[end]] == level[s->top[begin]]; ++end) sum += p->work[s->top[end]];
    // Light first. A block is heavy when the threads would wait for the one that makes it.
    while (heavy < end && (p->work[s->top[heavy]] < worth_team || 2.0 * p->threads * p->work[s->top[heavy]] < sum))
      ++heavy;
    if (heavy > begin) {
      std::fill(load.begin(), load.end(), 0.0);
      sum = 0.0;
      for (int32_t k = heavy - 1; k >= begin; --k) {
        const auto t = static_cast<int32_t>(std::min_element(load.begin(), load.end()) - load.begin());
        s->owner[k] = t;
        load[t] += p->work[s->top[k]];
        sum += p->work[s->top[k]];
      }
      s->steps[steps++] = {begin, heavy, false, heavy - begin > 1 && sum > 4.0 * step_cost};
    }
    if (end > heavy) s->steps[steps++] = {heavy, end, true, true};
    begin = end;
  }
  return s->steps.resize_keep(env, steps);
}

bool fill_schedule(SymFace* face, SymSchedule* s) {
  sysenv* env = face->env;
  const auto n = static_cast<size_t>(face->firsttail);
  Plan p{};
  p.face = face;
  p.threads = s->threads;
  p.nblk = face->firsttail;
  Workspace ws(env);
  for (int32_t** part : {&p.parent, &p.child, &p.sibling, &p.firstof, &p.heap}) ws.add(part, n);
  ws.add(&p.work, n);
  ws.add(&p.subtree, n);
  if (!ws.commit()) return false;
  weigh_blocks(&p);
  const double tail = face->n - face->dstart;
  double total = tail * tail * tail / 3.0;
  for (int32_t b = 0; b < p.nblk; ++b) total += p.work[b];
  if (total < worth_threads) {
    s->threads = 1;
    return true;
  }
  s->teamtail = tail * tail * tail / 3.0 > worth_team;
  const int32_t splits = best_cut(&p);
  double sum = push_roots(&p), top = 0.0;
  Array<int32_t> above;
  if (!above.alloc(env, static_cast<size_t>(splits))) return false;
  for (int32_t k = 0; k < splits; ++k) {
    above[k] = p.heap[0];
    split_heaviest(&p, &sum, &top);
  }
  std::sort(above.begin(), above.end());
  s->ascending.swap(above);
  s->parallelsolve = static_cast<double>(face->nnzl) > worth_solve;
  if (s->parallelsolve &&
      !s->sums.alloc(env, 2 * static_cast<size_t>(face->n) * static_cast<size_t>(s->threads), Fill::zero))
    return false;
  return assign_trees(&p, s) && plan_top(&p, s, splits);
}

// What a thread needs in its buffer: the largest strip of an update, and in a solve the rows of two right-hand sides.
int64_t buffer_size(const SymFace* face) {
  int64_t size = 2 * int64_t{face->maxrows};
  for (int32_t b = 0; b < face->nblk; ++b) {
    const int32_t limit = face->blocks[b].first + face->blocks[b].width;
    for (int64_t k = face->updstart[b]; k < face->updstart[b + 1]; k += face->updates[k].count) {
      const SymUpdate& update = face->updates[k];
      const SymBlock& u = face->blocks[update.block];
      const int32_t* rows = symface_rowlist(face, u);
      int32_t cols = 0;
      while (update.pos + cols < u.nrows && rows[update.pos + cols] < limit) ++cols;
      const int32_t count = u.nrows - update.pos;
      size = std::max(size, int64_t{dense_leading(count)} * symface_strip(count, cols));
    }
  }
  return (size + 7) / 8 * 8;
}

}  // namespace

void symface_dropschedule(SymFace* face) {
  if (face->schedule == nullptr) return;
  face->schedule->~SymSchedule();
  sysenv_free(face->env, face->schedule);
  face->schedule = nullptr;
}

bool symface_schedule(SymFace* face) {
  symface_dropschedule(face);
  void* raw = sysenv_malloc(face->env, 1, sizeof(SymSchedule));
  if (raw == nullptr) return false;
  face->schedule = ::new (raw) SymSchedule;
  SymSchedule* s = face->schedule;
  s->threads = mpc_getnthreads();
  if (s->threads > 1 && !fill_schedule(face, s)) return false;
  face->bufsize = buffer_size(face);
  const auto threads = static_cast<size_t>(s->threads);
  const auto ints = static_cast<size_t>(face->n) + static_cast<size_t>(face->maxrows);
  return face->worksp.alloc(face->env, threads * static_cast<size_t>(dense_worksize() + face->bufsize) + 8) &&
         face->workint.alloc(face->env, threads * ints);
}

SymWork symface_scratch(SymFace* face, int32_t thread) {
  const int32_t threads = face->schedule->threads;
  double* base = face->worksp.data();
  base += (64 - reinterpret_cast<std::uintptr_t>(base) % 64) % 64 / sizeof(double);
  int32_t* ints = face->workint.data() + int64_t{thread} * (int64_t{face->n} + face->maxrows);
  return {base + thread * dense_worksize(), base + threads * dense_worksize() + thread * face->bufsize, ints,
          ints + face->n};
}

}  // namespace tarvo
