// Lines of LLVM's language that call a kernel: values are cut into the parts that the call boundary has, and results
// joined from them.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "builtins/abi.hpp"

namespace tuvo::builtins {

/// A value by its name in the text: "%3", "zeroinitializer".
struct Operand {
    Type type;
    std::string name;
};

/// The lines of one function.
struct Body {
    std::vector<std::string> lines;
    int values = 0;

    /// Adds "%vN = TEXT" and returns "%vN".
    std::string add(const std::string& text) {
        const std::string name = "%v" + std::to_string(values++);
        lines.push_back(name + " = " + text);
        return name;
    }
    void line(const std::string& text) { lines.push_back(text); }
};

/// What a module declares besides its own functions: a line for each kernel that is called.
using Declarations = std::set<std::string>;

/// Lanes `first` to `first + count - 1` of a vector; those that it doesn't have are undefined.
Operand slice(Body& body, const Operand& vector, int first, int count);

/// A value in all lanes.
Operand splat(Body& body, const Operand& scalar, int lanes);

/// Whether all values of a kernel cross the call in one whole register each, as vectors of `width` lanes.
bool passes_whole(const Family& family, int width);

/// Calls the kernel; `out` is the name of a plain pointer, or empty. Returns the results.
std::vector<Operand> call_kernel(Body& body, Declarations& declarations, const Family& family, int width,
                                 const std::vector<Operand>& arguments, const std::string& out, Pointers pointers,
                                 const std::string& call_attributes = "");

}  // namespace tuvo::builtins
