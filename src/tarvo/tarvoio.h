// What the readers and writers of all file formats share.
#pragma once

#include <cstdint>
#include <span>

namespace tarvo {

// Which of the words is an extension of the file's name: scanned from the end, every text between a "." and the next
// "." or the end counts, in any case. words.size() when none is. The folders in front don't count.
std::size_t classify_extension(const char* filename, std::span<const char* const> words);

}  // namespace tarvo
