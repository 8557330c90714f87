// The copy of a task.
#include <algorithm>
#include <cstring>

#include "cpub/sprmat.h"
#include "tarvo/frame.h"
#include "tarvo/tarvodat.h"

namespace tarvo {
namespace {

// Makes *to an exact copy. False when out of memory.
template <class T>
bool copy(sysenv* sys, Array<T>* to, const Array<T>& from) {
  if (to->size() != from.size() && !to->alloc(sys, from.size())) return false;
  if (!from.empty()) std::memcpy(to->data(), from.data(), from.size() * sizeof(T));
  return true;
}

bool copy_quad(sysenv* sys, QuadStore* to, const QuadStore& from) {
  to->maxnumqnz = from.maxnumqnz;
  to->qsurplus = from.qsurplus;
  to->qobjbegin = from.qobjbegin;
  to->qobjend = from.qobjend;
  return copy(sys, &to->qsubi, from.qsubi) && copy(sys, &to->qsubj, from.qsubj) && copy(sys, &to->qval, from.qval) &&
         copy(sys, &to->qconbegin, from.qconbegin) && copy(sys, &to->qconend, from.qconend);
}

bool copy_cones(sysenv* sys, ConeStore* to, const ConeStore& from) {
  to->conesurplus = from.conesurplus;
  return copy(sys, &to->conebegin, from.conebegin) && copy(sys, &to->coneend, from.coneend) &&
         copy(sys, &to->conetype, from.conetype) && copy(sys, &to->conepar, from.conepar) &&
         copy(sys, &to->conemembers, from.conemembers) && copy(sys, &to->varcone, from.varcone);
}

// The look-up tables are left out: the first search in the copy builds its own.
bool copy_names(sysenv* sys, NameStore* to, const NameStore& from) {
  to->nametextfree = from.nametextfree;
  to->objname = from.objname;
  return copy(sys, &to->nametext, from.nametext) && copy(sys, &to->varname, from.varname) &&
         copy(sys, &to->conname, from.conname) && copy(sys, &to->conename, from.conename);
}

bool copy_solution(sysenv* sys, Solution* to, const Solution& from) {
  to->prosta = from.prosta;
  to->solsta = from.solsta;
  to->defined = from.defined;
  return copy(sys, &to->keys, from.keys) && copy(sys, &to->values, from.values);
}

bool copy_text(sysenv* sys, char** to, const char* from) {
  if (from == nullptr) return true;
  char* text = sysenv_strdup(sys, from);
  if (text == nullptr) return false;
  sysenv_free(sys, *to);
  *to = text;
  return true;
}

bool copy_parameters(Task* to, const Task* from) {
  std::copy(std::begin(from->ipar), std::end(from->ipar), to->ipar);
  std::copy(std::begin(from->dpar), std::end(from->dpar), to->dpar);
  for (int k = 0; k < num_spar; ++k) {
    if (!copy_text(to->sys, &to->spar[k], from->spar[k])) return false;
  }
  return true;
}

// The matrix of `to` is empty and has the dimensions of the other.
bool copy_matrix(Task* to, Task* from) {
  if (from->a == nullptr || from->numvar == 0) return true;
  int32_t numnz = 0;
  if (sprmat_getnumnz(from->a, &numnz) != SPRMAT_OK) return false;
  if (numnz == 0) return true;
  const auto columns = static_cast<std::size_t>(from->numvar);
  const auto elements = static_cast<std::size_t>(numnz);
  Workspace space(from->sys);
  int32_t* ptrb = nullptr;
  int32_t* ptre = nullptr;
  int32_t* sub = nullptr;
  double* val = nullptr;
  space.add(&ptrb, columns);
  space.add(&ptre, columns);
  space.add(&sub, elements);
  space.add(&val, elements);
  if (!space.commit()) return false;
  int32_t room = numnz;
  return sprmat_getslice(from->a, false, 0, from->numvar, numnz, &room, ptrb, ptre, sub, val) == SPRMAT_OK &&
         sprmat_loadcols(to->a, 0, from->numvar, ptrb, ptre, sub, val, 0.0) == SPRMAT_OK;
}

bool copy_data(Task* to, Task* from) {
  sysenv* sys = to->sys;
  to->objective_sense = from->objective_sense;
  to->cfix = from->cfix;
  to->numintvar = from->numintvar;
  to->numcone = from->numcone;
  if (!copy(sys, &to->c, from->c) || !copy(sys, &to->cc, from->cc)) return false;
  if (!copy(sys, &to->bkx, from->bkx) || !copy(sys, &to->blx, from->blx) || !copy(sys, &to->bux, from->bux))
    return false;
  if (!copy(sys, &to->bkc, from->bkc) || !copy(sys, &to->blc, from->blc) || !copy(sys, &to->buc, from->buc))
    return false;
  if (!copy(sys, &to->vartype, from->vartype) || !copy(sys, &to->branch_priority, from->branch_priority) ||
      !copy(sys, &to->branch_direction, from->branch_direction)) {
    return false;
  }
  if (!copy_matrix(to, from) || !copy_quad(sys, &to->quad, from->quad) || !copy_cones(sys, &to->cones, from->cones) ||
      !copy_names(sys, &to->names, from->names) || !copy_text(sys, &to->task_name, from->task_name)) {
    return false;
  }
  for (int32_t k = TRV_SOL_ITR; k <= TRV_SOL_ITG; ++k) {
    if (!copy_solution(sys, &to->sol[k], from->sol[k])) return false;
  }
  return true;
}

// The capacity of the matrix without the extra space that a change of it adds.
bool copy_capacity(Task* to, const Task* from) {
  if (from->a == nullptr) return true;
  sprmat_putextra(to->a, 0);
  const bool made = sprmat_resize(to->a, sprmat_getmaxnz(from->a)) == SPRMAT_OK;
  sprmat_putextra(to->a, to->maxnumcon);
  return made;
}

// The capacities are kept, too: the arrays of the copy are as long as those of the task.
int32_t copy_sizes(Task* to, const Task* from) {
  int32_t rc = TRV_putmaxnumanz(to, 0);
  if (rc == TRV_RES_OK) rc = TRV_putmaxnumcone(to, from->maxnumcone);
  if (rc == TRV_RES_OK) rc = TRV_putmaxnumqnz(to, from->quad.maxnumqnz);
  if (rc == TRV_RES_OK) rc = TRV_append(to, TRV_ACC_CON, from->numcon);
  if (rc == TRV_RES_OK) rc = TRV_append(to, TRV_ACC_VAR, from->numvar);
  if (rc == TRV_RES_OK && !copy_capacity(to, from)) rc = TRV_RES_ERR_SPACE;
  return rc;
}

}  // namespace
}  // namespace tarvo

using namespace tarvo;

int32_t TRV_clonetask(TRVtask task, TRVtask* clone) {
  if (const int32_t rc = task_check(task); rc != TRV_RES_OK) return rc;
  if (clone == nullptr) return report<TRV_RES_ERR_NULL_POINTER>(task, "clone");
  *clone = nullptr;
  if (task->nl_handle != nullptr || task->nl_getsp != nullptr || task->nl_getva != nullptr) {
    return report<TRV_RES_ERR_CANNOT_CLONE_NL>(task);
  }
  if (const int32_t rc = TRV_maketask(task->env, task->maxnumcon, task->maxnumvar, clone); rc != TRV_RES_OK) return rc;
  int32_t rc = copy_parameters(*clone, task) ? copy_sizes(*clone, task) : TRV_RES_ERR_SPACE;
  if (rc == TRV_RES_OK && !copy_data(*clone, task)) rc = TRV_RES_ERR_SPACE;
  // Half-copied arrays don't fit each other: a clone that failed is left empty, with the parameters.
  if (rc != TRV_RES_OK) data_clear(*clone);
  return rc;
}
