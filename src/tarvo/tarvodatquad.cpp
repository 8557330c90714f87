// Quadratic terms of the objective and of the constraints: one triplet store with a range for each of them. A term
// (i, j) with i >= j stands for both mirror positions; in a range no position stands twice.
#include <algorithm>
#include <cmath>

#include "tarvo/tarvodat_internal.h"

namespace tarvo {

namespace {

// What a repacking leaves out.
constexpr int32_t leave_nothing = -2, leave_objective = -1, leave_constraints = INT32_MAX;  // or a constraint

int32_t num_objterms(const QuadStore& q) { return q.qobjend - q.qobjbegin; }
int32_t num_conterms(const QuadStore& q, int32_t k) { return q.qconend.empty() ? 0 : q.qconend[k] - q.qconbegin[k]; }
int32_t first_free(const QuadStore& q) { return q.maxnumqnz - q.qsurplus; }

void undefine_solutions(Task* task) {
  for (Solution& sol : task->sol) sol.defined = 0;
}

int64_t count_used(const Task* task, int32_t leave) {
  const QuadStore& q = task->quad;
  int64_t used = leave == leave_objective ? 0 : num_objterms(q);
  if (leave != leave_constraints)
    for (int32_t k = 0; k < task->numcon; ++k) used += k == leave ? 0 : num_conterms(q, k);
  return used;
}

// New arrays of the given capacity: the objective's range, then those of the constraints. Ranges that are left out
// become empty. False when out of memory, nothing being changed.
bool repack(Task* task, int32_t capacity, int32_t leave) {
  QuadStore& q = task->quad;
  Array<int32_t> subi, subj;
  Array<double> val;
  const auto size = static_cast<std::size_t>(capacity);
  if (!subi.alloc(task->sys, size) || !subj.alloc(task->sys, size) || !val.alloc(task->sys, size)) return false;
  int32_t pos = 0;
  const auto move = [&](int32_t* begin, int32_t* end, bool keep) {
    const int32_t n = keep ? *end - *begin : 0;
    if (n > 0) {
      std::copy_n(q.qsubi.data() + *begin, n, subi.data() + pos);
      std::copy_n(q.qsubj.data() + *begin, n, subj.data() + pos);
      std::copy_n(q.qval.data() + *begin, n, val.data() + pos);
    }
    *begin = n > 0 ? pos : 0;
    *end = *begin + n;
    pos += n;
  };
  move(&q.qobjbegin, &q.qobjend, leave != leave_objective);
  if (!q.qconbegin.empty())
    for (int32_t k = 0; k < task->numcon; ++k)
      move(&q.qconbegin[k], &q.qconend[k], leave != leave_constraints && leave != k);
  q.qsubi.swap(subi);
  q.qsubj.swap(subj);
  q.qval.swap(val);
  q.maxnumqnz = capacity;
  q.qsurplus = capacity - pos;
  return true;
}

// Makes the surplus at least n by a repacking, which leaves out a range. The store grows by a half at least, and also
// when the waste that comes free is small, so that many small writes repack seldom.
int32_t reserve(Task* task, int64_t n, int32_t leave, Location at = Location::current()) {
  QuadStore& q = task->quad;
  if (n <= q.qsurplus) return TRV_RES_OK;
  const int64_t needed = count_used(task, leave) + n;
  int64_t capacity = q.maxnumqnz;
  if (needed > capacity - capacity / 8)
    capacity = std::min<int64_t>(std::max(needed, capacity + capacity / 2), INT32_MAX);
  if (needed > INT32_MAX || !repack(task, static_cast<int32_t>(capacity), leave))
    return report<TRV_RES_ERR_SPACE>({task, at});
  return TRV_RES_OK;
}

// ---- Normalising: sorted by column and row, equal positions merged in the order given ----

struct Term {
  uint64_t key;  // column, row
  double val;
  int32_t pos;
};

uint64_t term_key(int32_t i, int32_t j) { return static_cast<uint64_t>(j) << 32 | static_cast<uint32_t>(i); }

int32_t normalise(Term* terms, int32_t n) {
  const auto before = [](const Term& a, const Term& b) { return a.key != b.key ? a.key < b.key : a.pos < b.pos; };
  if (!std::is_sorted(terms, terms + n, before)) std::sort(terms, terms + n, before);
  int32_t merged = 0;
  for (int32_t t = 0; t < n; ++t) {
    if (merged > 0 && terms[merged - 1].key == terms[t].key)
      terms[merged - 1].val += terms[t].val;
    else
      terms[merged++] = terms[t];
  }
  return merged;
}

// Writes terms to the store from `begin` on.
void write_terms(QuadStore* q, int32_t begin, const Term* terms, int32_t n) {
  for (int32_t t = 0; t < n; ++t) {
    q->qsubi[begin + t] = static_cast<int32_t>(terms[t].key);
    q->qsubj[begin + t] = static_cast<int32_t>(terms[t].key >> 32);
    q->qval[begin + t] = terms[t].val;
  }
}

// Replaces a range by checked triplets. `place` gives the addresses of its ends, which may move with the store.
template <class Place>
int32_t put_range(Task* task, int32_t n, const int32_t* subi, const int32_t* subj, const double* val, int32_t leave,
                  Place place, Location at = Location::current()) {
  QuadStore& q = task->quad;
  Array<Term> terms;
  if (!terms.alloc(task->sys, static_cast<std::size_t>(n))) return report<TRV_RES_ERR_SPACE>({task, at});
  const double tol = task->dpar[TRV_DPAR_DATA_TOL_QIJ];
  int32_t kept = 0;
  for (int32_t t = 0; t < n; ++t)
    if (std::fabs(val[t]) > tol) terms[kept++] = {term_key(subi[t], subj[t]), val[t], t};
  kept = normalise(terms.data(), kept);
  auto [begin, end] = place();
  if (n > *end - *begin) {
    if (const int32_t rc = reserve(task, n, leave, at)) return rc;
    *begin = *end = first_free(q);
    q.qsurplus -= kept;
  }
  write_terms(&q, *begin, terms.data(), kept);
  *end = *begin + kept;
  if (kept == 0) *begin = *end = 0;
  return TRV_RES_OK;
}

// The checks that putqobj and putqconk share; `upper` reports a term above the diagonal.
template <class Upper>
int32_t check_terms(Task* task, int32_t n, const int32_t* subi, const int32_t* subj, const char* namei,
                    const char* namej, Upper upper, Location at = Location::current()) {
  for (int32_t t = 0; t < n; ++t) {
    for (const auto& [sub, name] : {std::pair{subi, namei}, std::pair{subj, namej}}) {
      if (sub[t] < 0) return report<TRV_RES_ERR_INDEX_ARR_IS_TOO_SMALL>({task, at}, sub[t], name, t, 0);
      if (sub[t] >= task->numvar)
        return report<TRV_RES_ERR_INDEX_ARR_IS_TOO_LARGE>({task, at}, sub[t], name, t, task->numvar);
    }
    if (const int32_t rc = upper(t)) return rc;
  }
  return TRV_RES_OK;
}

int32_t make_qconranges(Task* task, Location at = Location::current()) {
  QuadStore& q = task->quad;
  if (!q.qconbegin.empty()) return TRV_RES_OK;
  Array<int32_t> begin, end;
  const auto n = static_cast<std::size_t>(task->maxnumcon);
  if (!begin.alloc(task->sys, n, Fill::zero) || !end.alloc(task->sys, n, Fill::zero))
    return report<TRV_RES_ERR_SPACE>({task, at});
  q.qconbegin.swap(begin);
  q.qconend.swap(end);
  return TRV_RES_OK;
}

// Copies a range to the free tail of the caller's arrays.
int32_t get_range(Task* task, int32_t begin, int32_t n, int32_t maxnum, int32_t* surp, int32_t* num, int32_t* subi,
                  int32_t* subj, double* val, Location at = Location::current()) {
  if (const int32_t rc = check_pointers(task, {{"surp", surp}}, at)) return rc;
  if (num != nullptr) *num = 0;
  if (n > *surp || *surp > maxnum) return report<TRV_RES_ERR_NEGATIVE_SURPLUS>({task, at});
  const QuadStore& q = task->quad;
  const int32_t to = maxnum - *surp;
  if (subi != nullptr) std::copy_n(q.qsubi.data() + begin, n, subi + to);
  if (subj != nullptr) std::copy_n(q.qsubj.data() + begin, n, subj + to);
  if (val != nullptr) std::copy_n(q.qval.data() + begin, n, val + to);
  *surp -= n;
  if (num != nullptr) *num = n;
  return TRV_RES_OK;
}

// ---- Search among the objective's terms ----
//
// A hash table with open addressing: 0 is free, -1 a removed entry, else 1 plus the offset in the range.

std::size_t hash_slot(const QuadStore& q, uint64_t key) {
  key = (key ^ (key >> 29)) * 0x9e3779b97f4a7c15ULL;
  return (key ^ (key >> 32)) & (q.objhash.size() - 1);
}

void drop_hash(QuadStore* q) { q->objhash.reset(); }

void hash_insert(QuadStore* q, uint64_t key, int32_t offset) {
  std::size_t s = hash_slot(*q, key);
  while (q->objhash[s] > 0) s = (s + 1) & (q->objhash.size() - 1);
  if (q->objhash[s] == 0) ++q->objhashfilled;
  q->objhash[s] = offset + 1;
}

uint64_t stored_key(const QuadStore& q, int32_t offset) {
  return term_key(q.qsubi[q.qobjbegin + offset], q.qsubj[q.qobjbegin + offset]);
}

// The slot of a stored key; the table holds it.
std::size_t hash_find(const QuadStore& q, uint64_t key, int32_t* offset) {
  for (std::size_t s = hash_slot(q, key);; s = (s + 1) & (q.objhash.size() - 1)) {
    *offset = q.objhash[s] - 1;
    if (*offset == -1 || (*offset >= 0 && stored_key(q, *offset) == key)) return s;
  }
}

// Builds the table, or makes room for one more entry. Without memory there is none, and the search is linear.
void prepare_hash(Task* task) {
  QuadStore& q = task->quad;
  constexpr int32_t worth_a_table = 32;
  const auto n = static_cast<std::size_t>(num_objterms(q));
  if (n <= worth_a_table ||
      (!q.objhash.empty() && 2 * (static_cast<std::size_t>(q.objhashfilled) + 1) < q.objhash.size()))
    return;
  std::size_t size = 256;
  while (size < 4 * (n + 1)) size *= 2;
  drop_hash(&q);
  if (!q.objhash.alloc(task->sys, size, Fill::zero)) return;
  q.objhashfilled = 0;
  for (int32_t t = 0; t < num_objterms(q); ++t) hash_insert(&q, stored_key(q, t), t);
}

// The offset of a term in the objective's range, or -1.
int32_t find_objterm(Task* task, uint64_t key) {
  QuadStore& q = task->quad;
  prepare_hash(task);
  int32_t offset = -1;
  if (!q.objhash.empty()) {
    hash_find(q, key, &offset);
    return offset;
  }
  for (int32_t t = 0; t < num_objterms(q); ++t)
    if (stored_key(q, t) == key) return t;
  return -1;
}

// The last term takes the place of the removed one.
void remove_objterm(QuadStore* q, int32_t offset) {
  const int32_t last = num_objterms(*q) - 1;
  if (!q->objhash.empty()) {
    int32_t found = 0;
    const std::size_t moved = hash_find(*q, stored_key(*q, last), &found);
    const std::size_t gone = hash_find(*q, stored_key(*q, offset), &found);
    q->objhash[moved] = offset + 1;
    q->objhash[gone] = -1;
  }
  q->qsubi[q->qobjbegin + offset] = q->qsubi[q->qobjbegin + last];
  q->qsubj[q->qobjbegin + offset] = q->qsubj[q->qobjbegin + last];
  q->qval[q->qobjbegin + offset] = q->qval[q->qobjbegin + last];
  --q->qobjend;
}

int32_t append_objterm(Task* task, int32_t i, int32_t j, double value) {
  QuadStore& q = task->quad;
  const int32_t count = num_objterms(q);
  const bool is_last = count > 0 && q.qobjend == first_free(q);
  if (q.qsurplus < (is_last ? 1 : count + 1)) {
    const int64_t more = int64_t{task->ipar[TRV_IPAR_ALLOC_ADD_QNZ]} + count + 1;
    if (const int32_t rc = reserve(task, more, leave_nothing)) return rc;
  }
  if (count == 0 || q.qobjend != first_free(q)) {
    const int32_t begin = first_free(q);
    std::copy_n(q.qsubi.data() + q.qobjbegin, count, q.qsubi.data() + begin);
    std::copy_n(q.qsubj.data() + q.qobjbegin, count, q.qsubj.data() + begin);
    std::copy_n(q.qval.data() + q.qobjbegin, count, q.qval.data() + begin);
    q.qobjbegin = begin;
    q.qobjend = begin + count;
    q.qsurplus -= count;
  }
  q.qsubi[q.qobjend] = i;
  q.qsubj[q.qobjend] = j;
  q.qval[q.qobjend++] = value;
  --q.qsurplus;
  if (!q.objhash.empty()) hash_insert(&q, term_key(i, j), count);
  return TRV_RES_OK;
}

}  // namespace

void quad_removevars(Task* task, const int32_t* keep) {
  QuadStore& q = task->quad;
  drop_hash(&q);
  const auto renumber = [&](int32_t begin, int32_t* end) {
    int32_t to = begin;
    for (int32_t t = begin; t < *end; ++t) {
      const int32_t i = keep[q.qsubi[t]], j = keep[q.qsubj[t]];
      if (i < 0 || j < 0) continue;
      q.qsubi[to] = i;
      q.qsubj[to] = j;
      q.qval[to++] = q.qval[t];
    }
    *end = to;
  };
  renumber(q.qobjbegin, &q.qobjend);
  if (!q.qconbegin.empty())
    for (int32_t k = 0; k < task->numcon; ++k) renumber(q.qconbegin[k], &q.qconend[k]);
}

}  // namespace tarvo

