// Weak stand-ins that let the library link until the directions and steps are there.
#include "homo/hom_internal.h"

namespace tarvo {

[[gnu::weak]] void hom_regularize(HomState*, int32_t) {}
[[gnu::weak]] int32_t hom_factor(HomState*) { return KKT_FAILED; }
[[gnu::weak]] void hom_initfree(HomState*, int32_t) {}
[[gnu::weak]] void hom_initcomputations(HomState*, int32_t) {}
[[gnu::weak]] void hom_computesearch(HomState*, const HomTarget&, HomVec*) {}
[[gnu::weak]] bool hom_computesearchr(HomState*, const HomTarget&, HomVec*) { return false; }
[[gnu::weak]] double hom_dxds(const HomState*, const HomVec&) { return 0.0; }
[[gnu::weak]] void hom_corterms(HomState*, const HomVec&, HomCor*) {}
[[gnu::weak]] void hom_mulcor2(HomState*, double, double, HomVec*) {}
[[gnu::weak]] HomSteps hom_steplimits(const HomState*, double, const HomVec&) { return {}; }
[[gnu::weak]] double hom_neighbourstep(HomState*, const HomSteps&, double, double, double, bool, const HomVec&) {
  return 0.0;
}
[[gnu::weak]] void hom_takestep(HomState*, double, const HomVec&) {}

}  // namespace tarvo
