// The format is that of Friberg, "CBLIB 2014: a benchmark library for conic mixed-integer and continuous optimization",
// 2016, and its technical report: sections with a keyword on a line of their own, then lines of numbers.
#include "cbf.h"

#include <zlib.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <memory>
#include <string_view>
#include <vector>

namespace app {

namespace {

constexpr double infinity = 1e30;
enum class Kind { free, nonnegative, nonpositive, zero, quadratic, rotated };

struct Cone {
  Kind kind;
  int32_t first, size;
};
struct Element {
  int32_t row, column;
  double value;
  int32_t line;
};

struct Model {
  bool maximise = false;
  int32_t numvar = -1, numcon = 0;  // -1: no VAR section yet
  std::vector<Cone> varcones, concones;
  std::vector<int32_t> integers;
  std::vector<double> c, b;
  double cfix = 0;
  std::vector<Element> a;
};

struct Stop {
  std::string message;
};

// The lines of a plain or compressed file without comments and empty ones, split at blanks.
class Lines {
 public:
  explicit Lines(gzFile file) : file_(file) {}
  std::vector<std::string_view> tokens;
  int32_t number = 0;
  std::string text;

  bool next() {
    do {
      if (!get()) return false;
    } while (text.empty() || text[0] == '#' || tokens.empty());
    return true;
  }
  void expect(const std::string& what, std::size_t count) {
    if (!next()) throw Stop{"the file ends where " + what + " should stand"};
    if (tokens.size() != count) throw Stop{"expected " + what};
  }