using namespace tarvo;

int32_t TRV_putmaxnumqnz(TRVtask task, int32_t maxnumqnz) {
  if (const int32_t rc = task_check(task)) return rc;
  if (const int32_t rc = data_checkunlocked(task)) return rc;
  if (maxnumqnz < count_used(task, leave_nothing)) return report<TRV_RES_ERR_MAXNUMQNZ>(task);
  if (!repack(task, maxnumqnz, leave_nothing)) return report<TRV_RES_ERR_SPACE>(task);
  return TRV_RES_OK;
}

int32_t TRV_getmaxnumqnz(TRVtask task, int32_t* maxnumqnz) {
  if (const int32_t rc = check_reader(task, "maxnumqnz", maxnumqnz)) return rc;
  *maxnumqnz = task->quad.maxnumqnz;
  return TRV_RES_OK;
}

// ---- Objective ----------------------------------------------------------------------------------------------------

int32_t TRV_putqobj(TRVtask task, int32_t numqonz, const int32_t* qosubi, const int32_t* qosubj, const double* qoval) {
  if (const int32_t rc = task_check(task)) return rc;
  if (const int32_t rc = data_checkunlocked(task)) return rc;
  undefine_solutions(task);
  if (numqonz < 0) return report<TRV_RES_ERR_IN_ARGUMENT>(task, "numqonz");
  QuadStore& q = task->quad;
  drop_hash(&q);
  int32_t rc = TRV_RES_OK;
  if (numqonz > 0) rc = check_pointers(task, {{"qosubi", qosubi}, {"qosubj", qosubj}, {"qoval", qoval}});
  if (rc == TRV_RES_OK)
    rc = check_terms(task, numqonz, qosubi, qosubj, "qosubi", "qosubj", [&](int32_t t) {
      if (qosubj[t] > qosubi[t]) return report<TRV_RES_ERR_QOBJ_UPPER_TRIANGLE>(task, qosubi[t], qosubj[t]);
      return std::isfinite(qoval[t]) ? TRV_RES_OK : report<TRV_RES_ERR_INV_QOBJ_VAL>(task, qoval[t], t);
    });
  if (rc != TRV_RES_OK || numqonz == 0) {
    q.qobjbegin = q.qobjend = 0;
    return rc;
  }
  return put_range(task, numqonz, qosubi, qosubj, qoval, leave_objective, [&] {
    return std::pair{&q.qobjbegin, &q.qobjend};
  });
}

