// Quadratic cones: one member store for all of them.
#include <algorithm>

#include "tarvo/bufpool.h"
#include "tarvo/tarvodat_internal.h"
#include "tarvo/tarvosol.h"

namespace tarvo {

namespace {

int32_t num_members(const Task* task, int32_t k) { return task->cones.coneend[k] - task->cones.conebegin[k]; }

const char* cone_name(const Task* task, int32_t k) { return k < task->numcone ? item_name(task, TRV_PI_CONE, k) : ""; }

// Checks the type and the members of cone k, which may be the next one to come.
int32_t check_cone(Task* task, int32_t k, int32_t conetype, int32_t nummem, const int32_t* submem,
                   Location at = Location::current()) {
  if (conetype != TRV_CT_QUAD && conetype != TRV_CT_RQUAD) return report<TRV_RES_ERR_CONE_TYPE>({task, at}, conetype);
  const int32_t smallest = conetype == TRV_CT_QUAD ? 1 : 2;
  if (nummem < smallest)
    return report<TRV_RES_ERR_CONE_SIZE>({task, at}, smallest,
                                         conetype == TRV_CT_QUAD ? "TRV_CT_QUAD" : "TRV_CT_RQUAD");
  if (const int32_t rc = check_pointers(task, {{"submem", submem}}, at)) return rc;
  int32_t rc = TRV_RES_OK;
  Lease<int32_t> seen(task, task->maxnumvar, Fill::zero, &rc);
  int32_t checked = 0;
  for (; checked < nummem && rc == TRV_RES_OK; ++checked) {
    const int32_t j = submem[checked];
    rc = check_index(task, "submem", TRV_PI_VAR, j, at);
    if (rc != TRV_RES_OK) break;
    const int32_t other = task->cones.varcone[j] - 1;
    if (other >= 0 && other != k)
      rc = report<TRV_RES_ERR_CONE_OVERLAP>({task, at}, item_name(task, TRV_PI_VAR, j), j, cone_name(task, other),
                                            other, cone_name(task, k), k);
    else if (seen.data()[j] != 0)
      rc = report<TRV_RES_ERR_CONE_REP_VAR>({task, at}, item_name(task, TRV_PI_VAR, j), j, cone_name(task, k), k);
    else
      seen.data()[j] = 1;
  }
  for (int32_t t = 0; t < checked; ++t)
    if (submem[t] >= 0 && submem[t] < task->numvar) seen.data()[submem[t]] = 0;
  return rc;
}

// Closes the holes of the member array.
int32_t compact_members(Task* task) {
  Array<int32_t> members;
  if (!members.alloc(task->sys, static_cast<std::size_t>(task->maxnumvar))) return report<TRV_RES_ERR_SPACE>(task);
  cones_pack(task, &members);
  return TRV_RES_OK;
}

// Writes the members of cone k behind the used ones.
void append_members(Task* task, int32_t k, int32_t nummem, const int32_t* submem) {
  ConeStore& cones = task->cones;
  const int32_t begin = task->maxnumvar - cones.conesurplus;
  std::copy_n(submem, nummem, cones.conemembers.data() + begin);
  cones.conebegin[k] = begin;
  cones.coneend[k] = begin + nummem;
  cones.conesurplus -= nummem;
}

void own_members(Task* task, int32_t k, int32_t owner) {
  const ConeStore& cones = task->cones;
  for (int32_t t = cones.conebegin[k]; t < cones.coneend[k]; ++t) task->cones.varcone[cones.conemembers[t]] = owner;
}

int32_t put_maxnumcone(Task* task, int32_t capacity) {
  if (const int32_t rc = data_checkunlocked(task)) return rc;
  ConeStore& cones = task->cones;
  names_dropmap(task, TRV_PI_CONE);
  Array<int32_t> begin, end, type, name, members, varcone;
  Array<double> par;
  const bool first = task->maxnumcone == 0;
  const auto numvars = static_cast<std::size_t>(capacity > 0 ? task->maxnumvar : 0);
  if (!copy_grown(task, &begin, cones.conebegin, capacity, task->numcone) ||
      !copy_grown(task, &end, cones.coneend, capacity, task->numcone) ||
      !copy_grown(task, &type, cones.conetype, capacity, task->numcone) ||
      !copy_grown(task, &par, cones.conepar, capacity, task->numcone) ||
      !copy_grown(task, &name, task->names.conename, capacity, task->numcone) ||
      (first && (!members.alloc(task->sys, numvars) || !varcone.alloc(task->sys, numvars, Fill::zero))) ||
      sol_recapacity(task, task->maxnumcon, task->maxnumvar, capacity) != TRV_RES_OK)
    return report<TRV_RES_ERR_SPACE>(task);
  cones.conebegin.swap(begin);
  cones.coneend.swap(end);
  cones.conetype.swap(type);
  cones.conepar.swap(par);
  task->names.conename.swap(name);
  if (first) {
    cones.conemembers.swap(members);
    cones.varcone.swap(varcone);
    cones.conesurplus = task->maxnumvar;
  }
  task->maxnumcone = capacity;
  if (capacity == 0) cones = {};
  return TRV_RES_OK;
}

int32_t check_reading(Task* task, int32_t k, Location at = Location::current()) {
  if (const int32_t rc = task_check(task)) return rc;
  return check_index(task, "k", TRV_PI_CONE, k, at);
}

int32_t check_writing(Task* task, int32_t k, Location at = Location::current()) {
  if (k < 0 || k >= task->numcone) return report<TRV_RES_ERR_CONE_INDEX>({task, at}, k);
  return data_checkunlocked(task, at);
}

}  // namespace

void cones_pack(Task* task, Array<int32_t>* members) {
  ConeStore& cones = task->cones;
  int32_t pos = 0;
  for (int32_t k = 0; k < task->numcone; ++k) {
    const int32_t n = num_members(task, k);
    std::copy_n(cones.conemembers.data() + cones.conebegin[k], n, members->data() + pos);
    cones.conebegin[k] = pos;
    pos += n;
    cones.coneend[k] = pos;
  }
  cones.conemembers.swap(*members);
  cones.conesurplus = static_cast<int32_t>(cones.conemembers.size()) - pos;
}

int32_t cones_checkremove(Task* task, int32_t j, Location at) {
  if (task->numcone == 0 || task->cones.varcone[j] == 0) return TRV_RES_OK;
  const ConeStore& cones = task->cones;
  const int32_t k = cones.varcone[j] - 1;
  const int32_t heads = cones.conetype[k] == TRV_CT_QUAD ? 1 : 2;
  for (int32_t t = 0; t < heads; ++t)
    if (cones.conemembers[cones.conebegin[k] + t] == j)
      return report<TRV_RES_ERR_REMOVE_CONE_VARIABLE>({task, at}, j, item_name(task, TRV_PI_VAR, j), k,
                                                      item_name(task, TRV_PI_CONE, k));
  return TRV_RES_OK;
}

void cones_removevars(Task* task, const int32_t* keep) {
  ConeStore& cones = task->cones;
  for (int32_t k = 0; k < task->numcone; ++k) {
    int32_t to = cones.conebegin[k];
    for (int32_t t = cones.conebegin[k]; t < cones.coneend[k]; ++t) {
      const int32_t now = keep[cones.conemembers[t]];
      if (now >= 0) cones.conemembers[to++] = now;
    }
    cones.coneend[k] = to;
  }
}

}  // namespace tarvo

