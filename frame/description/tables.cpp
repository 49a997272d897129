#include "frame/description/tables.hpp"

#include <stdexcept>

namespace tuvo {

std::map<std::string, RawTable>& rare_tables() {
    static std::map<std::string, RawTable> tables;
    return tables;
}

RareTable::RareTable(const char* symbol, RawTable (*rule)()) {
    if (!rare_tables().emplace(symbol, rule()).second)
        throw std::logic_error(std::string("two rare tables are named ") + symbol);
}

}  // namespace tuvo
