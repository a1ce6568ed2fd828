// Container.h - writing and reading the head of a movie file (format/MovieLayout.h) through a SpoolFile.
#pragma once

#include <cstdint>

#include "files/SpoolFile.h"
#include "format/MovieLayout.h"

namespace vorn {

void WriteFileHeader(SpoolFile* file, const VornFileHeader& header);
void WriteZeroWords(SpoolFile* file, uint64_t count);
// Reads at the current position; false if the file ends before the header does.
bool ReadFileHeader(SpoolFile* file, VornFileHeader* header);

} // namespace vorn
