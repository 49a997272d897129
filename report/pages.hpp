// The report's pages, as HTML.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "frame/description/families.hpp"
#include "report/tables.hpp"

namespace tuvo::report {

/// Where everything comes from and goes to.
struct Report {
    std::filesystem::path out, sources, generated;
    Table accuracy, performance;
};

/// An operation's families, float before double, by tier.
struct Operation {
    std::string name;
    std::vector<const DescribedFamily*> families;
};

/// All operations with a description, in the order of the operation table; conversions are one each.
std::vector<Operation> operations();

/// "log.html".
std::string page_name(const Operation& operation);
/// "logf_native.svg", beside the pages.
std::string plot_name(const Family& family);

std::string index_page(const Report& report, const std::vector<Operation>& operations);
/// `plotted` are names of the families that have a plot.
std::string operation_page(const Report& report, const Operation& operation, const std::vector<std::string>& plotted);

/// The style sheet that all pages share.
extern const char* const style_sheet;

}  // namespace tuvo::report
