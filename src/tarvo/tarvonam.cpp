// Names of constraints, variables, cones, the objective and the task. Every name but the task's stands in one
// text block, an item holding its offset; a look-up table a kind is built by the first search.
#include "tarvo/tarvonam.h"

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstring>

#include "tarvo/frame.h"

namespace tarvo {

namespace {

constexpr int num_kinds = 3;
static_assert(TRV_PI_VAR == 0 && TRV_PI_CON == 1 && TRV_PI_CONE == 2);

Array<int32_t>& offsets(NameStore& names, int32_t whichitem) {
  return whichitem == TRV_PI_VAR ? names.varname : whichitem == TRV_PI_CON ? names.conname : names.conename;
}

int32_t item_count(const Task* task, int32_t whichitem) {
  return whichitem == TRV_PI_VAR ? task->numvar : whichitem == TRV_PI_CON ? task->numcon : task->numcone;
}

int32_t item_capacity(const Task* task, int32_t whichitem) {
  return whichitem == TRV_PI_VAR ? task->maxnumvar : whichitem == TRV_PI_CON ? task->maxnumcon : task->maxnumcone;
}

NameTexts texts(Task* task, int32_t whichitem) {
  return {task->names.nametext.data(), offsets(task->names, whichitem).data()};
}

// False when out of memory.
bool build_map(Task* task, int32_t whichitem, Location at = Location::current()) {
  HashTable& map = task->names.namemap[whichitem];
  if (hashtabl_exists(map)) return true;
  if (!hashtabl_make(&map, task->sys, item_capacity(task, whichitem))) return false;
  const NameTexts names = texts(task, whichitem);
  for (int32_t i = 0; i < item_count(task, whichitem); ++i)
    if (names.offset[i] != 0 && !hashtabl_insert(&map, names, i))
      task_fatal(task, at, "Could not assigne name: %s k: %d", names.text + names.offset[i], i);
  return true;
}

// Packs all text into a new block with room for `extra` bytes and more: names for the items that have none yet,
// guessed from the average length, and half of the present text, so that renames too copy it only now and then.
// Offsets are 32 bits, so the block ends at 2 GiB. False when there is no room; nothing has changed then.
bool grow_text(Task* task, uint64_t extra) {
  NameStore& names = task->names;
  uint64_t live = 1, named = 0, items = 0;
  const auto measure = [&](int32_t offset) {
    if (offset == 0) return;
    live += std::strlen(names.nametext.data() + offset) + 1;
    ++named;
  };
  measure(names.objname);
  for (int kind = 0; kind < num_kinds; ++kind) {
    const Array<int32_t>& offset = offsets(names, kind);
    for (int32_t i = 0; i < item_count(task, kind); ++i) measure(offset[i]);
    items += static_cast<uint64_t>(item_capacity(task, kind));
  }
  const uint64_t unnamed = items > named ? items - named : 0;
  const uint64_t average = named == 0 ? extra : live / named + 1;
  const uint64_t needed = live + extra;
  if (needed > INT32_MAX) return false;
  const uint64_t wanted = std::max({17 * items + 1, needed + unnamed * average, needed + live / 2});
  const uint64_t size = std::max(std::min<uint64_t>(wanted, INT32_MAX), needed);
  Array<char> packed;
  if (!packed.alloc(task->sys, static_cast<std::size_t>(size)) &&
      (size == needed || !packed.alloc(task->sys, static_cast<std::size_t>(needed))))
    return false;
  packed[0] = '\0';
  std::size_t used = 1;
  const auto move = [&](int32_t* offset) {
    if (*offset == 0) return;
    const char* const text = names.nametext.data() + *offset;
    const std::size_t length = std::strlen(text) + 1;
    std::memcpy(packed.data() + used, text, length);
    *offset = static_cast<int32_t>(used);
    used += length;
  };
  move(&names.objname);
  for (int kind = 0; kind < num_kinds; ++kind)
    for (int32_t i = 0; i < item_count(task, kind); ++i) move(&offsets(names, kind)[i]);
  names.nametext.swap(packed);
  names.nametextfree = static_cast<uint32_t>(names.nametext.size() - used);
  return true;
}

bool make_room(Task* task, std::size_t length) {
  return length < task->names.nametextfree || (length < INT32_MAX && grow_text(task, length + 1));
}

// Puts a text at the first free byte, where room has been made.
int32_t place(NameStore& names, std::string_view name) {
  const std::size_t at = names.nametext.size() - names.nametextfree;
  std::memcpy(names.nametext.data() + at, name.data(), name.size());
  names.nametext[at + name.size()] = '\0';
  names.nametextfree -= static_cast<uint32_t>(name.size() + 1);
  return static_cast<int32_t>(at);
}

int32_t check_kind(Task* task, int32_t whichitem, Location at = Location::current()) {
  if (whichitem >= 0 && whichitem < num_kinds) return TRV_RES_OK;
  return report<TRV_RES_ERR_INV_NAME_ITEM>({task, at}, whichitem);
}

// Copies a name out, cut if it must be.
int32_t copy_name(Task* task, const char* name, int32_t maxlen, int32_t* len, char* buffer,
                  Location at = Location::current()) {
  const auto length = static_cast<int32_t>(std::strlen(name));
  if (len != nullptr) *len = length;
  if (buffer == nullptr) return TRV_RES_OK;
  const int32_t kept = std::min(length, std::max(maxlen, 0) - 1);
  if (kept >= 0) {
    std::memcpy(buffer, name, static_cast<std::size_t>(kept));
    buffer[kept] = '\0';
  }
  return kept == length ? int32_t{TRV_RES_OK} : report<TRV_RES_ERR_NAME_MAX_LEN>({task, at}, name, length, maxlen);
}

}  // namespace

const char* item_name(const Task* task, int32_t whichitem, int32_t i) {
  const NameStore& names = task->names;
  const Array<int32_t>& offset = whichitem == TRV_PI_VAR   ? names.varname
                                 : whichitem == TRV_PI_CON ? names.conname
                                                           : names.conename;
  return offset[i] == 0 ? "" : names.nametext.data() + offset[i];
}

const char* objective_name(const Task* task) {
  return task->names.objname == 0 ? "" : task->names.nametext.data() + task->names.objname;
}

int32_t names_put(Task* task, int32_t whichitem, int32_t i, std::string_view name, int32_t* owner) {
  NameStore& names = task->names;
  Array<int32_t>& offset = offsets(names, whichitem);
  if (name.empty() && offset[i] == 0) return TRV_RES_OK;
  if (!build_map(task, whichitem)) return TRV_RES_ERR_SPACE;
  HashTable& map = names.namemap[whichitem];
  // Looked up before the old name goes, so that a refused name leaves the item as it was.
  if (!name.empty() && !names.nametext.empty()) {
    const int32_t found = hashtabl_find(map, texts(task, whichitem), name);
    if (found == i) return TRV_RES_OK;
    if (found != -1) {
      *owner = found;
      return TRV_RES_ERR_DUP_NAME;
    }
  }
  const bool in_place = offset[i] != 0 && name.size() <= std::strlen(item_name(task, whichitem, i));
  if (!in_place && !make_room(task, name.size())) return TRV_RES_ERR_SPACE;
  if (offset[i] != 0 && !hashtabl_remove(&map, texts(task, whichitem), i))
    task_fatal(task, Location::current(), "Could not assigne name: %s k: %d", item_name(task, whichitem, i), i);
  if (name.empty()) {
    offset[i] = 0;
    return TRV_RES_OK;
  }
  if (in_place) {
    char* const text = names.nametext.data() + offset[i];
    std::memcpy(text, name.data(), name.size());
    text[name.size()] = '\0';
  } else {
    offset[i] = place(names, name);
  }
  if (!hashtabl_insert(&map, texts(task, whichitem), i))
    task_fatal(task, Location::current(), "Could not assigne name: %s k: %d", item_name(task, whichitem, i), i);
  return TRV_RES_OK;
}

int32_t names_find(Task* task, int32_t whichitem, std::string_view name) {
  if (name.empty() || task->names.nametext.empty()) return -1;
  const NameTexts names = texts(task, whichitem);
  if (build_map(task, whichitem)) return hashtabl_find(task->names.namemap[whichitem], names, name);
  for (int32_t i = 0; i < item_count(task, whichitem); ++i)
    if (name == names.text + names.offset[i]) return i;
  return -1;
}

void names_dropmap(Task* task, int32_t whichitem) { hashtabl_delete(&task->names.namemap[whichitem]); }

void names_clear(Task* task) {
  for (int kind = 0; kind < num_kinds; ++kind) {
    names_dropmap(task, kind);
    offsets(task->names, kind).reset();
  }
  task->names.nametext.reset();
  task->names.nametextfree = 0;
  task->names.objname = 0;
}

const char* names_writertext(const Task* task, int32_t whichitem, int32_t i, bool generic,
                             char (&buffer)[generic_name_size]) {
  if (!generic) return item_name(task, whichitem, i);
  buffer[0] = whichitem == TRV_PI_VAR ? 'x' : whichitem == TRV_PI_CON ? 'c' : 'k';
  const int64_t number = static_cast<int64_t>(i) + task->ipar[TRV_IPAR_WRITE_GENERIC_NAMES_IO];
  *std::to_chars(buffer + 1, buffer + generic_name_size - 1, number).ptr = '\0';
  return buffer;
}

const char* names_objectivetext(const Task* task, bool generic) { return generic ? "obj" : objective_name(task); }

}  // namespace tarvo

