// The MPS format: reading a problem into a task and writing a task's problem.
#pragma once

#include "cpub/sysfile.h"
#include "tarvo/task.h"

namespace tarvo {

// Reads an MPS file into an empty task. The rest of the open file is taken into memory at once; `filename` is only
// for the reports. Syntax and the order of sections are checked in a first pass that changes nothing in the task but
// its capacities; an error behind that leaves the task partly filled. A response code, reported.
int32_t mps_read(Task* task, File* file, const char* filename);
// The same from text in memory, which is changed (carriage returns are taken out).
int32_t mps_readtext(Task* task, char* text, std::size_t size, const char* filename);

// Writes the problem of a task. With `generic` all items are named x1, c1, k1 and so on. File errors are left to the
// close of the file. A response code, reported.
int32_t mps_write(Task* task, File* file, bool generic);

}  // namespace tarvo