 private:
  bool get() {
    text.clear();
    tokens.clear();
    char buffer[4096];
    while (gzgets(file_, buffer, sizeof buffer) != nullptr) {
      text += buffer;
      if (text.back() == '\n') break;
    }
    int error = Z_OK;
    const char* message = gzerror(file_, &error);
    if (error != Z_OK && error != Z_STREAM_END) throw Stop{std::string("the file can't be read: ") + message};
    if (text.empty()) return false;
    ++number;
    while (!text.empty() && std::strchr(" \t\r\n", text.back()) != nullptr) text.pop_back();
    const std::string_view all(text);
    for (std::size_t at = all.find_first_not_of(" \t"); at != std::string_view::npos;) {
      const std::size_t end = std::min(all.find_first_of(" \t", at), all.size());
      tokens.push_back(all.substr(at, end - at));
      at = all.find_first_not_of(" \t", end);
    }
    return true;
  }
  gzFile file_;
};

int32_t integer(std::string_view token, int32_t least, int32_t end, const std::string& what) {
  int32_t value = 0;
  const auto [stop, error] = std::from_chars(token.begin(), token.end(), value);
  if (error != std::errc() || stop != token.end()) throw Stop{"'" + std::string(token) + "' is no " + what};
  if (value < least || value >= end) throw Stop{what + " " + std::string(token) + " is out of range"};
  return value;
}
int32_t index(std::string_view token, int32_t count, const char* what) { return integer(token, 0, count, what); }
int32_t count(std::string_view token) { return integer(token, 0, INT32_MAX, "count"); }

double real(std::string_view token) {
  double value = 0;
  if (!token.empty() && token[0] == '+') token.remove_prefix(1);
  const auto [stop, error] = std::from_chars(token.begin(), token.end(), value);
  if (error != std::errc() || stop != token.end() || !(value > -infinity && value < infinity))
    throw Stop{"'" + std::string(token) + "' is no finite number"};
  return value;
}

Kind cone_kind(std::string_view name) {
  constexpr std::pair<std::string_view, Kind> kinds[] = {{"F", Kind::free},         {"L+", Kind::nonnegative},
                                                         {"L-", Kind::nonpositive}, {"L=", Kind::zero},
                                                         {"Q", Kind::quadratic},    {"QR", Kind::rotated}};
  for (const auto& [known, kind] : kinds)
    if (name == known) return kind;
  throw Stop{"the cone '" + std::string(name) + "' is not supported; known are F, L+, L-, L=, Q and QR"};
}

// "n k" and k lines "cone size" whose sizes sum to n.
std::vector<Cone> read_cones(Lines& in, int32_t* total) {
  in.expect("a count of elements and one of cones", 2);
  *total = count(in.tokens[0]);
  const int32_t number = count(in.tokens[1]);
  std::vector<Cone> cones;
  int32_t first = 0;
  for (int32_t k = 0; k < number; ++k) {
    in.expect("a cone and its size", 2);
    const Kind kind = cone_kind(in.tokens[0]);
    const int32_t least = kind == Kind::rotated ? 2 : kind == Kind::quadratic ? 1 : 0;
    const int32_t size = integer(in.tokens[1], least, *total - first + 1, "size of a cone");
    cones.push_back({kind, first, size});
    first += size;
  }
  if (first != *total)
    throw Stop{"the cones have " + std::to_string(first) + " elements, not " + std::to_string(*total)};
  return cones;
}

// "index value" lines into a dense vector.
void read_vector(Lines& in, const char* what, std::vector<double>* vector) {
  in.expect("a count", 1);
  const int32_t number = count(in.tokens[0]);
  std::vector<bool> seen(vector->size());
  for (int32_t k = 0; k < number; ++k) {
    in.expect("an index and a value", 2);
    const int32_t at = index(in.tokens[0], static_cast<int32_t>(vector->size()), what);
    if (seen[static_cast<std::size_t>(at)]) throw Stop{std::string(what) + " " + std::to_string(at) + " stands twice"};
    seen[static_cast<std::size_t>(at)] = true;
    (*vector)[static_cast<std::size_t>(at)] = real(in.tokens[1]);
  }
}

void read_section(Lines& in, const std::string& name, Model* m) {
  const auto need_variables = [m, &name] {
    if (m->numvar < 0) throw Stop{name + " before VAR"};
  };
  if (name == "OBJSENSE") {
    in.expect("MIN or MAX", 1);
    if (in.tokens[0] != "MIN" && in.tokens[0] != "MAX") throw Stop{"expected MIN or MAX"};
    m->maximise = in.tokens[0] == "MAX";
  } else if (name == "VAR") {
    m->varcones = read_cones(in, &m->numvar);
    m->c.assign(static_cast<std::size_t>(m->numvar), 0.0);
  } else if (name == "CON") {
    m->concones = read_cones(in, &m->numcon);
    m->b.assign(static_cast<std::size_t>(m->numcon), 0.0);
  } else if (name == "INT") {
    need_variables();
    in.expect("a count", 1);
    for (int32_t k = count(in.tokens[0]); k > 0; --k) {
      in.expect("the index of a variable", 1);
      m->integers.push_back(index(in.tokens[0], m->numvar, "variable"));
    }
  } else if (name == "OBJACOORD") {
    need_variables();
    read_vector(in, "variable", &m->c);
  } else if (name == "OBJBCOORD") {
    in.expect("a number", 1);
    m->cfix = real(in.tokens[0]);
  } else if (name == "BCOORD") {
    read_vector(in, "constraint", &m->b);
  } else if (name == "ACOORD") {
    need_variables();
    in.expect("a count", 1);
    for (int32_t k = count(in.tokens[0]); k > 0; --k) {
      in.expect("a constraint, a variable and a value", 3);
      const int32_t row = index(in.tokens[0], m->numcon, "constraint");
      m->a.push_back({row, index(in.tokens[1], m->numvar, "variable"), real(in.tokens[2]), in.number});
    }
  } else {
    throw Stop{"the section '" + name +
               "' is not supported; known are OBJSENSE, VAR, CON, INT, OBJACOORD, OBJBCOORD, "
               "ACOORD and BCOORD"};
  }
}

Model read_model(Lines& in) {
  Model m;
  in.expect("VER", 1);
  if (in.tokens[0] != "VER") throw Stop{"expected VER"};
  in.expect("the version", 1);
  integer(in.tokens[0], 1, 5, "version of the format");
  std::vector<std::string> seen;
  while (in.next()) {
    const std::string name = in.text;
    if (std::find(seen.begin(), seen.end(), name) != seen.end()) throw Stop{"a second section " + name};
    read_section(in, name, &m);
    seen.push_back(name);
  }
  if (m.numvar < 0) throw Stop{"there is no VAR section"};
  const auto before = [](const Element& x, const Element& y) {
    return x.column != y.column ? x.column < y.column : x.row != y.row ? x.row < y.row : x.line < y.line;
  };
  std::sort(m.a.begin(), m.a.end(), before);
  for (std::size_t k = 1; k < m.a.size(); ++k) {
    if (m.a[k].row != m.a[k - 1].row || m.a[k].column != m.a[k - 1].column) continue;
    in.number = m.a[k].line;
    in.text.clear();
    throw Stop{"the element of constraint " + std::to_string(m.a[k].row) + " and variable " +
               std::to_string(m.a[k].column) + " stands twice"};
  }
  return m;
}

bool is_quadratic(const Cone& cone) { return cone.kind == Kind::quadratic || cone.kind == Kind::rotated; }

struct Bounds {
  std::vector<int32_t> key;
  std::vector<double> lower, upper;
  void add(Kind kind, double at) {
    const bool low = kind == Kind::nonnegative || kind == Kind::zero,
               up = kind == Kind::nonpositive || kind == Kind::zero;
    key.push_back(low && up ? TRV_BK_FX : low ? TRV_BK_LO : up ? TRV_BK_UP : TRV_BK_FR);
    lower.push_back(low ? at : -infinity);
    upper.push_back(up ? at : infinity);
  }
};

int32_t load(TRVtask task, const Model& m) {
  Bounds rows, columns;
  for (const Cone& cone : m.varcones)
    for (int32_t k = 0; k < cone.size; ++k) columns.add(cone.kind, 0.0);
  // a'x + b in a linear cone bounds a'x at -b; in a quadratic one it is a'x - s = -b for a new s.
  std::vector<int32_t> added;  // the row of each new variable
  for (const Cone& cone : m.concones)
    for (int32_t k = 0; k < cone.size; ++k) {
      const int32_t row = cone.first + k;
      rows.add(is_quadratic(cone) ? Kind::zero : cone.kind, 0.0 - m.b[static_cast<std::size_t>(row)]);
      if (is_quadratic(cone)) added.push_back(row);
    }
  const auto numvar = static_cast<std::size_t>(m.numvar) + added.size();
  if (numvar > INT32_MAX || m.a.size() + added.size() > INT32_MAX) return TRV_RES_ERR_SPACE;
  std::vector<double> c = m.c;
  c.resize(numvar, 0.0);
  std::vector<int32_t> ptr(numvar + 1, 0), sub;
  std::vector<double> val;
  for (const Element& e : m.a) {
    ++ptr[static_cast<std::size_t>(e.column) + 1];
    sub.push_back(e.row);
    val.push_back(e.value);
  }
  for (std::size_t k = 0; k < added.size(); ++k) {
    ptr[static_cast<std::size_t>(m.numvar) + k + 1] = 1;
    sub.push_back(added[k]);
    val.push_back(-1.0);
    columns.add(Kind::free, 0.0);
  }
  for (std::size_t j = 0; j < numvar; ++j) ptr[j + 1] += ptr[j];
  const auto columns_total = static_cast<int32_t>(numvar);
  int32_t code = TRV_inputdata(task, m.numcon, columns_total, m.numcon, columns_total, c.data(), m.cfix, ptr.data(),
                               ptr.data() + 1, sub.data(), val.data(), rows.key.data(), rows.lower.data(),
                               rows.upper.data(), columns.key.data(), columns.lower.data(), columns.upper.data());
  if (code == TRV_RES_OK)
    code = TRV_putobjsense(task, m.maximise ? TRV_OBJECTIVE_SENSE_MAXIMIZE : TRV_OBJECTIVE_SENSE_MINIMIZE);
  for (std::size_t k = 0; k < m.integers.size() && code == TRV_RES_OK; ++k)
    code = TRV_putvartype(task, m.integers[k], TRV_VAR_TYPE_INT);
  int32_t next = m.numvar;
  std::vector<int32_t> members;
  const auto append = [&](const Cone& cone, int32_t first) {
    if (code != TRV_RES_OK) return;
    members.resize(static_cast<std::size_t>(cone.size));
    for (int32_t k = 0; k < cone.size; ++k) members[static_cast<std::size_t>(k)] = first + k;
    code =
        TRV_appendcone(task, cone.kind == Kind::rotated ? TRV_CT_RQUAD : TRV_CT_QUAD, 0.0, cone.size, members.data());
  };
  const auto quadratics = [](const std::vector<Cone>& cones) {
    return static_cast<int32_t>(std::count_if(cones.begin(), cones.end(), is_quadratic));
  };
  const int32_t numcone = quadratics(m.varcones) + quadratics(m.concones);
  if (code == TRV_RES_OK && numcone > 0) code = TRV_putmaxnumcone(task, numcone);
  for (const Cone& cone : m.varcones)
    if (is_quadratic(cone)) append(cone, cone.first);
  for (const Cone& cone : m.concones)
    if (is_quadratic(cone)) {
      append(cone, next);
      next += cone.size;
    }
  return code;
}

struct Close {
  void operator()(gzFile file) const { gzclose(file); }
};

}  // namespace

bool is_cbf(const std::string& file) { return file.ends_with(".cbf") || file.ends_with(".cbf.gz"); }

ReadError read_cbf(TRVtask task, const std::string& file) {
  ReadError error;
  errno = 0;
  const std::unique_ptr<gzFile_s, Close> stream(gzopen(file.c_str(), "rb"));
  if (stream == nullptr) {
    error.code = TRV_RES_ERR_FILE_OPEN;
    error.message =
        std::string("the file can't be opened") + (errno != 0 ? std::string(": ") + std::strerror(errno) : "");
    return error;
  }
  Lines in(stream.get());
  try {
    const Model model = read_model(in);
    error.code = load(task, model);
    if (error.code != TRV_RES_OK) error.message = "the problem can't be stored";
  } catch (const Stop& stop) {
    error.code = TRV_RES_ERR_READ_FORMAT;
    error.line = in.number;
    error.text = in.text;
    error.message = stop.message + '.';
  } catch (const std::bad_alloc&) {
    error.code = TRV_RES_ERR_SPACE;
    error.message = "out of memory";
  }
  return error;
}

}  // namespace app
