// The name store behind the name calls, as the file formats and reports use it.
#pragma once

#include <string_view>

#include "tarvo/task.h"

namespace tarvo {

// The name of an item (TRV_PI_), "" when it has none. Valid until the next change of a name.
const char* item_name(const Task* task, int32_t whichitem, int32_t i);
const char* objective_name(const Task* task);

// Names an item; "" clears its name. Reports nothing: TRV_RES_OK, TRV_RES_ERR_SPACE, or TRV_RES_ERR_DUP_NAME with
// *owner the item that has the name; a failure changes nothing. The name may not stand in this task's store and
// holds no NUL.
int32_t names_put(Task* task, int32_t whichitem, int32_t i, std::string_view name, int32_t* owner);
// Index of a name, or -1. Builds the look-up table when it is absent and memory allows.
int32_t names_find(Task* task, int32_t whichitem, std::string_view name);

// Drops the look-up table of a kind: before every change of its numbering or capacity. Appending within the
// capacity keeps it.
void names_dropmap(Task* task, int32_t whichitem);
// Frees all names, the offsets with them; the task's own name stays. Never allocates.
void names_clear(Task* task);

// Texts for a writer: an item's own name, or when `generic` is set "x%d", "c%d" or "k%d" with the index plus
// TRV_IPAR_WRITE_GENERIC_NAMES_IO; the objective's generic name is "obj". `buffer` holds the generic text.
inline constexpr int32_t generic_name_size = 16;
const char* names_writertext(const Task* task, int32_t whichitem, int32_t i, bool generic,
                             char (&buffer)[generic_name_size]);
const char* names_objectivetext(const Task* task, bool generic);

}  // namespace tarvo
