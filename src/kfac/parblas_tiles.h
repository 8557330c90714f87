// The dense kernels, written over a vector type. Included once by each parblas_<set>.cpp, which defines `Vec` before in
// its own unnamed namespace, so that code compiled for one instruction set can never be linked in for another. For the
// same reason nothing here uses inline functions of the standard library.
//
// Vec::width doubles to a register. A tile of MV registers by NR columns of the target is held in registers over the
// whole depth, and for each source column one register row of the other factor is broadcast. Wide updates pack both
// sides (Goto, van de Geijn, Anatomy of high-performance matrix multiplication, ACM TOMS 34, 2008); narrow ones read
// the columns where they stand.

#if defined(__clang__)
#define TARVO_UNROLL _Pragma("clang loop unroll(full)")
#else
#define TARVO_UNROLL _Pragma("GCC unroll 16")
#endif

constexpr int32_t W = Vec::width;
constexpr int32_t NRMAX = W;  // columns of a tile: what one register of multipliers holds
constexpr int32_t MVPACK = Vec::pack_rows;
constexpr int32_t MR = MVPACK * W;
using Reg = Vec::Reg;
using Mask = Vec::Mask;

inline const double* column(const SourceColumns& source, int32_t k) {
  return source.list != nullptr ? source.list[k] : source.base + k * source.stride;
}
constexpr int32_t least(int32_t a, int32_t b) { return a < b ? a : b; }
constexpr int32_t most(int32_t a, int32_t b) { return a > b ? a : b; }
// Registers of rows in the tallest tile of nr columns.
constexpr int32_t tallest(int32_t nr) { return least(Vec::max_rows, most(Vec::accumulators / nr, 1)); }
static_assert(tallest(NRMAX) == MVPACK && PACK_ROWS % MR == 0 && PACK_COLS % NRMAX == 0);

struct Strided {
  const double* a;
  int64_t stride;
  const double* column(int32_t k) const { return a + k * stride; }
};
struct Listed {
  const double* const* list;
  int64_t shift;
  const double* column(int32_t k) const { return list[k] + shift; }
};

// One tile: b[k * W + j] holds the negative multiplier of target column j. The last register of a column is masked.
template <int MV, int NR, bool Tail, class Source>
void tile(int32_t depth, Source source, const double* b, double* t, int64_t ldt, int32_t last) {
  const Mask mask = Vec::mask(last);
  Reg acc[NR][MV];
  TARVO_UNROLL
  for (int j = 0; j < NR; ++j) {
    TARVO_UNROLL
    for (int v = 0; v < MV; ++v)
      acc[j][v] = Tail && v == MV - 1 ? Vec::load(t + j * ldt + v * W, mask) : Vec::load(t + j * ldt + v * W);
  }
  for (int32_t k = 0; k < depth; ++k) {
    const double* a = source.column(k);
    Reg x[MV];
    TARVO_UNROLL
    for (int v = 0; v < MV; ++v) x[v] = Tail && v == MV - 1 ? Vec::load(a + v * W, mask) : Vec::load(a + v * W);
    TARVO_UNROLL
    for (int j = 0; j < NR; ++j) {
      const Reg f = Vec::set(b[k * W + j]);
      TARVO_UNROLL
      for (int v = 0; v < MV; ++v) acc[j][v] = Vec::fma(f, x[v], acc[j][v]);
    }
  }
  TARVO_UNROLL
  for (int j = 0; j < NR; ++j) {
    TARVO_UNROLL
    for (int v = 0; v < MV; ++v) {
      if (Tail && v == MV - 1)
        Vec::store(t + j * ldt + v * W, acc[j][v], mask);
      else
        Vec::store(t + j * ldt + v * W, acc[j][v]);
    }
  }
}

template <class Source>
using Tile = void (*)(int32_t depth, Source source, const double* b, double* t, int64_t ldt, int32_t last);

