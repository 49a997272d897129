// Raw tables as assembler text.
#pragma once

#include <iosfwd>
#include <map>
#include <string>

#include "frame/description/tables.hpp"

namespace tuvo {

/// Writes the tables as GNU assembler text: read-only data, each table a hidden symbol on a 64-byte boundary, one entry
/// a line with its decimal values in a comment. The text is an assembler file of its own.
void write_rare_tables(std::ostream& out, const std::map<std::string, RawTable>& tables);

}  // namespace tuvo
