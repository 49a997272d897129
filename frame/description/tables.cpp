#include "frame/description/tables.hpp"

#include <stdexcept>
#include <utility>

namespace tuvo {
namespace {

std::map<std::string, std::function<RawTable()>>& rules() {
    static std::map<std::string, std::function<RawTable()>> by_symbol;
    return by_symbol;
}

}  // namespace

RawTable rare_table(const std::string& symbol) {
    const auto rule = rules().find(symbol);
    if (rule == rules().end()) throw std::out_of_range("no rare table is named " + symbol);
    return rule->second();
}

std::map<std::string, RawTable> rare_tables() {
    std::map<std::string, RawTable> tables;
    for (const auto& [symbol, rule] : rules()) tables.emplace(symbol, rule());
    return tables;
}

RareTable::RareTable(const std::string& symbol, std::function<RawTable()> rule) {
    if (!rules().emplace(symbol, std::move(rule)).second)
        throw std::logic_error("two rare tables are named " + symbol);
}

}  // namespace tuvo