// tiles[nr - 1][mv - 1] with a masked last register; whole[nr - 1]: the tallest tile without a mask.
template <class Source>
struct Tiles {
  Tile<Source> tail[NRMAX][Vec::max_rows];
  Tile<Source> whole[NRMAX];
};
template <class Source, int NR, int MV>
constexpr void fill_tiles(Tiles<Source>& table) {
  table.tail[NR - 1][MV - 1] = tile<MV, NR, true, Source>;
  if constexpr (MV > 1)
    fill_tiles<Source, NR, MV - 1>(table);
  else if constexpr (NR > 1)
    fill_tiles<Source, NR - 1, tallest(NR - 1)>(table);
}
template <class Source, int NR>
constexpr void fill_whole(Tiles<Source>& table) {
  table.whole[NR - 1] = tile<tallest(NR), NR, false, Source>;
  if constexpr (NR > 1) fill_whole<Source, NR - 1>(table);
}
template <class Source>
constexpr Tiles<Source> make_tiles() {
  Tiles<Source> table{};
  fill_tiles<Source, NRMAX, tallest(NRMAX)>(table);
  fill_whole<Source, NRMAX>(table);
  return table;
}
template <class Source>
constexpr Tiles<Source> tiles = make_tiles<Source>();

// Rows 0..m-1 of nr target columns.
template <class Source>
inline void strip(int32_t m, int32_t nr, int32_t depth, Source source, const double* b, double* t, int64_t ldt) {
  const int32_t tall = tallest(nr) * W;
  const auto whole = tiles<Source>.whole[nr - 1];
  int32_t i = 0;
  for (; i + tall <= m; i += tall) {
    whole(depth, source, b, t + i, ldt, W);
    if constexpr (requires { source.shift; })
      source.shift += tall;
    else
      source.a += tall;
  }
  if (i == m) return;
  const int32_t regs = (m - i + W - 1) / W;
  tiles<Source>.tail[nr - 1][regs - 1](depth, source, b, t + i, ldt, m - i - (regs - 1) * W);
}

// b[k * W + j] = -(mult[k] c_k[j]), j < nr.
inline void scale_strip(int32_t nr, int32_t depth, const SourceColumns& cols, int32_t k0, int64_t shift,
                        const double* mult, double* b) {
  const Mask mask = Vec::mask(nr);
  for (int32_t k = 0; k < depth; ++k) {
    const Reg f = Vec::set(-mult[k0 + k]);
    Vec::store(b + k * W, Vec::mul(f, Vec::load(column(cols, k0 + k) + shift, mask)));
  }
}

// Reads the rows where they stand: for few columns, or few rows.
void update_direct(const DenseUpdate& u, int32_t k0, int32_t depth) {
  for (int32_t j = 0; j < u.n; j += NRMAX) {
    const int32_t nr = least(NRMAX, u.n - j);
    const int32_t first = most(0, j - u.below);
    scale_strip(nr, depth, u.cols, k0, u.colshift + j, u.mult, u.work);
    double* t = u.target + j * u.ldt + first;
    if (u.rows.list != nullptr)
      strip(u.m - first, nr, depth, Listed{u.rows.list + k0, u.rowshift + first}, u.work, t, u.ldt);
    else
      strip(u.m - first, nr, depth, Strided{u.rows.base + k0 * u.rows.stride + u.rowshift + first, u.rows.stride},
            u.work, t, u.ldt);
  }
}

// Rows i0..i0+mc-1 of the sources as panels of MR rows, each panel depth x MR and filled up with zeros.
void pack_rows(const DenseUpdate& u, int32_t k0, int32_t depth, int32_t i0, int32_t mc, double* pack) {
  const int32_t whole = mc / MR, rest = mc - whole * MR;
  for (int32_t k = 0; k < depth; ++k) {
    const double* a = column(u.rows, k0 + k) + u.rowshift + i0;
    double* p = pack + k * MR;
    for (int32_t q = 0; q < whole; ++q, a += MR, p += static_cast<int64_t>(depth) * MR) {
      TARVO_UNROLL
      for (int v = 0; v < MVPACK; ++v) Vec::store(p + v * W, Vec::load(a + v * W));
    }
    for (int32_t v = 0; v * W < rest; ++v)
      Vec::store(p + v * W, Vec::load(a + v * W, Vec::mask(least(W, rest - v * W))));
  }
}

