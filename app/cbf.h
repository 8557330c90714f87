// Reads the Conic Benchmark Format into a task: linear cones and the (rotated) quadratic cones of variables and of
// affine expressions, integer variables, objective. Anything else in a file is an error.
#pragma once

#include <tarvo.h>

#include <string>

#include "session.h"

namespace app {

// Whether the name of a file tells this format: it ends in ".cbf" or ".cbf.gz".
bool is_cbf(const std::string& file);

// Replaces the problem of the (empty) task. An affine expression in a quadratic cone gets a variable of its own, behind
// those of the file, and the row that ties it to the expression.
ReadError read_cbf(TRVtask task, const std::string& file);

}  // namespace app