int32_t TRV_putqobjij(TRVtask task, int32_t i, int32_t j, double qoij) {
  if (const int32_t rc = task_check(task)) return rc;
  if (const int32_t rc = check_index(task, "i", TRV_PI_VAR, i)) return rc;
  if (const int32_t rc = check_index(task, "j", TRV_PI_VAR, j)) return rc;
  if (const int32_t rc = data_checkunlocked(task)) return rc;
  if (!std::isfinite(qoij)) return report<TRV_RES_ERR_INV_QOBJ_VAL>(task, qoij, 0);
  if (i < j) std::swap(i, j);
  QuadStore& q = task->quad;
  const int32_t at = find_objterm(task, term_key(i, j));
  if (std::fabs(qoij) <= task->dpar[TRV_DPAR_DATA_TOL_QIJ]) {
    if (at >= 0) remove_objterm(&q, at);
    return TRV_RES_OK;
  }
  if (at < 0) return append_objterm(task, i, j, qoij);
  q.qval[q.qobjbegin + at] = qoij;
  return TRV_RES_OK;
}

int32_t TRV_getqobj(TRVtask task, int32_t maxnumqonz, int32_t* surp, int32_t* numqonz, int32_t* qosubi, int32_t* qosubj,
                    double* qoval) {
  if (const int32_t rc = task_check(task)) return rc;
  const QuadStore& q = task->quad;
  return get_range(task, q.qobjbegin, num_objterms(q), maxnumqonz, surp, numqonz, qosubi, qosubj, qoval);
}

