// What both homogeneous optimisers share around a point: its measures, the termination test, the status keys.
//
// The model is that of Xu, Hung and Ye, A simplified homogeneous and self-dual linear programming algorithm (Annals of
// Operations Research 62, 1996); the tests and keys follow Andersen and Andersen, The interior point optimizer for
// linear programming (2000).
#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>

#include "homo/hom_internal.h"

namespace tarvo {

constexpr int32_t debuglevel = 4;

void hom_print(const HomState* h, const char* format, ...) {
  if (h->par.loglevel <= debuglevel || h->events.print == nullptr) return;
  char text[400];
  va_list args;
  va_start(args, format);
  std::vsnprintf(text, sizeof text, format, args);
  va_end(args);
  h->events.print(h->events.handle, text);
}

void hom_copyvec(const HomState* h, const HomVec& from, HomVec* to) {
  std::copy_n(from.x, h->n, to->x);
  std::copy_n(from.s, h->n, to->s);
  std::copy_n(from.y, h->m, to->y);
  std::copy_n(from.xup, h->nu, to->xup);
  std::copy_n(from.yup, h->nu, to->yup);
  std::copy_n(from.sup, h->nu, to->sup);
  to->xf = from.xf;
  to->sf = from.sf;
  to->tau = from.tau;
  to->kappa = from.kappa;
}

int32_t hom_report(HomState* h) {
  if (h->events.status == nullptr) return 0;
  HomReport report{};
  report.iter = h->iter;
  report.pobj = h->pobj * h->par.objscale;
  report.dobj = h->dobj * h->par.objscale;
  report.kappatau = h->point.kappa / h->point.tau;
  report.pfeas = h->pfeasf;
  report.dfeas = h->dfeasf;
  report.mu = h->cgapf;
  report.kkt = h->kkt != nullptr ? &kktfac_getstats(h->kkt) : nullptr;
  const int32_t answer = h->events.status(h->events.handle, report);
  if (h->resp == HOM_RESP_OK) h->resp = answer;
  return answer;
}

// The largest magnitude and the sum of squares of what it is given.
struct Norms {
  double largest = 0.0, squares = 0.0;
  void add(double v) {
    largest = std::max(largest, std::abs(v));
    squares += v * v;
  }
};

static void diagonals(HomState* h) {
  const HomVec& p = h->point;
  const int32_t first = h->nb - h->nu;
  for (int32_t j = 0; j < first; ++j) {
    h->d[j] = p.s[j] / p.x[j];
    h->dinv[j] = p.x[j] / p.s[j];
  }
  for (int32_t i = 0; i < h->nu; ++i) {
    const int32_t j = first + i;
    h->d[j] = p.s[j] / p.x[j] + p.sup[i] / p.xup[i];
    h->dinv[j] = 1.0 / h->d[j];
  }
  if (h->nf == 0) return;
  const double ratio = std::sqrt(h->sqsf / h->xqxf), w = std::sqrt(ratio);
  std::fill(h->d + h->nb, h->d + h->n, ratio);
  std::fill(h->dinv + h->nb, h->dinv + h->n, 1.0 / ratio);
  h->vf[0] = p.sf / w + w * p.xf;
  for (int32_t k = 0; k < h->nf; ++k) h->vf[1 + k] = w * p.x[h->nb + k] - p.s[h->nb + k] / w;
}

// A x into rp and A'y into rd, in one pass over A.
static void products(HomState* h) {
  HomTimer timer(&h->time.ax);
  const HomVec& p = h->point;
  const spmat* a = h->a;
  std::fill(h->rp, h->rp + h->m, 0.0);
  for (int32_t j = 0; j < h->n; ++j) {
    const double x = p.x[j];
    double aty = 0.0;
    for (int32_t k = a->ptrb[j]; k < a->ptre[j]; ++k) {
      const int32_t i = a->sub[k];
      h->rp[i] += a->val[k] * x;
      aty += a->val[k] * p.y[i];
    }
    h->rd[j] = aty;
  }
}

// The residuals with their norms; those of the certificates are taken before the terms with tau.
static void residuals(HomState* h) {
  const HomVec& p = h->point;
  const int32_t first = h->nb - h->nu;
  const bool quad = h->nq > 0 || h->useh;
  Norms primal, dual;
  h->pfeasinff = h->dfeasinff = 0.0;
  products(h);
  h->xqx = quad ? std::max(hom_qotimes(h, p.x, h->qx), 0.0) : 0.0;
  h->qfeasinff = 0.0;
  h->cx = h->bypart = 0.0;
  for (int32_t i = 0; i < h->m; ++i) {
    h->pfeasinff = std::max(h->pfeasinff, std::abs(h->rp[i]));
    h->rp[i] -= h->b[i] * p.tau;
    primal.add(h->rp[i]);
    h->bypart += h->b[i] * p.y[i];
  }
  double uyup = 0.0;
  for (int32_t i = 0; i < h->nu; ++i) {
    const double sum = p.x[first + i] + p.xup[i];
    h->pfeasinff = std::max(h->pfeasinff, std::abs(sum));
    h->rpu[i] = sum - h->u[i] * p.tau;
    primal.add(h->rpu[i]);
    h->rdu[i] = p.sup[i] + p.yup[i];
    h->dfeasinff = std::max(h->dfeasinff, std::abs(h->rdu[i]));
    dual.add(h->rdu[i]);
    h->rd[first + i] += p.yup[i];
    uyup += h->u[i] * p.yup[i];
  }
  for (int32_t j = 0; j < h->n; ++j) {
    const double r = h->rd[j] + p.s[j];
    h->dfeasinff = std::max(h->dfeasinff, std::abs(r));
    h->rd[j] = r - h->c[j] * p.tau;
    if (quad) {
      h->qfeasinff = std::max(h->qfeasinff, std::abs(h->qx[j]));
      h->rd[j] -= h->qx[j];
    }
    dual.add(h->rd[j]);
    h->cx += h->c[j] * p.x[j];
  }
  if (h->nf > 0) {
    h->dfeasinff = std::max(h->dfeasinff, p.sf);
    dual.add(p.sf);
  }
  h->by = h->bypart + uyup;
  h->rg = h->by - h->cx - h->xqx / p.tau - p.kappa;
  h->pfeasf = primal.largest;
  h->dfeasf = dual.largest;
  h->gfeasf = std::abs(h->rg);
  h->meritfeasif = std::max({h->pfeasf, h->dfeasf, h->gfeasf});
  h->meritfeas2f = std::sqrt(primal.squares + dual.squares + h->rg * h->rg);
}

static void gap(HomState* h) {
  const HomVec& p = h->point;
  double sum = p.tau * p.kappa, least = sum;
  for (int32_t j = 0; j < h->nb; ++j) {
    const double v = p.x[j] * p.s[j];
    sum += v;
    least = std::min(least, v);
  }
  for (int32_t i = 0; i < h->nu; ++i) {
    const double v = p.xup[i] * p.sup[i];
    sum += v;
    least = std::min(least, v);
  }
  if (h->nf > 0) {
    const double pair = std::sqrt(h->xqxf * h->sqsf);
    sum += p.xf * p.sf + pair;
    for (int32_t j = h->nb; j < h->n; ++j) sum += p.x[j] * p.s[j];
    least = std::min(least, pair);
  }
  h->cgapf = sum;
  h->mu = sum / h->n_c;
  h->lpval = least / h->mu;
}

void hom_inititer(HomState* h) {
  HomTimer timer(&h->time.inititer);
  const double tau = h->point.tau;
  diagonals(h);
  residuals(h);
  gap(h);
  const double half = 0.5 * h->xqx / tau;
  h->pobj = (h->cx + half) / tau + h->cfix;
  h->dobj = (h->by - half) / tau + h->cfix;
  // |pobj - dobj| or the complementarity over max(1, |dobj|) + 1, the ones in units of the given objective, numerator
  // and denominator times tau. The constant may cancel most of the objective (bounds shifted to 0 leave much in it) or
  // be most of it; neither may hide a gap.
  const double dual = h->by - half, value = std::min(std::abs(dual), std::abs(dual + h->cfix * tau));
  const double unit = 1.0 / std::abs(h->par.objscale);  // 1 of the given objective
  h->relgap = std::min(h->cgapf / tau, std::abs(h->cx + h->xqx / tau - h->by)) /
              (std::max(tau * std::min(1.0, unit), value) + tau * unit);
}

// The weight of a certificate's residual against its value. A loose certificate has to hold for points of the size that
// the data suggest all the more.
static double weight(double own, double matrix, double other, int32_t level) {
  const double r = own / std::max({1.0, matrix, other});
  return level != 0 ? std::max(1.0, r) : r;
}

// What the residuals make of the objective, relative as the gap is.
static double infeasibilityeffect(const HomState* h) {
  const HomVec& p = h->point;
  double primal = 0.0, dual = 0.0;
  for (int32_t i = 0; i < h->m; ++i) primal += p.y[i] * h->rp[i];
  for (int32_t i = 0; i < h->nu; ++i) primal += p.yup[i] * h->rpu[i];
  for (int32_t j = 0; j < h->n; ++j) dual += p.x[j] * h->rd[j];
  for (int32_t i = 0; i < h->nu; ++i) dual += p.xup[i] * h->rdu[i];
  return (std::abs(primal) + std::abs(dual)) / p.tau / std::max(p.tau, std::abs(h->by));
}

bool hom_checkterm(HomState* h, bool setstatus, int32_t level, bool strict) {
  const HomParams& par = h->par;
  const double tau = h->point.tau, f = level < 0 ? 0.01 : level > 0 ? 100.0 : 1.0;
  const double e = par.tolinfeas;
  int32_t prosta = HOM_PRO_UNKNOWN, solsta = HOM_SOL_UNKNOWN;
  if (h->pfeasf <= (1.0 + h->bscale) * f * par.tolpfeas * tau &&
      h->dfeasf <= (1.0 + h->cscale) * f * par.toldfeas * tau &&
      (strict ? par.gapfactor : 1.0) * h->relgap <= f * par.tolgap &&
      infeasibilityeffect(h) <= std::max(f, 1.0) * par.tolgap) {
    prosta = HOM_PRO_FEASIBLE;
    solsta = HOM_SOL_OPTIMAL;
  } else {
    const double value = -h->cx;  // of the ray; b'y + u'yup is that of the other certificate
    // The loose test takes what rules out all points of the size that the data suggest and far beyond.
    const auto proves = [&](double v, double r, double residual, double norm) {
      if (level > 0 && r * residual < 1e4 * e * v && residual < e * v) return true;
      return r * residual < e * v ||
             (tau <= f * e && v >= std::sqrt(f * e) * tau * norm && r * residual < 100.0 * e * v);
    };
    if (value > 0.0) {
      const double r = weight(h->nrmc, h->nrma, h->nrmb, level);
      // Along a ray the objective does not bend; Q x scales as the objective does.
      const bool straight = h->qfeasinff <= 10.0 * e * value;
      if (straight && proves(value, r, h->pfeasinff, h->nrmc)) {
        prosta = HOM_PRO_DUALINFEAS;
        solsta = HOM_SOL_DUALCER;
      }
    }
    if (h->by > 0.0) {
      const double r = weight(h->nrmb, h->nrma, h->nrmc, level);
      const bool better = solsta == HOM_SOL_UNKNOWN || h->dfeasinff / h->by < h->pfeasinff / value;
      if (better && proves(h->by, r, h->dfeasinff, h->nrmb)) {
        prosta = HOM_PRO_PRIMINFEAS;
        solsta = HOM_SOL_PRIMCER;
      }
    }
  }
  if (solsta == HOM_SOL_UNKNOWN) return false;
  if (setstatus) {
    h->prosta = prosta;
    h->solsta = solsta;
  }
  return true;
}

int32_t hom_updatekeys(HomState* h, const HomVec& dir) {
  const HomVec& p = h->point;
  int32_t changes = 0;
  const auto update = [&changes](int32_t* key, double x, double s, double dx, double ds) {
    const int32_t now = std::abs(ds) * x < std::abs(dx) * s ? HOM_KEY_DUAL : HOM_KEY_PRIMAL;
    changes += now != *key;
    *key = now;
  };
  for (int32_t j = 0; j < h->nb; ++j) update(&h->keys[j], p.x[j], p.s[j], dir.x[j], dir.s[j]);
  for (int32_t i = 0; i < h->nu; ++i) update(&h->keysup[i], p.xup[i], p.sup[i], dir.xup[i], dir.sup[i]);
  return changes;
}

void hom_finalkeys(HomState* h) {
  const HomVec& p = h->point;
  const double q = 1.0 / std::sqrt(h->cgapf / (h->nb + h->nu + 1));
  const auto settle = [q](int32_t* key, double g2, double x, double s) {
    if (*key == HOM_KEY_PRIMAL && g2 * q * x <= s)
      *key = HOM_KEY_DUAL;
    else if (*key == HOM_KEY_DUAL && q * s <= g2 * x)
      *key = HOM_KEY_PRIMAL;
  };
  for (int32_t j = 0; j < h->nb; ++j) {
    double g = j < h->nb - h->nu ? 0.0 : 1.0;
    for (int32_t k = h->a->ptrb[j]; k < h->a->ptre[j]; ++k) g = std::max(g, std::abs(h->a->val[k]));
    if (g > 0.0) settle(&h->keys[j], g * g, p.x[j], p.s[j]);
  }
  for (int32_t i = 0; i < h->nu; ++i) settle(&h->keysup[i], 1.0, p.xup[i], p.sup[i]);
}

}  // namespace tarvo
