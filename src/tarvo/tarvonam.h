// The name store behind the name calls, as the file formats and reports use it.
#pragma once

#include "tarvo/task.h"

namespace tarvo {

// The name of an item (TRV_PI_), "" when it has none. Valid until the next change of a name.
const char* item_name(const Task* task, int32_t whichitem, int32_t i);
const char* objective_name(const Task* task);

// Drops the look-up table of a kind: before every change of its numbering or capacity.
void names_dropmap(Task* task, int32_t whichitem);
// Index of a name, or -1. `failed` becomes 1 when memory ran out while the table was built.
int32_t names_find(Task* task, int32_t whichitem, const char* name, int32_t* failed);
// Frees all names. Never allocates.
void names_clear(Task* task);

// Text of an item for a writer: its own name, or the generic one ("x%d", "c%d", "k%d") when `generic` is set.
// `forbidden` lists characters that a name may not hold, or is NULL. 1 when the text is usable. `text` holds
// `size` bytes; a longer name is not usable.
int32_t names_writertext(Task* task, int32_t whichitem, int32_t i, int32_t generic, const char* forbidden, char* text,
                         int32_t size);

}  // namespace tarvo