void update_packed(const DenseUpdate& u, int32_t k0, int32_t depth) {
  double* apack = u.work;
  double* bpack = u.work + PACK_ROWS * PACK_DEPTH;
  for (int32_t j0 = 0; j0 < u.n; j0 += PACK_COLS) {
    const int32_t nc = least(PACK_COLS, u.n - j0);
    for (int32_t j = 0; j < nc; j += NRMAX)
      scale_strip(least(NRMAX, nc - j), depth, u.cols, k0, u.colshift + j0 + j, u.mult, bpack + j * depth);
    for (int32_t i0 = most(0, j0 - u.below); i0 < u.m; i0 += PACK_ROWS) {
      const int32_t mc = least(PACK_ROWS, u.m - i0);
      pack_rows(u, k0, depth, i0, mc, apack);
      const int32_t ncols = least(nc, i0 + mc + u.below - j0);  // columns with an element in these rows
      for (int32_t j = 0; j < ncols; j += NRMAX) {
        const int32_t nr = least(NRMAX, nc - j);
        const double* b = bpack + j * depth;
        // The first row of the strip, in whole registers from the start of a panel.
        int32_t i = most(0, j0 + j - u.below - i0) / W * W;
        while (i < mc) {
          const int32_t panel = i / MR, in = i - panel * MR;
          const int32_t count = least(MR - in, mc - i);
          const double* a = apack + static_cast<int64_t>(panel) * MR * depth + in;
          double* t = u.target + (j0 + j) * u.ldt + i0 + i;
          if (count == MR && nr == NRMAX) {
            for (int32_t c = 0; c < NRMAX; ++c) {
              TARVO_UNROLL
              for (int v = 0; v < MVPACK; ++v) Vec::prefetch(t + c * u.ldt + MR + v * W);
            }
            tile<MVPACK, NRMAX, false, Strided>(depth, Strided{a, MR}, b, t, u.ldt, W);
          } else {
            const int32_t regs = (count + W - 1) / W;
            tiles<Strided>.tail[nr - 1][regs - 1](depth, Strided{a, MR}, b, t, u.ldt, count - (regs - 1) * W);
          }
          i += count;
        }
      }
    }
  }
}

void update(const DenseUpdate& given) {
  DenseUpdate u = given;
  u.n = least(u.n, u.m + u.below);
  if (u.n <= 0) return;
  const bool packed = u.n >= Vec::pack_from && u.m >= Vec::pack_from;
  for (int32_t k0 = 0; k0 < u.depth; k0 += PACK_DEPTH) {
    const int32_t depth = least(PACK_DEPTH, u.depth - k0);
    if (packed && depth >= 8)
      update_packed(u, k0, depth);
    else
      update_direct(u, k0, depth);
  }
}

// MV registers of rows of NB columns: each column is scaled when it is done, then subtracted from those behind it.
template <int NB, int MV>
void solve_rows(const double* coef, const double* inverse, double* x, int64_t ldx, int32_t last) {
  const Mask mask = Vec::mask(last);
  Reg r[NB][MV];
  TARVO_UNROLL
  for (int j = 0; j < NB; ++j) {
    TARVO_UNROLL
    for (int v = 0; v < MV; ++v)
      r[j][v] = v == MV - 1 ? Vec::load(x + j * ldx + v * W, mask) : Vec::load(x + j * ldx + v * W);
  }
  TARVO_UNROLL
  for (int k = 0; k < NB; ++k) {
    const Reg s = Vec::set(inverse[k]);
    TARVO_UNROLL
    for (int v = 0; v < MV; ++v) r[k][v] = Vec::mul(s, r[k][v]);
    TARVO_UNROLL
    for (int j = k + 1; j < NB; ++j) {
      const Reg f = Vec::set(coef[k * W + j]);
      TARVO_UNROLL
      for (int v = 0; v < MV; ++v) r[j][v] = Vec::fma(f, r[k][v], r[j][v]);
    }
  }
  TARVO_UNROLL
  for (int j = 0; j < NB; ++j) {
    TARVO_UNROLL
    for (int v = 0; v < MV; ++v) {
      if (v == MV - 1)
        Vec::store(x + j * ldx + v * W, r[j][v], mask);
      else
        Vec::store(x + j * ldx + v * W, r[j][v]);
    }
  }
}