using namespace tarvo;

int32_t TRV_putname(TRVtask task, int32_t whichitem, int32_t i, const char* name) {
  if (const int32_t r = task_check(task); r != TRV_RES_OK) return r;
  if (const int32_t r = check_kind(task, whichitem); r != TRV_RES_OK) return r;
  if (const int32_t r = check_index(task, "i", whichitem, i); r != TRV_RES_OK) return r;
  if (name == nullptr) name = "";
  int32_t owner = -1;
  const int32_t r = names_put(task, whichitem, i, name, &owner);
  if (r == TRV_RES_ERR_SPACE) return report<TRV_RES_ERR_SPACE>(task);
  if (r != TRV_RES_ERR_DUP_NAME) return r;
  char item[generic_name_size];
  *std::to_chars(item, item + generic_name_size - 1, owner).ptr = '\0';
  return report<TRV_RES_ERR_DUP_NAME>(task, name, static_cast<const char*>(item));
}

int32_t TRV_putobjname(TRVtask task, const char* name) {
  if (const int32_t r = task_check(task); r != TRV_RES_OK) return r;
  if (name == nullptr || *name == '\0') {
    task->names.objname = 0;
    return TRV_RES_OK;
  }
  const std::string_view text = name;
  if (!make_room(task, text.size())) return report<TRV_RES_ERR_SPACE>(task);
  task->names.objname = place(task->names, text);
  return TRV_RES_OK;
}

