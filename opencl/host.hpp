// The OpenCL host interface in a few plain functions: one device, one queue, buffers filled and read back at once.
// What the interface refuses is thrown as std::runtime_error with the function's name and the error's number.
#pragma once

#define CL_TARGET_OPENCL_VERSION 300
#include <CL/cl.h>

#include <cstddef>
#include <string>
#include <vector>

namespace tuvo::opencl {

struct Host {
    cl_platform_id platform;
    cl_device_id device;
    cl_context context;
    cl_command_queue queue;
};

/// The first device of the first platform.
Host open_host();
/// "NAME (VERSION), DRIVER".
std::string describe(const Host& host);

/// The processor that the device's code is for, as LLVM calls it.
std::string processor(const Host& host);

/// Compiles a program; the message of a failure holds the compiler's own.
cl_program build(const Host& host, const std::string& source);

/// Bytes of a kernel's argument, read back when it has run.
using Bytes = std::vector<std::byte>;

/// Runs a kernel with one work-item on the buffers. Returns the seconds that the fastest of `turns` runs took.
double run(const Host& host, cl_program program, const std::string& kernel, std::vector<Bytes>& buffers, int turns = 1);

}  // namespace tuvo::opencl
