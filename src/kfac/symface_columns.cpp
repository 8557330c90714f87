// Elimination tree, postorder and column counts of the permuted pattern. The tree: J. W. H. Liu, The role of
// elimination trees in sparse factorization, SIAM J. Matrix Anal. Appl. 11 (1990); the counts: Gilbert, Ng, Peyton, An
// efficient algorithm to compute row and column counts for sparse Cholesky factorization, ibid. 15 (1994).
#include "kfac/symface_internal.h"

namespace tarvo {

namespace {

// The edges by position, each in the list of its larger or its smaller end.
bool edge_lists(const SymFace* face, bool oflarger, Array<int64_t>* start, Array<int32_t>* sub) {
  const int32_t n = face->n;
  const int32_t* invperm = face->invperm.data();
  if (!start->alloc(face->env, static_cast<size_t>(n) + 2, Fill::zero)) return false;
  if (!sub->alloc(face->env, static_cast<size_t>(face->start[n]))) return false;
  // Counts stand two places up, so that the places filled next stand at last where the starts belong.
  int64_t* count = start->data() + 2;
  const auto owner = [oflarger](int32_t a, int32_t b) { return (a > b) == oflarger ? a : b; };
  for (int32_t i = 0; i < n; ++i) {
    const int32_t a = invperm[i];
    for (int64_t k = face->start[i]; k < face->start[i + 1]; ++k) ++count[owner(a, invperm[face->sub[k]])];
  }
  int64_t total = 0;
  for (int32_t i = 0; i < n; ++i) count[i] = total += count[i];
  int64_t* next = start->data() + 1;
  for (int32_t i = 0; i < n; ++i) {
    const int32_t a = invperm[i];
    for (int64_t k = face->start[i]; k < face->start[i + 1]; ++k) {
      const int32_t b = invperm[face->sub[k]], at = owner(a, b);
      (*sub)[next[at]++] = at == a ? b : a;
    }
  }
  return true;
}

// parent[k]: the first row below the diagonal of column k of the factor.
void elimination_tree(int32_t n, const int64_t* start, const int32_t* smaller, int32_t* parent, int32_t* ancestor) {
  for (int32_t k = 0; k < n; ++k) {
    parent[k] = ancestor[k] = -1;
    for (int64_t e = start[k]; e < start[k + 1]; ++e) {
      for (int32_t i = smaller[e]; i != -1 && i < k;) {
        const int32_t up = ancestor[i];
        ancestor[i] = k;
        if (up == -1) parent[i] = k;
        i = up;
      }
    }
  }
}

// post[k]: the node at place k of a postorder that keeps the order of siblings.
void postorder(int32_t n, const int32_t* parent, int32_t* post, int32_t* child, int32_t* sibling, int32_t* stack) {
  std::fill(child, child + n, -1);
  for (int32_t j = n - 1; j >= 0; --j) {
    if (parent[j] < 0) continue;
    sibling[j] = child[parent[j]];
    child[parent[j]] = j;
  }
  int32_t k = 0;
  for (int32_t root = 0; root < n; ++root) {
    if (parent[root] >= 0) continue;
    int32_t top = 0;
    stack[0] = root;
    while (top >= 0) {
      const int32_t j = stack[top], c = child[j];
      if (c < 0) {
        post[k++] = j;
        --top;
      } else {
        child[j] = sibling[c];
        stack[++top] = c;
      }
    }
  }
}

// Counts without the diagonal of a postordered tree, by the leaves of the row subtrees.
void column_counts(int32_t n, const int64_t* start, const int32_t* larger, const int32_t* parent, int32_t* count,
                   int32_t* ancestor, int32_t* maxfirst, int32_t* leaf, int32_t* first) {
  for (int32_t j = 0; j < n; ++j) {
    first[j] = ancestor[j] = j;
    maxfirst[j] = leaf[j] = -1;
  }
  for (int32_t j = 0; j < n; ++j) {
    count[j] = first[j] == j ? 1 : 0;
    if (parent[j] >= 0) first[parent[j]] = std::min(first[parent[j]], first[j]);
  }
  for (int32_t j = 0; j < n; ++j) {
    if (parent[j] >= 0) --count[parent[j]];
    for (int64_t e = start[j]; e < start[j + 1]; ++e) {
      const int32_t i = larger[e];
      if (first[j] <= maxfirst[i]) continue;
      maxfirst[i] = first[j];
      const int32_t previous = leaf[i];
      leaf[i] = j;
      ++count[j];
      if (previous < 0) continue;
      int32_t q = previous;
      while (q != ancestor[q]) q = ancestor[q];
      for (int32_t s = previous; s != q;) {
        const int32_t up = ancestor[s];
        ancestor[s] = q;
        s = up;
      }
      --count[q];
    }
    if (parent[j] >= 0) ancestor[j] = parent[j];
  }
  for (int32_t j = 0; j < n; ++j)
    if (parent[j] >= 0) count[parent[j]] += count[j];
  for (int32_t j = 0; j < n; ++j) --count[j];
}

}  // namespace

bool symface_columns(SymFace* face, SymTree* tree) {
  const auto n = static_cast<size_t>(face->n);
  Workspace ws(face->env);
  int32_t *parent, *a, *b, *c, *post;
  ws.add(&parent, n);
  ws.add(&a, n);
  ws.add(&b, n);
  ws.add(&c, n);
  ws.add(&post, n);
  if (!ws.commit() || !tree->parent.alloc(face->env, n) || !tree->count.alloc(face->env, n)) return false;
  if (!edge_lists(face, true, &tree->start, &tree->sub)) return false;
  elimination_tree(face->n, tree->start.data(), tree->sub.data(), parent, a);
  postorder(face->n, parent, post, a, b, c);
  for (int32_t k = 0; k < face->n; ++k) {
    a[post[k]] = k;
    b[k] = face->perm[post[k]];
  }
  for (int32_t k = 0; k < face->n; ++k) {
    const int32_t up = parent[post[k]];
    tree->parent[k] = up < 0 ? -1 : a[up];
    face->perm[k] = b[k];
    face->invperm[b[k]] = k;
  }
  tree->sub.reset();
  if (!edge_lists(face, false, &tree->start, &tree->sub)) return false;
  column_counts(face->n, tree->start.data(), tree->sub.data(), tree->parent.data(), tree->count.data(), a, b, c, post);
  return true;
}

}  // namespace tarvo