int32_t TRV_getqobjij(TRVtask task, int32_t i, int32_t j, double* qoij) {
  if (const int32_t rc = check_reader(task, "qoij", qoij)) return rc;
  *qoij = 0.0;
  if (const int32_t rc = check_index(task, "i", TRV_PI_VAR, i)) return rc;
  if (const int32_t rc = check_index(task, "j", TRV_PI_VAR, j)) return rc;
  const int32_t at = find_objterm(task, term_key(std::max(i, j), std::min(i, j)));
  if (at >= 0) *qoij = task->quad.qval[task->quad.qobjbegin + at];
  return TRV_RES_OK;
}

int32_t TRV_getnumqobjnz(TRVtask task, int32_t* numqonz) {
  if (const int32_t rc = check_reader(task, "numqonz", numqonz)) return rc;
  *numqonz = num_objterms(task->quad);
  return TRV_RES_OK;
}

// ---- Constraints --------------------------------------------------------------------------------------------------

int32_t TRV_putqcon(TRVtask task, int32_t numqcnz, const int32_t* qcsubk, const int32_t* qcsubi, const int32_t* qcsubj,
                    const double* qcval) {
  if (const int32_t rc = task_check(task)) return rc;
  if (const int32_t rc = data_checkunlocked(task)) return rc;
  undefine_solutions(task);
  if (numqcnz < 0) return report<TRV_RES_ERR_IN_ARGUMENT>(task, "numqcnz");
  if (numqcnz > 0) {
    const int32_t rc =
        check_pointers(task, {{"qcsubk", qcsubk}, {"qcsubi", qcsubi}, {"qcsubj", qcsubj}, {"qcval", qcval}});
    if (rc != TRV_RES_OK) return rc;
  }
  for (int32_t t = 0; t < numqcnz; ++t) {
    const int32_t k = qcsubk[t], i = qcsubi[t], j = qcsubj[t];
    if (k < 0 || k >= task->numcon) return report<TRV_RES_ERR_INV_QCON_SUBK>(task, k, t);
    if (i < 0) return report<TRV_RES_ERR_QCON_SUBI_TOO_SMALL>(task, i, t, 0);
    if (i >= task->numvar) return report<TRV_RES_ERR_QCON_SUBI_TOO_LARGE>(task, i, t, task->numvar);
    if (j < 0 || j >= task->numvar) return report<TRV_RES_ERR_INV_QCON_SUBJ>(task, j, t);
    if (j > i) return report<TRV_RES_ERR_QCON_UPPER_TRIANGLE>(task, i, j, k);
    if (!std::isfinite(qcval[t])) return report<TRV_RES_ERR_INV_QCON_VAL>(task, qcval[t], t);
  }
  QuadStore& q = task->quad;
  if (numqcnz == 0 && q.qconbegin.empty()) return TRV_RES_OK;
  Array<Term> terms;
  Array<int32_t> start;  // of each constraint's terms
  if (!terms.alloc(task->sys, static_cast<std::size_t>(numqcnz)) ||
      !start.alloc(task->sys, static_cast<std::size_t>(task->numcon) + 1, Fill::zero))
    return report<TRV_RES_ERR_SPACE>(task);
  if (const int32_t rc = make_qconranges(task)) return rc;
  const int64_t needed = int64_t{num_objterms(q)} + numqcnz;
  if (needed > INT32_MAX || !repack(task, std::max(q.maxnumqnz, static_cast<int32_t>(needed)), leave_constraints))
    return report<TRV_RES_ERR_SPACE>(task);
  const double tol = task->dpar[TRV_DPAR_DATA_TOL_QIJ];
  for (int32_t t = 0; t < numqcnz; ++t) start[qcsubk[t] + 1] += static_cast<int32_t>(std::fabs(qcval[t]) > tol);
  for (int32_t k = 0; k < task->numcon; ++k) start[k + 1] += start[k];
  for (int32_t t = 0; t < numqcnz; ++t)
    if (std::fabs(qcval[t]) > tol) terms[start[qcsubk[t]]++] = {term_key(qcsubi[t], qcsubj[t]), qcval[t], t};
  int32_t begin = 0;
  for (int32_t k = 0; k < task->numcon; ++k) {
    const int32_t end = start[k];  // filling has moved it there
    const int32_t n = normalise(terms.data() + begin, end - begin);
    q.qconbegin[k] = n > 0 ? first_free(q) : 0;
    q.qconend[k] = q.qconbegin[k] + n;
    write_terms(&q, first_free(q), terms.data() + begin, n);
    q.qsurplus -= n;
    begin = end;
  }
  return TRV_RES_OK;
}