using SolveRows = void (*)(const double* coef, const double* inverse, double* x, int64_t ldx, int32_t last);
struct SolveTable {
  SolveRows at[NRMAX][MVPACK];
};
template <int NB, int MV>
constexpr void fill_solves(SolveTable& table) {
  table.at[NB - 1][MV - 1] = solve_rows<NB, MV>;
  if constexpr (MV > 1)
    fill_solves<NB, MV - 1>(table);
  else if constexpr (NB > 1)
    fill_solves<NB - 1, MVPACK>(table);
}
constexpr SolveTable make_solves() {
  SolveTable table{};
  fill_solves<NRMAX, MVPACK>(table);
  return table;
}
constexpr SolveTable solves = make_solves();

void eliminate(int32_t nb, double* l, int64_t ldl, double* diag, const double* before, uint16_t* flags,
               const PivotRule& rule) {
  alignas(64) double buf[NRMAX * W], coef[W];
  const Mask mask = Vec::mask(nb);
  for (int32_t j = 0; j < nb; ++j) Vec::store(buf + j * W, Vec::load(l + j * ldl, mask));
  for (int32_t k = 0; k < nb; ++k) {
    const double p = symface_pivot(rule, before[k], buf[k * W + k], &flags[k]);
    diag[k] = p;
    const Reg c = Vec::mul(Vec::set(1.0 / p), Vec::load(buf + k * W));
    Vec::store(buf + k * W, c);
    Vec::store(coef, Vec::mul(Vec::set(-p), c));
    for (int32_t j = k + 1; j < nb; ++j)
      Vec::store(buf + j * W, Vec::fma(Vec::set(coef[j]), c, Vec::load(buf + j * W)));
    buf[k * W + k] = 1.0;
    Vec::store(l + k * ldl, Vec::load(buf + k * W), mask);
  }
}

void solve(int32_t nb, int32_t rows, const double* l, int64_t ldl, const double* d, double* x, int64_t ldx) {
  if (rows <= 0) return;
  alignas(64) double coef[NRMAX * W], inverse[W];
  const Mask mask = Vec::mask(nb);
  for (int32_t k = 0; k < nb; ++k) {
    Vec::store(coef + k * W, Vec::mul(Vec::set(-d[k]), Vec::load(l + k * ldl, mask)));
    inverse[k] = 1.0 / d[k];
  }
  int32_t i = 0;
  for (; i + MR <= rows; i += MR) solves.at[nb - 1][MVPACK - 1](coef, inverse, x + i, ldx, W);
  if (i == rows) return;
  const int32_t regs = (rows - i + W - 1) / W;
  solves.at[nb - 1][regs - 1](coef, inverse, x + i, ldx, rows - i - (regs - 1) * W);
}

void apply(int32_t m, int32_t depth, const double* a, int64_t lda, int32_t nrhs, const double* x, int64_t ldx,
           double* t, int64_t ldt) {
  if (m <= 0) return;
  alignas(64) double work[APPLY_DEPTH * W];
  for (int32_t k = 0; k < depth; ++k)
    for (int32_t r = 0; r < nrhs; ++r) work[k * W + r] = -x[r * ldx + k];
  strip(m, nrhs, depth, Strided{a, lda}, work, t, ldt);
}

