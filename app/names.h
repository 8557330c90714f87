// Parameters and statuses by the names that a person types and reads.
#pragma once

#include <tarvo.h>

#include <ostream>
#include <string>

#include "session.h"

namespace app {

// The member of an enumeration in lower case without its prefix, as "prim_infeas_cer"; "unknown" if there is none.
std::string member_name(const char* family, int32_t value);

// The optimizers by the names of the command line: "primal" is TRV_OPTIMIZER_PRIMAL_SIMPLEX. -1 when unknown.
int32_t optimizer_value(const std::string& name);
std::string optimizer_name(int32_t value);

// Sets a parameter from "NAME=VALUE". Case doesn't matter in names, and prefixes may be left away: the parameter's
// (TRV_IPAR_) and, of a symbolic value, the family's (TRV_SCALING_). Fails with what would have been right.
void set_param(const Session& session, const std::string& setting);

// Lists name, type, range, default and meaning of the parameters whose names hold the pattern; "*" and "?" in it
// stand for any text and any character, and the whole name without its prefix has to match then.
// Whether there are any.
bool list_params(std::ostream& out, const std::string& pattern);

}  // namespace app
