// Supernodes: columns with nearly the same rows, found as chains of the elimination tree and joined along its edges, a
// child with its parent, as long as the explicit zeros pay for themselves (after Ashcraft and Grimes, The influence of
// relaxed supernode partitions on the multifrontal method, ACM Trans. Math. Softw. 15 (1989)).
#include "kfac/symface_internal.h"

namespace tarvo {

namespace {

struct Forest {
  int32_t count;
  int32_t *width, *nrows;  // -1 in width: joined to another one
  int64_t* zeros;          // explicit zeros
  int32_t *head, *tail;    // columns in order of elimination, linked by `next`
  int32_t* next;
  int32_t *parent, *child, *lastchild, *sibling;
  double* work;
};

int64_t stored(int64_t w, int64_t q) { return w * (w + 1) / 2 + w * q; }

// Does a supernode of `w` columns and `size` elements pay when `zeros` of these are explicit zeros?
bool pays(const SymFace* face, int64_t w, int64_t size, int64_t zeros) {
  if (zeros == 0) return true;
  const double z = static_cast<double>(zeros), s = static_cast<double>(size) * face->options.mergeratio;
  return (w <= 4 && size <= 32) || (w <= 16 && z < 0.35 * s) || (w <= 48 && z < 0.12 * s) || z < 0.05 * s;
}

void chains(const SymFace* face, const SymTree& tree, Forest* f, int32_t* superof, int32_t* children) {
  const int32_t n = face->n;
  std::fill(children, children + n, 0);
  for (int32_t j = 0; j < n; ++j)
    if (tree.parent[j] >= 0) ++children[tree.parent[j]];
  f->count = 0;
  for (int32_t j = 0; j < n; ++j) {
    f->next[j] = -1;
    const bool joins = j > 0 && tree.parent[j - 1] == j && children[j] == 1 && tree.count[j - 1] == tree.count[j] + 1;
    const int32_t s = joins ? f->count - 1 : f->count++;
    superof[j] = s;
    if (joins) {
      f->next[j - 1] = j;
      ++f->width[s];
    } else {
      f->head[s] = j;
      f->width[s] = 1;
    }
    f->tail[s] = j;
    f->nrows[s] = tree.count[j];
  }
  for (int32_t s = 0; s < f->count; ++s) {
    const int32_t up = tree.parent[f->tail[s]];
    f->parent[s] = up < 0 ? -1 : superof[up];
    f->child[s] = f->lastchild[s] = f->sibling[s] = -1;
    f->zeros[s] = 0;
  }
}

void add_child(Forest* f, int32_t s, int32_t c) {
  f->sibling[c] = -1;
  if (f->child[s] < 0)
    f->child[s] = c;
  else
    f->sibling[f->lastchild[s]] = c;
  f->lastchild[s] = c;
}

// Joins c to its parent s: its columns go in front, its children become children of s.
void join(Forest* f, int32_t s, int32_t c, int64_t zeros) {
  f->next[f->tail[c]] = f->head[s];
  f->head[s] = f->head[c];
  f->width[s] += f->width[c];
  f->width[c] = -1;
  f->zeros[s] = zeros;
  if (f->child[c] < 0) return;
  if (f->child[s] < 0)
    f->child[s] = f->child[c];
  else
    f->sibling[f->lastchild[s]] = f->child[c];
  f->lastchild[s] = f->lastchild[c];
}

// Children that cost no zeros first, then those that pay.
void amalgamate(const SymFace* face, Forest* f) {
  for (int32_t s = 0; s < f->count; ++s) {
    for (const bool exact : {true, false}) {
      int32_t c = f->child[s];
      f->child[s] = f->lastchild[s] = -1;
      while (c >= 0) {
        const int32_t after = f->sibling[c];
        const int64_t w = f->width[s] + f->width[c], size = stored(w, f->nrows[s]);
        const int64_t zeros =
            size - stored(f->width[s], f->nrows[s]) - stored(f->width[c], f->nrows[c]) + f->zeros[s] + f->zeros[c];
        const bool merge = exact ? zeros == f->zeros[s] + f->zeros[c] : pays(face, w, size, zeros);
        if (merge)
          join(f, s, c, zeros);
        else
          add_child(f, s, c);
        c = after;
      }
    }
    if (f->parent[s] >= 0) add_child(f, f->parent[s], s);
  }
}

// Work of the subtrees; the heaviest child comes last, right before its parent.
void weigh(Forest* f) {
  for (int32_t s = 0; s < f->count; ++s) {
    if (f->width[s] < 0) continue;
    f->work[s] = symface_blockwork(f->width[s], f->nrows[s]);
    int32_t heaviest = -1, before = -1;
    for (int32_t c = f->child[s], p = -1; c >= 0; p = c, c = f->sibling[c]) {
      f->work[s] += f->work[c];
      if (heaviest < 0 || f->work[c] >= f->work[heaviest]) {
        heaviest = c;
        before = p;
      }
    }
    if (heaviest < 0 || heaviest == f->lastchild[s]) continue;
    if (before < 0)
      f->child[s] = f->sibling[heaviest];
    else
      f->sibling[before] = f->sibling[heaviest];
    add_child(f, s, heaviest);
  }
}

// Numbers the supernodes of the tree at `root` in postorder: number[s].
void number_tree(Forest* f, int32_t root, int32_t* stack, int32_t* number, int32_t* list, int32_t* count) {
  int32_t top = 0;
  stack[0] = root;
  while (top >= 0) {
    const int32_t s = stack[top], c = f->child[s];
    if (c < 0) {
      list[*count] = s;
      number[s] = (*count)++;
      --top;
    } else {
      f->child[s] = f->sibling[c];
      f->parent[c] = s;
      stack[++top] = c;
    }
  }
}

}  // namespace

bool symface_supernodes(SymFace* face, const SymTree& tree, SymSuper* super) {
  const auto n = static_cast<size_t>(face->n);
  sysenv* env = face->env;
  Forest f;
  int32_t *superof, *stack, *list;
  Workspace ws(env);
  for (int32_t** part : {&f.width, &f.nrows, &f.head, &f.tail, &f.next, &f.parent, &f.child, &f.lastchild, &f.sibling,
                         &superof, &stack, &list})
    ws.add(part, n);
  ws.add(&f.zeros, n);
  ws.add(&f.work, n);
  if (!ws.commit() || !super->oldpos.alloc(env, n)) return false;
  chains(face, tree, &f, superof, stack);
  amalgamate(face, &f);
  weigh(&f);

  // The heaviest tree comes last, where the dense tail begins.
  int32_t heaviest = -1, count = 0;
  const auto isroot = [&f](int32_t s) { return f.width[s] >= 0 && f.parent[s] < 0; };
  for (int32_t s = 0; s < f.count; ++s)
    if (isroot(s) && (heaviest < 0 || f.work[s] >= f.work[heaviest])) heaviest = s;
  int32_t* number = superof;
  for (int32_t s = 0; s < f.count; ++s)
    if (isroot(s) && s != heaviest) number_tree(&f, s, stack, number, list, &count);
  if (heaviest >= 0) number_tree(&f, heaviest, stack, number, list, &count);

  const auto size = static_cast<size_t>(count);
  if (!super->first.alloc(env, size + 1) || !super->nrows.alloc(env, size) || !super->parent.alloc(env, size))
    return false;
  super->count = count;
  int32_t place = 0;
  for (int32_t k = 0; k < count; ++k) {
    const int32_t s = list[k];
    super->first[k] = place;
    super->nrows[k] = f.nrows[s];
    super->parent[k] = f.parent[s] < 0 ? -1 : number[f.parent[s]];
    for (int32_t j = f.head[s], left = f.width[s]; left > 0; --left, j = f.next[j]) super->oldpos[place++] = j;
  }
  super->first[count] = place;
  // The order at hand follows.
  int32_t* perm = stack;
  for (int32_t k = 0; k < face->n; ++k) perm[k] = face->perm[super->oldpos[k]];
  for (int32_t k = 0; k < face->n; ++k) {
    face->perm[k] = perm[k];
    face->invperm[perm[k]] = k;
  }
  return true;
}

}  // namespace tarvo