int32_t TRV_putqconk(TRVtask task, int32_t k, int32_t numqcnz, const int32_t* qcsubi, const int32_t* qcsubj,
                     const double* qcval) {
  if (const int32_t rc = task_check(task)) return rc;
  if (const int32_t rc = data_checkunlocked(task)) return rc;
  undefine_solutions(task);
  if (const int32_t rc = check_index(task, "k", TRV_PI_CON, k)) return rc;
  if (numqcnz < 0) return report<TRV_RES_ERR_IN_ARGUMENT>(task, "numqcnz");
  QuadStore& q = task->quad;
  int32_t rc = TRV_RES_OK;
  if (numqcnz > 0) rc = check_pointers(task, {{"qcsubi", qcsubi}, {"qcsubj", qcsubj}, {"qcval", qcval}});
  if (rc == TRV_RES_OK)
    rc = check_terms(task, numqcnz, qcsubi, qcsubj, "qcsubi", "qcsubj", [&](int32_t t) {
      if (qcsubj[t] > qcsubi[t]) return report<TRV_RES_ERR_QCON_UPPER_TRIANGLE>(task, qcsubi[t], qcsubj[t], k);
      return std::isfinite(qcval[t]) ? TRV_RES_OK : report<TRV_RES_ERR_INV_QCON_VAL>(task, qcval[t], t);
    });
  if (rc != TRV_RES_OK || numqcnz == 0) {
    if (!q.qconbegin.empty()) q.qconbegin[k] = q.qconend[k] = 0;
    return rc;
  }
  if (const int32_t made = make_qconranges(task)) return made;
  return put_range(task, numqcnz, qcsubi, qcsubj, qcval, k, [&] { return std::pair{&q.qconbegin[k], &q.qconend[k]}; });
}

int32_t TRV_getqconk(TRVtask task, int32_t k, int32_t maxnumqcnz, int32_t* surp, int32_t* numqcnz, int32_t* qcsubi,
                     int32_t* qcsubj, double* qcval) {
  if (const int32_t rc = task_check(task)) return rc;
  if (const int32_t rc = check_index(task, "k", TRV_PI_CON, k)) return rc;
  const QuadStore& q = task->quad;
  return get_range(task, q.qconbegin.empty() ? 0 : q.qconbegin[k], num_conterms(q, k), maxnumqcnz, surp, numqcnz,
                   qcsubi, qcsubj, qcval);
}

int32_t TRV_getnumqconnz(TRVtask task, int32_t k, int32_t* numqcnz) {
  if (const int32_t rc = check_reader(task, "numqcnz", numqcnz)) return rc;
  if (const int32_t rc = check_index(task, "k", TRV_PI_CON, k)) return rc;
  *numqcnz = num_conterms(task->quad, k);
  return TRV_RES_OK;
}
