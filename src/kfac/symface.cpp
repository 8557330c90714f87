// Pattern, order and analysis of the symmetric factorisation.
//
// Elimination tree: Liu, The role of elimination trees in sparse factorization (1990); column counts: Gilbert, Ng and
// Peyton, An efficient algorithm to compute row and column counts (1994); amalgamation after Ashcraft and Grimes
// (1989).
#include "kfac/symface.h"

#include <algorithm>
#include <new>

#include "kfac/kernels.h"
#include "kfac/symface_internal.h"

namespace tarvo {

SymFace* symface_make(sysenv* env, const SymOptions& options, int32_t n) {
  void* place = sysenv_calloc(env, 1, sizeof(SymFace));
  if (place == nullptr) return nullptr;
  auto* face = new (place) SymFace{};
  face->env = env;
  face->options = options;
  face->n = n;
  return face;
}

void symface_delete(SymFace** face) {
  if (*face == nullptr) return;
  sysenv* env = (*face)->env;
  if ((*face)->schedule != nullptr) {
    (*face)->schedule->~SymSchedule();
    sysenv_free(env, (*face)->schedule);
  }
  (*face)->~SymFace();
  sysenv_free(env, *face);
  *face = nullptr;
}

bool symface_setcounts(SymFace* face, const int32_t* counts) {
  const auto n = static_cast<std::size_t>(face->n);
  if (!face->start.alloc(face->env, n + 1) || !face->fill.alloc(face->env, n)) return false;
  int64_t sum = 0;
  for (std::size_t i = 0; i < n; ++i) {
    face->start[i] = face->fill[i] = sum;
    sum += counts[i];
  }
  face->start[n] = sum;
  return face->sub.alloc(face->env, static_cast<std::size_t>(sum));
}

int32_t symface_order(SymFace* face, int32_t method, const OrderOffer& offer, const OrderHook& hook) {
  const auto n = static_cast<std::size_t>(face->n);
  if (!face->perm.alloc(face->env, n) || !face->invperm.alloc(face->env, n)) return ORDER_SPACE;
  const OrderGraph graph{face->n, face->start.data(), face->sub.data()};
  const int32_t result = symord_order(face->env, method, graph, offer, hook, face->perm.data(), &face->order);
  if (result == ORDER_OK)
    for (int32_t k = 0; k < face->n; ++k) face->invperm[face->perm[k]] = k;
  return result;
}

bool symface_setorder(SymFace* face, const int32_t* perm) {
  const auto n = static_cast<std::size_t>(face->n);
  if (!face->perm.alloc(face->env, n) || !face->invperm.alloc(face->env, n)) return false;
  std::copy_n(perm, n, face->perm.data());
  for (int32_t k = 0; k < face->n; ++k) face->invperm[perm[k]] = k;
  return true;
}

namespace {

struct Analysis {
  SymFace* face;
  int32_t n;
  Array<int64_t> ptr;  // [n + 1] earlier positions that position j is connected with
  Array<int32_t> sub;
  Array<int32_t> parent, post, count, work;
};

// For each position the earlier ones that it is connected with, ascending.
bool permuted_pattern(Analysis* a) {
  const SymFace* f = a->face;
  const auto n = static_cast<std::size_t>(a->n);
  const int64_t nnz = f->start[n];
  Array<int64_t> lowptr;
  Array<int32_t> low;
  if (!a->ptr.alloc(f->env, n + 1, Fill::zero) || !a->sub.alloc(f->env, static_cast<std::size_t>(nnz)) ||
      !lowptr.alloc(f->env, n + 1, Fill::zero) || !low.alloc(f->env, static_cast<std::size_t>(nnz)))
    return false;
  // By the earlier end first, then by the later one in the order of the earlier: both lists ascend.
  const auto edges = [f, n](auto&& use) {
    for (std::size_t i = 0; i < n; ++i)
      for (int64_t t = f->start[i]; t < f->start[i + 1]; ++t) {
        const int32_t p = f->invperm[i], q = f->invperm[f->sub[t]];
        use(std::min(p, q), std::max(p, q));
      }
  };
  edges([&lowptr](int32_t p, int32_t) { ++lowptr[p + 1]; });
  for (std::size_t k = 0; k < n; ++k) lowptr[k + 1] += lowptr[k];
  edges([&lowptr, &low](int32_t p, int32_t q) { low[lowptr[p]++] = q; });
  for (int64_t t = 0; t < nnz; ++t) ++a->ptr[low[t] + 1];
  for (std::size_t k = 0; k < n; ++k) a->ptr[k + 1] += a->ptr[k];
  int64_t begin = 0;
  for (int32_t p = 0; p < a->n; ++p) {
    for (int64_t t = begin; t < lowptr[p]; ++t) a->sub[a->ptr[low[t]]++] = p;
    begin = lowptr[p];
  }
  for (std::size_t k = n; k > 0; --k) a->ptr[k] = a->ptr[k - 1];
  a->ptr[0] = 0;
  return true;
}

void elimination_tree(Analysis* a) {
  int32_t* ancestor = a->work.data();
  for (int32_t j = 0; j < a->n; ++j) {
    a->parent[j] = ancestor[j] = -1;
    for (int64_t t = a->ptr[j]; t < a->ptr[j + 1]; ++t) {
      for (int32_t i = a->sub[t]; i != -1 && i != j;) {
        const int32_t next = ancestor[i];
        ancestor[i] = j;
        if (next == -1) a->parent[i] = j;
        i = next;
      }
    }
  }
}

// Children before parents, every subtree in one piece.
void tree_postorder(Analysis* a) {
  const int32_t n = a->n;
  int32_t *child = a->work.data(), *sibling = child + n, *stack = sibling + n;
  std::fill_n(child, n, -1);
  for (int32_t j = n; j-- > 0;) {
    if (a->parent[j] < 0) continue;
    sibling[j] = child[a->parent[j]];
    child[a->parent[j]] = j;
  }
  int32_t put = 0;
  for (int32_t root = 0; root < n; ++root) {
    if (a->parent[root] >= 0) continue;
    int32_t top = 0;
    stack[0] = root;
    while (top >= 0) {
      const int32_t j = stack[top];
      if (child[j] >= 0) {
        stack[++top] = child[j];
        child[j] = sibling[child[j]];
      } else {
        a->post[put++] = j;
        --top;
      }
    }
  }
}

// Renumbers the positions in postorder and everything that hangs on them. False when out of memory.
bool apply_postorder(Analysis* a) {
  SymFace* f = a->face;
  bool changed = false;
  for (int32_t k = 0; k < a->n; ++k) changed = changed || a->post[k] != k;
  if (!changed) return true;
  int32_t* perm = a->work.data();
  for (int32_t k = 0; k < a->n; ++k) perm[k] = f->perm[a->post[k]];
  std::copy_n(perm, a->n, f->perm.data());
  for (int32_t k = 0; k < a->n; ++k) f->invperm[f->perm[k]] = k;
  if (!permuted_pattern(a)) return false;
  elimination_tree(a);
  return true;
}

// Elements of each column, the diagonal included. The positions are a postorder.
void column_counts(Analysis* a) {
  const int32_t n = a->n;
  int32_t *first = a->work.data(), *maxfirst = first + n, *prevleaf = maxfirst + n, *ancestor = prevleaf + n;
  std::fill_n(first, n, -1);
  for (int32_t j = 0; j < n; ++j) {
    a->count[j] = first[j] == -1 ? 1 : 0;
    for (int32_t i = j; i != -1 && first[i] == -1; i = a->parent[i]) first[i] = j;
  }
  for (int32_t j = 0; j < n; ++j) {
    maxfirst[j] = prevleaf[j] = -1;
    ancestor[j] = j;
  }
  // Row by row would need the rows; columns in postorder need, for each, its later neighbours: walk the transpose.
  int64_t* fill = a->face->fill.data();
  std::fill_n(fill, n, int64_t{0});
  for (int64_t t = 0; t < a->ptr[n]; ++t) ++fill[a->sub[t]];
  Array<int64_t>& upstart = a->face->start;  // borrowed: the node pattern is not needed any more
  int64_t sum = 0;
  for (int32_t j = 0; j < n; ++j) {
    upstart[j] = sum;
    sum += fill[j];
    fill[j] = upstart[j];
  }
  upstart[n] = sum;
  int32_t* up = a->face->sub.data();
  for (int32_t j = 0; j < n; ++j)
    for (int64_t t = a->ptr[j]; t < a->ptr[j + 1]; ++t) up[fill[a->sub[t]]++] = j;
  for (int32_t j = 0; j < n; ++j) {
    if (a->parent[j] != -1) --a->count[a->parent[j]];
    for (int64_t t = upstart[j]; t < upstart[j + 1]; ++t) {
      const int32_t i = up[t];
      if (first[j] <= maxfirst[i]) continue;
      maxfirst[i] = first[j];
      const int32_t previous = prevleaf[i];
      prevleaf[i] = j;
      ++a->count[j];
      if (previous == -1) continue;
      int32_t q = previous;
      while (q != ancestor[q]) q = ancestor[q];
      for (int32_t s = previous; s != q;) {
        const int32_t next = ancestor[s];
        ancestor[s] = q;
        s = next;
      }
      --a->count[q];
    }
    if (a->parent[j] != -1) ancestor[j] = a->parent[j];
  }
  for (int32_t j = 0; j < n; ++j)
    if (a->parent[j] != -1) a->count[a->parent[j]] += a->count[j];
}

// A supernode while blocks are being chosen: the columns first..last, below the diagonal block `rows` rows, `zeros`
// elements of it explicit.
struct Node {
  int32_t first, last, rows;
  int64_t zeros;
};

bool worth_merging(int32_t width, double zeros, double size) {
  const double share = zeros / size;
  return width <= 4 ? share < 0.7 : width <= 16 ? share < 0.4 : width <= 48 ? share < 0.1 : share < 0.05;
}

// Supernodes of columns with the same structure, then merged with the last child of the tree where that costs little.
bool choose_blocks(Analysis* a) {
  SymFace* f = a->face;
  const int32_t n = a->n;
  Array<Node> stack;
  if (!stack.alloc(f->env, static_cast<std::size_t>(n))) return false;
  int32_t top = 0;
  for (int32_t j = 0; j < n; ++j) {
    if (top > 0 && stack[top - 1].last == j - 1 && a->parent[j - 1] == j && a->count[j - 1] == a->count[j] + 1 &&
        stack[top - 1].zeros == 0) {
      stack[top - 1].last = j;
      stack[top - 1].rows = a->count[j] - 1;
    } else {
      stack[top++] = {j, j, a->count[j] - 1, 0};
    }
    // Is the node complete? Then it may swallow the child that stands right before it.
    const bool complete = j == n - 1 || a->parent[j] != j + 1 || a->count[j] != a->count[j + 1] + 1;
    while (complete && top > 1) {
      Node& c = stack[top - 2];
      Node& p = stack[top - 1];
      if (c.last + 1 != p.first || a->parent[c.last] < p.first || a->parent[c.last] > p.last) break;
      const int64_t wc = c.last - c.first + 1, wp = p.last - p.first + 1;
      const int64_t zeros = c.zeros + p.zeros + wc * (wp + p.rows - c.rows);
      const int64_t w = wc + wp;
      const double size = static_cast<double>(w) * static_cast<double>(w + 1) / 2 +
                          static_cast<double>(w) * static_cast<double>(p.rows);
      if (!worth_merging(static_cast<int32_t>(w), static_cast<double>(zeros), size)) break;
      c.last = p.last;
      c.rows = p.rows;
      c.zeros = zeros;
      --top;
    }
  }
  f->nblk = f->firsttail = top;
  f->dstart = n;
  if (!f->blocks.alloc(f->env, static_cast<std::size_t>(top)) || !f->blockof.alloc(f->env, static_cast<std::size_t>(n)))
    return false;
  int64_t row = 0, val = 0;
  f->nnzl = 0;
  for (int32_t k = 0; k < top; ++k) {
    const int32_t width = stack[k].last - stack[k].first + 1;
    const int32_t ld = width + stack[k].rows == 1 ? 1 : dense_leading(width + stack[k].rows);
    f->blocks[k] = {stack[k].first, width, stack[k].rows, ld, val, row};
    std::fill_n(f->blockof.data() + stack[k].first, width, k);
    row += stack[k].rows;
    val += static_cast<int64_t>(ld) * width;
    f->nnzl += static_cast<int64_t>(width) * (width + 1) / 2 + static_cast<int64_t>(width) * stack[k].rows;
    for (int32_t c = 0; c < width; ++c) {
      const double length = stack[k].rows + width - c - 1;
      f->flops += length * (length + 3.0) + 1.0;
    }
  }
  f->extraflops = 2.0 * static_cast<double>(f->nnzl);
  f->numvalues = val;
  return f->rows.alloc(f->env, static_cast<std::size_t>(row));
}

// The row lists: what the columns of a block and the blocks below it in the tree reach beyond the block.
bool fill_rows(Analysis* a) {
  SymFace* f = a->face;
  const int32_t nblk = f->nblk;
  Array<int32_t> child, sibling;
  if (!child.alloc(f->env, static_cast<std::size_t>(nblk)) || !sibling.alloc(f->env, static_cast<std::size_t>(nblk)))
    return false;
  std::fill(child.begin(), child.end(), -1);
  int32_t* mark = a->work.data();
  std::fill_n(mark, a->n, -1);
  const int64_t* upstart = f->start.data();
  const int32_t* up = f->sub.data();
  for (int32_t k = 0; k < nblk; ++k) {
    const SymBlock& b = f->blocks[k];
    int32_t* rows = f->rows.data() + b.row;
    const int32_t end = b.first + b.width;
    int32_t put = 0;
    const auto take = [mark, rows, k, end, &put](int32_t i) {
      if (i < end || mark[i] == k) return;
      mark[i] = k;
      rows[put++] = i;
    };
    for (int32_t j = b.first; j < end; ++j)
      for (int64_t t = upstart[j]; t < upstart[j + 1]; ++t) take(up[t]);
    for (int32_t c = child[k]; c >= 0; c = sibling[c])
      for (int32_t t = 0; t < f->blocks[c].nrows; ++t) take(f->rows[f->blocks[c].row + t]);
    if (put != b.nrows) sysenv_fatal(f->env, "symface: row count");
    std::sort(rows, rows + put);
    if (put == 0) continue;
    const int32_t parent = f->blockof[rows[0]];
    sibling[k] = child[parent];
    child[parent] = k;
  }
  return true;
}

bool numeric_space(Analysis* a) {
  SymFace* f = a->face;
  const auto n = static_cast<std::size_t>(f->n);
  constexpr std::size_t line = 8;
  if (!f->store.alloc(f->env, static_cast<std::size_t>(f->numvalues) + line) || !f->diag.alloc(f->env, n, Fill::zero) ||
      !f->flags.alloc(f->env, n, Fill::zero))
    return false;
  const auto address = reinterpret_cast<std::uintptr_t>(f->store.data());
  f->values = f->store.data() + (64 - address % 64) % 64 / sizeof(double);

  void* place = sysenv_calloc(f->env, 1, sizeof(SymSchedule));
  if (place == nullptr) return false;
  auto* s = new (place) SymSchedule{};
  f->schedule = s;
  // The largest piece that one block sends to another.
  int64_t piece = 0;
  int32_t widest = 1;
  for (int32_t k = 0; k < f->nblk; ++k) {
    const SymBlock& b = f->blocks[k];
    widest = std::max(widest, b.width);
    const int32_t* rows = f->rows.data() + b.row;
    for (int32_t p = 0; p < b.nrows;) {
      int32_t q = p;
      while (q < b.nrows && f->blockof[rows[q]] == f->blockof[rows[p]]) ++q;
      piece = std::max(piece, static_cast<int64_t>(dense_leading(b.nrows - p)) * (q - p));
      p = q;
    }
  }
  const auto nblk = static_cast<std::size_t>(f->nblk);
  return s->head.alloc(f->env, nblk) && s->next.alloc(f->env, nblk) && s->pos.alloc(f->env, nblk) &&
         s->relative.alloc(f->env, n) && s->buffer.alloc(f->env, static_cast<std::size_t>(piece) + line) &&
         s->columns.alloc(f->env, static_cast<std::size_t>(widest)) && s->before.alloc(f->env, n) &&
         s->kernel.alloc(f->env, static_cast<std::size_t>(dense_worksize()) + line) &&
         s->gather.alloc(f->env, 2 * n + line);
}

}  // namespace

bool symface_analyze(SymFace* face) {
  Analysis a{};
  a.face = face;
  a.n = face->n;
  face->flops = face->denseflops = face->extraflops = 0.0;
  if (face->schedule != nullptr) {
    face->schedule->~SymSchedule();
    sysenv_free(face->env, face->schedule);
    face->schedule = nullptr;
  }
  const auto n = static_cast<std::size_t>(face->n);
  for (Array<int32_t>* list : {&a.parent, &a.post, &a.count})
    if (!list->alloc(face->env, n)) return false;
  if (!a.work.alloc(face->env, 4 * n)) return false;
  if (!permuted_pattern(&a)) return false;
  elimination_tree(&a);
  tree_postorder(&a);
  if (!apply_postorder(&a)) return false;
  column_counts(&a);
  return choose_blocks(&a) && fill_rows(&a) && numeric_space(&a);
}

}  // namespace tarvo