using namespace tarvo;

int32_t TRV_putmaxnumcone(TRVtask task, int32_t maxnumcone) {
  if (const int32_t rc = task_check(task)) return rc;
  if (maxnumcone < task->numcone) return report<TRV_RES_ERR_MAXNUMCONE>(task, maxnumcone);
  // A variable is in one cone at most, so that there can't be more cones than variables.
  const int32_t capacity = std::min(maxnumcone, task->maxnumvar);
  if (capacity == task->maxnumcone || capacity < task->numcone) return TRV_RES_OK;
  return put_maxnumcone(task, capacity);
}

int32_t TRV_getmaxnumcone(TRVtask task, int32_t* maxnumcone) {
  if (const int32_t rc = check_reader(task, "maxnumcone", maxnumcone)) return rc;
  *maxnumcone = task->maxnumcone;
  return TRV_RES_OK;
}

int32_t TRV_getnumcone(TRVtask task, int32_t* numcone) {
  if (const int32_t rc = check_reader(task, "numcone", numcone)) return rc;
  *numcone = task->numcone;
  return TRV_RES_OK;
}

int32_t TRV_appendcone(TRVtask task, int32_t conetype, double conepar, int32_t nummem, const int32_t* submem) {
  if (const int32_t rc = task_check(task)) return rc;
  if (const int32_t rc = data_checkunlocked(task)) return rc;
  if (task->numcone == task->maxnumcone) {
    // There is no room only when every variable that can be has a cone: the check then finds an overlap.
    const int32_t grown = grown_capacity(task->maxnumcone, int64_t{task->numcone} + 1);
    if (const int32_t rc = TRV_putmaxnumcone(task, grown)) return rc;
  }
  const int32_t k = task->numcone;
  if (const int32_t rc = check_cone(task, k, conetype, nummem, submem)) return rc;
  ConeStore& cones = task->cones;
  if (nummem > cones.conesurplus)
    if (const int32_t rc = compact_members(task)) return rc;
  append_members(task, k, nummem, submem);
  cones.conetype[k] = conetype;
  cones.conepar[k] = conepar;
  task->names.conename[k] = 0;
  task->numcone = k + 1;
  own_members(task, k, k + 1);
  return TRV_RES_OK;
}

