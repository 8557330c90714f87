// The canonical conic form: equality rows, columns with a lower bound of 0, with an upper bound too, free ones, cones.
// The members of a cone have no bounds of their own: a bounded member gets a row x - t = l (or x + t = u, x = v) with a
// slack t among the linear columns, whose multiplier is that of the bound. The free columns form one more quadratic
// cone with a head without elements and cost (Andersen 2002).
#include <algorithm>
#include <cmath>

#include "optimize/optconic_internal.h"

namespace tarvo {

namespace {

struct Effective {
  double lower, upper;
  bool haslower, hasupper;
};

// The bounds of a column in force: a cone without rest adds x >= 0.
Effective bounds(const ConicForm& f, int32_t j) {
  const int32_t bk = f.p.bkx[j];
  Effective e{f.p.blx[j], bk == PRSLV_BK_FX ? f.p.blx[j] : f.p.bux[j], prslv_lower(bk), prslv_upper(bk)};
  if (f.conelower[j] != 0) {
    e.lower = 0.0;
    e.haslower = true;
  }
  return e;
}

bool is_head(const ConicInput& in, int32_t k, int32_t position) {
  return position == 0 || (position == 1 && in.conetype[k] == CONIC_RQUAD);
}

int32_t rest(const ConicInput& in, int32_t k) {
  return in.coneend[k] - in.conebegin[k] - (in.conetype[k] == CONIC_RQUAD ? 2 : 1);
}

// Whether a column has no freedom: fixed, and not held by its cone to something else.
bool is_fixed(const ConicForm& f, int32_t j) {
  if (f.cone[j] >= 0 || f.p.bkx[j] != PRSLV_BK_FX) return false;
  return f.conelower[j] == 0;
}

bool is_free(const ConicForm& f, int32_t j) {
  const Effective e = bounds(f, j);
  return !e.haslower && !e.hasupper;
}
bool is_boxed(const ConicForm& f, int32_t j) {
  const Effective e = bounds(f, j);
  return e.haslower && e.hasupper;
}

// What a bounded member needs: its key without the bounds that the cone implies.
int32_t member_key(const ConicInput& in, const ConicForm& f, int32_t k, int32_t position) {
  const int32_t j = in.conemembers[in.conebegin[k] + position];
  const int32_t bk = f.p.bkx[j];
  if (!is_head(in, k, position) || f.p.blx[j] > 0.0) return bk;
  return bk == PRSLV_BK_LO ? int32_t{PRSLV_BK_FR} : bk == PRSLV_BK_RA ? int32_t{PRSLV_BK_UP} : bk;
}

template <class Visit>
void for_members(const ConicInput& in, Visit visit) {
  for (int32_t k = 0; k < in.numcone; ++k) {
    if (rest(in, k) <= 0) continue;
    for (int32_t position = 0; position < in.coneend[k] - in.conebegin[k]; ++position)
      visit(k, position, in.conemembers[in.conebegin[k] + position]);
  }
}

void classify(const ConicInput& in, ConicForm* f) {
  std::fill(f->cone.begin(), f->cone.end(), -1);
  std::fill(f->conelower.begin(), f->conelower.end(), int8_t{0});
  for (int32_t k = 0; k < in.numcone; ++k) {
    for (int32_t t = in.conebegin[k]; t < in.coneend[k]; ++t) {
      const int32_t j = in.conemembers[t];
      if (rest(in, k) > 0)
        f->cone[j] = k;
      else
        f->conelower[j] = !prslv_lower(f->p.bkx[j]) || f->p.blx[j] < 0.0 ? 1 : 0;
    }
  }
}

bool dead(const ConicForm& f, int32_t i, int32_t j) { return f.row[i] < 0 || (f.reduced && f.p.bkx[j] == PRSLV_BK_FX); }

}  // namespace

int32_t conic_setup(sysenv* env, const ConicInput& input, bool reduced, ConicForm* f) {
  f->env = env;
  f->p = input.linear;
  f->reduced = reduced;
  const prslvinput& p = f->p;
  const auto var = static_cast<std::size_t>(p.numvar), con = static_cast<std::size_t>(p.numcon);
  if (!f->cone.alloc(env, var) || !f->conelower.alloc(env, var) || !f->column.alloc(env, var) ||
      !f->copyrow.alloc(env, var) || !f->copyslack.alloc(env, var) || !f->costs.alloc(env, var) ||
      !f->row.alloc(env, con) || !f->rowslack.alloc(env, con))
    return HOM_RESP_SPACE;
  classify(input, f);

  // Rows and their slacks; a free row leaves, its cost goes to the columns.
  int32_t m = 0;
  int64_t nlower = 0, nboxed = 0, nfree = 0, nmember = 0, numcone = 0;
  for (int32_t i = 0; i < p.numcon; ++i) {
    f->row[i] = p.bkc[i] == PRSLV_BK_FR ? -1 : m++;
    if (p.bkc[i] == PRSLV_BK_LO || p.bkc[i] == PRSLV_BK_UP) ++nlower;
    if (p.bkc[i] == PRSLV_BK_RA) ++nboxed;
  }
  for (int32_t j = 0; j < p.numvar; ++j) {
    f->copyrow[j] = f->copyslack[j] = f->column[j] = -1;
    if (f->cone[j] >= 0 || is_fixed(*f, j)) continue;
    ++(is_free(*f, j) ? nfree : is_boxed(*f, j) ? nboxed : nlower);
  }
  int64_t copyrows = 0;
  for_members(input, [&](int32_t k, int32_t position, int32_t j) {
    ++nmember;
    if (position == 0) ++numcone;
    const int32_t bk = member_key(input, *f, k, position);
    if (bk == PRSLV_BK_FR) return;
    f->copyrow[j] = m + static_cast<int32_t>(copyrows++);
    if (bk == PRSLV_BK_LO || bk == PRSLV_BK_UP) ++nlower;
    if (bk == PRSLV_BK_RA) ++nboxed;
  });
  if (nlower + nboxed + nfree + nmember == 0) nlower = 1;  // a column without cost and elements
  const int64_t n = nlower + nboxed + nfree + nmember, rows = m + copyrows;
  if (n > INT32_MAX || rows > INT32_MAX) return HOM_RESP_SPACE;

  IntpntProblem* q = &f->prob;
  q->m = static_cast<int32_t>(rows);
  q->n = static_cast<int32_t>(n);
  q->nu = static_cast<int32_t>(nboxed);
  q->nb = static_cast<int32_t>(nlower + nboxed);
  q->nf = static_cast<int32_t>(nfree);
  q->numcone = static_cast<int32_t>(numcone);
  int64_t nz = n + 2 * copyrows;
  for (int32_t j = 0; j < p.numvar; ++j) nz += p.ptre[j] - p.ptrb[j];
  const auto cn = static_cast<std::size_t>(n), cm = static_cast<std::size_t>(rows),
             cu = static_cast<std::size_t>(nboxed);
  if (nz > INT32_MAX || !f->c.alloc(env, cn, Fill::zero) || !f->b.alloc(env, cm, Fill::zero) || !f->u.alloc(env, cu) ||
      !f->cnebeg.alloc(env, static_cast<std::size_t>(q->numcone) + 1) ||
      !f->conetype.alloc(env, static_cast<std::size_t>(q->numcone)) || !f->x.alloc(env, cn, Fill::zero) ||
      !f->s.alloc(env, cn, Fill::zero) || !f->y.alloc(env, cm, Fill::zero) || !f->yup.alloc(env, cu, Fill::zero) ||
      !f->keys.alloc(env, cn, Fill::zero) || !f->keysup.alloc(env, cu, Fill::zero))
    return HOM_RESP_SPACE;
  f->a = spmat_make(env, q->n, q->m);
  if (f->a == nullptr || !spmat_alloc(f->a, static_cast<int32_t>(nz))) return HOM_RESP_SPACE;

  // Places of the columns.
  int32_t lower = 0, boxed = static_cast<int32_t>(nlower), free = q->nb, member = q->nb + q->nf;
  int32_t cones = 0;
  const auto place = [&](bool isboxed) { return isboxed ? boxed++ : lower++; };
  for (int32_t j = 0; j < p.numvar; ++j) {
    if (f->cone[j] >= 0 || is_fixed(*f, j)) continue;
    f->column[j] = is_free(*f, j) ? free++ : place(is_boxed(*f, j));
  }
  for (int32_t i = 0; i < p.numcon; ++i) {
    const int32_t bk = p.bkc[i];
    f->rowslack[i] = bk == PRSLV_BK_FR || bk == PRSLV_BK_FX ? -1 : place(bk == PRSLV_BK_RA);
    if (bk == PRSLV_BK_RA) f->u[f->rowslack[i] - static_cast<int32_t>(nlower)] = p.buc[i] - p.blc[i];
  }
  for_members(input, [&](int32_t k, int32_t position, int32_t j) {
    if (position == 0) {
      f->conetype[cones] = input.conetype[k] == CONIC_RQUAD ? INTPNT_RQUAD : INTPNT_QUAD;
      f->cnebeg[cones++] = member;
    }
    f->column[j] = member++;
    const int32_t bk = member_key(input, *f, k, position);
    if (bk == PRSLV_BK_FR || bk == PRSLV_BK_FX) return;
    f->copyslack[j] = place(bk == PRSLV_BK_RA);
    if (bk == PRSLV_BK_RA) f->u[f->copyslack[j] - static_cast<int32_t>(nlower)] = p.bux[j] - p.blx[j];
  });
  f->cnebeg[cones] = member;

  // Costs, right-hand sides and elements. Column by column in canonical order, so the given index of each first.
  for (int32_t i = 0; i < p.numcon; ++i)
    if (f->row[i] >= 0) f->b[f->row[i]] = prslv_lower(p.bkc[i]) ? p.blc[i] : p.buc[i];
  q->cfix = p.cfix;
  spmat* a = f->a;
  spmat_putnvec(a, q->n);
  spmat_putvlen(a, q->m);
  Array<int32_t> origin;
  if (!origin.alloc(env, cn)) return HOM_RESP_SPACE;
  std::fill(origin.begin(), origin.end(), -1);
  for (int32_t j = 0; j < p.numvar; ++j) {
    if (f->column[j] >= 0) origin[f->column[j]] = j;
    double cost = p.cx[j];
    if (p.cc != nullptr && !(f->reduced && p.bkx[j] == PRSLV_BK_FX))
      for (int32_t t = p.ptrb[j]; t < p.ptre[j]; ++t) cost += p.cc[p.sub[t]] * p.val[t];
    f->costs[j] = cost;
  }
  int32_t put = 0;
  // Slacks know their row by the maps below.
  for (int32_t i = 0; i < p.numcon; ++i)
    if (f->rowslack[i] >= 0) origin[f->rowslack[i]] = -2 - i;
  for (int32_t k = 0; k < q->n; ++k) {
    a->ptrb[k] = put;
    const int32_t j = origin[k];
    if (j >= 0) {
      const Effective e = f->cone[j] >= 0 ? Effective{} : bounds(*f, j);
      const double sign = f->cone[j] < 0 && !e.haslower && e.hasupper ? -1.0 : 1.0;
      const double shift = e.haslower ? e.lower : e.hasupper ? e.upper : 0.0;
      f->c[k] = sign * f->costs[j];
      q->cfix += shift * f->costs[j];
      if (e.haslower && e.hasupper) f->u[k - static_cast<int32_t>(nlower)] = e.upper - e.lower;
      for (int32_t t = p.ptrb[j]; t < p.ptre[j]; ++t) {
        const int32_t i = p.sub[t];
        if (dead(*f, i, j) || p.val[t] == 0.0) continue;
        a->sub[put] = f->row[i];
        a->val[put++] = sign * p.val[t];
        if (shift != 0.0) f->b[f->row[i]] -= shift * p.val[t];
      }
      if (f->copyrow[j] >= 0) {
        a->sub[put] = f->copyrow[j];
        a->val[put++] = 1.0;
      }
    } else if (j <= -2) {
      const int32_t i = -2 - j;
      a->sub[put] = f->row[i];
      a->val[put++] = p.bkc[i] == PRSLV_BK_UP ? 1.0 : -1.0;
    }
    a->ptre[k] = put;
  }
  // The slacks of copy rows: their (empty) columns get their element behind all others.
  for_members(input, [&](int32_t k, int32_t position, int32_t j) {
    if (f->copyrow[j] < 0) return;
    const int32_t bk = member_key(input, *f, k, position), slack = f->copyslack[j];
    f->b[f->copyrow[j]] = prslv_lower(bk) ? p.blx[j] : p.bux[j];
    if (slack < 0) return;
    a->ptrb[slack] = put;
    a->sub[put] = f->copyrow[j];
    a->val[put++] = bk == PRSLV_BK_UP ? 1.0 : -1.0;
    a->ptre[slack] = put;
  });
  a->ffree = put;
  for (int32_t j = 0; j < p.numvar; ++j) {
    if (!is_fixed(*f, j)) continue;
    q->cfix += f->costs[j] * p.blx[j];
    if (f->reduced) continue;
    for (int32_t t = p.ptrb[j]; t < p.ptre[j]; ++t)
      if (f->row[p.sub[t]] >= 0) f->b[f->row[p.sub[t]]] -= p.val[t] * p.blx[j];
  }
  q->c = f->c.data();
  q->b = f->b.data();
  q->u = f->u.data();
  q->a = f->a;
  q->cnebeg = f->cnebeg.data();
  q->conetype = f->conetype.data();
  f->sol.x = f->x.data();
  f->sol.s = f->s.data();
  f->sol.y = f->y.data();
  f->sol.yup = f->yup.data();
  f->sol.keys = f->keys.data();
  f->sol.keysup = f->keysup.data();
  return HOM_RESP_OK;
}

void conic_invsetup(ConicForm* f) { spmat_delete(&f->a); }

namespace {

// The key of a slack or linear column: lower where its dual stays positive, upper likewise, else between.
int32_t slack_key(const ConicForm& f, int32_t k, bool turned) {
  if (f.keys[k] == INTPNT_KEY_DUAL) return turned ? PRSLV_SK_UPR : PRSLV_SK_LOW;
  const int32_t up = k - (f.prob.nb - f.prob.nu);
  if (up >= 0 && f.keysup[up] == INTPNT_KEY_DUAL) return PRSLV_SK_UPR;
  return PRSLV_SK_SUPBAS;
}

void split(double value, bool haslower, bool hasupper, double* lower, double* upper) {
  *lower = haslower && (!hasupper || value > 0.0) ? value : 0.0;
  *upper = hasupper && (!haslower || value < 0.0) ? -value : 0.0;
}

}  // namespace

void conic_setupsol(const ConicForm& f, ConicSolution* out) {
  const prslvinput& p = f.p;
  prslvsol* s = &out->sol;
  s->defined = 1;
  s->prosta = f.sol.prosta;
  s->solsta = f.sol.solsta;
  // Certificates: a ray has no constant parts, a proof of infeasibility no costs.
  const bool ray = s->solsta == INTPNT_SOL_DUALCER || s->solsta == INTPNT_SOL_NEARDUALCER;
  const bool proof = s->solsta == INTPNT_SOL_PRIMCER || s->solsta == INTPNT_SOL_NEARPRIMCER;
  const double constant = ray || proof ? 0.0 : 1.0, primal = proof ? 0.0 : 1.0, dual = ray ? 0.0 : 1.0;

  for (int32_t i = 0; i < p.numcon; ++i) {
    const int32_t r = f.row[i], bk = p.bkc[i];
    const double y = r >= 0 ? dual * f.y[r] : 0.0;
    s->y[i] = y - (p.cc != nullptr ? constant * p.cc[i] : 0.0);
    split(y, prslv_lower(bk), prslv_upper(bk), &s->slc[i], &s->suc[i]);
    s->skc[i] = bk == PRSLV_BK_FX   ? PRSLV_SK_FIX
                : f.rowslack[i] < 0 ? PRSLV_SK_SUPBAS
                                    : slack_key(f, f.rowslack[i], bk == PRSLV_BK_UP);
    s->xc[i] = 0.0;
  }
  for (int32_t j = 0; j < p.numvar; ++j) {
    const int32_t k = f.column[j], bk = p.bkx[j];
    out->snx[j] = s->slx[j] = s->sux[j] = 0.0;
    if (k < 0) {
      s->xx[j] = constant * p.blx[j];
      s->skx[j] = PRSLV_SK_FIX;
      double z = constant * f.costs[j];
      if (!f.reduced)
        for (int32_t t = p.ptrb[j]; t < p.ptre[j]; ++t)
          if (f.row[p.sub[t]] >= 0) z -= p.val[t] * dual * f.y[f.row[p.sub[t]]];
      split(dual * z, true, true, &s->slx[j], &s->sux[j]);
      continue;
    }
    if (f.cone[j] >= 0) {
      s->xx[j] = primal * f.x[k];
      out->snx[j] = dual * f.s[k];
      const int32_t r = f.copyrow[j];
      if (r >= 0) split(dual * f.y[r], prslv_lower(bk), prslv_upper(bk), &s->slx[j], &s->sux[j]);
      s->skx[j] = bk == PRSLV_BK_FX     ? PRSLV_SK_FIX
                  : f.copyslack[j] >= 0 ? slack_key(f, f.copyslack[j], bk == PRSLV_BK_UP)
                                        : PRSLV_SK_SUPBAS;
      continue;
    }
    const Effective e = bounds(f, j);
    const bool turned = !e.haslower && e.hasupper;
    const double shift = e.haslower ? e.lower : e.hasupper ? e.upper : 0.0;
    s->xx[j] = primal * (constant * shift + (turned ? -f.x[k] : f.x[k]));
    if (e.haslower) (f.conelower[j] != 0 ? out->snx[j] : s->slx[j]) = dual * f.s[k];
    if (turned) s->sux[j] = dual * f.s[k];
    if (e.haslower && e.hasupper) s->sux[j] = -dual * f.yup[k - (f.prob.nb - f.prob.nu)];
    s->skx[j] = e.haslower || e.hasupper ? slack_key(f, k, turned) : PRSLV_SK_SUPBAS;
  }
  for (int32_t j = 0; j < p.numvar; ++j)
    for (int32_t t = p.ptrb[j]; t < p.ptre[j]; ++t)
      if (!dead(f, p.sub[t], j)) s->xc[p.sub[t]] += p.val[t] * s->xx[j];
}

}  // namespace tarvo
