// Text made by printf while an object of this type lives has the decimal point of the "C" locale, whatever the
// application has set. The "C" locale is static in the C runtime: neither call allocates.
#pragma once

#include <clocale>

namespace tarvo {

class CLocale {
 public:
  CLocale() : c_(newlocale(LC_ALL_MASK, "C", nullptr)), old_(c_ != nullptr ? uselocale(c_) : nullptr) {}
  CLocale(const CLocale&) = delete;
  CLocale& operator=(const CLocale&) = delete;
  ~CLocale() {
    if (c_ == nullptr) return;
    uselocale(old_);
    freelocale(c_);
  }

 private:
  locale_t c_, old_;
};

}  // namespace tarvo