// Rows in runs of adjacent ones, found once for some columns, where these runs are long enough.
void scatter(int32_t m, int32_t n, int32_t below, const double* from, int64_t ldf, const int32_t* rows,
             const int32_t* cols, double* to, int64_t ldt) {
  int32_t runs = 1;
  for (int32_t i = 1; i < m; ++i) runs += rows[i] != rows[i - 1] + 1;
  if (runs > m / 4) {
    for (int32_t j = 0; j < n; ++j) {
      const double* f = from + j * ldf;
      double* t = to + cols[j] * ldt;
      for (int32_t i = most(0, j - below); i < m; ++i) t[rows[i]] += f[i];
    }
    return;
  }
  for (int32_t j0 = 0; j0 < n; j0 += 8) {
    const int32_t nb = least(8, n - j0);
    for (int32_t i = most(0, j0 - below), end; i < m; i = end) {
      for (end = i + 1; end < m && rows[end] == rows[end - 1] + 1;) ++end;
      const int32_t whole = (end - i) / W * W, rest = end - i - whole;
      const Mask mask = Vec::mask(rest);
      for (int32_t j = j0; j < j0 + nb; ++j) {
        const double* f = from + j * ldf + i;
        double* t = to + cols[j] * ldt + rows[i];
        for (int32_t v = 0; v < whole; v += W) Vec::store(t + v, Vec::add(Vec::load(t + v), Vec::load(f + v)));
        if (rest == 1)
          t[whole] += f[whole];
        else if (rest > 1)
          Vec::store(t + whole, Vec::add(Vec::load(t + whole, mask), Vec::load(f + whole, mask)), mask);
      }
    }
  }
}

// Eight partial sums a product whatever the width of a register. Products and sums are rounded one by one: this is
// bound by memory, and processors without a fused operation would be slow at it.
constexpr int32_t LANES = 8 / W;

template <int NB, int NRHS>
void dots_of(int32_t m, const double* a, int64_t lda, const double* y, int64_t ldy, double* out) {
  Reg acc[NB][NRHS][LANES];
  for (int j = 0; j < NB; ++j)
    for (int r = 0; r < NRHS; ++r)
      for (int v = 0; v < LANES; ++v) acc[j][r][v] = Vec::set(0.0);
  int32_t i = 0;
  for (; i + 8 <= m; i += 8) {
    TARVO_UNROLL
    for (int v = 0; v < LANES; ++v) {
      Reg f[NRHS];
      TARVO_UNROLL
      for (int r = 0; r < NRHS; ++r) f[r] = Vec::load(y + r * ldy + i + v * W);
      TARVO_UNROLL
      for (int j = 0; j < NB; ++j) {
        const Reg c = Vec::load(a + j * lda + i + v * W);
        TARVO_UNROLL
        for (int r = 0; r < NRHS; ++r) acc[j][r][v] = Vec::add(acc[j][r][v], Vec::mul(c, f[r]));
      }
    }
  }
  TARVO_UNROLL
  for (int j = 0; j < NB; ++j) {
    TARVO_UNROLL
    for (int r = 0; r < NRHS; ++r) {
      alignas(64) double s[8];
      TARVO_UNROLL
      for (int v = 0; v < LANES; ++v) Vec::store(s + v * W, acc[j][r][v]);
      for (int32_t k = i; k < m; ++k) s[k - i] += a[j * lda + k] * y[r * ldy + k];
      out[r * 4 + j] += ((s[0] + s[4]) + (s[2] + s[6])) + ((s[1] + s[5]) + (s[3] + s[7]));
    }
  }
}

void dots(int32_t nb, int32_t m, const double* a, int64_t lda, int32_t nrhs, const double* y, int64_t ldy,
          double* out) {
  if (m <= 0) return;
  using Dots = void (*)(int32_t, const double*, int64_t, const double*, int64_t, double*);
  static constexpr Dots table[4][2] = {{dots_of<1, 1>, dots_of<1, 2>},
                                       {dots_of<2, 1>, dots_of<2, 2>},
                                       {dots_of<3, 1>, dots_of<3, 2>},
                                       {dots_of<4, 1>, dots_of<4, 2>}};
  table[nb - 1][nrhs - 1](m, a, lda, y, ldy, out);
}
