// The object: its pattern, its order, and the analysis as a whole.
#include "kfac/symface.h"

#include <new>

#include "kfac/kopenmp.h"
#include "kfac/symface_internal.h"

namespace tarvo {

SymFace* symface_make(sysenv* env, const SymOptions& options, int32_t n) {
  void* raw = sysenv_malloc(env, 1, sizeof(SymFace));
  if (raw == nullptr) return nullptr;
  auto* face = ::new (raw) SymFace;
  face->env = env;
  face->options = options;
  face->n = n;
  const auto size = static_cast<size_t>(n);
  if (!face->start.alloc(env, size + 1, Fill::zero) || !face->fill.alloc(env, size, Fill::zero) ||
      !face->perm.alloc(env, size) || !face->invperm.alloc(env, size)) {
    symface_delete(&face);
    return nullptr;
  }
  for (int32_t i = 0; i < n; ++i) face->perm[i] = face->invperm[i] = i;
  return face;
}

void symface_delete(SymFace** face) {
  if (*face == nullptr) return;
  sysenv* env = (*face)->env;
  symface_dropschedule(*face);
  (*face)->~SymFace();
  sysenv_free(env, *face);
  *face = nullptr;
}

bool symface_setcounts(SymFace* face, const int32_t* counts) {
  int64_t total = 0;
  for (int32_t i = 0; i < face->n; ++i) total += counts[i];
  if (!face->sub.alloc(face->env, static_cast<size_t>(total))) return false;
  total = 0;
  for (int32_t i = 0; i < face->n; ++i) {
    face->start[i] = face->fill[i] = total;
    total += counts[i];
  }
  face->start[face->n] = total;
  return true;
}

namespace {

// Closes the gaps of lists that got fewer edges than announced.
void close_gaps(SymFace* face) {
  int64_t to = 0;
  for (int32_t i = 0; i < face->n; ++i) {
    const int64_t from = face->start[i];
    face->start[i] = to;
    for (int64_t k = from; k < face->fill[i]; ++k) face->sub[to++] = face->sub[k];
    face->fill[i] = to;
  }
  face->start[face->n] = to;
}

void invert(SymFace* face) {
  for (int32_t k = 0; k < face->n; ++k) face->invperm[face->perm[k]] = k;
}

void estimate_work(SymFace* face, const SymTree& tree, const SymSuper& super) {
  face->flops = 0.0;
  const double tail = face->n - face->dstart;
  for (int32_t j = 0; j < face->dstart; ++j) face->flops += std::max(1.0, symface_work(tree.count[super.oldpos[j]]));
  face->denseflops = tail * tail * tail / 3.0;
  face->flops += static_cast<double>(static_cast<int64_t>(face->denseflops)) + 1.0;
  face->extraflops = 2.0 * static_cast<double>(face->nnzl);
}

}  // namespace

int32_t symface_order(SymFace* face, int32_t method, const OrderOffer& offer, const OrderHook& hook) {
  close_gaps(face);
  const OrderGraph graph{face->n, face->start.data(), face->sub.data()};
  const int32_t code = symord_order(face->env, method, graph, offer, hook, face->perm.data(), &face->order);
  if (code == ORDER_OK) {
    invert(face);
  } else {
    for (int32_t i = 0; i < face->n; ++i) face->perm[i] = face->invperm[i] = i;
  }
  return code;
}

bool symface_setorder(SymFace* face, const int32_t* perm) {
  close_gaps(face);
  std::copy(perm, perm + face->n, face->perm.data());
  invert(face);
  return true;
}

bool symface_analyze(SymFace* face) {
  SymTree tree;
  SymSuper super;
  if (!symface_columns(face, &tree) || !symface_supernodes(face, tree, &super)) return false;
  if (!symface_layout(face, tree, super) || !symface_updates(face) || !symface_schedule(face)) return false;
  estimate_work(face, tree, super);
  const auto n = static_cast<size_t>(face->n);
  return face->diag.alloc(face->env, n) && face->before.alloc(face->env, n) &&
         face->flags.alloc(face->env, n, Fill::zero);
}

}  // namespace tarvo