int32_t TRV_puttaskname(TRVtask task, const char* name) {
  if (const int32_t r = task_check(task); r != TRV_RES_OK) return r;
  char* copy = nullptr;
  if (name != nullptr && *name != '\0') {
    copy = sysenv_strdup(task->sys, name);
    if (copy == nullptr) return report<TRV_RES_ERR_SPACE>(task);
  }
  sysenv_free(task->sys, task->task_name);
  task->task_name = copy;
  return TRV_RES_OK;
}

int32_t TRV_getname(TRVtask task, int32_t whichitem, int32_t i, int32_t maxlen, int32_t* len, char* name) {
  if (const int32_t r = task_check(task); r != TRV_RES_OK) return r;
  if (const int32_t r = check_kind(task, whichitem); r != TRV_RES_OK) return r;
  if (const int32_t r = check_index(task, "i", whichitem, i); r != TRV_RES_OK) return r;
  return copy_name(task, item_name(task, whichitem, i), maxlen, len, name);
}

int32_t TRV_getvarname(TRVtask task, int32_t i, int32_t maxlen, char* name) {
  return TRV_getname(task, TRV_PI_VAR, i, maxlen, nullptr, name);
}

int32_t TRV_getconname(TRVtask task, int32_t i, int32_t maxlen, char* name) {
  return TRV_getname(task, TRV_PI_CON, i, maxlen, nullptr, name);
}

int32_t TRV_getobjname(TRVtask task, int32_t maxlen, int32_t* len, char* name) {
  if (const int32_t r = task_check(task); r != TRV_RES_OK) return r;
  return copy_name(task, objective_name(task), maxlen, len, name);
}

int32_t TRV_gettaskname(TRVtask task, int32_t maxlen, char* name) {
  if (const int32_t r = task_check(task); r != TRV_RES_OK) return r;
  return copy_name(task, task->task_name == nullptr ? "" : task->task_name, maxlen, nullptr, name);
}

int32_t TRV_getmaxnamelen(TRVtask task, int32_t* maxlen) {
  if (const int32_t r = task_check(task); r != TRV_RES_OK) return r;
  std::size_t longest = std::strlen(objective_name(task));
  for (int32_t kind = 0; kind < num_kinds; ++kind)
    for (int32_t i = 0; i < item_count(task, kind); ++i)
      longest = std::max(longest, std::strlen(item_name(task, kind, i)));
  if (maxlen != nullptr) *maxlen = static_cast<int32_t>(longest);
  return TRV_RES_OK;
}

int32_t TRV_getnameindex(TRVtask task, int32_t whichitem, const char* name, int32_t* asgn, int32_t* index) {
  if (const int32_t r = task_check(task); r != TRV_RES_OK) return r;
  if (const int32_t r = check_kind(task, whichitem); r != TRV_RES_OK) return r;
  if (asgn != nullptr) *asgn = 0;
  if (index != nullptr) *index = item_capacity(task, whichitem);
  if (name == nullptr || *name == '\0') return report<TRV_RES_ERR_NULL_NAME>(task);
  const int32_t found = names_find(task, whichitem, name);
  if (found == -1) return TRV_RES_OK;
  if (asgn != nullptr) *asgn = 1;
  if (index != nullptr) *index = found;
  return TRV_RES_OK;
}