int32_t TRV_putcone(TRVtask task, int32_t k, int32_t conetype, double conepar, int32_t nummem, const int32_t* submem) {
  if (const int32_t rc = task_check(task)) return rc;
  if (const int32_t rc = check_writing(task, k)) return rc;
  if (const int32_t rc = check_cone(task, k, conetype, nummem, submem)) return rc;
  ConeStore& cones = task->cones;
  const bool reuse = nummem <= num_members(task, k);
  // Packed with the old members, so that a failure changes nothing; without them there is room for sure.
  if (!reuse && nummem > cones.conesurplus)
    if (const int32_t rc = compact_members(task)) return rc;
  own_members(task, k, 0);
  if (reuse) {
    std::copy_n(submem, nummem, cones.conemembers.data() + cones.conebegin[k]);
    cones.coneend[k] = cones.conebegin[k] + nummem;
  } else if (nummem <= cones.conesurplus) {
    append_members(task, k, nummem, submem);
  } else {
    // The hole of the old members is needed too: the later cones move over it.
    const int32_t hole = num_members(task, k);
    const int32_t used = task->maxnumvar - cones.conesurplus;
    int32_t* const members = cones.conemembers.data();
    std::copy(members + cones.coneend[k], members + used, members + cones.conebegin[k]);
    for (int32_t t = k + 1; t < task->numcone; ++t) {
      cones.conebegin[t] -= hole;
      cones.coneend[t] -= hole;
    }
    cones.conesurplus += hole;
    append_members(task, k, nummem, submem);
  }
  cones.conetype[k] = conetype;
  cones.conepar[k] = conepar;
  own_members(task, k, k + 1);
  return TRV_RES_OK;
}

int32_t TRV_removecone(TRVtask task, int32_t k) {
  if (const int32_t rc = task_check(task)) return rc;
  if (const int32_t rc = check_writing(task, k)) return rc;
  ConeStore& cones = task->cones;
  names_dropmap(task, TRV_PI_CONE);
  own_members(task, k, 0);
  for (int32_t t = k + 1; t < task->numcone; ++t) {
    own_members(task, t, t);
    cones.conebegin[t - 1] = cones.conebegin[t];
    cones.coneend[t - 1] = cones.coneend[t];
    cones.conetype[t - 1] = cones.conetype[t];
    cones.conepar[t - 1] = cones.conepar[t];
    task->names.conename[t - 1] = task->names.conename[t];
  }
  --task->numcone;
  return TRV_RES_OK;
}

int32_t TRV_getcone(TRVtask task, int32_t k, int32_t* conetype, double* conepar, int32_t* nummem, int32_t* submem) {
  if (const int32_t rc = check_reading(task, k)) return rc;
  const ConeStore& cones = task->cones;
  if (conetype != nullptr) *conetype = cones.conetype[k];
  if (conepar != nullptr) *conepar = cones.conepar[k];
  if (nummem != nullptr) *nummem = num_members(task, k);
  if (submem != nullptr) std::copy_n(cones.conemembers.data() + cones.conebegin[k], num_members(task, k), submem);
  return TRV_RES_OK;
}

int32_t TRV_getconeinfo(TRVtask task, int32_t k, int32_t* conetype, double* conepar, int32_t* nummem) {
  if (const int32_t rc = check_reading(task, k)) return rc;
  return TRV_getcone(task, k, conetype, conepar, nummem, nullptr);
}

int32_t TRV_getnumconemem(TRVtask task, int32_t k, int32_t* nummem) {
  if (const int32_t rc = check_reading(task, k)) return rc;
  if (const int32_t rc = check_pointers(task, {{"nummem", nummem}})) return rc;
  *nummem = num_members(task, k);
  return TRV_RES_OK;
}
