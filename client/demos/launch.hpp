// Kernels called with C++ values.
#pragma once

#include <stdexcept>
#include <type_traits>

#include "client/program.hpp"

namespace tuvo::client {

/// The element type of OpenCL C that is laid out as T.
template <typename T>
constexpr Scalar scalar_of() {
    for (const ScalarTraits& candidate : scalars)
        if (candidate.bytes == sizeof(T) && candidate.floating == std::is_floating_point_v<T> &&
            candidate.is_signed == std::is_signed_v<T>)
            return candidate.scalar;
    throw std::logic_error("no element type is laid out like that");
}

/// Runs the kernel `name` over the global ids 0 to `size` - 1. Containers stand for pointers, numbers for values.
template <typename... Arguments>
void launch(const Program& program, const std::string& name, std::uint64_t size, Arguments&... arguments) {
    const KernelSignature& kernel = find_kernel(program, name);
    std::array<void*, sizeof...(arguments)> pointers{};
    std::vector<void*> values;
    const auto pass = [&](bool pointer, Scalar element, const void* address) {
        const std::size_t i = values.size();
        if (i >= kernel.parameters.size() || kernel.parameters[i].pointer != pointer ||
            kernel.parameters[i].element != element)
            throw std::logic_error("argument " + std::to_string(i + 1) + " doesn't fit the kernel " + name);
        pointers[i] = const_cast<void*>(address);
        values.push_back(pointer ? &pointers[i] : pointers[i]);
    };
    const auto pass_one = [&](auto& argument) {
        if constexpr (requires { argument.data(); })
            pass(true, scalar_of<std::remove_cvref_t<decltype(*argument.data())>>(), argument.data());
        else
            pass(false, scalar_of<std::remove_cvref_t<decltype(argument)>>(), &argument);
    };
    (pass_one(arguments), ...);
    if (values.size() != kernel.parameters.size()) throw std::logic_error("arguments of " + name + " are missing");
    run_kernel(program, kernel, values, size);
}

}  // namespace tuvo::client
